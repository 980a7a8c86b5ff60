"""kova-archive check --host: what would make issuance or renewal fail, one line each."""

import os
import re
import stat

import pytest

from lib import paths
from lib.archive_cli import ArchiveCli, refused
from lib.host_findings import check, expect_finding, host_in_order, the_only
from lib.nginx import Nginx

SUBJECTS = ["archive root", "archive index", "settings", "device record", "hooks", "web root",
            "router", "renewal job", "archive folders", "renewals", "reload scripts",
            "service files", "clock", "trust store"]


@pytest.fixture
def cli(host):
    return host_in_order(host)


def test_a_host_in_order_passes_with_a_line_for_each_subject(cli):
    result = cli.run("check", "--host")
    assert (result.status, result.stderr) == (0, "")
    lines = result.stdout.splitlines()
    assert lines[0].split() == ["RESULT", "OF", "FINDING"]
    assert [re.split(" {2,}", line)[1] for line in lines[1:]] == SUBJECTS
    assert {line.split()[0] for line in lines[1:]} == {"ok"}


def test_only_failures_make_it_fail(cli):
    os.chmod(paths.DEVICE_RECORD, 0o644)
    result = cli.run("check", "--host")
    assert (result.status, result.stderr) == (0, "")
    assert "\nwarning  device record" in result.stdout
    os.chmod(paths.ARCHIVE, 0o755)
    result = cli.run("check", "--host")
    assert result.status == 1
    assert "\nfailure  archive root" in result.stdout
    assert result.stderr == "kova-archive: check: this host is not ready: 1 check failed\n"


def test_ids_and_the_host_are_not_checked_together(cli):
    refused(cli.run("check", "abc", "--host"), "--host takes no ID", "check")


def test_an_archive_root_open_to_others_is_a_failure(cli):
    os.chmod(paths.ARCHIVE, 0o750)
    expect_finding(cli, "archive root", "failure",
                   f"{paths.ARCHIVE} is open to others than root (mode 0750, owner 0)",
                   f"chown root {paths.ARCHIVE} && chmod 700 {paths.ARCHIVE}")


def test_an_archive_root_of_another_owner_is_a_failure(cli):
    os.chown(paths.ARCHIVE, 33, 33)
    expect_finding(cli, "archive root", "failure",
                   f"{paths.ARCHIVE} is open to others than root (mode 0700, owner 33)")


def test_a_missing_archive_root_is_a_failure(cli):
    os.unlink(paths.ARCHIVE + "/INFO")
    os.rmdir(paths.ARCHIVE)
    expect_finding(cli, "archive root", "failure", f"{paths.ARCHIVE} is not a folder",
                   f"install -d -m 700 {paths.ARCHIVE}")


@pytest.mark.parametrize("text", ["{", "[]", "null"])
def test_an_index_that_is_no_object_is_a_failure(cli, text):
    cli.write_index(text)
    expect_finding(cli, "archive index", "failure",
                   f"{paths.ARCHIVE}/INFO does not hold a JSON object")


def test_a_missing_index_is_a_warning(cli):
    os.unlink(paths.ARCHIVE + "/INFO")
    expect_finding(cli, "archive index", "warning", f"{paths.ARCHIVE}/INFO does not exist")


@pytest.mark.parametrize("text", ["{", "[]", "7"])
def test_broken_settings_are_a_failure(cli, host, text):
    host.write_settings(text)
    expect_finding(cli, "settings", "failure", f"{paths.SETTINGS} does not hold a JSON object")


def test_missing_settings_are_a_warning(cli):
    os.unlink(paths.SETTINGS)
    expect_finding(cli, "settings", "warning", f"{paths.SETTINGS} does not exist")


@pytest.mark.parametrize("mode", [0o664, 0o646])
def test_settings_that_others_can_change_are_a_failure(cli, mode):
    os.chmod(paths.SETTINGS, mode)
    expect_finding(cli, "settings", "failure",
                   f"{paths.SETTINGS} can be changed by others than root")


def test_a_device_record_that_others_can_read_is_a_warning(cli):
    os.chmod(paths.DEVICE_RECORD, 0o640)
    expect_finding(cli, "device record", "warning",
                   f"{paths.DEVICE_RECORD} is open to others than root (mode 0640)")


