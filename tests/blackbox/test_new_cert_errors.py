"""Everything that can go wrong in an issuance: code, message, system log and exit status."""

import os

import pytest
from lib import expect, paths
from lib.http_script import NORMAL, Reply, edited, edited_json
from lib.signed_server import bad_nonce, problem

NAME = "www.host.example"


@pytest.fixture
def once(host):
    """One attempt only, so that every request is the first of its kind. Without dns-01 from the
    start: an attempt that finds it unsupported uses it up, and another one follows."""
    host.settings(orderattempts=1, skipdns01=True)


# -- before the first request -------------------------------------------------------------------


@pytest.mark.parametrize("domains", [";", " ; ;\t;\n", " "])
def test_no_domain_left(host, ca, domains):
    result = host.new_cert(ca.directory, domains, "-v")
    assert result.debug == []
    expect.failed(result, 106, "no valid domain name", "kova-letsencrypt")
    assert ca.requests == [] and result.syslog == []


def test_wildcard_outside_the_ddns_zone(host, ca):
    host.device(router="none", ddns_hostname="box.ddns.example")
    result = host.new_cert(ca.directory, ["a.example", "*.b.example", "*.box.ddns.example"])
    expect.failed(result, 108, "*.b.example is not Kova ddns", "kova-letsencrypt")
    assert [line.plain for line in result.syslog] == [
        "kova-letsencrypt:# Only Kova ddns suppport wildcard function"]
    assert ca.requests == []


@pytest.mark.parametrize("level", [[], ["-v"], ["-vv"]])
def test_wildcard_rule_holds_at_every_debug_level(host, ca, level):
    result = host.new_cert(ca.directory, ["a.example", "*.b.example", "c.example"], *level)
    assert result.status == 108
    if level:
        assert result.debug == ["==== start to new cert ====", "Server: " + ca.directory,
                                "Email: admin@host.example", "Domain: a.example",
                                "Domain: *.b.example"]
    assert ca.requests == []


def test_wildcard_without_a_ddns_name(host, ca):
    result = host.new_cert(ca.directory, ["*.b.example"])
    expect.failed(result, 108, "*.b.example is not Kova ddns", "kova-letsencrypt")
    assert [(line.priority, line.plain) for line in result.syslog] == [
        (7, "utils:# No kova DDNS."),
        (3, "kova-letsencrypt:# Only Kova ddns suppport wildcard function")]


@pytest.mark.parametrize("name", ["*.BOX.ddns.EXAMPLE", "*.x.box.ddns.example",
                                  "*.box.ddns.example.other", "*xbox.ddns.example"])
def test_wildcard_whose_name_holds_the_ddns_name_passes(host, ca, account, once, name):
    # A substring test that ignores case, on what follows the star and one more character.
    host.device(router="none", ddns_hostname="Box.ddns.example")
    ca.always("newOrder", problem("rateLimited", "seen", 429))
    result = host.new_cert(ca.directory, [name])
    expect.gave_up(result, 104, "seen", attempts=1)


def test_long_wildcard_is_cut_in_the_message(host, ca):
    result = host.new_cert(ca.directory, ["*." + "a" * 600])
    assert result.status == 108
    assert result.document["msg"] == ("*." + "a" * 600)[:511]


def test_single_star(host, ca):
    result = host.new_cert(ca.directory, ["*"])
    assert result.status == 202
    assert result.document["file"] == "kova-letsencrypt"
    assert "basic_string::substr" in result.document["msg"]
    assert ca.requests == []


def test_star_and_one_character(host, ca):
    expect.failed(host.new_cert(ca.directory, ["*."]), 108, "*. is not Kova ddns",
                  "kova-letsencrypt")


# -- directory and nonces -----------------------------------------------------------------------


@pytest.mark.parametrize("url", ["http://127.0.0.1:1/directory", "http://no.such.host.invalid/",
                                 "https://127.0.0.1:1/", "nonsense://x", " ", "file:///etc/passwd"])
def test_server_out_of_reach(host, url):
    result = host.new_cert(url, [NAME])
    expect.failed(result, 100, "Server is not reachable.", "client_network")


@pytest.mark.parametrize("status", [201, 204, 301, 403, 404, 500, 503])
def test_directory_with_another_status(host, ca, status):
    ca.answer("directory", Reply(status, ca.links))
    expect.failed(host.new_cert(ca.directory, [NAME]), 200, "Failed to init directory map")


@pytest.mark.parametrize("member", ["newOrder", "newAccount", "newNonce", "revokeCert"])
def test_directory_without_a_member(host, ca, member):
    ca.answer("directory", edited_json(lambda body: body.pop(member) and None))
    expect.failed(host.new_cert(ca.directory, [NAME]), 200, "Directory Member missing.")
    assert ca.trace == ["directory"]


