"""new-cert -p 1: what each step of the early protocol refuses, with its code and text. No request
is repeated, and a failure leaves neither a certificate nor the renewal job."""

import os

import pytest
from lib import expect, paths
from lib.http_script import NORMAL, Reply, edited, edited_json
from lib.signed_server import problem
from lib.v1ca import challenge_refused, shown_as
from lib.v1ca.fixtures import early_account_fixture, early_ca_fixture, failed, new_cert
from lib.validators import webroot

NAME = "www.host.example"
NETWORK = "client_network"
NOT_JSON = (200, "body is not json.", NETWORK)
UNREACHABLE = (100, "Server is not reachable.", NETWORK)
NO_NONCE = (204, "No Nonce.... Not Yet implement", "client_v1")
UNEXPECTED = (200, "unexpect json response.", "client_v1")


def v1(code, message):
    return code, message, "client_v1"


def refusal(kind, detail, status):
    return problem(kind, detail, status, "urn:acme:error:")


def without(name):
    return edited_json(lambda body: body.pop(name) and None)


def header(name, value):
    """The correct behaviour with that header instead; None takes it away."""
    def answer(_request, normal):
        reply = normal()
        reply.headers = {key: text for key, text in reply.headers.items() if key != name}
        if value is not None:
            reply.headers[name] = value
        return reply
    return answer


@pytest.fixture(autouse=True)
def one_type(host, early_ca):
    host.settings(skipdns01=True)
    early_ca.validators["http-01"] = webroot


def left_nothing(host):
    assert host.certificates() == []
    assert os.listdir("/etc/cron.d") == []
    assert not os.path.exists(paths.TOKENS) or os.listdir(paths.TOKENS) == []


DIRECTORY = [
    (without("new-reg"), v1(200, "Directory Member missing.")),
    (without("new-authz"), v1(200, "Directory Member missing.")),
    (without("new-cert"), v1(200, "Directory Member missing.")),
    (without("revoke-cert"), v1(200, "Directory Member missing.")),
    (Reply(200, []), v1(200, "Directory Member missing.")),
    (Reply(404, {}), v1(200, "Directory Member missing.")),
    (Reply(200, "<html>"), NOT_JSON),
    (Reply(drop=True), UNREACHABLE),
    (edited(nonce=None), NO_NONCE),
    (edited(lower_case=True), NO_NONCE),
]


@pytest.mark.parametrize("answer, error", DIRECTORY)
def test_directory(host, early_ca, answer, error):
    early_ca.answer("directory", answer)
    failed(new_cert(host, early_ca.directory, [NAME]), *error)
    assert early_ca.trace == ["directory"]
    assert host.accounts() == []
    left_nothing(host)


def test_directory_status_plays_no_part(host, early_ca, early_account):
    early_ca.answer("directory", edited(status=503))
    assert new_cert(host, early_ca.directory, [NAME]).status == 0


REGISTRATION = [
    (refusal("rateLimited", "Too many registrations %s", 429), v1(103, "Too many registrations %s")),
    (refusal("malformed", "No such mail %n", 400), v1(105, "No such mail %n")),
    (Reply(429, {}), v1(103, "")),
    (Reply(400, {"detail": 7}), v1(105, "")),
    (Reply(400, "<html>"), NOT_JSON),
    (Reply(409, {}), v1(200, "new-req, unexpect httpcode")),
    (Reply(200, {}), v1(200, "new-req, unexpect httpcode")),
    (Reply(500, "<html>"), v1(200, "new-req, unexpect httpcode")),
    (header("Link", None), v1(200, "new-req, unexpect content")),
    (header("Link", '<http://ca.example/terms>; rel="terms-of-service"'),
     v1(200, "new-req, unexpect content")),
    (header("Link", '<http://ca.example/terms>;rel="terms"'), v1(200, "new-req, unexpect content")),
    (header("Location", None), v1(200, "new-req, unexpect content")),
    (edited(nonce=None), NO_NONCE),
    (Reply(drop=True), UNREACHABLE),
]


@pytest.mark.parametrize("answer, error", REGISTRATION)
def test_registration(host, early_ca, answer, error):
    early_ca.answer("new-reg", answer)
    failed(new_cert(host, early_ca.directory, [NAME]), *error)
    assert early_ca.trace == ["directory", "new-reg"]
    assert host.accounts() == []
    left_nothing(host)


@pytest.mark.parametrize("answer, error", [
    (Reply(200, {}), v1(200, "req, unexpect httpcode")),
    (Reply(400, {"detail": "not these terms"}), v1(200, "req, unexpect httpcode")),
    (Reply(drop=True), UNREACHABLE),
])
def test_agreement(host, early_ca, answer, error):
    """The account that was not agreed to is not kept: the next run registers again."""
    early_ca.answer("reg", answer)
    failed(new_cert(host, early_ca.directory, [NAME]), *error)
    assert early_ca.trace == ["directory", "new-reg", "reg"]
    assert host.accounts() == []
    assert new_cert(host, early_ca.directory, [NAME]).status == 0
    assert len(early_ca.state.registrations) == 2


