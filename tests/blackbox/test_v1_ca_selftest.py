"""The CA of the early protocol, driven by a client that shares no code with the product."""

import functools
import http.client
import http.server
import json
import socket
import threading

import pytest
from cryptography import x509
from cryptography.hazmat.primitives.asymmetric import ec

from lib.http_script import NORMAL, Reply, edited
from lib.jws import encode
from lib.v1ca import AcmeV1Ca, asked_of, challenge_refused, fetched_from, shown_as
from lib.v1ca.tiny_client import KEYS, TinyClient, make_csr, new_key, request
from lib.validators import txt_value

NAME = "host.example.net"


@pytest.fixture(autouse=True)
def key_pool():
    KEYS.rewind()


@pytest.fixture(name="web_root")
def web_root_fixture(tmp_path):
    root = tmp_path / "web"
    (root / ".well-known" / "acme-challenge").mkdir(parents=True)
    return root


@pytest.fixture(name="web_port")
def web_port_fixture(web_root):
    class Handler(http.server.SimpleHTTPRequestHandler):
        def log_message(self, *_unused):
            pass

    handler = functools.partial(Handler, directory=str(web_root))
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
    thread = threading.Thread(target=server.serve_forever, args=(0.05,), daemon=True)
    thread.start()
    yield server.server_address[1]
    server.shutdown()
    thread.join()
    server.server_close()


@pytest.fixture(name="ca")
def ca_fixture(web_port):
    ca = AcmeV1Ca()
    ca.validators["http-01"] = fetched_from(web_port)
    yield ca
    ca.close()


@pytest.fixture(name="client")
def client_fixture(ca):
    client = TinyClient(ca.directory)
    client.register()
    return client


def publish(web_root, client, challenge, content=None):
    path = web_root / ".well-known" / "acme-challenge" / challenge["token"]
    path.write_text(content or f"{challenge['token']}.{client.thumbprint}")


def challenge_of(answer, kind="http-01"):
    return next(c for c in answer.json["challenges"] if c["type"] == kind)


def prove(web_root, client, name=NAME):
    challenge = challenge_of(client.authorize(name))
    publish(web_root, client, challenge)
    answer = client.answer_challenge(challenge)
    return request("GET", answer.link("up")).json


def refusal(answer):
    assert answer.header("Content-Type") == "application/problem+json"
    assert answer.json["status"] == answer.status
    return answer.status, answer.json["type"]


def malformed(answer):
    return refusal(answer) == (400, "urn:acme:error:malformed")


# -- the whole way ---------------------------------------------------------------------------------


def test_a_certificate_is_issued_over_http_01(ca, client, web_root):
    names = [NAME, "www.example.net"]
    for name in names:
        assert prove(web_root, client, name)["status"] == "valid"
    key = new_key()
    answer = client.new_cert(make_csr(names, key))
    assert answer.status == 201
    certificate = x509.load_der_x509_certificate(answer.body)
    alternative = certificate.extensions.get_extension_for_class(x509.SubjectAlternativeName).value
    assert alternative.get_values_for_type(x509.DNSName) == names
    assert certificate.public_key().public_numbers() == key.public_key().public_numbers()

    issuer = x509.load_der_x509_certificate(request("GET", answer.link("up")).body)
    issuer.public_key().verify(certificate.signature, certificate.tbs_certificate_bytes,
                               ec.ECDSA(certificate.signature_hash_algorithm))
    ca.issuer.root.public_key().verify(issuer.signature, issuer.tbs_certificate_bytes,
                                       ec.ECDSA(issuer.signature_hash_algorithm))
    assert issuer.subject == certificate.issuer
    assert request("GET", answer.header("Location")).body == answer.body
    assert ca.violations == []
    assert ca.trace == ["directory", "new-reg", "reg"] + 2 * ["new-authz", "challenge", "authz"] \
        + ["new-cert", "issuer", "cert"]


