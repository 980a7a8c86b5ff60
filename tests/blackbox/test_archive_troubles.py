"""What kova-archive list and check --expiry say of certificates that fail to be renewed, of services
that could not be reloaded, and of what is due."""

import json
import os
import time

import pytest
from lib import expect
from lib.archive_cli import ArchiveCli, done
from lib.renewal import folder_of, record, service
from lib.signed_server import problem
from lib.syslog_capture import LOG_WARNING

HISTORY = "/usr/kova/etc/letsencrypt/renewal/abc.json"
OFF = [None, False, 1, "true", [True]]
FIRST, LAST = 1_900_000_000, 1_900_003_600
FIRST_TEXT, LAST_TEXT = "2030-03-17T17:46:40Z", "2030-03-17T18:46:40Z"


@pytest.fixture
def cli(host):
    return ArchiveCli(host)


def listed(cli, identity="abc"):
    found = cli.run("list", "--json").document["certificates"]
    return next(each for each in found if each["id"] == identity)


def shown_below_the_table(cli):
    """The lines of `list` that follow the table's rows, one row for each certificate."""
    lines = cli.run("list").stdout.splitlines()
    return lines[1 + len(cli.index()):]


# -- a renewal that fails --------------------------------------------------------------------------


@pytest.fixture
def failing(host, ca, account, cli):
    """Two failed renewals of abc, an hour apart."""
    host.settings(renewfailures=True)
    ca.always("newOrder", problem("rateLimited", "slow\n\x1b[2Jdown", 429))
    cli.certificate("abc", days=4000, record=record(ca.directory, account))
    cli.certificate("fine", days=4000)
    for moment in (FIRST, LAST):
        result = host.run("renew", "-c", "abc", env={"KOVA_WALL_CLOCK": str(moment)})
        assert result.document["error"] == 104
    return result.document["msg"]


FAILURE = f"renewal fails since {FIRST_TEXT} (2 in a row): slow??[2Jdown [104]"


def test_list_shows_the_failure_and_since_when(cli, failing):
    assert shown_below_the_table(cli) == ["abc: " + FAILURE]
    found = listed(cli)
    assert found["flags"] == ["acme", "failing"]
    assert found["renewal"] == {
        "error": 104, "failing_since": FIRST_TEXT, "failures": 2, "file": "client_v2",
        "last_attempt": LAST_TEXT, "last_notice": FIRST_TEXT, "last_success": "", "msg": failing}
    assert found["renewal"] == json.loads(expect.read(HISTORY))
    assert listed(cli, "fine")["renewal"] is None


def test_a_success_ends_what_list_shows(cli, failing, host, ca):
    ca.always("newOrder", None)
    assert host.run("renew", "-c", "abc").status == 0
    found = listed(cli)
    assert shown_below_the_table(cli) == [] and found["flags"] == ["acme"]
    assert found["renewal"]["failures"] == 0 and "failing_since" not in found["renewal"]


def test_check_expiry_fails_for_a_failed_renewal(cli, failing):
    result = cli.run("check", "--expiry", "0")
    assert (result.status, result.stdout) == (1, f"abc: {FAILURE}\n")
    assert result.stderr == "kova-archive: check: 1 of 2 certificates need attention\n"
    assert cli.run("check", "--expiry", "0", "--json").document["findings"] == [
        {"id": "abc", "finding": FAILURE}]
    done(cli.run("check", "--expiry", "0", "fine"), "")


def test_check_expiry_has_a_line_for_each_finding(cli, failing):
    result = cli.run("check", "--expiry", "5000", "abc")
    first, second = result.stdout.splitlines()
    assert first.startswith("abc: ends at ") and second == "abc: " + FAILURE
    assert result.stderr == "kova-archive: check: 1 of 1 certificates need attention\n"


@pytest.mark.parametrize("value", OFF)
def test_without_the_key_an_old_history_says_nothing(cli, failing, host, value):
    host.settings(renewfailures=value)
    assert shown_below_the_table(cli) == []
    assert (listed(cli)["flags"], listed(cli)["renewal"]) == (["acme"], None)
    done(cli.run("check", "--expiry", "0"), "")