AUTHORIZATION = [
    (refusal("malformed", "not read", 400), v1(102, "no valid domain name")),
    (refusal("unauthorized", "not read", 403), v1(200, "new_authz: unexpect httpcode.")),
    (refusal("rateLimited", "not read", 429), v1(200, "new_authz: unexpect httpcode.")),
    (edited(status=200), v1(200, "new_authz: unexpect httpcode.")),
    (Reply(201, "<html>"), NOT_JSON),
    (Reply(201, []), v1(200, "new_authz has not challenges.")),
    (without("challenges"), v1(200, "new_authz has not challenges.")),
    (edited_json(lambda body: {**body, "challenges": []}), v1(200, "Can't find challenges")),
    (edited_json(lambda body: {**body, "challenges": body["challenges"][1:]}),
     v1(200, "Can't find challenges")),
    (edited_json(lambda body: {**body, "challenges": {"0": body["challenges"][0]}}),
     v1(200, "Can't find challenges")),
    (without("identifier"), UNEXPECTED),
    (edited_json(lambda body: {**body, "identifier": {"value": [NAME]}}), UNEXPECTED),
    (edited(nonce=None), NO_NONCE),
    (Reply(drop=True), UNREACHABLE),
]


@pytest.mark.parametrize("answer, error", AUTHORIZATION)
def test_authorization(host, early_ca, early_account, answer, error):
    early_ca.answer("new-authz", answer)
    failed(new_cert(host, early_ca.directory, [NAME]), *error)
    assert early_ca.trace == ["directory", "new-authz"]
    left_nothing(host)


@pytest.mark.parametrize("member", ["type", "uri", "token", "status"])
def test_challenge_entry_that_lacks_a_member(host, early_ca, early_account, member):
    early_ca.answer("new-authz",
                    edited_json(lambda body: body["challenges"][0].pop(member) and None))
    failed(new_cert(host, early_ca.directory, [NAME]), 200, "Can't find challenges")


def test_first_complete_entry_is_used(host, early_ca, early_account):
    def edit(body):
        good = body["challenges"][0]
        body["challenges"] = [None, 7, "http-01", {**good, "type": "HTTP-01"},
                              {"type": "http-01", "token": "no-uri", "status": "pending"}, good,
                              {**good, "token": "second"}]
    early_ca.answer("new-authz", edited_json(edit))
    assert new_cert(host, early_ca.directory, [NAME]).status == 0


@pytest.mark.parametrize("token", ["../../../../etc/cron.d/x", "/etc/cron.d/x", "..", "", "a/b",
                                   "a b", "a\u0000b", "a.b"])
def test_hostile_token_is_not_published(host, early_ca, early_account, token):
    early_ca.tokens.append(token)
    failed(new_cert(host, early_ca.directory, [NAME]), 203, "Challenge setup is failed.")
    assert early_ca.trace == ["directory", "new-authz"]
    left_nothing(host)


@pytest.mark.parametrize("answer, error", [
    (edited(status=200), v1(200, "challenge: unexpect httpcode.")),
    (refusal("unauthorized", "not read", 403), v1(200, "challenge: unexpect httpcode.")),
    (header("Link", None), UNREACHABLE),
    (header("Link", '<http://ca.example/>; rel="up"'), UNREACHABLE),
    (Reply(drop=True), UNREACHABLE),
])
def test_challenge(host, early_ca, early_account, answer, error):
    early_ca.answer("challenge", answer)
    failed(new_cert(host, early_ca.directory, [NAME]), *error)
    assert early_ca.trace == ["directory", "new-authz", "challenge"]
    left_nothing(host)


@pytest.mark.parametrize("answer, error", [
    (edited(status=202), v1(200, "unexpect httpcode.")),
    (edited(status=404), v1(200, "unexpect httpcode.")),
    (without("status"), UNEXPECTED),
    (shown_as(7), UNEXPECTED),
    (shown_as(["valid"]), UNEXPECTED),
    (Reply(200, []), UNEXPECTED),
    (Reply(200, "<html>"), NOT_JSON),
    (Reply(drop=True), UNREACHABLE),
    (shown_as("invalid"), v1(200, "")),
    (Reply(200, {"status": "invalid"}), v1(200, "new_authz has not challenges.")),
    (Reply(200, {"status": "invalid", "challenges": []}), v1(200, "Can't find challenges")),
    (challenge_refused("dns-01", "connection", "of the other type"), v1(200, "")),
    (challenge_refused("http-01", "unauthorized", "100%s %n"), v1(102, "100%s %n")),
    (challenge_refused("http-01", "unknownHost", "no address"), v1(102, "no address")),
    (challenge_refused("http-01", "dns", "no zone"), v1(200, "no zone")),
    (challenge_refused("http-01", "tls", "x" * 2000), v1(200, "x" * 511)),
])
def test_poll(host, early_ca, early_account, answer, error):
    early_ca.answer("authz", answer)
    result = new_cert(host, early_ca.directory, [NAME])
    failed(result, *error)
    assert early_ca.trace == ["directory", "new-authz", "challenge", "authz"]
    assert result.sleeps == []
    left_nothing(host)