def test_a_certificate_is_issued_over_dns_01(client, dns):
    challenge = challenge_of(client.authorize(NAME), "dns-01")
    dns.set_txt(f"_acme-challenge.{NAME}", "something else")
    dns.set_txt(f"_acme-challenge.{NAME}",
                txt_value(f"{challenge['token']}.{client.thumbprint}"))
    answer = client.answer_challenge(challenge)
    assert request("GET", answer.link("up")).json["status"] == "valid"
    assert client.new_cert(make_csr([NAME], new_key())).status == 201


def test_the_directory_names_the_four_resources(ca):
    answer = request("GET", ca.directory)
    assert answer.status == 200
    assert sorted(answer.json) == ["new-authz", "new-cert", "new-reg", "revoke-cert"]
    assert answer.header("Replay-Nonce")


def test_every_reply_carries_another_nonce(ca):
    nonces = {request("GET", ca.directory).header("Replay-Nonce") for _ in range(5)}
    assert len(nonces) == 5


# -- signed requests -------------------------------------------------------------------------------


def registration_payload():
    return {"resource": "new-reg", "contact": ["mailto:me@mail.example"]}


@pytest.mark.parametrize("changes", [
    {"signature": encode(bytes(256))},
    {"payload": encode(b'{"resource": "new-reg", "contact": ["mailto:you@mail.example"]}')},
    {"signature": None},
    {"signature": "AA=="},
    {"payload": "{}"},
    {"header": None},
    {"header": {"alg": "RS256"}},
    {"header": {"alg": "RS256", "jwk": []}},
    {"header": {"alg": "RS256", "jwk": {"kty": "oct", "k": "AAAA"}}},
    {"signatures": []},
])
def test_a_request_that_is_not_signed_as_it_should_be_is_refused(ca, changes):
    client = TinyClient(ca.directory)
    document = client.signed(registration_payload(), **changes)
    assert malformed(client.send(client.directory["new-reg"], document))
    assert ca.state.registrations == []
    assert [text.split(":")[0] for text in ca.violations] == ["new-reg"]


@pytest.mark.parametrize("change", [
    {"alg": "none"}, {"alg": "RS384"}, {"nonce": "AAAA"}, {"crit": ["nonce"]},
])
def test_a_header_that_is_not_acceptable_is_refused(ca, change):
    client = TinyClient(ca.directory)
    document = client.signed(registration_payload())
    document["header"].update(change)
    assert malformed(client.send(client.directory["new-reg"], document))


@pytest.mark.parametrize("change", [
    {"d": "AQAB"}, {"e": "AAEAAQ"}, {"e": "AA"}, {"n": "AQAB"}, {"n": 5},
])
def test_a_key_that_is_not_acceptable_is_refused(ca, change):
    client = TinyClient(ca.directory)
    document = client.signed(registration_payload())
    document["header"]["jwk"].update(change)
    assert malformed(client.send(client.directory["new-reg"], document))


def test_a_signature_of_another_key_is_refused(ca):
    client, other = TinyClient(ca.directory), TinyClient(ca.directory)
    document = client.signed(registration_payload(),
                             signature=other.signed(registration_payload())["signature"])
    assert malformed(client.send(client.directory["new-reg"], document))


@pytest.mark.parametrize("body", [b"", b"no json", b"[]", b"\xff\xfe", b"[" * 100000])
def test_a_body_that_is_not_a_json_object_is_refused(ca, body):
    assert malformed(request("POST", ca.url + "/acme/new-reg", body))


@pytest.mark.parametrize("nonce", [encode(bytes(24)), "", None, 7])
def test_a_nonce_that_the_ca_did_not_make_is_refused(ca, nonce):
    client = TinyClient(ca.directory)
    client.nonce = nonce
    answer = client.post(client.directory["new-reg"], registration_payload())
    assert refusal(answer) == (400, "urn:acme:error:badNonce")
    assert answer.header("Replay-Nonce")


def test_a_nonce_is_good_once(ca):
    client = TinyClient(ca.directory)
    nonce = client.nonce
    client.register()
    client.nonce = nonce
    assert refusal(client.authorize(NAME)) == (400, "urn:acme:error:badNonce")


