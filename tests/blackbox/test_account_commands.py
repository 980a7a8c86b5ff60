"""kova-archive account: the stored accounts listed, given another contact or key, and ended."""

import fcntl
import json
import os
import signal

import pytest
from lib import expect, jws, paths
from lib.accounts import store_account
from lib.archive_cli import PROGRAM, ArchiveCli, done, failed, refused
from lib.http_script import Reply
from lib.interruption import tell
from lib.renewal import record
from lib.signed_server import bad_nonce, problem

NAME = "www.host.example"
REFUSED = "Nothing was changed on this host: mend what the authority names, and try again."
MAIL = "admin@host.example"
ID = "seeded"
RUN_LOCK = "/run/kova-renew-all.lock"


@pytest.fixture
def cli(host):
    return ArchiveCli(host)


@pytest.fixture
def used(cli, ca, account):
    """A certificate that renews with the account."""
    return cli.certificate("due", record=record(ca.directory, account, NAME))


def stored_key(account, name="private_key.json"):
    """The public half of a stored key."""
    key = json.loads(expect.read(f"{account}/{name}"))
    assert set(key) == {"kty", "n", "e", "d", "p", "q", "dp", "dq", "qi"}
    return {member: key[member] for member in ("kty", "n", "e")}


def known_key(ca):
    [account] = ca.accounts.values()
    return account["jwk"]


def account_url(ca):
    [url] = ca.accounts
    return url


def renews(host, ca):
    """The certificate is renewed, and the CA finds nothing wrong with the requests."""
    result = host.run("renew", "-c", "due")
    assert (result.status, ca.violations) == (0, [])
    assert ca.calls("newOrder")[-1].jws.header["kid"] == account_url(ca)


def tidy(account):
    """Two private files, and nothing else."""
    assert sorted(os.listdir(account)) == ["info.json", "private_key.json"]
    for name in os.listdir(account):
        assert expect.mode(f"{account}/{name}") == 0o600
    assert os.listdir(paths.ACCOUNTS) == [os.path.basename(account)]


def refused_by_ca(result, said):
    failed(result, f"account: {said} [200]. {REFUSED}")


# -- list ------------------------------------------------------------------------------------------


def test_list_without_any_account(cli):
    done(cli.run("account", "list"), "No account is stored.\n")
    assert cli.run("account", "list", "--json").document == {"error": 0, "accounts": []}


@pytest.fixture
def three(host, cli, ca, account):
    """The usual one with two certificates, one of version 1, and one that is damaged."""
    cli.certificate("b", record=record(ca.directory, account))
    cli.folder("a", record=record(ca.directory, account + "/"))
    cli.certificate("own")
    cli.certificate("other", record=record("https://early.example/", paths.ACCOUNTS + "/early",
                                           version=1))
    store_account(host, "https://early.example/", "", {}, "early@host.example", "early", version=1)
    host.write(paths.ACCOUNTS + "/lost/info.json", "{")
    host.write(paths.ACCOUNTS + "/file", "no account")


def test_list_shows_ca_contact_and_certificates(cli, ca, three):
    rows = [("ID", "CA", "CONTACT", "ACME", "CERTIFICATES", "STATE"),
            ("early", "https://early.example/", "early@host.example", "1", "other", "ok"),
            ("lost", "", "", "-", "", "unreadable"),
            ("seeded", ca.directory, MAIL, "2", "a, b", "ok")]
    wide = len(ca.directory)
    done(cli.run("account", "list"), "".join(
        f"{identity:6}  {directory:{wide}}  {contact:18}  {version:>4}  {certificates:12}  {state}\n"
        for identity, directory, contact, version, certificates, state in rows))


def test_list_as_json(cli, ca, account, three):
    document = cli.run("account", "list", "--json").document
    assert document == {"error": 0, "accounts": [
        {"id": "early", "directory": "https://early.example/", "contact": "early@host.example",
         "version": 1, "account_url": "", "certificates": ["other"], "state": "ok"},
        {"id": "lost", "directory": "", "contact": "", "version": 0, "account_url": "",
         "certificates": [], "state": "unreadable"},
        {"id": ID, "directory": ca.directory, "contact": MAIL, "version": 2,
         "account_url": account_url(ca), "certificates": ["a", "b"], "state": "ok"}]}


