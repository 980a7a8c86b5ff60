"""Authorizations that cannot be fetched, proved or awaited."""

import pytest
from lib import expect
from lib.http_script import NORMAL, Reply, edited

NAME = "www.host.example"


@pytest.mark.parametrize("status", [201, 202, 403, 404, 500])
def test_authorization_cannot_be_fetched(host, ca, account, once, status):
    ca.answer("authz", edited(status=status))
    expect.gave_up(host.new_cert(ca.directory, [NAME]), 200, "new_authz info: unexpect httpcode.",
                   attempts=1)


@pytest.mark.parametrize("status", [201, 202, 204, 400, 403, 404, 500])
def test_challenge_response_refused_uses_the_type_up(host, ca, account, status):
    ca.answer("challenge", Reply(status, "{}"))
    result = host.new_cert(ca.directory, [NAME], "-v")
    assert result.status == 200
    assert result.document == {"error": 200, "file": "kova-letsencrypt",
                                           "msg": "Failed to new certificate."}
    assert expect.retries(result) == [expect.retry_line(200, "challenge: unexpect httpcode.")]
    assert "Failed to do challenge for www.host.example with type http-01." in result.debug
    assert len(ca.calls("newOrder")) == 1


@pytest.mark.parametrize("kind, code", [
    ("connection", 101), ("dns", 109), ("unauthorized", 110), ("caa", 200), ("tls", 200),
    ("Connection", 200), ("", 200)])
def test_validation_failed(host, ca, account, kind, code):
    ca.refusals.append((kind, "100%s: it did not work"))
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, code, "100%s: it did not work", attempts=1)
    assert ca.trace[-3:] == ["authz", "challenge", "authz"]
    assert result.sleeps == []


def invalid(challenges=None, **more):
    body = {"status": "invalid", **more}
    return Reply(200, body if challenges is None else {**body, "challenges": challenges})


@pytest.mark.parametrize("reply, message", [
    (Reply(200, {}), "unexpect json response."),
    (Reply(200, {"state": "valid"}), "unexpect json response."),
    (invalid(), "new_authz has not challenges."),
    (invalid([]), "Can't find challenges"),
    (invalid([{"type": "dns-01", "url": "u", "token": "t"}]), "Can't find challenges"),
    (invalid([{"type": "http-01", "token": "t"}]), "Can't find challenges"),
    (invalid([{"type": "http-01", "url": "u"}]), "Can't find challenges"),
    (invalid([{"type": "http-01", "url": "u", "token": "t", "error": {"detail": "d"}}]), "d"),
    (Reply(404), "new_authz info: unexpect httpcode."),
])
def test_unusable_poll(host, ca, account, reply, message):
    ca.answer("authz", NORMAL, reply)
    expect.gave_up(host.new_cert(ca.directory, [NAME]), 200, message, attempts=1)


def test_first_complete_challenge_of_the_type_tells_the_error(host, ca, account):
    def entry(detail, **more):
        return {"type": "http-01", "error": {
            "type": "urn:ietf:params:acme:error:dns", "detail": detail}, **more}
    ca.answer("authz", NORMAL, invalid([
        entry("no url", token="t"), entry("no token", url="u"),
        entry("this one", url="u", token="t"), entry("too late", url="u", token="t")]))
    expect.gave_up(host.new_cert(ca.directory, [NAME]), 109, "this one", attempts=1)


def test_pending_for_ever(host, ca, account):
    ca.states_before_valid = ["pending"] * 100
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 102, "Autuhorization timeout", attempts=1)
    assert result.sleeps == [2] * 30
    assert len(ca.calls("authz")) == 1 + 30


def test_processing_for_ever(host, ca, account):
    ca.states_before_valid = ["processing"] * 100
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 102, "Autuhorization timeout", attempts=1)
    assert result.sleeps == []
    assert len(ca.calls("authz")) == 1 + 30


def test_authorization_without_a_usable_challenge(host, ca, account):
    ca.challenge_types = ["dns-01", "tls-alpn-01"]
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 200, "do new auth by path: failed to do challenge.", attempts=1)
    assert ca.trace[-2:] == ["newOrder", "authz"]


def test_with_dns01_skipped_only_http01_is_tried(host, ca, ddns, account):
    host.settings(skipdns01=True)
    ca.challenge_types = ["dns-01"]
    result = host.new_cert(ca.directory, ["www.box.ddns.example"])
    expect.gave_up(result, 200, "do new auth by path: failed to do challenge.", attempts=1)
    assert ddns.requests == []


def test_both_types_fail(host, ca, ddns, account):
    ca.refusals.extend([("dns", "first"), ("connection", "second")])
    result = host.new_cert(ca.directory, ["www.box.ddns.example"])
    expect.gave_up(result, 101)
    assert expect.retries(result) == [expect.retry_line(109, "first"),
                                      expect.retry_line(101, "second")]
    assert len(ca.calls("newOrder")) == 2


def test_second_type_succeeds_after_the_first_failed(host, ca, ddns, account):
    ca.refusals.append(("dns", "first"))
    result = host.new_cert(ca.directory, ["www.box.ddns.example"])
    expect.issued(result, ["www.box.ddns.example"])
    assert result.errors == [expect.retry_line(109, "first")]
    assert [request.jws.payload for request in ca.calls("challenge")] == [{}, {}]
    assert [c.type for c in ca.challenges if c.status != "pending"] == ["dns-01", "http-01"]