CERTIFICATE = [
    (refusal("rateLimited", "Too many certificates for %s", 429),
     v1(104, "Too many certificates for %s")),
    (Reply(429, []), v1(104, "")),
    (Reply(429, "<html>"), NOT_JSON),
    (edited(status=200), v1(200, "new-cert: Unexpect httpcode. (new-cert)")),
    (edited(status=202), v1(200, "new-cert: Unexpect httpcode. (new-cert)")),
    (refusal("badCSR", "not read", 400), v1(200, "new-cert: Unexpect httpcode. (new-cert)")),
    (edited(body=b""), v1(200, "failed to convert x509 to pem")),
    (edited(body="<html>"), v1(200, "failed to convert x509 to pem")),
    (edited(body=b"\x30\x82\xff\xff" + b"\x00" * 100), v1(200, "failed to convert x509 to pem")),
    (edited(cut=100), UNREACHABLE),
    (header("Link", None), UNREACHABLE),
]


@pytest.mark.parametrize("answer, error", CERTIFICATE)
def test_certificate(host, early_ca, early_account, answer, error):
    early_ca.answer("new-cert", answer)
    failed(new_cert(host, early_ca.directory, [NAME]), *error)
    assert early_ca.trace == ["directory", "new-authz", "challenge", "authz", "new-cert"]
    left_nothing(host)


@pytest.mark.parametrize("answer, error", [
    (edited(status=404), v1(200, "new-cert: Unexpect httpcode. (issuer-cert)")),
    (Reply(500, "<html>"), v1(200, "new-cert: Unexpect httpcode. (issuer-cert)")),
    (Reply(drop=True), UNREACHABLE),
])
def test_issuer(host, early_ca, early_account, answer, error):
    early_ca.answer("issuer", answer)
    failed(new_cert(host, early_ca.directory, [NAME]), *error)
    assert early_ca.trace[-1] == "issuer"
    left_nothing(host)


# -- nonces ----------------------------------------------------------------------------------------

BOGUS = "Ym9ndXM"


@pytest.mark.parametrize("before, step, error", [
    ("directory", "new-authz", v1(102, "no valid domain name")),
    ("new-authz", "challenge", v1(200, "challenge: unexpect httpcode.")),
    ("authz", "new-cert", v1(200, "new-cert: Unexpect httpcode. (new-cert)")),
])
def test_refused_nonce_is_not_tried_again(host, early_ca, early_account, before, step, error):
    early_ca.answer(before, edited(nonce=BOGUS))
    failed(new_cert(host, early_ca.directory, [NAME]), *error)
    assert len(early_ca.calls(step)) == 1
    assert early_ca.trace[-1] == step
    assert early_ca.violations == [
        f"{step}: 400 badNonce: JWS has an invalid anti-replay nonce: {BOGUS}"]
    early_ca.violations.clear()
    left_nothing(host)


def test_refused_nonce_of_the_registration(host, early_ca):
    early_ca.answer("directory", edited(nonce=BOGUS))
    failed(new_cert(host, early_ca.directory, [NAME]), 105,
           f"JWS has an invalid anti-replay nonce: {BOGUS}")
    assert early_ca.trace == ["directory", "new-reg"]
    early_ca.violations.clear()


def test_nonces_of_polls_serve_when_a_reply_brings_none(host, early_ca, early_account):
    """Each poll adds a nonce to the pool, whose newest is used first."""
    early_ca.states_before_decided = ["processing"] * 2
    early_ca.answer("authz", NORMAL, NORMAL, edited(nonce=None))
    assert new_cert(host, early_ca.directory, [NAME]).status == 0
    polls = early_ca.calls("authz")
    assert early_ca.calls("new-cert")[0].jws.nonce == polls[1].reply.headers["Replay-Nonce"]


# -- the account store -----------------------------------------------------------------------------


def test_store_that_cannot_be_made(host, early_ca):
    host.write(paths.ACCOUNT_ROOT, "a file")
    result = new_cert(host, early_ca.directory, [NAME])
    expect.failed(result, 202, "Failed to create folder for account.", "client_v1")
    assert result.errors == ["client_v1:# Failed to create folder for account. [20]"]


def test_stored_key_that_cannot_sign(host, early_ca, early_account):
    host.write(early_account + "/private_key.json", '{"n": 7, "kty": "RSA"}', 0o600)
    failed(new_cert(host, early_ca.directory, [NAME]), 201, "RSA: key sing failed.", "rsa")
    assert early_ca.trace == ["directory"]
