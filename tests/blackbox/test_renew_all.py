"""renew-all: which certificates are renewed, what is redeployed, and what is said about it."""

import json
import os
import pwd
import shutil
import subprocess

import pytest
from lib import expect, paths
from lib.http_script import NORMAL
from lib.renewal import (INDEX, NAME, Archive, Reloads, folder_of, record, serial, service,
                         service_folder)
from lib.signed_server import problem

TAG = "kova-letsencrypt:# "
NOT_TRUSTED = "certificate is not issued by Let's encrypt. [%s]"


@pytest.fixture
def archive(host):
    return Archive(host)


@pytest.fixture
def reloads(host):
    reloads = Reloads(host)
    reloads.script("nginx")
    reloads.script("system")
    reloads.web_frontend()
    return reloads


def quiet(result):
    """It ended well and had nothing to report."""
    assert (result.status, result.stdout, result.stderr, result.errors) == (0, "", "", [])


def reported(result, *documents):
    """Exactly these failure documents (code, message, file), one per line, and exit status 0."""
    assert result.stdout == "".join(expect.failure_text(*document) for document in documents)
    assert (result.status, result.stderr) == (0, "")


def deploy_failed(identity):
    return 201, f"service depoly failed: {identity}", "kova-letsencrypt"


def deployed(folder, archive_folder):
    """The service's folder holds exactly the archive's certificate files, private ones."""
    names = ["cert.pem", "chain.pem", "fullchain.pem", "privkey.pem"]
    assert sorted(os.listdir(folder)) == names
    for name in names:
        assert expect.read(f"{folder}/{name}") == expect.read(f"{archive_folder}/{name}"), name
        assert expect.mode(f"{folder}/{name}") == 0o400
    return serial(folder + "/cert.pem")


# -- the index -------------------------------------------------------------------------------------


def test_missing_index(host, reloads):
    result = host.run("renew-all")
    reported(result)
    assert result.errors == [f"{TAG}File not exist. [No such file or directory][{INDEX}]"]
    assert reloads.lines == []


@pytest.mark.parametrize("text", ["", "{", "[]", "null", "7", '"x"', '{"a":', "[" * 100000])
def test_index_that_is_no_json_object(host, reloads, text):
    host.write(INDEX, text)
    result = host.run("renew-all")
    reported(result)
    assert result.errors == [f"{TAG}Read json file failed. [Success][{INDEX}]"]


def test_index_that_cannot_be_read(host):
    os.makedirs(INDEX)
    result = host.run("renew-all")
    reported(result)
    assert result.errors == [f"{TAG}Read json file failed. [Is a directory][{INDEX}]"]


def test_empty_index(host):
    host.write(INDEX, "{}")
    quiet(host.run("renew-all"))


def test_missing_folder_is_passed_over(host, ca, account, archive, reloads):
    archive.enter("gone", {"services": [service()]})
    archive.add("here", service(), record=record(ca.directory, account))
    result = host.run("renew-all")
    reported(result)
    assert result.errors == [
        f"{TAG}Folder not exist. [No such file or directory][{folder_of('gone')}]"]
    assert deployed(service_folder(), folder_of("here")) == ca.certificates[-1].serial_number


def test_file_in_the_place_of_a_folder_is_passed_over(host, archive):
    host.write(folder_of("file"), "x")
    archive.enter("file", {"services": []})
    result = host.run("renew-all")
    reported(result)
    assert result.errors == [f"{TAG}Folder not exist. [Not a directory][{folder_of('file')}]"]


def test_folder_that_is_not_in_the_index_is_left_alone(host, ca, account, archive):
    archive.add("unlisted", record=record(ca.directory, account))
    host.write(INDEX, "{}")
    quiet(host.run("renew-all"))
    assert ca.requests == []


def test_certificates_are_renewed_in_the_order_of_their_ids(host, ca, account, archive):
    for identity in ("b", "C", "a", "10", "9"):
        archive.add(identity, record=record(ca.directory, account, f"{identity}.example"))
    quiet(host.run("renew-all"))
    assert [order["identifiers"][0]["value"] for order in ca.payloads("newOrder")] == [
        "10.example", "9.example", "C.example", "a.example", "b.example"]


# -- which are due ---------------------------------------------------------------------------------