@pytest.mark.parametrize("text", ["", "{", "[]"])
def test_list_tells_of_a_key_that_cannot_be_read(host, cli, account, text):
    host.write(account + "/private_key.json", text, 0o600)
    [listed] = cli.run("account", "list", "--json").document["accounts"]
    assert listed["state"] == "unreadable"


def test_list_asks_nobody_and_changes_nothing(cli, ca, three):
    before = expect.tree(paths.ACCOUNTS)
    cli.run("account", "list")
    assert (expect.tree(paths.ACCOUNTS), ca.trace) == (before, [])


# -- update ----------------------------------------------------------------------------------------


def test_update_tells_the_ca_and_stores_the_contact(host, cli, ca, account, used):
    key = expect.read(account + "/private_key.json")
    done(cli.run("account", "update", ID, "--mail", "new@host.example"),
         "seeded has the contact new@host.example now.\n")
    assert ca.trace == ["directory", "newNonce", "account"]
    assert ca.payloads("account") == [{"contact": ["mailto:new@host.example"]}]
    assert expect.read(account + "/info.json") == (
        '{\n   "account_url" : "%s",\n   "contact" : "new@host.example",\n   "directory" : "%s",\n'
        '   "version" : 2\n}\n' % (account_url(ca), ca.directory))
    assert expect.read(account + "/private_key.json") == key
    tidy(account)
    renews(host, ca)
    # An issuance finds it under the new contact.
    expect.issued(host.new_cert(ca.directory, [NAME], mail="new@host.example"))
    assert len(ca.calls("newAccount")) == 0


def test_update_as_json(cli, ca, account):
    result = cli.run("account", "update", ID, "--mail", "new@host.example", "--json")
    assert result.document == {"error": 0, "id": ID, "contact": "new@host.example"}


def test_refused_contact_is_not_stored(cli, ca, account):
    before = expect.tree(account)
    ca.answer("account", problem("invalidContact", "no such\nmail", 400))
    refused_by_ca(cli.run("account", "update", ID, "--mail", "new@host.example"),
                  "the CA answered 400: no such\\nmail")
    assert expect.tree(account) == before


def test_contact_is_stored_after_the_ca_has_taken_it(cli, ca, account):
    before = expect.tree(account)

    def look(_request, normal):
        assert expect.tree(account) == before
        return normal()
    ca.answer("account", look)
    done(cli.run("account", "update", ID, "--mail", "new@host.example"))


@pytest.mark.parametrize("mail", ["", "a\nb@host.example", "a\x1bb"])
def test_contact_that_is_no_address(cli, ca, account, mail):
    result = cli.run("account", "update", ID, "--mail", mail)
    shown = mail.replace("\n", "?").replace("\x1b", "?")
    failed(result, f"account: [{shown}] is no e-mail address")
    assert ca.trace == []


def test_other_members_of_the_record_are_kept(host, cli, ca, account):
    info = {**json.loads(expect.read(account + "/info.json")), "note": "ours"}
    host.write(account + "/info.json", json.dumps(info), 0o600)
    done(cli.run("account", "update", ID, "--mail", "new@host.example"))
    assert json.loads(expect.read(account + "/info.json")) == {**info, "contact": "new@host.example"}


# -- rollover --------------------------------------------------------------------------------------


def test_rollover_gives_a_new_key_that_the_next_renewal_uses(host, cli, ca, account, used):
    old = stored_key(account)
    info = expect.read(account + "/info.json")
    done(cli.run("account", "rollover", ID), "seeded has a new key now.\n")
    assert ca.trace == ["directory", "newNonce", "keyChange"]
    assert stored_key(account) == known_key(ca) != old
    assert expect.read(account + "/info.json") == info
    tidy(account)
    renews(host, ca)
    expect.issued(host.new_cert(ca.directory, [NAME]))
    assert len(ca.calls("newAccount")) == 0


