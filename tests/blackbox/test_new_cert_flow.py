"""An issuance that goes well: the requests, the files, the result and the progress messages."""

import json
import os

import pytest
from lib import expect, paths
from lib.http_script import NORMAL, Reply, edited
from lib.issuer import pem
from lib.signed_server import bad_nonce, problem

NAME = "www.host.example"


def test_result_is_one_styled_document(host, ca):
    result = host.new_cert(ca.directory, [NAME])
    folder = expect.issued(result, [NAME])
    assert result.stdout == '{\n   "cert_path" : "%s",\n   "error" : 0\n}\n' % folder
    assert result.errors == []
    assert host.certificates() == [folder]


def test_requests_come_in_protocol_order(host, ca):
    expect.issued(host.new_cert(ca.directory, [NAME]), [NAME])
    assert ca.trace == ["directory", "newNonce", "newAccount", "newOrder", "authz", "challenge",
                        "authz", "finalize", "certificate"]


def test_a_reader_that_goes_away_does_not_cost_the_certificate(host, ca):
    result = host.run("-c", f"{paths.PROGRAM} new-cert -v -s {ca.directory} -d {NAME} "
                      "-m me@host.example | head -n 1; exit ${PIPESTATUS[0]}",
                      program="/bin/bash")
    assert result.status == 0
    assert [error.partition(". [")[0] for error in result.errors] == [
        "kova-letsencrypt:# Failed to write to standard output"]
    assert result.stdout.startswith("DEBUG: ") and result.stdout.count("\n") == 1
    expect.certificate_folder(host.certificates()[0], [NAME])
    assert os.path.exists(paths.CRON_JOB)


def test_every_request_names_the_device(host, ca):
    host.device(router="none", user_agent="Appliance/7")
    expect.issued(host.new_cert(ca.directory, [NAME]))
    assert {request.header("User-Agent") for request in ca.requests} == {"Appliance/7"}


def test_registration_agrees_to_the_terms(host, ca):
    expect.issued(host.new_cert(ca.directory, [NAME], mail="me@host.example"))
    assert ca.payloads("newAccount") == [
        {"contact": ["mailto:me@host.example"], "termsOfServiceAgreed": True}]


def test_names_are_ordered_as_written_and_trimmed(host, ca):
    result = host.new_cert(ca.directory, " b.example;\t;; a.example ;")
    folder = expect.issued(result, ["a.example", "b.example"])
    assert ca.payloads("newOrder") == [{"identifiers": [
        {"type": "dns", "value": "b.example"}, {"type": "dns", "value": "a.example"}]}]
    assert json.loads(expect.read(folder + "/renew.json"))["domains"] == "b.example;a.example"


def test_duplicate_names_are_kept(host, ca):
    folder = expect.issued(host.new_cert(ca.directory, "a.example;a.example"), ["a.example"])
    assert [entry["value"] for entry in ca.payloads("newOrder")[0]["identifiers"]] == [
        "a.example", "a.example"]
    assert json.loads(expect.read(folder + "/renew.json"))["domains"] == "a.example;a.example"


def test_renewal_record(host, ca, account):
    folder = expect.issued(host.new_cert(ca.directory, ["a.example", "b.example"]))
    assert expect.read(folder + "/renew.json") == (
        '{\n   "account" : "%s",\n   "domains" : "a.example;b.example",\n   "server" : "%s",\n'
        '   "version" : 2\n}\n' % (account, ca.directory))


def test_folder_is_private_and_has_a_random_name(host, ca, account):
    first = expect.issued(host.new_cert(ca.directory, [NAME]))
    second = expect.issued(host.new_cert(ca.directory, [NAME]))
    assert first != second
    for folder in (first, second):
        assert len(os.path.basename(folder)) == 6
        assert expect.mode(folder) == 0o700


def test_chain_is_stored_as_downloaded(host, ca, account):
    ca.issuer.add_intermediate("Second")
    folder = expect.issued(host.new_cert(ca.directory, [NAME]))
    chain = [pem(certificate).decode() for certificate in ca.issuer.chain(ca.certificates[-1])]
    assert len(chain) == 3
    assert expect.read(folder + "/cert.pem") == chain[0].rstrip("\n")
    assert expect.read(folder + "/chain.pem") == chain[1] + chain[2]
    assert expect.read(folder + "/fullchain.pem") == "".join(chain)


