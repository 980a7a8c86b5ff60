"""keepconnections and transfertimeout: how many connections a server sees, what happens when it hangs
up or drips, and that without the keys everything is as it was."""

import socket
import time

import pytest
from lib import expect, validators
from lib.ddns import HOSTNAME
from lib.http_script import Reply

NAME = "www.host.example"


@pytest.fixture(autouse=True)
def one_attempt(host):
    host.settings(orderattempts=1, skipdns01=True)


def connections(server):
    """For each request, the number of its connection."""
    return [request.connection for request in server.requests]


# -- keepconnections ----------------------------------------------------------------------------


def test_installed_settings_need_one_connection(host, ca):
    ca.keep()
    expect.issued(host.new_cert(ca.directory, [NAME]), [NAME])
    assert connections(ca) == [1] * 9


@pytest.mark.parametrize("value", [None, False, 1, "true"])
def test_without_keepconnections_each_request_has_its_own(host, ca, account, value):
    ca.keep()
    host.settings(keepconnections=value)
    expect.issued(host.new_cert(ca.directory, [NAME]), [NAME])
    assert connections(ca) == list(range(1, len(ca.requests) + 1))


def test_the_requests_are_the_same_either_way(host, ca, account):
    ca.keep()
    seen = []
    for value in (True, None):
        ca.requests.clear()
        host.settings(keepconnections=value)
        expect.issued(host.new_cert(ca.directory, [NAME]), [NAME])
        # Nonces, and with them the lengths of bodies, differ from run to run; numbers in URLs too.
        seen.append([(request.method, request.endpoint, request.version,
                      [(name, value) for name, value in request.headers
                       if name != "Content-Length"]) for request in ca.requests])
    assert seen[0] == seen[1]


@pytest.mark.parametrize("replies", [1, 2, 3])
def test_a_server_that_hangs_up_between_requests_is_dialled_again(host, ca, account, replies):
    ca.keep(replies)
    expect.issued(host.new_cert(ca.directory, [NAME]), [NAME])
    assert connections(ca) == [1 + i // replies for i in range(len(ca.requests))]


@pytest.mark.parametrize("replies", [1, 2, 3])
def test_a_server_that_hangs_up_as_we_send_is_dialled_again(host, ca, account, replies):
    ca.keep(replies, drop=True)
    expect.issued(host.new_cert(ca.directory, [NAME]), [NAME])
    assert connections(ca) == [1 + i // replies for i in range(len(ca.requests))]


def test_a_fresh_connection_that_is_dropped_is_a_failure(host, ca, account):
    ca.keep()
    ca.always("newNonce", Reply(drop=True))
    result = host.new_cert(ca.directory, [NAME])
    expect.failed(result, 100, "Server is not reachable.", "client_network")
    # On the kept connection, then once on a fresh one.
    assert connections(ca) == [1, 1, 2]


def test_an_old_server_that_closes_after_each_reply_is_served(host, ca, account):
    expect.issued(host.new_cert(ca.directory, [NAME]), [NAME])
    assert connections(ca) == list(range(1, len(ca.requests) + 1))


def test_the_dynamic_dns_service_is_dialled_once(host, ca, ddns, dns, account):
    names = ["a." + HOSTNAME, "b." + HOSTNAME]
    host.settings(kovaddns=ddns.endpoint, orderattempts=1, skipdns01=None)
    ca.challenge_types = ["dns-01"]
    ca.validators["dns-01"] = validators.txt_records(dns)
    ca.keep()
    ddns.keep()
    expect.issued(host.new_cert(ca.directory, names), names)
    assert [update.action for update in ddns.updates] == ["create", "delete"] * 2
    assert set(connections(ddns)) == set(connections(ca)) == {1}


# -- transfertimeout ----------------------------------------------------------------------------


@pytest.mark.parametrize("reply", [
    Reply(200, {"status": "dripping"}, drip=True), Reply(200, {"status": "too late"}, delay=4)],
    ids=["dripping", "silent"])
@pytest.mark.parametrize("endpoint", ["directory", "newOrder", "certificate"])
def test_a_server_that_takes_too_long_fails_like_any_other(host, ca, account, endpoint, reply):
    host.settings(transfertimeout=1)
    ca.answer(endpoint, reply)
    before = time.monotonic()
    result = host.new_cert(ca.directory, [NAME])
    assert 1 <= time.monotonic() - before < (4 if reply.delay else 20)
    if endpoint == "directory":
        expect.failed(result, 100, "Server is not reachable.", "client_network")
    else:
        expect.gave_up(result, 100, "Server is not reachable.", "client_network", attempts=1)


def test_it_holds_for_the_dynamic_dns_service(host, ca, ddns, account):
    host.settings(kovaddns=ddns.endpoint, orderattempts=1, skipdns01=None, transfertimeout=1)
    ca.challenge_types = ["dns-01"]
    ddns.answer("create", Reply(200, {"code": "good"}, drip=True))
    result = host.new_cert(ca.directory, ["www." + HOSTNAME])
    expect.gave_up(result, 100, "Server is not reachable.", "client_network", attempts=1)


def test_it_holds_for_a_silent_name_server(host):
    host.settings(transfertimeout=1)
    host.write("/etc/resolv.conf", "nameserver 127.0.0.1\n")
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as silent:
        silent.bind(("127.0.0.1", 53))
        before = time.monotonic()
        result = host.new_cert("http://ca.example/directory", [NAME])
    expect.failed(result, 100, "Server is not reachable.", "client_network")
    assert time.monotonic() - before < 5  # the resolver would take 10 s


@pytest.mark.parametrize("value", [None, 0, -1, "1", True, 1.5])
def test_without_transfertimeout_a_slow_server_is_waited_for(host, ca, account, value):
    host.settings(transfertimeout=value)
    ca.answer("newNonce", lambda _request, normal: Reply(204, delay=1.2))
    expect.issued(host.new_cert(ca.directory, [NAME]), [NAME])
