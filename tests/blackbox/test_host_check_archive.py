"""kova-archive check --host: certificates that renewal passes over, and services that a renewal does
not reach."""

import json
import os
import time

import pytest

from lib import expect, paths
from lib.archive_cli import done
from lib.host_findings import check, expect_finding, host_in_order, the_only
from lib.renewal import deployed, folder_of, record, service, service_folder

NOT_IN_INDEX = "holds a certificate, but is not in the index, so that it is never renewed"
SCRIPT = "/usr/libexec/certificate.d/nginx"


@pytest.fixture
def cli(host):
    return host_in_order(host)


def usable():
    """A renewal record that nothing is wrong with."""
    return record(paths.PRODUCTION_DIRECTORY, paths.ACCOUNTS + "/abcdef")


# -- folders --------------------------------------------------------------------------------------

def test_a_certificate_outside_of_the_index_is_a_failure_until_it_is_added(cli):
    folder = cli.folder("abc", record=usable())
    expect_finding(cli, "archive folders", "failure", f"{folder} {NOT_IN_INDEX}",
                   "kova-archive add abc, or delete the folder when nobody needs it")
    done(cli.run("add", "abc"))
    expect_finding(cli, "archive folders", "ok", "none that the index does not know", "")


def test_one_that_nothing_would_renew_in_the_index_either_is_a_warning(cli):
    folder = cli.folder("abc")
    expect_finding(cli, "archive folders", "warning", f"{folder} {NOT_IN_INDEX}")


def test_without_an_index_every_certificate_is_outside_of_it(cli):
    os.unlink(paths.ARCHIVE + "/INFO")
    folder = cli.folder("abc", record=usable())
    expect_finding(cli, "archive folders", "failure", f"{folder} {NOT_IN_INDEX}")


@pytest.mark.parametrize("mark", ["unfinished", "removed"])
def test_folders_on_their_way_in_or_out_are_passed_over(cli, host, mark):
    cli.folder("abc", record=usable())
    host.write(f"{paths.ARCHIVE}/.abc.{mark}", "", 0o600)
    expect_finding(cli, "archive folders", "ok", "none that the index does not know")


def test_folders_without_a_certificate_and_files_are_passed_over(cli, host):
    os.mkdir(paths.ARCHIVE + "/empty")
    host.write(paths.ARCHIVE + "/note", "cert.pem")
    expect_finding(cli, "archive folders", "ok", "none that the index does not know")


def test_a_damaged_index_is_told_once(cli):
    cli.folder("abc", record=usable())
    cli.write_index("[")
    findings = check(cli)
    assert the_only(findings, "archive index")["level"] == "failure"
    assert not {"archive folders", "renewals", "reload scripts", "service files"} & set(findings)


# -- certificates that are due --------------------------------------------------------------------

def test_one_that_is_due_and_would_be_renewed_is_fine(cli):
    cli.certificate("abc", days=10, record=usable())
    expect_finding(cli, "renewals", "ok", "no certificate that is due is passed over", "")


def test_one_without_a_renewal_record_is_a_warning_when_it_is_due(cli):
    cli.certificate("abc", days=10)
    expect_finding(cli, "renewals", "warning",
                   "abc is due, but has no renewal record: it is not renewed",
                   "put a new one in its place, or obtain it anew with new-cert -c abc")
    cli.certificate("abc", days=80)
    expect_finding(cli, "renewals", "ok", "no certificate that is due is passed over")


@pytest.mark.parametrize("content", ["{", "{}", json.dumps({**usable(), "version": 3}),
                                     json.dumps({**usable(), "domains": " ; "})])
def test_one_with_an_unusable_record_is_a_failure_when_it_is_due(cli, host, content):
    cli.certificate("abc", days=10, record=content)
    for any_issuer in (False, True):
        host.settings(renewanyissuer=any_issuer)
        expect_finding(cli, "renewals", "failure",
                       "abc is due, but its renewal record (renew.json) cannot be used",
                       "obtain it again with new-cert -c abc")


def test_one_of_an_issuer_that_is_passed_over_is_a_failure_when_it_is_due(cli, host):
    cli.certificate("abc", organisation="Another CA", days=10, record=usable())
    expect_finding(cli, "renewals", "failure", "abc is due, but passed over for its issuer",
                   f'set "renewanyissuer": true in {paths.SETTINGS}')
    host.settings(renewanyissuer=True)
    expect_finding(cli, "renewals", "ok", "no certificate that is due is passed over")


def failed_often(host, identity):
    now = time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime())
    host.write(f"{paths.ACCOUNT_ROOT}/renewal/{identity}.json", json.dumps(
        {"last_attempt": now, "last_success": "", "failures": 3, "error": 101, "msg": "no way in",
         "file": "challenge"}), 0o600)


def test_one_that_failed_often_is_a_failure_on_the_day_of_its_last_attempt(cli, host):
    cli.certificate("abc", days=10, record=usable())
    failed_often(host, "abc")
    expect_finding(cli, "renewals", "ok", "no certificate that is due is passed over")
    host.settings(renewfailures=True)
    expect_finding(cli, "renewals", "failure",
                   "abc is due, but failed to be renewed several times in a row and is not tried "
                   "again within a day",
                   "`kova-archive list` says what failed; kova-archive renew abc --force tries it "
                   "now")