def test_text_around_the_certificates_stays_in_fullchain_alone(host, ca, account):
    host.settings(checkissued=None)  # which takes it for garbage

    def annotate(_request, normal):
        reply = normal()
        return Reply(200, "leading text\n" + reply.body + "trailing text\n", reply.headers)
    ca.answer("certificate", annotate)
    result = host.new_cert(ca.directory, [NAME])
    folder = result.document["cert_path"]
    leaf, intermediate = (pem(c).decode() for c in ca.issuer.chain(ca.certificates[-1]))
    assert expect.read(folder + "/cert.pem") == leaf.rstrip("\n")
    assert expect.read(folder + "/chain.pem") == intermediate + "trailing text\n"
    assert expect.read(folder + "/fullchain.pem") == (
        "leading text\n" + leaf + intermediate + "trailing text\n")


def test_given_id_replaces_the_files_of_that_folder(host, ca, account):
    folder = paths.ARCHIVE + "/AbC123"
    for name in [*paths.CERTIFICATE_FILES, "extra"]:
        host.write(f"{folder}/{name}", "old " + name)
    result = host.new_cert(ca.directory, [NAME], "-c", "AbC123")
    assert result.document == {"error": 0, "cert_path": folder}
    assert host.certificates() == [folder]
    assert expect.read(folder + "/extra") == "old extra"
    os.unlink(folder + "/extra")
    expect.certificate_folder(folder, [NAME])


def test_valid_authorization_is_not_proved_again(host, ca, account):
    ca.reuse = True
    result = host.new_cert(ca.directory, [NAME], "-v")
    assert result.status == 0
    assert ca.trace == ["directory", "newNonce", "newOrder", "authz", "finalize", "certificate"]
    assert "Get valid without setup challenge, may cache?" in result.debug
    assert not os.path.exists(paths.WEBROOT)


def test_names_are_proved_strictly_one_after_another(host, ca, account):
    ca.challenge_types = ["http-01"]
    present = []
    ca.validators["http-01"] = lambda name, token, proof: present.append(os.listdir(paths.TOKENS))
    expect.issued(host.new_cert(ca.directory, ["a.example", "b.example", "c.example"]))
    assert present == [[challenge.token] for challenge in ca.challenges]
    assert os.listdir(paths.TOKENS) == []


def test_bad_nonces_are_retried_with_the_nonce_that_came(host, ca, account):
    for endpoint in ("newOrder", "challenge", "finalize", "certificate"):
        ca.answer(endpoint, *[bad_nonce()] * 3)
    expect.issued(host.new_cert(ca.directory, [NAME]))
    for endpoint in ("newOrder", "challenge", "finalize", "certificate"):
        calls = ca.calls(endpoint)
        assert len(calls) == 4
        for refused, repeated in zip(calls, calls[1:]):
            assert repeated.jws.header["nonce"] == refused.reply_nonce
            assert repeated.jws.raw["payload"] == refused.jws.raw["payload"]


def test_newest_nonce_is_used_first(host, ca, account):
    ca.always("directory", edited(nonce=True))
    expect.issued(host.new_cert(ca.directory, [NAME]))
    # The directory's own nonce stays at the bottom of the pool.
    signed = [request for request in ca.requests if request.jws is not None]
    earlier = ca.requests[ca.requests.index(signed[0]) - 1:]
    assert [request.jws.header["nonce"] for request in signed] == [
        request.reply_nonce for request in earlier[:-1]]
    assert earlier[0].endpoint == "newNonce"


def test_pending_authorization_is_polled_every_two_seconds(host, ca, account):
    ca.states_before_valid = ["pending"] * 4
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result)
    assert result.sleeps == [2, 2, 2, 2]
    assert len(ca.calls("authz")) == 1 + 4 + 1


def test_processing_authorization_is_polled_without_a_pause(host, ca, account):
    ca.states_before_valid = ["processing", "pending", "processing"]
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result)
    assert result.sleeps == [2]


@pytest.mark.parametrize("status", [7, None, True, [], {"a": 1}, "revoked", ""])
def test_odd_authorization_status_counts_as_any_other(host, ca, account, status):
    odd = Reply(200, {"status": status})
    ca.answer("authz", NORMAL, *[odd] * 29)
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result)
    assert result.sleeps == []
    assert len(ca.calls("authz")) == 31


