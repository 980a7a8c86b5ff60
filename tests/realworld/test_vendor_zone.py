"""A customer of the vendor's dynamic-DNS service asks for its host name and all below it by dns-01.
The zone is a real one; what it held when is read from the name server's own journal."""

import base64

import pytest

from lib.expect import failed, issued
from world import appliance
from world.ddns import SERVICE_NAME, DdnsService
from world.name_server import CA_NAME, HOST_NAME, VENDOR_SERVER
from world.network import INTERNET, ROUTER

RECORD = "_acme-challenge." + HOST_NAME
WILDCARD = "*." + HOST_NAME
FOREIGN_KEY = base64.b64encode(b"somebody else's key, not the zone's").decode()


@pytest.fixture
def hosts_file():
    """Adds lines to /etc/hosts, so that names are known without a name server."""
    with open("/etc/hosts", encoding="utf-8") as file:
        before = file.read()

    def add(lines):
        with open("/etc/hosts", "w", encoding="utf-8") as file:
            file.write(before + lines)
    yield add
    add("")


def came_and_went(names):
    """Each record was there for a while and is gone: its texts, in order."""
    history = names.history()
    assert [sign for sign, _, _ in history] == ["+", "-"] * (len(history) // 2), history
    assert {owner for _, owner, _ in history} <= {RECORD}
    texts = [text for sign, _, text in history if sign == "+"]
    assert [text for sign, _, text in history if sign == "-"] == texts
    assert names.ask(RECORD) == []
    return texts


def test_the_host_name_and_its_wildcard(host, network, names, ca):
    service = DdnsService(host, network, names)
    result = appliance.new_cert(host, HOST_NAME, WILDCARD)
    issued(result, [HOST_NAME, WILDCARD])
    # Two authorizations of one name, one after the other, each with a proof of its own.
    assert service.answers() == [("create", "good"), ("delete", "good")] * 2
    assert len(set(came_and_went(names))) == 2


def test_a_slow_zone_is_waited_for(host, network, names, ca):
    DdnsService(host, network, names, delay=4)
    host.settings(debuglog=1)
    result = appliance.new_cert(host, HOST_NAME)
    issued(result, [HOST_NAME])
    assert result.seconds >= 4
    assert [text for text in result.errors if text.startswith("DNS get ready")]
    assert "DNS may not ready, but still try" not in result.errors
    appliance.wait_until(lambda: names.ask(RECORD) == [])
    assert len(came_and_went(names)) == 1


@pytest.mark.parametrize("silent", [False, True], ids=["refuses", "silent"])
def test_a_name_server_that_does_not_answer_is_no_reason_to_give_up(host, network, names, ca,
                                                                    silent):
    service = DdnsService(host, network, names)
    # Nobody listens there; the CA asks the zone's own server, where the record is.
    service.customer(ddns_name_server=ROUTER)
    if silent:
        network.run("router", "nft", "insert", "rule", "inet", "filter", "input",
                    "meta", "l4proto", "{ tcp, udp }", "th", "dport", "53", "drop")
    else:
        # A router says "unreachable" no more than once a second, which would be silence in between.
        network.run("router", "sysctl", "-qw", "net.ipv4.icmp_ratelimit=0")
    host.settings(debuglog=1)
    result = appliance.new_cert(host, HOST_NAME)
    issued(result, [HOST_NAME])
    assert "DNS may not ready, but still try" in result.errors
    reason = "Connection timed out" if silent else "Connection refused"
    assert [text for text in result.errors if text.startswith("failed to query TXT dns")] == [
        f"failed to query TXT dns {RECORD}:-1 {reason}"] * 7
    assert len(came_and_went(names)) == 1


def test_a_dead_zone_ends_the_run_with_nothing_left(host, network, names, ca, hosts_file):
    service = DdnsService(host, network, names)
    hosts_file(f"{INTERNET} {CA_NAME} {SERVICE_NAME} {VENDOR_SERVER}\n")
    names.stop()
    result = appliance.new_cert(host, HOST_NAME)
    failed(result, 202, "Failed to new certificate.", "kova-letsencrypt")
    assert service.answers() == [("create", "911")] * 3
    assert host.certificates() == []
    names.start()
    assert came_and_went(names) == []


def test_an_update_that_the_zone_refuses(host, network, names, ca):
    service = DdnsService(host, network, names, key=FOREIGN_KEY)
    result = appliance.new_cert(host, HOST_NAME)
    failed(result, 202, "Failed to new certificate.", "kova-letsencrypt")
    assert service.answers() == [("create", "911")] * 3
    assert came_and_went(names) == []
    assert host.certificates() == []


def test_a_customer_whom_the_service_does_not_know(host, network, names, ca):
    service = DdnsService(host, network, names)
    service.customer(serial_number="KV9999")
    result = appliance.new_cert(host, HOST_NAME)
    failed(result, 202, "Failed to new certificate.", "kova-letsencrypt")
    assert service.answers() == [("create", "badauth")] * 3
    assert came_and_went(names) == []