def test_rollover_twice(cli, ca, account):
    done(cli.run("account", "rollover", ID))
    first = stored_key(account)
    result = cli.run("account", "rollover", ID, "--json")
    assert result.document == {"error": 0, "id": ID, "finished_earlier": False}
    assert stored_key(account) == known_key(ca) != first


@pytest.mark.parametrize("strict", [True, None])
def test_rollover_survives_bad_nonces(host, cli, ca, account, strict):
    host.settings(strictencoding=strict)
    ca.answer("keyChange", bad_nonce(), bad_nonce())
    done(cli.run("account", "rollover", ID))
    assert len(ca.calls("keyChange")) == 3
    assert stored_key(account) == known_key(ca)


def test_new_key_is_stored_beside_the_old_one_before_the_ca_is_asked(cli, ca, account):
    old, seen = stored_key(account), []

    def look(request, normal):
        seen.append(stored_key(account, "next_key.json"))
        assert expect.mode(account + "/next_key.json") == 0o600
        assert stored_key(account) == old
        return normal()
    ca.answer("keyChange", look)
    done(cli.run("account", "rollover", ID))
    assert seen == [stored_key(account)]


@pytest.mark.parametrize("umask", [0, 0o077, 0o177])
def test_key_modes(cli, ca, account, umask):
    done(cli.run("account", "rollover", ID, umask=umask))
    tidy(account)


@pytest.mark.parametrize("reply, said", [
    (problem("malformed", "not today", 400), "400: not today"),
    (problem("unauthorized", "no", 403), "403: no"),
    (problem("rateLimited", "slow", 429), "429: slow"),
    (problem("serverInternal", "oops", 500), "500: oops"),
    (Reply(500, "<html>"), "500"), (Reply(204), "204"),
    (problem("malformed", "taken", 409, headers={"Location": "http://x/other"}), "409: taken")])
def test_refused_rollover_keeps_the_old_key_alone(host, cli, ca, account, used, reply, said):
    before = expect.tree(account)
    ca.answer("keyChange", reply)
    refused_by_ca(cli.run("account", "rollover", ID), f"the CA answered {said}")
    assert expect.tree(account) == before
    renews(host, ca)


def test_ca_without_a_change_of_keys(cli, ca, account):
    before = expect.tree(account)
    del ca.links["keyChange"]
    refused_by_ca(cli.run("account", "rollover", ID), "the CA offers no change of keys")
    assert expect.tree(account) == before


def test_rollover_at_a_ca_that_is_down(host, cli, ca, account):
    before = expect.tree(account)
    info = json.loads(expect.read(account + "/info.json"))
    host.write(account + "/info.json", json.dumps({**info, "directory": "http://127.0.0.1:9/"}), 0o600)
    failed(cli.run("account", "rollover", ID),
           "account: Server is not reachable [100]. Check the server's URL, the network and its name "
           "servers, this host's clock and its trust store (ca-certificates).")
    assert {name: text for name, text in expect.tree(account).items() if "info" not in name} == {
        name: text for name, text in before.items() if "info" not in name}


# -- a rollover that was cut short -----------------------------------------------------------------


def kill_before(_request, _normal):
    tell(signal.SIGKILL, PROGRAM)
    return Reply(drop=True)


def kill_after(_request, normal):
    normal()
    tell(signal.SIGKILL, PROGRAM)
    return Reply(drop=True)


def lose_the_reply(_request, normal):
    normal()
    return Reply(drop=True)


def cut_short(cli, ca, account, how):
    """A rollover that does not get to its end. Both keys are stored; returns the new one."""
    old = stored_key(account)
    ca.answer("keyChange", how)
    assert cli.run("account", "rollover", ID).status != 0
    assert stored_key(account) == old
    assert expect.mode(account + "/next_key.json") == 0o600
    new = stored_key(account, "next_key.json")
    assert known_key(ca) == (old if how is kill_before else new)
    [listed] = cli.run("account", "list", "--json").document["accounts"]
    assert listed["state"] == "rollover unfinished"
    ca.requests.clear()
    return new


