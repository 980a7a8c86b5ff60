"""What can go wrong before a name is proved: names, directory, nonces, registration, order. Code,
message, system log and exit status of each."""

import pytest
from lib import expect
from lib.http_script import Reply, edited, edited_json
from lib.signed_server import bad_nonce, problem

NAME = "www.host.example"


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


@pytest.mark.parametrize("status", [200, 202, 403, 404, 409, 500])
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