def test_a_refused_request_uses_up_its_nonce(ca):
    client = TinyClient(ca.directory)
    nonce = client.nonce
    assert malformed(client.post(client.directory["new-reg"], {"resource": "new-authz"}))
    client.nonce = nonce
    assert refusal(client.post(client.directory["new-reg"], registration_payload())) == \
        (400, "urn:acme:error:badNonce")


@pytest.mark.parametrize("path", ["new-reg", "new-authz", "new-cert", "revoke-cert", "reg/1"])
def test_the_payload_names_its_resource(ca, client, path):
    for resource in ("directory", None, 5):
        assert malformed(client.post(f"{ca.url}/acme/{path}", {"resource": resource}))


def test_a_signed_resource_is_not_read(ca):
    assert refusal(request("GET", ca.url + "/acme/new-reg")) == \
        (405, "urn:acme:error:malformed")
    assert refusal(request("POST", ca.directory, b"{}")) == (405, "urn:acme:error:malformed")
    assert refusal(request("GET", ca.url + "/nowhere")) == (404, "urn:acme:error:malformed")


# -- registrations ---------------------------------------------------------------------------------


def test_a_registration_is_made_and_agreed_to(ca):
    client = TinyClient(ca.directory)
    made = client.post(client.directory["new-reg"], registration_payload())
    assert made.status == 201
    assert made.header("Location") == ca.url + "/acme/reg/1"
    assert made.link("terms-of-service") == ca.url + "/terms/v1"
    assert made.link("next") == client.directory["new-authz"]
    assert made.json["key"] == {key: client.jwk[key] for key in ("e", "kty", "n")}
    assert "agreement" not in made.json

    agreed = client.post(made.header("Location"),
                         {"resource": "reg", "agreement": made.link("terms-of-service")})
    assert agreed.status == 202
    assert agreed.json["agreement"] == ca.url + "/terms/v1"
    assert agreed.json["contact"] == ["mailto:me@mail.example"]
    assert request("GET", made.link("terms-of-service")).status == 200


def test_a_key_registers_once(ca, client):
    answer = client.post(client.directory["new-reg"], registration_payload())
    assert refusal(answer) == (409, "urn:acme:error:malformed")
    assert answer.header("Location") == ca.url + "/acme/reg/1"


@pytest.mark.parametrize("contact", ["me@mail.example", "mailto:me", "mailto:", "tel:+1"])
def test_a_contact_is_an_email_address(ca, contact):
    client = TinyClient(ca.directory)
    answer = client.post(client.directory["new-reg"],
                         {"resource": "new-reg", "contact": [contact]})
    assert refusal(answer) == (400, "urn:acme:error:invalidEmail")
    assert ca.state.registrations == []


@pytest.mark.parametrize("contact", ["mailto:me@mail.example", [5], {"a": 1}])
def test_contact_is_a_list_of_texts(ca, contact):
    client = TinyClient(ca.directory)
    assert malformed(client.post(client.directory["new-reg"],
                                 {"resource": "new-reg", "contact": contact}))


def test_only_the_current_terms_can_be_agreed_to(ca):
    client = TinyClient(ca.directory)
    made = client.post(client.directory["new-reg"], registration_payload())
    answer = client.post(made.header("Location"),
                         {"resource": "reg", "agreement": "http://terms.example/"})
    assert malformed(answer)
    assert ca.state.registrations[0].agreement == ""


def test_a_registration_belongs_to_its_key(ca, client):
    other = TinyClient(ca.directory)
    other.register()
    answer = other.post(ca.url + "/acme/reg/1", {"resource": "reg"})
    assert refusal(answer) == (403, "urn:acme:error:unauthorized")


def test_nothing_goes_without_a_registration_that_agreed(ca):
    client = TinyClient(ca.directory)
    assert refusal(client.authorize(NAME)) == (403, "urn:acme:error:unauthorized")
    client.post(client.directory["new-reg"], registration_payload())
    answer = client.authorize(NAME)
    assert refusal(answer) == (403, "urn:acme:error:unauthorized")
    assert "agree" in answer.json["detail"]
    assert refusal(client.new_cert(make_csr([NAME], new_key()))) == \
        (403, "urn:acme:error:unauthorized")