@pytest.mark.parametrize("how", [kill_after, lose_the_reply])
def test_next_rollover_finishes_with_the_key_that_the_ca_has(host, cli, ca, account, used, how):
    if how is lose_the_reply:
        # With the CA out of reach nothing can be found out there and then.
        ca.answer("newAccount", Reply(drop=True))
    new = cut_short(cli, ca, account, how)
    done(cli.run("account", "rollover", ID), "seeded has the new key of an earlier run now.\n")
    assert "keyChange" not in ca.trace
    assert stored_key(account) == known_key(ca) == new
    tidy(account)
    renews(host, ca)


def test_next_rollover_goes_on_with_the_same_key_when_the_ca_has_it_not(host, cli, ca, account, used):
    new = cut_short(cli, ca, account, kill_before)
    done(cli.run("account", "rollover", ID), "seeded has a new key now.\n")
    assert stored_key(account) == known_key(ca) == new
    tidy(account)
    renews(host, ca)


@pytest.mark.parametrize("command", [["renew", "-c", "due"], ["renew-all"], "new-cert"])
def test_renewal_finishes_what_was_cut_short(host, cli, ca, account, used, command):
    new = cut_short(cli, ca, account, kill_after)
    host.settings(orderattempts=1, skipdns01=True)
    result = host.new_cert(ca.directory, [NAME]) if command == "new-cert" else host.run(*command)
    assert result.status == 0 and len(ca.certificates) == 1
    assert stored_key(account) == known_key(ca) == new
    tidy(account)


@pytest.mark.parametrize("command", [["renew", "-c", "due"], ["renew-all"], "new-cert"])
def test_renewal_uses_the_old_key_when_the_ca_has_not_taken_the_new_one(host, cli, ca, account, used,
                                                                        command):
    new = cut_short(cli, ca, account, kill_before)
    host.settings(orderattempts=1, skipdns01=True)
    result = host.new_cert(ca.directory, [NAME]) if command == "new-cert" else host.run(*command)
    assert result.status == 0 and len(ca.certificates) == 1
    # The CA might be about to take it: only a rollover decides about the new one.
    assert stored_key(account, "next_key.json") == new
    assert stored_key(account) == known_key(ca)


@pytest.mark.parametrize("answer", [problem("serverInternal", "no idea", 500), Reply(200, {}),
                                    problem("malformed", "what?", 400), Reply(500, "<html>")])
def test_ca_that_cannot_say_which_key_it_knows_loses_none(host, cli, ca, account, used, answer):
    new = cut_short(cli, ca, account, kill_before)
    ca.always("newAccount", answer)
    ca.always("keyChange", problem("serverInternal", "no", 500))
    refused_by_ca(cli.run("account", "rollover", ID), "the CA answered 500: no")
    assert stored_key(account, "next_key.json") == new
    renews(host, ca)


def test_refusal_after_which_the_ca_cannot_be_asked_keeps_both_keys(cli, ca, account):
    ca.answer("keyChange", lambda _request, normal: (normal(), problem("malformed", "late", 400))[1])
    ca.answer("newAccount", problem("serverInternal", "no", 500))
    refused_by_ca(cli.run("account", "rollover", ID), "the CA answered 400: late")
    assert stored_key(account, "next_key.json") == known_key(ca)
    done(cli.run("account", "rollover", ID), "seeded has the new key of an earlier run now.\n")
    assert stored_key(account) == known_key(ca)


@pytest.mark.parametrize("lost", [Reply(drop=True), problem("serverInternal", "gone", 502)])
def test_reply_that_was_lost_is_no_failure_when_the_ca_can_be_asked(cli, ca, account, lost):
    old = stored_key(account)
    ca.answer("keyChange", lambda _request, normal: (normal(), lost)[1])
    done(cli.run("account", "rollover", ID), "seeded has a new key now.\n")
    assert stored_key(account) == known_key(ca) != old
    tidy(account)


def test_next_key_that_cannot_be_used(host, cli, ca, account, used):
    host.write(account + "/next_key.json", "{", 0o600)
    before = expect.tree(account)
    failed(cli.run("account", "rollover", ID), f"account: [{account}/next_key.json] cannot be used")
    assert expect.tree(account) == before
    result = host.run("renew", "-c", "due")
    assert result.status == 0
    assert f"client_v2:# {account}/next_key.json cannot be used." in result.errors