def lead_time(host, archive, days, settings):
    """Whether a certificate with so many days left is due under these settings."""
    archive.add("due", service(), days=days)
    if settings is None:
        os.unlink(paths.SETTINGS)
    else:
        host.write_settings(settings if isinstance(settings, str) else json.dumps(settings))
    result = host.run("renew-all", "-v")
    assert (result.status, result.stderr) == (0, "")
    due = "cert is not expired. [%s]" % folder_of("due") not in result.debug
    assert due == os.path.isdir(service_folder())
    return due, [error for error in result.errors if "can not find renew.json" not in error]


@pytest.mark.parametrize("days, lead, due", [
    (60, 90, True), (60, 30, False), (60, 60.0, True), (29.9, 30, True), (30.1, 30, False),
    (0.1, 0, False), (-0.02, 0, True), (0.1, 1, True), (60, 36500, True), (60, -1, False),
    (-0.02, -1, False),
    (60, 2147483647, False)])  # no calendar has that day
def test_lead_time_of_the_settings(host, archive, days, lead, due):
    assert lead_time(host, archive, days, {"renew_before_expire_days": lead}) == (due, [])


@pytest.mark.parametrize("value", ["90", "10", 90.5, True, None, [90], {"days": 90}, 2**40])
@pytest.mark.parametrize("days, due", [(20, True), (60, False)])
def test_lead_time_of_another_type_is_the_default(host, archive, value, days, due):
    assert lead_time(host, archive, days, {"renew_before_expire_days": value}) == (due, [])


@pytest.mark.parametrize("days, due", [(29.9, True), (30.1, False)])
def test_lead_time_defaults_to_30_days(host, archive, days, due):
    assert lead_time(host, archive, days, {}) == (due, [])


@pytest.mark.parametrize("days, due", [(29.9, True), (30.1, False)])
def test_missing_settings_file_is_logged(host, archive, days, due):
    assert lead_time(host, archive, days, None) == (
        due, [f"{TAG}File not exist. [No such file or directory]: [{paths.SETTINGS}]"])


@pytest.mark.parametrize("text", ["", "{", '{"renew_before_expire_days": 90', "[" * 100000])
@pytest.mark.parametrize("days, due", [(29.9, True), (60, False)])
def test_broken_settings_file_is_logged(host, archive, text, days, due):
    assert lead_time(host, archive, days, text) == (
        due, [f"{TAG}Read json file failed. [Success]: [{paths.SETTINGS}]"])


@pytest.mark.parametrize("organisation", [
    "Kova Inc.", "let's encrypt", "LET'S ENCRYPT", "Lets Encrypt", "Let’s Encrypt", "Let's", " "])
def test_other_issuers_are_left_alone(host, archive, reloads, organisation):
    folder = archive.add("other", service(), organisation=organisation, record="{")
    result = host.run("renew-all", "-v")
    assert (result.status, result.errors) == (0, [])
    assert result.debug == [
        f"Issuer name of certificate. [{organisation}]->[{folder}/cert.pem]",
        NOT_TRUSTED % f"{folder}/cert.pem"]
    assert not os.path.exists(service_folder())
    assert reloads.lines == []


@pytest.mark.parametrize("organisation", [
    "Let's Encrypt", "(STAGING) Let's Encrypt", "XLet's EncryptX"])
def test_issuer_organisation_contains_the_name(host, ca, account, archive, organisation):
    archive.add("due", service(), organisation=organisation, record=record(ca.directory, account))
    quiet(host.run("renew-all"))
    assert len(ca.certificates) == 1


def test_issuer_without_an_organisation_is_passed_over(host, archive):
    folder = archive.add("plain", service(), organisation=None)
    result = host.run("renew-all", "-v")
    assert (result.status, result.stdout) == (0, "")
    assert result.errors == [
        f"utils:# get x509 issuer entry failed. [{folder}/cert.pem]: []"]
    assert not os.path.exists(service_folder())


def test_only_the_first_organisation_counts(host, archive):
    folder = archive.add("two", service())
    os.unlink(folder + "/cert.pem")
    subprocess.run(["/usr/bin/openssl", "req", "-x509", "-newkey", "ed25519", "-nodes",
                    "-days", "5", "-subj", "/CN=x/O=First Inc./O=Let's Encrypt", "-out", folder + "/cert.pem",
                    "-keyout", "/dev/null"], check=True, capture_output=True)
    result = host.run("renew-all", "-v")
    assert result.debug[0] == f"Issuer name of certificate. [First Inc.]->[{folder}/cert.pem]"
    assert result.debug[1] == NOT_TRUSTED % f"{folder}/cert.pem"