# -- authorizations --------------------------------------------------------------------------------


def test_an_authorization_offers_the_challenges(ca, client):
    answer = client.authorize(NAME)
    assert answer.status == 201
    document = answer.json
    assert document["status"] == "pending"
    assert document["identifier"] == {"type": "dns", "value": NAME}
    assert [c["type"] for c in document["challenges"]] == ["http-01", "dns-01"]
    assert all(c["status"] == "pending" and len(c["token"]) == 43 for c in document["challenges"])
    assert request("GET", answer.header("Location")).json == document
    assert ca.violations == []


@pytest.mark.parametrize("identifier", [
    {"type": "dns", "value": "*.example.net"}, {"type": "dns", "value": "UPPER.example"},
    {"type": "dns", "value": "nodot"}, {"type": "dns", "value": 5}, {"type": "ip", "value": NAME},
    {"type": "dns"}, {"value": NAME}, "x", None,
])
def test_an_identifier_is_a_host_name(client, identifier):
    assert malformed(client.post(client.directory["new-authz"],
                                 {"resource": "new-authz", "identifier": identifier}))


def test_an_answered_challenge_links_up_to_its_authorization(client, web_root):
    authz = client.authorize(NAME)
    challenge = challenge_of(authz)
    publish(web_root, client, challenge)
    answer = client.answer_challenge(challenge)
    assert answer.status == 202
    assert answer.link("up") == authz.header("Location")
    assert answer.json["keyAuthorization"] == f"{challenge['token']}.{client.thumbprint}"


def test_a_wrong_key_authorization_is_refused(client):
    challenge = challenge_of(client.authorize(NAME))
    answer = client.answer_challenge(challenge, keyAuthorization=challenge["token"])
    assert refusal(answer) == (403, "urn:acme:error:unauthorized")


def test_a_challenge_answered_as_another_type_is_refused(client):
    challenge = challenge_of(client.authorize(NAME))
    assert malformed(client.answer_challenge(challenge, type="dns-01"))


def test_a_challenge_belongs_to_its_account(ca, client):
    challenge = challenge_of(client.authorize(NAME))
    other = TinyClient(ca.directory)
    other.register()
    assert refusal(other.answer_challenge(challenge)) == (403, "urn:acme:error:unauthorized")


def test_a_decided_authorization_takes_no_answer(client, web_root):
    authz = client.authorize(NAME)
    challenge = challenge_of(authz)
    publish(web_root, client, challenge)
    client.answer_challenge(challenge)
    assert malformed(client.answer_challenge(challenge))


def outcome(client, challenge):
    answer = client.answer_challenge(challenge)
    document = request("GET", answer.link("up")).json
    shown = next(c for c in document["challenges"] if c["type"] == challenge["type"])
    return document["status"], shown["status"], shown["error"]["type"]


def test_a_token_that_is_not_published_is_unauthorized(client):
    challenge = challenge_of(client.authorize(NAME))
    assert outcome(client, challenge) == ("invalid", "invalid", "urn:acme:error:unauthorized")


def test_a_token_with_another_content_is_unauthorized(client, web_root):
    challenge = challenge_of(client.authorize(NAME))
    publish(web_root, client, challenge, content="something else")
    assert outcome(client, challenge) == ("invalid", "invalid", "urn:acme:error:unauthorized")


def test_a_web_server_that_does_not_listen_is_a_connection_error(ca, client):
    with socket.socket() as unused:
        unused.bind(("127.0.0.1", 0))
        ca.validators["http-01"] = fetched_from(unused.getsockname()[1])
        challenge = challenge_of(client.authorize(NAME))
        assert outcome(client, challenge) == ("invalid", "invalid", "urn:acme:error:connection")


def test_a_name_without_an_address_is_an_unknown_host(ca, client):
    ca.validators["http-01"] = fetched_from(80, resolve=lambda name: None)
    challenge = challenge_of(client.authorize(NAME))
    assert outcome(client, challenge) == ("invalid", "invalid", "urn:acme:error:unknownHost")