@pytest.mark.parametrize("text", ["", "{", "[]", "7", '{"failures": "2", "last_attempt": 5}',
                                  '{"failures": -1}', '{"msg": {}, "failing_since": []}'])
def test_history_that_cannot_be_read_is_as_good_as_none(cli, host, text):
    host.settings(renewfailures=True)
    cli.certificate("abc", days=60)
    host.write(HISTORY, text, 0o600)
    result = cli.run("list")
    assert (result.status, result.syslog) == (0, []) and shown_below_the_table(cli) == []
    assert listed(cli)["renewal"] is None
    done(cli.run("check", "--expiry", "0"), "")


def test_history_of_an_earlier_version_has_the_last_attempt_instead(cli, host):
    host.settings(renewfailures=True)
    cli.certificate("abc", days=60)
    host.write(HISTORY, json.dumps({"failures": 3, "error": 100, "msg": "no", "file": "x",
                                    "last_attempt": LAST_TEXT, "last_success": ""}), 0o600)
    assert shown_below_the_table(cli) == [
        f"abc: renewal fails since {LAST_TEXT} (3 in a row): no [100]"]


# -- a service that could not be reloaded ----------------------------------------------------------


def test_reload_script_with_a_positive_status_is_marked_until_it_succeeds(cli):
    folder = cli.certificate("abc", service(), service("mail", "smtp"))
    script = cli.reloads.script(then="exit 3")
    cli.reloads.script("mail")
    result = cli.run("deploy", "abc")
    warned(result, "deploy", "abc is deployed to nginx/web, mail/smtp.\n", 3)
    [line] = result.syslog
    assert (line.priority, line.plain) == (
        LOG_WARNING, f"utils.cpp:# The reload script [{script}][web] ended with status 3.")
    assert expect.read(folder + "/reload_failed") == '{\n   "nginx/web" : 3\n}\n'
    assert shown_below_the_table(cli) == ["abc: the reload script of nginx/web ended with status 3"]
    found = listed(cli)
    assert found["flags"] == ["reload-failed"]
    assert [each["reload_status"] for each in found["services"]] == [3, 0]
    cli.reloads.script()
    done(cli.run("deploy", "abc"))
    assert shown_below_the_table(cli) == [] and listed(cli)["flags"] == []
    assert not os.path.exists(folder + "/reload_failed")


def warned(result, command, stdout, status, said=""):
    """Done, with what the reload script of nginx/web said and a line about its status."""
    assert (result.status, result.stdout) == (0, stdout)
    assert result.stderr == (f"{said}kova-archive: {command}: the reload script of nginx/web ended "
                             f"with status {status}\n")


def test_whoever_deploys_is_warned(cli):
    cli.certificate("abc")
    cli.certificate("def")
    cli.default("def")
    cli.reloads.script(then="echo that is wrong >&2; exit 127")
    warned(cli.bind("abc"), "bind", "nginx/web uses abc now.\n", 127, "that is wrong\n")
    json_run = cli.run("deploy", "abc", "--json")
    assert json_run.document["error"] == 0
    warned(json_run, "deploy", json_run.stdout, 127, "that is wrong\n")
    warned(cli.unbind("abc"), "unbind", "nginx/web uses def, the default certificate, now.\n", 127,
           "that is wrong\n")


def test_whoever_renews_is_warned(cli, host, ca, account):
    cli.certificate("abc", service(), record=record(ca.directory, account))
    cli.reloads.script(then="exit 1")
    result = cli.run("renew", "abc")
    warned(result, "renew", result.stdout, 1)
    assert result.stdout.startswith("abc is renewed")


def test_a_failure_is_told_alone(cli):
    cli.certificate("abc", service(), service("mail", "smtp", owner="nobody-of-that-name"))
    cli.reloads.script(then="exit 1")
    result = cli.run("deploy", "abc")
    assert result.status == 1 and result.stderr.count("\n") == 1
    assert "nobody-of-that-name" in result.stderr