def test_account_is_used_again_by_the_next_run(host, ca):
    expect.issued(host.new_cert(ca.directory, [NAME]))
    [folder] = host.accounts()
    before = expect.tree(folder)
    result = host.new_cert(ca.directory, [NAME], "-v")
    assert result.status == 0
    assert f"Found registed account. used old account. [{folder}]" in result.debug
    assert len(ca.calls("newAccount")) == 1
    assert host.accounts() == [folder] and expect.tree(folder) == before


def test_redirect_of_the_directory_is_followed(host, ca, account):
    # Of two nonces the first counts, which came with the redirect.
    ca.answer("directory", Reply(302, "", {"Location": ca.url + "/moved"}))
    ca.answer("/moved", Reply(200, ca.links))
    ca.answer("newNonce", Reply(204, nonce=None))
    host.settings(noncerefill=None)
    expect.issued(host.new_cert(ca.directory, [NAME]))
    assert ca.trace[:4] == ["directory", "/moved", "newNonce", "newOrder"]
    assert ca.calls("newOrder")[0].jws.header["nonce"] == ca.requests[0].reply_nonce


def test_refused_order_is_tried_again_and_may_succeed(host, ca, account):
    ca.answer("newOrder", problem("malformed", "no"), problem("rateLimited", "slow", 429))
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result)
    body = '{"detail":"no","status":400,"type":"urn:ietf:params:acme:error:malformed"}'
    assert result.errors == [expect.retry_line(102, "Failed to issue order" + body),
                             expect.retry_line(104, "slow")]
    assert result.sleeps == [2, 2]


def test_order_refused_five_times_succeeds_without_a_bound(host, ca, account):
    host.settings(orderattempts=None)
    ca.answer("newOrder", *[problem("rateLimited", "slow", 429, headers={"Retry-After": "9"})] * 5)
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result)
    assert expect.retries(result) == [expect.retry_line(104, "slow")] * 5
    assert result.sleeps == []
    assert len(ca.calls("newOrder")) == 6


LEVEL_1 = """\
==== start to new cert ====
Server: {ca}/directory
Email: admin@host.example
Domain: www.host.example
==========================
setup acme url {ca}/directory
GET Request: {ca}/directory
GET Request: {ca}/new-nonce
Not found registed account. do reg-new.
Start new account for admin@host.example
Post JWS Request: {ca}/new-account
Post Request: {ca}/new-account
New account success of {ca}/account/1
Post JWS Request: {ca}/new-order
Post Request: {ca}/new-order
Failed to port map router detect. [{detect}]
failed to open port 80.
Post JWS Request: {authz}
Post Request: {authz}
dns-01 is not support for www.host.example
Setup challenge for www.host.example with type http-01
Post JWS Request: {challenge}
Post Request: {challenge}
Post JWS Request: {authz}
Post Request: {authz}
==> start new-cert.
generate csr & private key
get new-cert
Post JWS Request: {finalize}
Post Request: {finalize}
Post JWS Request: {certificate}
Post Request: {certificate}
get issuer-cert
save to files"""


def test_progress_messages_at_level_1(host, ca):
    host.hook("router-detect", "exit 9\n")
    result = host.new_cert(ca.directory, [NAME], "-v")
    expect.issued(result)
    order = ca.orders[0]
    expected = LEVEL_1.format(
        ca=ca.url, detect=9, authz=f"{ca.url}/authz/{order.authorizations[0].number}",
        challenge=ca.calls("challenge")[0].jws.header["url"],
        finalize=f"{ca.url}/finalize/{order.number}",
        certificate=f"{ca.url}/certificate/{order.number}").split("\n")
    assert result.debug == expected
    # Nothing else but the document, which comes last.
    document = result.stdout[result.stdout.index("{\n"):]
    assert result.stdout == "".join(f"DEBUG: {line}\n" for line in expected) + document


def test_level_2_shows_transport_keys_and_requests(host, ca):
    result = host.new_cert(ca.directory, [NAME], "-vv")
    folder = expect.issued(result)
    text = result.stdout
    for expected in ("szUserAgent: [kova-letsencrypt/", "Curl Reply: [201] Header: [HTTP/1.1 201",
                     "Post JWS header: {", "Post JWS value: {", "Post value: {",
                     "======= Private Key ========", "=========== CSR ============",
                     "-----BEGIN CERTIFICATE REQUEST-----"):
        assert "DEBUG: " + expected in text, expected
    assert "DEBUG: " + expect.read(folder + "/privkey.pem") in text
    assert "DEBUG: " + expect.read(folder + "/fullchain.pem") in text