@pytest.mark.usefixtures("dns")
def test_a_record_that_is_not_there_is_unauthorized(client):
    challenge = challenge_of(client.authorize(NAME), "dns-01")
    assert outcome(client, challenge) == ("invalid", "invalid", "urn:acme:error:unauthorized")


def test_a_zone_that_fails_is_a_connection_error(client, dns):
    dns.rcode = "SERVFAIL"
    challenge = challenge_of(client.authorize(NAME), "dns-01")
    assert outcome(client, challenge) == ("invalid", "invalid", "urn:acme:error:connection")


def test_a_dns_server_that_is_silent_is_a_connection_error(ca, client):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as silent:
        silent.bind(("127.0.0.1", 0))
        ca.validators["dns-01"] = asked_of(*silent.getsockname(), timeout=0.2)
        challenge = challenge_of(client.authorize(NAME), "dns-01")
        assert outcome(client, challenge) == ("invalid", "invalid", "urn:acme:error:connection")


def test_an_outcome_can_take_its_time(ca, client, web_root):
    ca.states_before_decided = ["pending", "processing"]
    challenge = challenge_of(client.authorize(NAME))
    publish(web_root, client, challenge)
    url = client.answer_challenge(challenge).link("up")
    assert [request("GET", url).json["status"] for _ in range(4)] == \
        ["pending", "processing", "valid", "valid"]


def test_a_validation_can_be_refused_at_will(ca, client, web_root):
    ca.refusals.append(("caa", "not here"))
    document = prove(web_root, client)
    assert document["status"] == "invalid"
    assert document["challenges"][0]["error"] == {"type": "urn:acme:error:caa",
                                                  "detail": "not here"}
    assert prove(web_root, client)["status"] == "valid"


def test_a_token_can_be_chosen(ca, client):
    ca.tokens.append("../../etc/passwd")
    assert challenge_of(client.authorize(NAME))["token"] == "../../etc/passwd"


def test_a_valid_authorization_can_be_used_again(ca, client, web_root):
    ca.reuse = True
    assert prove(web_root, client)["status"] == "valid"
    answer = client.authorize(NAME)
    assert answer.status == 201
    assert answer.json["status"] == "valid"


# -- certificates ----------------------------------------------------------------------------------


def test_every_name_needs_an_authorization(ca, client, web_root):
    prove(web_root, client)
    answer = client.new_cert(make_csr([NAME, "other.example.net"], new_key()))
    assert refusal(answer) == (403, "urn:acme:error:unauthorized")
    assert answer.json["detail"].endswith(": other.example.net")
    assert ca.state.certificates == []


def test_a_request_signed_with_the_account_key_is_refused(client, web_root):
    prove(web_root, client)
    assert malformed(client.new_cert(make_csr([NAME], client.key)))


def test_a_request_that_does_not_parse_or_was_changed_is_refused(client, web_root):
    prove(web_root, client)
    csr = make_csr([NAME], new_key())
    assert malformed(client.new_cert(b"no DER"))
    assert malformed(client.new_cert(csr[:-1] + bytes([csr[-1] ^ 1])))
    assert malformed(client.post(client.directory["new-cert"],
                                 {"resource": "new-cert", "csr": encode(csr) + "="}))
    assert client.new_cert(csr).status == 201


@pytest.fixture(name="issued")
def issued_fixture(client, web_root):
    prove(web_root, client)
    key = new_key()
    return client.new_cert(make_csr([NAME], key)).body, key


def test_a_certificate_is_revoked_once(ca, client, issued):
    answer = client.revoke(issued[0])
    assert (answer.status, answer.body) == (200, b"")
    assert ca.state.certificates[0].revoked
    assert refusal(client.revoke(issued[0])) == (409, "urn:acme:error:malformed")


def test_only_the_ca_own_certificates_are_revoked(client):
    assert refusal(client.revoke(b"something else")) == (404, "urn:acme:error:malformed")


def test_a_stranger_does_not_revoke(ca, issued):
    stranger = TinyClient(ca.directory)
    assert refusal(stranger.revoke(issued[0])) == (403, "urn:acme:error:unauthorized")
    stranger.register()
    assert refusal(stranger.revoke(issued[0])) == (403, "urn:acme:error:unauthorized")
    assert not ca.state.certificates[0].revoked