def test_conflict_is_none_when_the_key_is_ours_already(cli, ca, account):
    def answer(_request, normal):
        normal()
        return problem("malformed", "has it", 409, headers={"Location": account_url(ca)})
    ca.answer("keyChange", answer)
    done(cli.run("account", "rollover", ID))
    assert stored_key(account) == known_key(ca)


# -- deactivate ------------------------------------------------------------------------------------


def test_deactivated_account_is_no_longer_stored(host, cli, ca, account):
    done(cli.run("account", "deactivate", ID), "seeded is deactivated and no longer stored.\n")
    assert ca.trace == ["directory", "newNonce", "account"]
    assert ca.payloads("account") == [{"status": "deactivated"}]
    assert os.listdir(paths.ACCOUNTS) == []
    # The next issuance registers another one.
    expect.issued(host.new_cert(ca.directory, [NAME]))
    assert len(ca.calls("newAccount")) == 1


def test_account_in_use_is_refused_before_the_ca_is_asked(cli, ca, account, used):
    cli.folder("b", record=record(ca.directory, account + "/"))  # not in the index
    before = expect.tree(account)
    failed(cli.run("account", "deactivate", ID),
           "account: certificates renew with the account [seeded]: b, due")
    assert (ca.trace, expect.tree(account)) == ([], before)


def test_force_deactivates_it_all_the_same(host, cli, ca, account, used):
    done(cli.run("account", "deactivate", ID, "--force"),
         "seeded is deactivated and no longer stored.\n"
         "To be renewed again, these have to be obtained anew: due\n")
    assert ca.accounts[account_url(ca)]["status"] == "deactivated"
    assert os.listdir(paths.ACCOUNTS) == []
    result = host.run("renew", "-c", "due")
    assert result.document["msg"] == f"failed to load User Info: {account}/info.json"


def test_deactivation_as_json(cli, ca, account, used):
    result = cli.run("account", "deactivate", ID, "--force", "--json")
    assert result.document == {"error": 0, "id": ID, "certificates": ["due"]}


def test_refused_deactivation_keeps_the_account(cli, ca, account):
    before = expect.tree(account)
    ca.answer("account", problem("serverInternal", "not now", 503))
    refused_by_ca(cli.run("account", "deactivate", ID), "the CA answered 503: not now")
    assert expect.tree(account) == before


def test_refusal_without_a_reason_keeps_the_account(cli, ca, account):
    before = expect.tree(account)
    ca.answer("account", problem("unauthorized", "no", 403))
    refused_by_ca(cli.run("account", "deactivate", ID), "the CA answered 403: no")
    assert expect.tree(account) == before
    assert ca.payloads("newAccount") == [{"onlyReturnExisting": True}]


@pytest.mark.parametrize("how", [kill_after, lose_the_reply])
def test_deactivation_that_was_cut_short_is_finished_by_the_next(cli, ca, account, how):
    ca.answer("account", how)
    assert cli.run("account", "deactivate", ID).status != 0
    assert os.path.exists(account + "/info.json")
    done(cli.run("account", "deactivate", ID), "seeded is deactivated and no longer stored.\n")
    assert os.listdir(paths.ACCOUNTS) == []


@pytest.mark.parametrize("status", [200, 401])
def test_other_ways_to_say_that_it_is_deactivated(cli, ca, account, status):
    ca.answer("account", problem("unauthorized", "deactivated", 401))
    ca.answer("newAccount", Reply(200, {"status": "deactivated"}) if status == 200
              else problem("unauthorized", "deactivated", 401))
    done(cli.run("account", "deactivate", ID))
    assert os.listdir(paths.ACCOUNTS) == []


def test_what_a_kill_leaves_of_a_removed_account_goes_at_the_next_run(host, cli, ca, account):
    left = f"{paths.ACCOUNTS}/.gone.removed"
    host.write(left + "/private_key.json", "{}", 0o600)
    done(cli.run("account", "list"))
    assert not os.path.exists(left)


# -- what stands in the way ------------------------------------------------------------------------

