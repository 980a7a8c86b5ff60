"""new-cert -p 1 for a host that cannot be reached at first: http-01, then dns-01, then http-01
behind the router's port forwarding. Requests and router calls are asserted in their order."""

import os

import pytest
from lib import expect, paths
from lib.ddns import HOSTNAME
from lib.router import CLOSED, OPENED
from lib.v1ca import fetched_from
from lib.v1ca.fixtures import (early_account_fixture, early_ca_fixture, failed, new_cert, steps,
                               web_fixture)

NAME = "www.host.example"
NOBODY = 9  # a port on which nothing listens
ATTEMPT = ["new-authz", "challenge", "authz"]
ISSUANCE = ["new-cert", "issuer"]


def not_reached(name, token="[^ ]*"):
    return f"Could not connect to http://{name}/.well-known/acme-challenge/{token}"


@pytest.fixture(autouse=True)
def behind_the_router(early_ca, router, web):
    """The authority reaches the web server only while the router forwards port 80."""
    def validate(*proof):
        forwarded = router.calls[-1:] == [OPENED]
        return fetched_from(80 if forwarded else NOBODY)(*proof)
    early_ca.validators["http-01"] = validate


@pytest.fixture
def events(early_ca, router):
    """Endpoints of the authority and calls of the router, in one order. Call it at the end."""
    seen = []
    prepare = early_ca.prepare

    def catch_up():
        known = sum(1 for event in seen if event in ("detect", OPENED, CLOSED))
        seen.extend(router.calls[known:])
        return seen

    def watch(request):
        catch_up().append(request.endpoint)
        prepare(request)
    early_ca.prepare = watch
    return catch_up


def token_of(early_ca, attempt, challenge=0):
    return early_ca.state.authorizations[attempt].challenges[challenge].token


def test_second_pass_behind_the_router(host, early_ca, early_account, events):
    host.settings(skipdns01=True)
    result = new_cert(host, early_ca.directory, [NAME], "-v")
    assert result.status == 0
    assert events() == (["directory"] + ATTEMPT + ["detect", OPENED] + ATTEMPT + [CLOSED]
                        + ISSUANCE)
    reason = f"{NAME}: {not_reached(NAME, token_of(early_ca, 0))}"
    messages = steps(result)
    assert f"Normal challenge failed, reason: {reason}" in messages
    assert "close port 80." not in messages
    # The pass began anew, and ended once.
    assert messages.count(f"strat to do new-authz for {NAME}") == 2
    assert messages.count(f"finish to do new-authz for {NAME}") == 1
    assert os.listdir(paths.TOKENS) == []


def test_other_names_come_before_the_second_pass(host, early_ca, early_account, events):
    host.settings(skipdns01=True)
    reachable = fetched_from(80)
    behind = early_ca.validators["http-01"]
    early_ca.validators["http-01"] = lambda name, *proof: (
        reachable if name.startswith("open") else behind)(name, *proof)
    names = [NAME, "open1.example", "open2.example"]
    assert new_cert(host, early_ca.directory, names).status == 0
    assert events() == (["directory"] + ATTEMPT * 3 + ["detect", OPENED] + ATTEMPT + [CLOSED]
                        + ISSUANCE)
    assert [a.name for a in early_ca.state.authorizations] == names + [NAME]


def test_dns01_makes_the_router_unnecessary(host, early_ca, early_account, ddns, events):
    result = new_cert(host, early_ca.directory, [HOSTNAME])
    assert result.status == 0
    assert events() == ["directory"] + ATTEMPT * 2 + ISSUANCE
    assert [update.action for update in ddns.updates] == ["create", "delete"]
    assert [request.jws.payload["type"] for request in early_ca.calls("challenge")] == [
        "http-01", "dns-01"]


@pytest.fixture
def hidden_record(early_ca, ddns):
    """The authority does not see the record that the service accepted."""
    early_ca.validators["dns-01"] = lambda *_: ("unauthorized", "no such record")
    return ddns