def test_missing_certificate_file(host, archive):
    folder = archive.add("lost", service())
    os.unlink(folder + "/cert.pem")
    result = host.run("renew-all")
    reported(result)
    assert result.errors == [
        f"utils:# fopen failed. [No such file or directory][{folder}/cert.pem]"]


@pytest.mark.parametrize("text", ["", "x", "-----BEGIN CERTIFICATE-----\n", "\0" * 100])
def test_certificate_file_that_holds_none(host, archive, text):
    folder = archive.add("bad", service())
    os.unlink(folder + "/cert.pem")
    host.write(folder + "/cert.pem", text)
    result = host.run("renew-all")
    reported(result)
    assert len(result.errors) == 1
    assert result.errors[0].startswith(f"utils:# read x509 failed. [{folder}/cert.pem]: [")
    assert "PEM routines" in result.errors[0]
    assert not os.path.exists(service_folder())


def test_selection_is_told_step_by_step(host, archive):
    folder = archive.add("fresh", days=60)
    assert host.run("renew-all", "-v").debug == [
        f"Issuer name of certificate. [Let's Encrypt]->[{folder}/cert.pem]",
        f"cert is not expired. [{folder}]"]


# -- renewal and redeployment ----------------------------------------------------------------------


def test_renewed_certificate_reaches_its_services(host, ca, account, archive, reloads):
    folder = archive.add("AbC123", service(), service("pkg", "mail", package=True),
                         record=record(ca.directory, account))
    reloads.script("pkg", package=True)
    before = expect.read(INDEX)
    quiet(host.run("renew-all"))
    fresh = ca.certificates[-1].serial_number
    assert deployed(service_folder(), folder) == fresh
    assert deployed(service_folder("pkg", "mail", package=True), folder) == fresh
    assert reloads.lines == ["nginx web", "pkg mail"]
    assert expect.read(INDEX) == before
    assert host.certificates() == [folder]
    assert os.listdir("/etc/cron.d") == []


def test_reload_comes_after_the_new_files(host, ca, account, archive):
    seen = host.workspace + "/seen"
    Reloads(host).script("nginx", f"cat {service_folder()}/cert.pem > {seen}")
    archive.add("due", service(), record=record(ca.directory, account))
    quiet(host.run("renew-all"))
    assert serial(seen) == ca.certificates[-1].serial_number


def test_second_run_has_nothing_to_do(host, ca, account, archive, reloads):
    archive.add("due", service(), record=record(ca.directory, account))
    quiet(host.run("renew-all"))
    quiet(host.run("renew-all"))
    assert (len(ca.orders), reloads.lines) == (1, ["nginx web"])


def test_deployed_files_belong_to_the_owner(host, ca, account, archive, user):
    folder = archive.add("due", service(owner=user.pw_name), service("mail", "imap"),
                         record=record(ca.directory, account))
    quiet(host.run("renew-all", umask=0o077))
    deployed(service_folder(), folder)
    for name in os.listdir(service_folder()):
        status = os.stat(f"{service_folder()}/{name}")
        assert (status.st_uid, status.st_gid) == (user.pw_uid, user.pw_gid)
    assert os.stat(service_folder("mail", "imap") + "/privkey.pem").st_uid == 0
    assert expect.mode(service_folder()) == 0o755


@pytest.fixture
def user():
    """A user of the host, gone after the test."""
    with open("/etc/passwd", encoding="ascii") as passwd:
        original = passwd.read()
    with open("/etc/passwd", "a", encoding="ascii") as passwd:
        passwd.write("webuser:x:4242:4343::/nonexistent:/usr/sbin/nologin\n")
    yield pwd.getpwnam("webuser")
    with open("/etc/passwd", "w", encoding="ascii") as passwd:
        passwd.write(original)


def test_failed_renewal_is_redeployed_all_the_same(host, ca, account, archive, reloads):
    folder = archive.add("due", service(), record=record(ca.directory, account))
    old = serial(folder + "/cert.pem")
    ca.answer("newOrder", problem("rateLimited", "slow down", 429))
    result = host.run("renew-all")
    reported(result, (104, "slow down", "client_v2"))
    assert deployed(service_folder(), folder) == old
    assert reloads.lines == ["nginx web"]


def test_certificate_without_a_record_is_redeployed_all_the_same(host, archive, reloads):
    folder = archive.add("due", service())
    result = host.run("renew-all")
    reported(result)
    assert result.errors == [
        f"{TAG}can not find renew.json. [No such file or directory][{folder}/renew.json]"]
    assert deployed(service_folder(), folder) == serial(folder + "/cert.pem")
    assert reloads.lines == ["nginx web"]


