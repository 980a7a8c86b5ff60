"""The weekly renewal job in /etc/cron.d."""

import os
import re

import pytest
from lib import expect, paths

NAME = "www.host.example"
JOB = re.compile(r"# kova-letsencrypt - renew\n"
                 r"(\d+) (\d+) \* \* (\d) root /usr/kova/sbin/kova-letsencrypt renew-all\n")


def job_times():
    match = JOB.fullmatch(expect.read(paths.CRON_JOB))
    assert match, expect.read(paths.CRON_JOB)
    minute, hour, weekday = map(int, match.groups())
    assert minute < 60 and hour < 24 and weekday < 7
    return minute, hour, weekday


def acme_folder(host, identity="AbC123", index=None):
    folder = f"{paths.ARCHIVE}/{identity}"
    host.write(folder + "/renew.json", "{}")
    host.write(paths.ARCHIVE + "/INFO", index or '{"%s": {}}' % identity)
    return folder


def test_issuance_adds_the_job(host, ca, account):
    expect.issued(host.new_cert(ca.directory, [NAME]))
    job_times()
    assert expect.mode(paths.CRON_JOB) == 0o644
    assert os.listdir("/etc/cron.d") == ["kova-letsencrypt"]


@pytest.mark.parametrize("umask", [0, 0o777])
def test_mode_of_the_job_does_not_depend_on_the_umask(host, umask):
    acme_folder(host)
    host.run("add-cronjob", umask=umask)
    assert expect.mode(paths.CRON_JOB) == 0o644


def test_failed_issuance_adds_none(host, ca):
    result = host.new_cert(ca.directory, ";")
    expect.failed(result, 106, "no valid domain name", "kova-letsencrypt")
    assert os.listdir("/etc/cron.d") == []


def test_job_that_could_not_be_added_does_not_fail_the_issuance(host, ca, account):
    host.mount("/etc/cron.d", size=4096)
    host.write("/etc/cron.d/full", b"x" * 4096)
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result)
    assert os.listdir("/etc/cron.d") == ["full"]
    assert re.fullmatch(r"kova-letsencrypt:# Failed to add the renewal job\."
                        r"\[0x001C \S*crond\.cpp:\d+\]", result.errors[-1])  # 28: no space


def test_add_cronjob_adds_one_job(host):
    acme_folder(host)
    for _ in range(2):
        result = host.run("add-cronjob", "ignored", "--arguments")
        assert (result.status, result.stdout, result.stderr, result.syslog) == (0, "", "", [])
    job_times()
    assert os.listdir("/etc/cron.d") == ["kova-letsencrypt"]


def test_an_edited_job_is_left_as_it_is(host, ca, account):
    acme_folder(host)
    host.write(paths.CRON_JOB, "@daily root true\n", 0o600)
    host.run("add-cronjob")
    expect.issued(host.new_cert(ca.directory, [NAME]))
    assert expect.read(paths.CRON_JOB) == "@daily root true\n"
    assert expect.mode(paths.CRON_JOB) == 0o600


def test_add_cronjob_without_an_acme_certificate_changes_nothing(host):
    os.makedirs(paths.ARCHIVE + "/other")
    host.write(paths.ARCHIVE + "/INFO", '{"other": {}}')
    result = host.run("add-cronjob")
    assert (result.status, result.stdout, result.syslog) == (0, "", [])
    assert os.listdir("/etc/cron.d") == []


def test_folder_that_is_not_in_the_index_does_not_count(host):
    acme_folder(host, index="{}")
    host.run("add-cronjob")
    assert os.listdir("/etc/cron.d") == []


def test_job_that_cannot_be_added_is_in_the_log(host):
    acme_folder(host)
    host.mount("/etc/cron.d", size=4096)
    host.write("/etc/cron.d/full", b"x" * 4096)
    result = host.run("add-cronjob")
    assert (result.status, result.stdout) == (0, "")
    assert re.fullmatch(r"kova-letsencrypt:# Failed to add the renewal job\."
                        r"\[0x001C \S*crond\.cpp:\d+\]", result.errors[-1])
    assert len(result.errors) == 1


def test_index_that_names_a_missing_folder(host):
    host.write(paths.ARCHIVE + "/INFO", '{"gone": {}}')
    result = host.run("add-cronjob")
    assert result.status == 0
    assert result.errors == [
        f"utils:# Folder not exist. [No such file or directory][{paths.ARCHIVE}/gone]"]
    assert os.listdir("/etc/cron.d") == []


def test_missing_index(host):
    result = host.run("add-cronjob")
    assert result.status == 0
    assert result.errors == [
        f"utils:# File not exist. [No such file or directory][{paths.ARCHIVE}/INFO]"]


@pytest.mark.parametrize("text, reason", [
    *((text, "Success") for text in ("", "{", "[" * 100000)),
    *((text, "not an object") for text in ("[]", "null", "7", '"x"'))])
def test_broken_index(host, text, reason):
    acme_folder(host)
    host.write(paths.ARCHIVE + "/INFO", text)
    result = host.run("add-cronjob")
    assert result.status == 0
    assert result.errors == [f"utils:# Read json file failed. [{reason}][{paths.ARCHIVE}/INFO]"]
    assert os.listdir("/etc/cron.d") == []


def test_times_are_stable_on_a_host_and_spread_over_a_fleet(host):
    acme_folder(host)
    seen = {}
    for number in range(24):
        host.write("/etc/machine-id", f"{number * 0x9e3779b97f4a7c15 & (1 << 128) - 1:032x}\n")
        for _ in range(2):
            host.run("add-cronjob")
            seen.setdefault(number, set()).add(job_times())
            os.unlink(paths.CRON_JOB)
    assert all(len(times) == 1 for times in seen.values())
    times = [next(iter(times)) for times in seen.values()]
    assert len(set(times)) == 24
    assert all(len({time[position] for time in times}) > 4 for position in range(3))