def test_whole_chain(host, early_ca, early_account, hidden_record, router, events):
    host.device(**{**hidden_record.device_record(), "router": "upnp"})
    result = new_cert(host, early_ca.directory, [HOSTNAME], "-v")
    assert result.status == 0
    assert events() == (["directory"] + ATTEMPT * 2 + ["detect", OPENED] + ATTEMPT + [CLOSED]
                        + ISSUANCE)
    assert [request.jws.payload["type"] for request in early_ca.calls("challenge")] == [
        "http-01", "dns-01", "http-01"]
    assert [update.action for update in hidden_record.updates] == ["create", "delete"]
    messages = steps(result)
    failures = [line for line in messages if "challenge failed" in line]
    assert failures == [
        "DNS challenge failed, reason: no such record",
        f"Normal challenge failed, reason: {HOSTNAME}: "
        + not_reached(HOSTNAME, token_of(early_ca, 0))]


def test_no_dns01_behind_the_router(host, early_ca, early_account, hidden_record, router, events):
    early_ca.validators["http-01"] = fetched_from(NOBODY)
    result = new_cert(host, early_ca.directory, [HOSTNAME], "-v")
    assert result.status == 101
    assert result.stdout.endswith(expect.failure_text(
        101, f"{HOSTNAME}: " + not_reached(HOSTNAME, token_of(early_ca, 2)), "client_v1"))
    assert events() == ["directory"] + ATTEMPT * 2 + ["detect", OPENED] + ATTEMPT + [CLOSED]
    assert len(hidden_record.updates) == 2
    assert steps(result)[-1] == "close port 80."


def test_only_the_first_name_gets_a_second_pass(host, early_ca, early_account, events):
    host.settings(skipdns01=True)
    names = ["a.example", "b.example", "c.example"]
    result = new_cert(host, early_ca.directory, names)
    failed(result, 101, "b.example: " + not_reached("b.example", token_of(early_ca, 1)))
    assert events() == ["directory"] + ATTEMPT * 2


def test_each_run_has_its_own_second_pass(host, early_ca, early_account, router):
    host.settings(skipdns01=True)
    for _ in range(2):
        assert new_cert(host, early_ca.directory, [NAME]).status == 0
    assert router.calls == ["detect", OPENED, CLOSED] * 2


def test_refusal_of_another_kind_needs_no_router(host, early_ca, early_account, events):
    host.settings(skipdns01=True)
    early_ca.validators["http-01"] = fetched_from(80, resolve=lambda name: None)
    result = new_cert(host, early_ca.directory, [NAME, "b.example"])
    failed(result, 102, f"No valid IP addresses found for {NAME}")
    assert events() == ["directory"] + ATTEMPT


def test_name_outside_of_the_zone_is_not_set_up_for_dns01(host, early_ca, early_account, ddns,
                                                          events):
    early_ca.refusals.append(("unauthorized", "wrong content"))
    result = new_cert(host, early_ca.directory, [NAME], "-v")
    assert result.stdout.endswith(expect.failure_text(102, "wrong content", "client_v1"))
    assert events() == ["directory"] + ATTEMPT + ["new-authz"]
    assert ddns.requests == []
    assert "DNS challenge failed, reason: Challenge setup is failed." in result.debug
    assert f"[{NAME}] is not subdomain of kova ddns" in result.debug


def test_no_router_ends_it(host, early_ca, early_account, router, events):
    host.settings(skipdns01=True)
    router.configure(detect=3)
    result = new_cert(host, early_ca.directory, [NAME], "-v")
    assert result.stdout.endswith(expect.failure_text(101, "failed to open port 80.", "client_v1"))
    assert result.status == 101
    assert events() == ["directory"] + ATTEMPT + ["detect"]
    assert steps(result)[-2:] == ["Failed to port map router detect. [3]",
                                  "failed to open port 80."]


def test_router_that_refuses_port_80_ends_it(host, early_ca, early_account, router, events):
    host.settings(skipdns01=True)
    router.configure(refused=[80])
    result = new_cert(host, early_ca.directory, [NAME])
    failed(result, 101, "failed to open port 80.")
    assert events() == ["directory"] + ATTEMPT + ["detect", OPENED]


def test_port_443_is_not_needed(host, early_ca, early_account, router):
    host.settings(skipdns01=True)
    router.configure(refused=[443])
    assert new_cert(host, early_ca.directory, [NAME]).status == 0
    assert router.calls == ["detect", OPENED, CLOSED]


def test_host_that_is_reached_asks_no_router(host, early_ca, early_account, events):
    early_ca.validators["http-01"] = fetched_from(80)
    assert new_cert(host, early_ca.directory, [NAME, "b.example"]).status == 0
    assert events() == ["directory"] + ATTEMPT * 2 + ISSUANCE