def test_the_key_of_the_certificate_revokes(ca, issued):
    assert TinyClient(ca.directory, issued[1]).revoke(issued[0]).status == 200


def test_an_account_with_the_authorizations_revokes(ca, issued, web_root):
    other = TinyClient(ca.directory)
    other.register()
    prove(web_root, other)
    assert other.revoke(issued[0]).status == 200


# -- misbehaviour ----------------------------------------------------------------------------------


def test_an_answer_is_edited_after_the_work_was_done(ca):
    ca.answer("new-reg", NORMAL, edited(status=500, nonce=None))
    assert TinyClient(ca.directory).register().status == 201
    client = TinyClient(ca.directory)
    answer = client.post(client.directory["new-reg"], registration_payload())
    assert (answer.status, answer.header("Replay-Nonce")) == (500, None)
    assert answer.link("terms-of-service")
    assert len(ca.state.registrations) == 2


def test_an_answer_instead_leaves_no_state(ca):
    ca.answer("new-reg", Reply(429, {"detail": "slow down"}))
    client = TinyClient(ca.directory)
    assert client.post(client.directory["new-reg"], registration_payload()).status == 429
    assert ca.state.registrations == []
    assert ca.violations == []


def test_a_request_is_judged_whatever_is_answered(ca, client, web_root):
    ca.always("new-reg", Reply(201))
    other = TinyClient(ca.directory)
    other.send(other.directory["new-reg"], other.signed({}, signature="AAAA"))
    ca.always("new-authz", Reply(201))
    client.authorize("*")
    ca.always("challenge", Reply(202))
    ca.always("new-authz", None)
    client.answer_challenge(challenge_of(client.authorize(NAME)), keyAuthorization="x")
    ca.always("new-cert", Reply(201))
    client.new_cert(b"no DER")
    ca.always("revoke-cert", Reply(200))
    client.revoke(b"no certificate")
    assert [text.split(":")[0] for text in ca.violations] == \
        ["new-reg", "new-authz", "challenge", "new-cert", "revoke-cert"]


def test_a_conflict_is_no_violation(ca, client, issued):
    client.post(client.directory["new-reg"], registration_payload())
    client.revoke(issued[0])
    assert client.revoke(issued[0]).status == 409
    assert ca.violations == []


def test_a_nonce_can_be_bogus(ca):
    ca.answer("directory", edited(nonce="bm9uc2Vuc2U"))
    client = TinyClient(ca.directory)
    assert refusal(client.post(client.directory["new-reg"], registration_payload())) == \
        (400, "urn:acme:error:badNonce")


def test_an_authorization_can_show_anything(ca, client):
    ca.answer("authz", shown_as("deactivated"), shown_as(7),
              challenge_refused("dns-01", "caa", "no"))
    url = client.authorize(NAME).header("Location")
    assert request("GET", url).json["status"] == "deactivated"
    assert request("GET", url).json["status"] == 7
    document = request("GET", url).json
    assert document["status"] == "invalid"
    assert [c.get("error") for c in document["challenges"]] == \
        [None, {"type": "urn:acme:error:caa", "detail": "no"}]
    assert request("GET", url).json["status"] == "pending"


def test_a_reply_can_be_dropped_or_cut(ca):
    ca.answer("directory", Reply(drop=True), edited(cut=10))
    with pytest.raises(http.client.RemoteDisconnected):
        request("GET", ca.directory)
    with pytest.raises(http.client.IncompleteRead) as caught:
        request("GET", ca.directory)
    assert len(caught.value.partial) == 10


def test_the_record_keeps_requests_as_they_came(ca, client):
    made = ca.calls("new-reg")[0]
    assert made.method == "POST"
    assert made.jws.payload == {"resource": "new-reg", "contact": ["mailto:me@mail.example"]}
    assert json.loads(made.body)["header"]["alg"] == "RS256"
    assert made.jws.key.thumbprint == client.thumbprint
    assert made.reply.status == 201