def test_further_members_of_the_directory_do_no_harm(host, ca, account):
    ca.answer("directory", edited_json(lambda body: body.update(renewalInfo=7, x=[1])))
    expect.issued(host.new_cert(ca.directory, [NAME]))


@pytest.mark.parametrize("body", ["[]", "null", "7", '"x"', "true", "{}", "[{}]"])
def test_directory_that_is_no_object(host, ca, body):
    ca.answer("directory", Reply(200, body))
    expect.failed(host.new_cert(ca.directory, [NAME]), 200, "Directory Member missing.")


@pytest.mark.parametrize("body", ["", "<html>", "{", '{"newOrder":', "\0"])
def test_directory_that_is_not_json(host, ca, body):
    ca.answer("directory", Reply(200, body))
    expect.failed(host.new_cert(ca.directory, [NAME]), 200, "body is not json.", "client_network")


def test_new_nonce_status_does_not_matter(host, ca, account):
    ca.answer("newNonce", edited(status=500))
    expect.issued(host.new_cert(ca.directory, [NAME]))


def test_lower_case_nonce_header_is_not_seen(host, ca, account, once):
    host.settings(noncerefill=None)
    ca.answer("newNonce", edited(lower_case=True))
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 204, "No Nonce.... Not Yet implement", attempts=1)
    assert ca.trace == ["directory", "newNonce"]


def test_no_nonce_at_registration_is_fatal(host, ca):
    host.settings(noncerefill=None)
    ca.answer("newNonce", edited(nonce=None))
    expect.failed(host.new_cert(ca.directory, [NAME]), 204, "No Nonce.... Not Yet implement")
    assert host.accounts() == []


# -- registration -------------------------------------------------------------------------------


@pytest.mark.parametrize("status, code", [(400, 105), (429, 103)])
def test_registration_refused_with_a_detail(host, ca, status, code):
    ca.answer("newAccount", problem("invalidContact", "100%s%n sure: no", status))
    expect.failed(host.new_cert(ca.directory, [NAME]), code, "100%s%n sure: no")
    assert host.accounts() == [] and ca.trace[-1] == "newAccount"


@pytest.mark.parametrize("status", [200, 202, 301, 403, 409, 500])
def test_registration_with_another_status(host, ca, status):
    ca.answer("newAccount", edited(status=status))
    expect.failed(host.new_cert(ca.directory, [NAME]), 200, "newAccount, unexpect httpcode")
    assert host.accounts() == []


def test_registration_keeps_getting_bad_nonces(host, ca):
    ca.always("newAccount", bad_nonce())
    expect.failed(host.new_cert(ca.directory, [NAME]), 105,
                  "JWS has an invalid anti-replay nonce")
    assert len(ca.calls("newAccount")) == 4


def test_400_without_json(host, ca):
    ca.answer("newAccount", Reply(400, "<html>"))
    expect.failed(host.new_cert(ca.directory, [NAME]), 200, "body is not json.", "client_network")
    assert len(ca.calls("newAccount")) == 1


def test_long_detail_is_cut(host, ca):
    ca.answer("newAccount", problem("invalidContact", "x" * 5000))
    expect.failed(host.new_cert(ca.directory, [NAME]), 105, "x" * 511)


def test_account_url_that_is_missing_is_refused(host, ca):
    ca.answer("newAccount", edited(headers={}))
    result = host.new_cert(ca.directory, [NAME])
    assert (result.status, result.document["error"]) == (200, 200)
    assert host.accounts() == []


# -- orders -------------------------------------------------------------------------------------


def test_order_refused_shows_the_whole_reply(host, ca, account, once):
    ca.answer("newOrder", Reply(400, {"type": "urn:x", "detail": "100%s", "b": [1, {"a": None}]}))
    expect.gave_up(host.new_cert(ca.directory, [NAME]), 102, "Failed to issue order"
                   '{"b":[1,{"a":null}],"detail":"100%s","type":"urn:x"}', attempts=1)


def test_order_keeps_getting_bad_nonces(host, ca, account, once):
    ca.always("newOrder", bad_nonce())
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 102, "Failed to issue order" + (
        '{"detail":"JWS has an invalid anti-replay nonce","status":400,'
        '"type":"urn:ietf:params:acme:error:badNonce"}'), attempts=1)
    assert len(ca.calls("newOrder")) == 4


@pytest.mark.parametrize("status", [200, 202, 401, 403, 409, 500, 503])
def test_order_with_another_status(host, ca, account, once, status):
    ca.answer("newOrder", edited(status=status))
    expect.gave_up(host.new_cert(ca.directory, [NAME]), 200, "new_authz: unexpect httpcode.",
                   attempts=1)
    assert ca.trace[-1] == "newOrder"


