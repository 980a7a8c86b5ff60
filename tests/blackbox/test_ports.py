"""The bracket of router port forwarding around the authorizations of ACME v2."""

import json
import os

import pytest
from lib import expect, paths
from lib.router import CLOSED, OPENED
from lib.signed_server import problem

NAME = "www.host.example"
RECORD = "/usr/kova/etc/portmap.json"


@pytest.fixture(autouse=True)
def one_attempt(host, ca):
    host.settings(skipdns01=True, orderattempts=1)
    ca.challenge_types = ["http-01"]


@pytest.fixture
def calls_at(ca, router):
    """What the router had been asked when each request of the CA came in: (endpoint, calls)."""
    seen = []
    prepare = ca.prepare

    def watch(request):
        seen.append((request.endpoint, router.calls))
        prepare(request)
    ca.prepare = watch
    return seen


def test_ports_are_open_for_the_authorizations_alone(host, ca, router, account, calls_at):
    expect.issued(host.new_cert(ca.directory, ["a.example", "b.example"]))
    opened, closed = ["detect", OPENED], ["detect", OPENED, CLOSED]
    assert calls_at == [
        ("directory", []), ("newNonce", []), ("newOrder", []),
        ("authz", opened), ("challenge", opened), ("authz", opened),
        ("authz", opened), ("challenge", opened), ("authz", opened),
        ("finalize", closed), ("certificate", closed)]
    assert router.calls == closed


def test_no_message_when_the_router_confirms(host, ca, router, account):
    result = host.new_cert(ca.directory, [NAME], "-v")
    expect.issued(result)
    assert not any("port" in line for line in result.debug)


@pytest.mark.parametrize("status", [1, 3, 255])
def test_no_router_is_only_logged(host, ca, router, account, status):
    router.configure(detect=status)
    result = host.new_cert(ca.directory, [NAME], "-v")
    expect.issued(result)
    position = result.debug.index(f"Failed to port map router detect. [{status}]")
    assert result.debug[position + 1] == "failed to open port 80."
    # Closing is tried whether or not the opening succeeded.
    assert router.calls == ["detect", CLOSED]
    assert result.errors == []


def test_router_that_refuses_the_rules_is_only_logged(host, ca, router, account):
    router.configure(rules=4)
    result = host.new_cert(ca.directory, [NAME], "-v")
    expect.issued(result)
    [line] = [line for line in result.debug if line.startswith("Failed to set port map rules. [")]
    assert int(line.split("[")[1].rstrip("]")) < 0
    assert result.debug[result.debug.index(line) + 1] == "failed to open port 80."


def test_port_80_refused(host, ca, router, account):
    router.configure(refused=[80])
    result = host.new_cert(ca.directory, [NAME], "-v")
    expect.issued(result)
    position = result.debug.index("Incorrect port map rules result")
    assert result.debug[position + 1] == "failed to open port 80."
    assert router.calls == ["detect", OPENED, CLOSED]


def test_port_443_refused_does_not_matter(host, ca, router, account):
    router.configure(refused=[443])
    result = host.new_cert(ca.directory, [NAME], "-v")
    expect.issued(result)
    assert not any("port" in line for line in result.debug)


def test_ports_are_closed_when_an_authorization_fails(host, ca, router, account):
    ca.refusals.append(("connection", "firewall"))
    result = host.new_cert(ca.directory, [NAME], "-v")
    assert expect.retries(result) == [expect.retry_line(101, "firewall")]
    assert router.calls == ["detect", OPENED, CLOSED]
    failed = result.debug.index("Failed to do challenge for www.host.example with type http-01.")
    assert result.debug[failed + 1] == "close port 80."


def test_each_attempt_has_its_own_bracket(host, ca, router, account):
    host.settings(skipdns01=True, orderattempts=2)
    ca.tokens.extend(["../x", "../x"])
    result = host.new_cert(ca.directory, [NAME])
    assert result.status == 202
    assert router.calls == ["detect", OPENED, CLOSED] * 2


def test_refused_order_does_not_reach_the_router(host, ca, router, account):
    ca.answer("newOrder", problem("rateLimited", "slow", 429))
    expect.gave_up(host.new_cert(ca.directory, [NAME]), 104, "slow", attempts=1)
    assert router.calls == []


def test_close_that_fails_clears_the_record_of_the_host(host, ca, router, account):
    host.write(RECORD, json.dumps({
        "Letsencrypt": [{"router_port": 80, "device_port": 80}],
        "Other": [{"router_port": 22, "device_port": 22}]}), 0o600)
    router.configure(rules=1)
    expect.issued(host.new_cert(ca.directory, [NAME]))
    with open(RECORD, encoding="utf-8") as record:
        assert json.load(record) == {"Other": [{"router_port": 22, "device_port": 22}]}


def test_hook_that_others_can_write_is_ignored(host, ca, router, account):
    os.chmod(paths.HOOKS + "/router-detect", 0o775)
    result = host.new_cert(ca.directory, [NAME], "-v")
    expect.issued(result)
    assert "detect" not in router.calls
    path = paths.HOOKS + "/router-detect"
    assert f"hooks:# Ignored hook [{path}]: writable by group or others" in result.errors


def test_words_of_a_hook_stay_out_of_the_result(host, ca, account):
    host.hook("router-detect", "echo noise; exit 0\n")
    host.hook("router-rules", "echo noise; echo '80 ok'; echo '443 ok'\n")
    expect.issued(host.new_cert(ca.directory, [NAME]))


def test_host_without_a_router_asks_nobody(host, ca, account):
    host.device(router="none")
    result = host.new_cert(ca.directory, [NAME], "-v")
    expect.issued(result)
    assert "failed to open port 80." in result.debug
    assert result.seconds < 2