@pytest.mark.parametrize("content, message", [
    ("{", "renew info is not json. [%s]"), ("{}", "renew info contain info not enoungh. [%s]"),
    (record("http://127.0.0.1:9", "/x", version="2"), "renew version seems to be wrong. [%s]")])
def test_bad_record_is_redeployed_all_the_same(host, archive, content, message):
    folder = archive.add("due", service(), record=content)
    result = host.run("renew-all")
    reported(result)
    assert result.errors == [TAG + message % folder]
    assert deployed(service_folder(), folder) == serial(folder + "/cert.pem")


def test_record_without_a_domain_is_redeployed_without_contacting_the_server(host, ca, account,
                                                                             archive, reloads):
    archive.add("due", service(), record=record(ca.directory, account, ""))
    quiet(host.run("renew-all"))
    assert ca.requests == []
    assert reloads.lines == ["nginx web"]


def test_one_failed_renewal_does_not_stop_the_next(host, ca, account, archive, reloads):
    for number, identity in enumerate("abc"):
        archive.add(identity, service(name=identity),
                    record=record(ca.directory, account, f"{identity}.example"))
    ca.answer("newOrder", NORMAL, problem("rateLimited", "slow down", 429))
    reported(host.run("renew-all"), (104, "slow down", "client_v2"))
    assert [expect.certificate_names(leaf) for leaf in ca.certificates] == [
        ["a.example"], ["c.example"]]
    assert reloads.lines == ["nginx a", "nginx b", "nginx c"]


def test_renewal_that_could_not_move_its_files_is_redeployed_all_the_same(host, ca, account,
                                                                          archive, reloads):
    host.mount(folder_of("due"))
    folder = archive.add("due", service(), record=record(ca.directory, account))
    old = serial(folder + "/cert.pem")
    result = host.run("renew-all")
    fresh = next(other for other in host.certificates() if other != folder)
    reported(result,
             (202, f"Rename file failed. {fresh}/cert.pem => {folder}/cert.pem [18]", "utils"))
    assert deployed(service_folder(), folder) == old
    assert reloads.lines == ["nginx web"]


# -- failures of the redeployment ------------------------------------------------------------------


def test_two_failing_redeployments_are_two_documents(host, ca, account, archive, reloads):
    for identity in ("one", "two"):
        archive.add(identity, service("nginx", identity, owner="nobody-here"),
                    service("system", "default"),
                    record=record(ca.directory, account, identity + ".example"))
    result = host.run("renew-all")
    reported(result, deploy_failed("one"), deploy_failed("two"))
    assert [error.split(".[")[0] for error in result.errors] == [
        "utils.cpp:# Failed to KOVAUserGetUGID [nobody-here]"] * 2
    assert len(ca.certificates) == 2
    # The other service of each was served; the web front-end only follows a whole redeployment.
    assert reloads.lines == ["system default"] * 2


def test_failed_renewal_and_failed_redeployment_are_two_documents(host, ca, account, archive):
    archive.add("due", service(owner="nobody-here"), record=record(ca.directory, account))
    ca.answer("newOrder", problem("rateLimited", "slow down", 429))
    reported(host.run("renew-all"), (104, "slow down", "client_v2"), deploy_failed("due"))


@pytest.mark.parametrize("index", [{}, {"services": {}}, {"services": None}, {"services": "x"}])
def test_certificate_without_a_service_list(host, ca, account, archive, index):
    archive.add("due", record=record(ca.directory, account), index=index)
    result = host.run("renew-all")
    reported(result, (201, "Cant get  service list: due", "kova-letsencrypt"))
    assert [error.split(".[")[0] for error in result.errors] == [f"utils.cpp:# Broken [{INDEX}]"]
    assert len(ca.certificates) == 1  # renewed, though


@pytest.mark.parametrize("index", [None, 7, "x", [], True])
def test_index_entry_that_is_no_object(host, ca, account, archive, index):
    archive.add("due", record=record(ca.directory, account))
    archive.enter("due", index)
    result = host.run("renew-all")
    reported(result, (201, "Cant get  service list: due", "kova-letsencrypt"))
    assert result.errors[0] == "utils.cpp:# Invalid cert id: [due]"


def test_certificate_without_services_is_renewed_in_silence(host, ca, account, archive, reloads):
    archive.add("due", record=record(ca.directory, account))
    quiet(host.run("renew-all"))
    assert (len(ca.certificates), reloads.lines) == (1, [])