def test_a_broken_device_record_is_a_warning(cli, host, router):
    host.write(paths.DEVICE_RECORD, "nonsense", 0o600)
    expect_finding(cli, "device record", "warning",
                   f"{paths.DEVICE_RECORD} does not hold a JSON object")


def test_a_missing_device_record_is_fine(cli, router):
    os.unlink(paths.DEVICE_RECORD)
    expect_finding(cli, "device record", "ok",
                   f"{paths.DEVICE_RECORD} does not exist, the defaults hold")


def test_hooks_that_would_be_ignored_are_named_with_the_reason(cli, host):
    host.hook("notify", "exit 0")
    host.hook("service-reload", "exit 0", 0o775)
    host.hook("web-restart", "exit 0", 0o644)
    host.hook("no-such-hook", "exit 0")
    os.symlink("/bin/true", paths.HOOKS + "/service-running")
    found = {each["text"]: each["level"] for each in check(cli)["hooks"]}
    assert found == {
        f"{paths.HOOKS}/notify is used": "ok",
        f"{paths.HOOKS}/no-such-hook is not used": "warning",
        f"{paths.HOOKS}/service-reload is ignored (writable by group or others)": "warning",
        f"{paths.HOOKS}/service-running is ignored (not a regular file)": "warning",
        f"{paths.HOOKS}/web-restart is ignored (not executable)": "warning",
    }


def test_the_probe_of_the_web_root_is_fetched_and_removed(cli, host):
    finding = the_only(check(cli), "web root")
    assert finding["level"] == "ok"
    with open(host.workspace + "/nginx.access", encoding="utf-8") as log:
        requests = [line for line in log if "/.well-known/acme-challenge/kova-probe-" in line]
    assert len(requests) == 1 and '" 200 ' in requests[0]
    folder = paths.WEBROOT + "/.well-known/acme-challenge"
    assert os.listdir(folder) == []
    assert stat.S_IMODE(os.stat(folder).st_mode) == 0o755


def test_no_web_server_is_a_failure_for_http01(host):
    cli = ArchiveCli(host)
    expect_finding(cli, "web root", "failure",
                   "a probe below /var/lib/letsencrypt gets no answer from port 80")


def test_no_web_server_is_a_warning_where_dns01_serves(host):
    host.device(router="none", ddns_hostname="box.ddns.example")
    cli = ArchiveCli(host)
    expect_finding(cli, "web root", "warning",
                   "a probe below /var/lib/letsencrypt gets no answer from port 80")
    host.settings(skipdns01=True)
    assert the_only(check(cli), "web root")["level"] == "failure"


def test_a_web_server_that_serves_something_else_is_a_failure(host):
    Nginx(host, root="/var/empty").start()
    expect_finding(ArchiveCli(host), "web root", "failure",
                   "a probe below /var/lib/letsencrypt is answered with status 404")


def test_a_router_that_is_found_is_told(cli, host, router):
    host.device()
    expect_finding(cli, "router", "ok", "a router that forwards ports was found")
    assert router.calls == ["detect"]


def test_a_router_that_is_not_found_is_a_warning(cli, host, router):
    host.device()
    router.configure(detect=1)
    expect_finding(cli, "router", "warning", "none found that forwards ports on demand")


@pytest.mark.parametrize("seconds, text", [
    (0, "1970-01-01 00:00 UTC"),
    (1767225599, "2025-12-31 23:59 UTC"),
    (3345062400, "2076-01-01 00:00 UTC"),
])
def test_a_clock_that_cannot_be_right_is_a_failure(cli, seconds, text):
    expect_finding(cli, "clock", "failure", f"{text} cannot be right",
                   env={"KOVA_WALL_CLOCK": str(seconds)})


def test_a_clock_that_can_be_right_is_told(cli):
    expect_finding(cli, "clock", "ok", "2026-01-01 00:00 UTC",
                   env={"KOVA_WALL_CLOCK": "1767225600"})


def test_a_missing_trust_store_is_a_failure(cli, host):
    host.mount("/etc/ssl/certs")
    expect_finding(cli, "trust store", "failure",
                   "/etc/ssl/certs/ca-certificates.crt is missing or empty")