def test_remembered_code_is_that_of_the_last_attempt(host, ca, account):
    ca.answer("newOrder", problem("rateLimited", "slow", 429), problem("malformed", "no"),
              Reply(500))
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 200)
    assert len(expect.retries(result)) == 3


def test_transfer_failure_in_an_attempt(host, ca, account, once):
    ca.answer("newOrder", Reply(drop=True))
    expect.gave_up(host.new_cert(ca.directory, [NAME]), 100, "Server is not reachable.",
                   "client_network", attempts=1)


# -- authorizations -----------------------------------------------------------------------------


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


# -- finalize and download ----------------------------------------------------------------------


def test_finalize_keeps_getting_bad_nonces(host, ca, account, once):
    ca.always("finalize", bad_nonce())
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 205, "badnonce for new-cert", attempts=1)
    assert result.errors[0] == "client_v2:# Failed to new cert due to badnonce"
    assert len(ca.calls("finalize")) == 4


@pytest.mark.parametrize("status", [201, 202, 400, 403, 404, 429, 500])
def test_finalize_with_another_status(host, ca, account, once, status):
    ca.answer("finalize", problem("malformed", "not consulted", status))
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 200, "new-cert: Unexpect httpcode. (new-cert)", attempts=1)
    assert result.errors[0] == (
        f"client_v2:# Failed to new cert with unknown (unknown) [{status}]")


@pytest.mark.parametrize("status", [201, 202, 403, 404, 500])
def test_download_with_another_status(host, ca, account, once, status):
    ca.answer("finalize", edited_json(lambda body: {"certificate": body["certificate"], "a": "%s"}))
    ca.answer("certificate", edited(status=status))
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 200, "new-cert: Unexpect httpcode. (download cert)", attempts=1)
    url = ca.calls("certificate")[0].jws.header["url"]
    assert result.errors[0] == ('client_v2:# Failed to download cert with '
                                '{"a":"%%s","certificate":"%s"} [%d]' % (url, status))


def test_status_of_the_finalized_order_is_not_looked_at(host, ca, account):
    ca.answer("finalize", edited_json(lambda body: {"certificate": body["certificate"],
                                                    "status": "invalid"}))
    expect.issued(host.new_cert(ca.directory, [NAME]))


def test_finalized_order_without_a_certificate(host, ca, account, once):
    ca.answer("finalize", edited_json(lambda body: {"status": "valid"}))
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 100, "Server is not reachable.", "client_network", attempts=1)


BEGIN, END = "-----BEGIN CERTIFICATE-----", "-----END CERTIFICATE-----"


@pytest.mark.parametrize("body", [
    "", "<html>", BEGIN, END, END + BEGIN, f"{BEGIN}\nx\n{END}\n",
    f"{END}\n{BEGIN}\nx\n", f"{BEGIN}\nx\n{BEGIN}\ny\n{END}\n"])
def test_chain_that_cannot_be_split(host, ca, account, once, body):
    ca.answer("certificate", Reply(200, body))
    expect.gave_up(host.new_cert(ca.directory, [NAME]), 202, "Failed to save pems", attempts=1)
    assert host.certificates() == []


def test_single_certificate_is_not_enough(host, ca, account, once):
    ca.issuer.intermediates.clear()
    expect.gave_up(host.new_cert(ca.directory, [NAME]), 202, "Failed to save pems", attempts=1)
    assert host.certificates() == []


def test_files_of_another_kind_stay_when_saving_fails(host, ca, account, once):
    host.write(paths.ARCHIVE + "/AbC123/info", "mine")
    ca.answer("certificate", Reply(200, ""))
    result = host.new_cert(ca.directory, [NAME], "-c", "AbC123")
    expect.gave_up(result, 202, "Failed to save pems", attempts=1)
    assert expect.read(paths.ARCHIVE + "/AbC123/info") == "mine"


def test_archive_that_is_missing(host, ca, account, once):
    os.rmdir(paths.ARCHIVE)
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 202, "Failed to create folder for account item.", attempts=1)


def test_nothing_that_was_there_is_touched_by_a_failed_run(host, ca, account, once):
    host.write(paths.ARCHIVE + "/INFO", '{"old": {}}')
    host.write(paths.ARCHIVE + "/old/cert.pem", "old", 0o400)
    before = expect.tree("/usr/kova")
    ca.always("finalize", Reply(500))
    expect.gave_up(host.new_cert(ca.directory, [NAME]), 200,
                   "new-cert: Unexpect httpcode. (new-cert)", attempts=1)
    assert expect.tree("/usr/kova") == before