@pytest.mark.parametrize("broken", [
    {"isPkg": "true"}, {"display_name": ""}, {"owner": 7}, {"subscriber": None}, {"service": ""}])
def test_invalid_service_fails_alone(host, ca, account, archive, reloads, broken):
    archive.add("due", {**service("bad", "one"), **broken}, service(),
                record=record(ca.directory, account))
    result = host.run("renew-all")
    reported(result, deploy_failed("due"))
    assert "utils.cpp:# service object is error." in result.errors
    assert reloads.lines == ["nginx web"]


def test_folder_that_vanishes_during_the_renewal(host, ca, account, archive):
    folder = archive.add("due", service(), record=record(ca.directory, account))

    def remove_folder(_request, normal):
        shutil.rmtree(folder)
        return normal()

    ca.answer("finalize", remove_folder)
    result = host.run("renew-all")
    fresh, = host.certificates()
    reported(result,
             (202, f"Rename file failed. {fresh}/cert.pem => {folder}/cert.pem [2]", "utils"),
             (201, f"Cant get  certid: {folder}", "kova-letsencrypt"))


def test_incomplete_folder_is_refilled_before_it_is_redeployed(host, archive, reloads):
    folder = archive.add("due", service())
    os.unlink(folder + "/privkey.pem")
    host.hook("notify", f'echo "$*" > {host.workspace}/notified\n')
    result = host.run("renew-all")
    reported(result)
    assert result.errors[1] == f"utils.cpp:# Lack of necessary files in cert dir [{folder}]"
    assert expect.read(host.workspace + "/notified") == "certificate_broken\n"
    assert serial(service_folder() + "/cert.pem") == serial(folder + "/cert.pem")
    assert reloads.lines == ["nginx web"]


# -- the web front-end -----------------------------------------------------------------------------


def due_certificates(archive, ca, account, **services):
    for identity, of_it in services.items():
        archive.add(identity, *of_it, record=record(ca.directory, account, identity + ".example"))


def test_web_frontend_is_restarted_once_at_the_end(host, ca, account, archive, reloads):
    system = service("system", "default")
    due_certificates(archive, ca, account, a=[system], b=[service()], c=[service(name="x"), system])
    quiet(host.run("renew-all"))
    assert reloads.lines == ["system default", "nginx web", "nginx x", "system default",
                             "web-restart"]


@pytest.mark.parametrize("other", [
    ("system", "web"), ("web", "default"), ("System", "default"), ("default", "system")])
def test_web_frontend_is_left_alone_without_the_default_service(host, ca, account, archive, reloads,
                                                                other):
    due_certificates(archive, ca, account, a=[service(*other)])
    quiet(host.run("renew-all"))
    assert "web-restart" not in reloads.lines


def test_web_frontend_is_left_alone_when_nothing_is_due(host, archive, reloads):
    archive.add("fresh", service("system", "default"), days=60)
    quiet(host.run("renew-all"))
    assert reloads.lines == []


def test_web_frontend_is_restarted_after_a_failed_renewal(host, ca, account, archive, reloads):
    due_certificates(archive, ca, account, a=[service("system", "default")])
    ca.answer("newOrder", problem("rateLimited", "slow down", 429))
    reported(host.run("renew-all"), (104, "slow down", "client_v2"))
    assert reloads.lines == ["system default", "web-restart"]


def test_web_frontend_restart_survives_a_later_failure(host, ca, account, archive, reloads):
    due_certificates(archive, ca, account, a=[service("system", "default")],
                     b=[service(owner="nobody-here")])
    reported(host.run("renew-all"), deploy_failed("b"))
    assert reloads.lines == ["system default", "web-restart"]


def test_web_frontend_that_does_not_restart_is_no_failure(host, ca, account, archive, reloads):
    reloads.web_frontend(status=1)
    due_certificates(archive, ca, account, a=[service("system", "default")])
    result = host.run("renew-all")
    reported(result)
    assert reloads.lines[-1] == "web-restart"


def test_relay_daemon_is_reloaded_when_it_runs(host, ca, account, archive):
    log = host.workspace + "/daemon"
    host.hook("service-running", f'echo "running $*" >> {log}\n')
    host.hook("service-reload", f'echo "reload $*" >> {log}\n')
    due_certificates(archive, ca, account, a=[service()], b=[])
    quiet(host.run("renew-all"))
    assert expect.read(log).splitlines() == ["running kovarelayd", "reload kovarelayd"] * 2