def test_check_expiry_fails_for_a_reload_script_that_failed(cli):
    cli.certificate("abc", service(), days=60)
    cli.reloads.script(then="exit 4")
    cli.run("deploy", "abc")
    finding = "the reload script of nginx/web ended with status 4"
    result = cli.run("check", "--expiry", "0")
    assert (result.status, result.stdout) == (1, f"abc: {finding}\n")
    assert result.stderr == "kova-archive: check: 1 of 1 certificates need attention\n"
    assert cli.run("check", "--expiry", "0", "--json").document["findings"] == [
        {"id": "abc", "finding": finding}]
    cli.reloads.script()
    done(cli.run("deploy", "abc"))
    done(cli.run("check", "--expiry", "0"), "")


def test_reload_script_that_fails_a_renewal_is_marked(cli, host, ca, account):
    cli.certificate("abc", service(), record=record(ca.directory, account))
    cli.reloads.script(then="exit 1")
    result = host.run("renew-all")
    assert (result.status, result.stdout, result.errors) == (0, "", [])
    assert [line.plain for line in result.syslog if line.priority == LOG_WARNING] == [
        "utils.cpp:# The reload script [/usr/libexec/certificate.d/nginx][web] ended with status 1."]
    assert listed(cli)["flags"] == ["acme", "reload-failed"]


def test_mark_of_a_service_that_went_elsewhere_is_not_shown(cli):
    cli.certificate("abc", service())
    cli.certificate("def")
    cli.reloads.script(then="exit 1")
    warned(cli.run("deploy", "abc"), "deploy", "abc is deployed to nginx/web.\n", 1)
    cli.reloads.script()
    done(cli.bind("def"))
    assert shown_below_the_table(cli) == []
    done(cli.bind("abc"))
    assert shown_below_the_table(cli) == []


@pytest.mark.parametrize("text", ["", "{", "[]", "null", '{"nginx/web": "3"}', '{"x/y": 3}'])
def test_marks_that_cannot_be_read_are_none(cli, host, text):
    host.write(cli.certificate("abc", service(), days=60) + "/reload_failed", text, 0o600)
    assert shown_below_the_table(cli) == [] and listed(cli)["flags"] == []
    done(cli.run("deploy", "abc"))


# -- what is due -----------------------------------------------------------------------------------


def state(cli, host, days, passed, **settings):
    host.settings(**settings)
    cli.certificate("abc", days=days)
    moment = {"KOVA_WALL_CLOCK": str(int(time.time() + passed * 86400))}
    return cli.run("list", "--json", env=moment).document["certificates"][0]["state"]


@pytest.mark.parametrize("days, passed, expected", [
    (90, 59, "valid"), (90, 61, "due"), (45, 29, "valid"), (45, 31, "due"), (6, 2.9, "valid"),
    (6, 3.1, "due"), (6, 6.1, "expired")])
def test_due_by_lifetime(cli, host, days, passed, expected):
    assert state(cli, host, days, passed, renewlifetime=True) == expected


@pytest.mark.parametrize("lead, expected", [(31, "due"), (29, "valid")])
def test_due_by_days_beside_the_lifetime(cli, host, lead, expected):
    assert state(cli, host, 90, 59.5, renewlifetime=True,
                 renew_before_expire_days=lead) == expected


@pytest.mark.parametrize("value", OFF)
def test_due_by_days_alone_without_the_key(cli, host, value):
    assert state(cli, host, 45, 16, renewlifetime=value) == "due"
    assert state(cli, host, 45, 14, renewlifetime=value) == "valid"


@pytest.mark.parametrize("days, passed", [(90, 59), (90, 61), (45, 14), (45, 31), (6, 2.9), (6, 4)])
@pytest.mark.parametrize("value", [True, None])
@pytest.mark.parametrize("lead", [None, 20])
def test_list_and_renew_all_agree(cli, host, ca, account, days, passed, value, lead):
    settings = dict(renewlifetime=value, renew_before_expire_days=lead, checkissued=None)
    shown = state(cli, host, days, passed, **settings)
    host.write(folder_of("abc") + "/renew.json", json.dumps(record(ca.directory, account)), 0o400)
    host.run("renew-all", env={"KOVA_WALL_CLOCK": str(int(time.time() + passed * 86400))})
    assert shown == ("due" if ca.certificates else "valid")