CHANGES = [["update", ID, "--mail", "m@host.example"], ["rollover", ID], ["deactivate", ID]]


@pytest.mark.parametrize("change", CHANGES)
def test_account_of_version_1(host, cli, ca, change):
    store_account(host, ca.directory, "", {}, version=1)
    failed(cli.run("account", *change),
           "account: the account [seeded] is of ACME version 1, which is not supported here")
    assert ca.trace == []


@pytest.mark.parametrize("change", CHANGES)
@pytest.mark.parametrize("info, why", [
    ("{", "has no usable info.json"), ('{"version": 3}', "is of no known version"),
    ('{"version": 2}', "has no URL")])
def test_account_that_cannot_be_used(host, cli, account, change, info, why):
    host.write(account + "/info.json", info, 0o600)
    failed(cli.run("account", *change), f"account: the account [seeded] {why}")


@pytest.mark.parametrize("change", CHANGES)
def test_account_without_its_key(cli, ca, account, change):
    os.unlink(account + "/private_key.json")
    failed(cli.run("account", *change),
           f"account: failed to load User Account key: {account}/private_key.json [201]. The stored "
           "account cannot be used: see kova-archive account list, and obtain the certificate anew.")
    assert "account" not in ca.trace and "keyChange" not in ca.trace


@pytest.mark.parametrize("action", ["update", "rollover", "deactivate"])
def test_account_that_is_not_there(cli, action):
    more = ["--mail", "m@host.example"] if action == "update" else []
    failed(cli.run("account", action, "nosuch", *more), "account: there is no account [nosuch]")


@pytest.mark.parametrize("identity", ["..", ".", "a/b", "../account/seeded"])
def test_id_that_is_no_plain_name(cli, ca, account, identity):
    failed(cli.run("account", "rollover", identity),
           f"account: the id [{identity}] is not a plain name")
    assert ca.trace == []


@pytest.mark.parametrize("words, message", [
    ([], "missing ACTION [ID]"), (["nosuch"], "unknown action nosuch"),
    (["list", "x"], "too many arguments"), (["rollover"], "rollover needs an ID"),
    (["update", "x"], "update needs --mail"), (["rollover", "x", "--force"], "rollover takes no --force"),
    (["deactivate", "x", "--mail", "m"], "deactivate takes no --mail"),
    (["list", "--mail", "m"], "list takes no --mail"), (["update", "x", "y"], "too many arguments")])
def test_usage(cli, words, message):
    refused(cli.run("account", *words), message, "account")


@pytest.mark.parametrize("change", CHANGES)
def test_failure_as_json(cli, ca, account, change):
    ca.answer("directory", Reply(500))
    result = cli.run("account", *change, "--json")
    assert (result.status, sorted(result.document)) == (
        1, ["advice", "code", "detail", "error", "msg", "name"])
    assert result.document["detail"] == "Failed to init directory map"


def test_without_root_nothing_is_shown(host, account):
    result = host.run("--reuid", "65534", "--regid", "65534", "--clear-groups",
                      "/usr/kova/sbin/kova-archive", "account", "list", program="/usr/bin/setpriv")
    failed(result, "account: only root can do this")


@pytest.mark.parametrize("change", CHANGES)
def test_it_waits_for_another_run(host, cli, ca, account, change):
    with open(RUN_LOCK, "a", encoding="ascii") as other:
        fcntl.flock(other, fcntl.LOCK_EX)
        process = host.spawn(["/usr/kova/sbin/kova-archive", "account", *change])
        with pytest.raises(Exception):
            process.wait(1)
        assert ca.trace == []
    assert process.wait(30) == 0
    assert len(ca.trace) == 3


def test_only_one_of_two_accounts_is_changed(host, cli, ca, account, account_key):
    other = store_account(host, ca.directory, "http://x/", jws.key_to_jwk(account_key), "o@host.example",
                          "other")
    before = expect.tree(other)
    done(cli.run("account", "rollover", ID))
    done(cli.run("account", "update", ID, "--mail", "n@host.example"))
    done(cli.run("account", "deactivate", ID))
    assert expect.tree(other) == before
    assert os.listdir(paths.ACCOUNTS) == ["other"]
