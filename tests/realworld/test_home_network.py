"""A home appliance behind a router asks a CA in the internet for a certificate by http-01."""

import signal

import pytest

from lib.expect import failed, issued
from world import appliance
from world.name_server import HOME_NAME
from world.network import APPLIANCE, NEIGHBOUR
from world.upnp_router import CLOSED, OPENED, UpnpRouter, allow_only
from world.web import Nginx

FOR_EVER = 604800  # this daemon makes a week of a lease without an end
FAILED_TO_OPEN = "failed to open port 80."


def ports_open(network):
    """Which of our ports of the router somebody in the internet can connect to."""
    return [port for port in (80, 443) if network.is_open(port)]


def test_the_router_is_open_for_the_validation_and_closed_again(host, network, ca, web):
    router = UpnpRouter(host, network)
    assert ports_open(network) == []

    issued(appliance.new_cert(host, HOME_NAME), [HOME_NAME])

    asked = router.asked()
    assert asked[:2] == OPENED
    assert sorted(asked[2:]) == CLOSED
    assert router.mappings() == []
    assert ports_open(network) == []


@pytest.fixture
def killed_run(host, network, ca, web):
    """A router after a run that was killed while the CA tried to validate."""
    router = UpnpRouter(host, network)
    let_through = network.drop_from_internet(80)
    run = host.spawn(appliance.command("new-cert", "-s", appliance.DIRECTORY, "-d", HOME_NAME,
                                       "-m", appliance.MAIL))
    appliance.wait_until(lambda: len(router.mappings()) == 2)
    run.send_signal(signal.SIGKILL)
    assert run.wait(5) == -signal.SIGKILL
    let_through()
    return router


def test_ports_of_a_killed_run_close_when_their_lease_ends(network, killed_run):
    left = killed_run.mappings()
    assert sorted((mapping.port, mapping.client) for mapping in left) == [
        (80, APPLIANCE), (443, APPLIANCE)]
    assert all(0 < mapping.lease <= 3600 for mapping in left)
    assert ports_open(network) == [80, 443]

    killed_run.pass_time(3500)
    assert ports_open(network) == [80, 443]
    killed_run.pass_time(3610)
    appliance.wait_until(lambda: killed_run.mappings() == [])
    assert ports_open(network) == []


def test_the_run_after_a_killed_one_succeeds_and_closes_its_ports(host, network, killed_run):
    issued(appliance.new_cert(host, HOME_NAME), [HOME_NAME])
    assert killed_run.mappings() == []
    assert ports_open(network) == []


def told(result):
    """What the program told of the router, with debug messages in the system log."""
    return [text for text in result.errors if "port map" in text or text == FAILED_TO_OPEN]


def test_without_a_upnp_router_the_run_goes_on_after_the_discovery(host, network, ca, web):
    network.forward(80, APPLIANCE)
    host.settings(debuglog=1)
    result = appliance.new_cert(host, HOME_NAME)
    issued(result, [HOME_NAME])
    assert told(result) == ["Failed to port map router detect. [-1]", FAILED_TO_OPEN]
    assert result.seconds >= 2


def test_a_refused_port_443_does_no_harm(host, network, ca, web):
    router = UpnpRouter(host, network, rules=allow_only(80))
    host.settings(debuglog=1)
    result = appliance.new_cert(host, HOME_NAME)
    issued(result, [HOME_NAME])
    assert told(result) == []
    assert router.asked() == OPENED + [("delete", 80)]
    assert router.mappings() == []
    assert ports_open(network) == []


def test_a_router_that_knows_permanent_leases_only_is_closed_again(host, network, ca, web):
    router = UpnpRouter(host, network)
    router.only_permanent_leases()
    issued(appliance.new_cert(host, HOME_NAME), [HOME_NAME])
    assert router.refused_leases() == [3600, 3600]
    asked = router.asked()
    assert asked[:2] == [("add", 80, APPLIANCE, FOR_EVER), ("add", 443, APPLIANCE, FOR_EVER)]
    assert sorted(asked[2:]) == CLOSED
    assert router.mappings() == []
    assert ports_open(network) == []


def test_a_port_that_is_anothers_is_left_alone(host, network, ca, web):
    Nginx(host, "neighbour", "the neighbour", host.workspace + "/elsewhere")
    router = UpnpRouter(host, network)
    network.run("neighbour", "upnpc", "-e", "web server of the neighbour",
                "-a", NEIGHBOUR, "80", "80", "TCP", "86400")
    page = f"http://{HOME_NAME}/"
    assert network.fetch("internet", page) == "the neighbour\n"
    host.settings(debuglog=1)
    result = appliance.new_cert(host, HOME_NAME)

    failed(result, result.status, "Failed to new certificate.", "kova-letsencrypt")
    assert result.status == 110  # the neighbour's web server knows nothing of the challenge
    assert told(result) == ["Incorrect port map rules result", FAILED_TO_OPEN]
    assert host.certificates() == []
    assert [(mapping.port, mapping.client, mapping.description)
            for mapping in router.mappings()] == [(80, NEIGHBOUR, "web server of the neighbour")]
    assert network.fetch("internet", page) == "the neighbour\n"
    assert ports_open(network) == [80]


def test_a_refused_port_80_is_reported_and_nothing_stays_open(host, network, ca, web):
    router = UpnpRouter(host, network, rules=allow_only(443))
    host.settings(debuglog=1)
    result = appliance.new_cert(host, HOME_NAME)
    failed(result, 101, "Failed to new certificate.", "kova-letsencrypt")
    assert told(result) == ["Incorrect port map rules result", FAILED_TO_OPEN]
    assert router.mappings() == []
    assert ports_open(network) == []
    assert host.certificates() == []
