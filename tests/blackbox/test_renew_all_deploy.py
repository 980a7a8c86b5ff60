"""renew-all: what is renewed and redeployed, whatever fails, and the restart at the end."""

import os
import shutil

import pytest
from lib import expect, paths
from lib.http_script import NORMAL
from lib.renewal import (INDEX, Reloads, deployed, folder_of, host_user, quiet, record,
                         reported, serial, service, service_folder)
from lib.signed_server import problem

TAG = "kova-letsencrypt:# "


def deploy_failed(identity):
    return 201, f"service depoly failed: {identity}", "kova-letsencrypt"


# -- renewal and redeployment ----------------------------------------------------------------------


def test_renewed_certificate_reaches_its_services(host, ca, account, archive, reloads):
    folder = archive.add("AbC123", service(), service("pkg", "mail", package=True),
                         record=record(ca.directory, account))
    reloads.script("pkg", package=True)
    before = expect.read(INDEX)
    quiet(host.run("renew-all"))
    fresh = ca.certificates[-1].serial_number
    assert deployed(folder) == fresh
    assert deployed(folder, service_folder("pkg", "mail", package=True)) == fresh
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
    deployed(folder)
    for name in os.listdir(service_folder()):
        status = os.stat(f"{service_folder()}/{name}")
        assert (status.st_uid, status.st_gid) == (user.pw_uid, user.pw_gid)
    assert os.stat(service_folder("mail", "imap") + "/privkey.pem").st_uid == 0
    assert expect.mode(service_folder()) == 0o755


@pytest.fixture
def user():
    with host_user() as user:
        yield user


def test_failed_renewal_is_redeployed_all_the_same(host, ca, account, archive, reloads):
    folder = archive.add("due", service(), record=record(ca.directory, account))
    old = serial(folder + "/cert.pem")
    ca.answer("newOrder", problem("rateLimited", "slow down", 429))
    result = host.run("renew-all")
    reported(result, (104, "slow down", "client_v2"))
    assert deployed(folder) == old
    assert reloads.lines == ["nginx web"]


def test_certificate_without_a_record_is_redeployed_all_the_same(host, archive, reloads):
    folder = archive.add("due", service())
    result = host.run("renew-all")
    reported(result)
    assert result.errors == [
        f"{TAG}can not find renew.json. [No such file or directory][{folder}/renew.json]"]
    assert deployed(folder) == serial(folder + "/cert.pem")
    assert reloads.lines == ["nginx web"]


@pytest.mark.parametrize("content, message", [
    ("{", "renew info is not json. [%s]"), ("{}", "renew info contain info not enoungh. [%s]"),
    (record("http://127.0.0.1:9", "/x", version="2"), "renew version seems to be wrong. [%s]")])
def test_bad_record_is_redeployed_all_the_same(host, archive, content, message):
    folder = archive.add("due", service(), record=content)
    result = host.run("renew-all")
    reported(result)
    assert result.errors == [TAG + message % folder]
    assert deployed(folder) == serial(folder + "/cert.pem")


def test_record_without_a_domain_is_redeployed_without_contacting_the_server(host, ca, account,
                                                                             archive, reloads):
    archive.add("due", service(), record=record(ca.directory, account, ""))
    quiet(host.run("renew-all"))
    assert ca.requests == []
    assert reloads.lines == ["nginx web"]


def test_renewal_on_a_full_disk_is_redeployed_all_the_same(host, ca, account, archive, reloads):
    host.mount(paths.ARCHIVE, size=64 * 1024)
    folder = archive.add("due", service(), record=record(ca.directory, account))
    before = expect.tree(folder)
    with open(paths.ARCHIVE + "/filler", "wb", buffering=0) as filler:
        with pytest.raises(OSError, match="No space left"):
            while True:
                filler.write(b"x" * 4096)
    reported(host.run("renew-all"), (202, "Failed to save pems", "client_v2"))
    assert expect.tree(folder) == before
    assert host.certificates() == [folder]
    deployed(folder)
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
    assert deployed(folder) == old
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
    assert result.errors == ["kova-letsencrypt:# Failed to restart the web front-end."]


def test_relay_daemon_is_reloaded_when_it_runs(host, ca, account, archive):
    log = host.workspace + "/daemon"
    host.hook("service-running", f'echo "running $*" >> {log}\n')
    host.hook("service-reload", f'echo "reload $*" >> {log}\n')
    due_certificates(archive, ca, account, a=[service()], b=[])
    quiet(host.run("renew-all"))
    assert expect.read(log).splitlines() == ["running kovarelayd", "reload kovarelayd"] * 2