def test_one_that_cannot_be_read_is_a_failure(cli, host):
    folder = cli.certificate("abc", record=usable())
    os.unlink(folder + "/cert.pem")
    host.write(folder + "/cert.pem", "nonsense", 0o400)
    expect_finding(cli, "renewals", "failure",
                   "abc has a cert.pem that cannot be read, so it never is due",
                   "obtain it again with new-cert -c abc")


def test_what_it_says_is_what_renew_all_does(cli, host, ca, account):
    """The one is held against the other: a certificate that is passed over is not asked for."""
    names = {}
    for identity, change in {"good": {}, "other": {"organisation": "Another CA"},
                             "young": {"days": 80}, "broken": {"record": "{}"}}.items():
        names[identity] = identity + ".host.example"
        ours = record(ca.directory, account, names[identity])
        cli.certificate(identity, **{"days": 10, "names": (names[identity],), "record": ours,
                                     **change})
    found = {each["text"].split()[0] for each in check(cli)["renewals"]}
    assert found == {"other", "broken"}
    host.run("renew-all")
    asked = {each["value"] for request in ca.calls("newOrder")
             for each in request.jws.payload["identifiers"]}
    assert asked == {names["good"]}


# -- reload scripts -------------------------------------------------------------------------------

def test_a_service_without_a_reload_script_is_a_warning(cli):
    cli.certificate("abc", service("nginx", "web"), service("nginx", "mail"))
    expect_finding(cli, "reload scripts", "warning",
                   f"{SCRIPT} does not exist, so nothing reloads nginx/web, nginx/mail",
                   "put one there, unless the service notices new files by itself")


def test_a_reload_script_that_cannot_be_run_is_a_failure(cli):
    cli.certificate("abc", service("nginx", "web"))
    os.chmod(cli.reloads.script("nginx"), 0o644)
    text = f"{SCRIPT} cannot be run, so that nginx/web is not reloaded and its deployment fails"
    expect_finding(cli, "reload scripts", "failure", text, f"chmod 755 {SCRIPT}")
    assert cli.run("deploy", "abc").status == 1
    os.unlink(SCRIPT)
    os.mkdir(SCRIPT)
    expect_finding(cli, "reload scripts", "failure", text)


def test_reload_scripts_that_can_be_run_are_named(cli):
    cli.certificate("abc", service("nginx", "web"), service("tool", "www", package=True))
    cli.reloads.script("nginx")
    cli.reloads.script("tool", package=True)
    found = [(each["level"], each["text"]) for each in check(cli)["reload scripts"]]
    assert found == [("ok", f"{SCRIPT} reloads nginx/web"),
                     ("ok", "/usr/local/libexec/certificate.d/tool reloads tool/www")]


def test_no_service_needs_no_reload_script(cli):
    cli.certificate("abc")
    expect_finding(cli, "reload scripts", "ok", "none is needed", "")


# -- the services' files --------------------------------------------------------------------------

@pytest.fixture
def bound(cli):
    """A certificate that nginx/web has the files of."""
    folder = cli.certificate("abc")
    cli.reloads.script("nginx")
    done(cli.bind("abc"))
    expect_finding(cli, "service files", "ok", "each service has the files of its certificate", "")
    return folder


def expect_differing(cli, name, folder=service_folder()):
    expect_finding(cli, "service files", "failure", f"{folder}/{name} is not the one of abc",
                   "kova-archive deploy abc")


@pytest.mark.parametrize("name", ["cert.pem", "privkey.pem", "fullchain.pem", "chain.pem"])
def test_a_copy_that_differs_is_a_failure_until_it_is_deployed(cli, host, bound, name):
    copy = f"{service_folder()}/{name}"
    os.unlink(copy)
    host.write(copy, expect.read(f"{bound}/{name}") + "\n", 0o400)
    expect_differing(cli, name)
    done(cli.run("deploy", "abc"))
    expect_finding(cli, "service files", "ok", "each service has the files of its certificate")
    deployed(bound)


@pytest.mark.parametrize("name", ["cert.pem", "privkey.pem", "fullchain.pem", "chain.pem"])
def test_a_copy_that_is_missing_is_a_failure_until_it_is_deployed(cli, bound, name):
    os.unlink(f"{service_folder()}/{name}")
    expect_differing(cli, name)
    done(cli.run("deploy", "abc"))
    deployed(bound)


def test_a_file_that_the_certificate_has_no_longer_is_a_failure_until_it_is_deployed(cli, bound):
    os.unlink(bound + "/chain.pem")
    expect_differing(cli, "chain.pem")
    done(cli.run("deploy", "abc"))
    assert sorted(os.listdir(service_folder())) == ["cert.pem", "fullchain.pem", "privkey.pem"]
    expect_finding(cli, "service files", "ok", "each service has the files of its certificate")


def test_a_service_that_was_never_deployed_is_a_failure_until_it_is(cli):
    cli.certificate("abc", service("tool", "www", package=True))
    folder = service_folder("tool", "www", package=True)
    expect_differing(cli, "cert.pem", folder)
    done(cli.run("deploy", "abc"))
    deployed(folder_of("abc"), folder)


@pytest.mark.parametrize("broken", [{"owner": 7}, {"service": ".."}])
def test_an_entry_that_cannot_be_served_is_a_failure(cli, broken):
    cli.certificate("abc", {**service("nginx", "web"), **broken})
    expect_finding(cli, "service files", "failure",
                   "the list of services of abc has an entry that cannot be served",
                   f"correct it in {paths.ARCHIVE}/INFO")
    assert cli.run("deploy", "abc").status == 1
