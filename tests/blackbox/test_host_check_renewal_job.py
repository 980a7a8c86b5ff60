"""kova-archive check --host: what starts the renewals, and whether that runs."""

import os
import shutil

import pytest

from lib import paths
from lib.archive_cli import ArchiveCli
from lib.host_findings import check, expect_finding, the_only
from lib.nginx import Nginx

TIMER = "kova-letsencrypt.timer"
WANTS = "/etc/systemd/system/timers.target.wants"
SYSTEMD = "/run/systemd/system"
CRON = "/usr/sbin/cron"
PID_FILE = "/run/crond.pid"

BY_CRON = f"{paths.CRON_JOB} is in place, and a cron daemon runs it"
BY_TIMER = f"{TIMER} is enabled"


@pytest.fixture
def cli(host):
    """A host with a certificate to renew, without anything that does it."""
    cli = ArchiveCli(host)
    Nginx(host).start()
    cli.certificate("abc", days=80, record="{}")
    host.mount("/etc/systemd/system")
    return cli


@pytest.fixture
def systemd(cli):
    """systemd is the init system, as far as can be seen."""
    os.makedirs(SYSTEMD)
    yield
    os.rmdir(SYSTEMD)


def add_job(cli):
    assert cli.host.run("add-cronjob").status == 0


def start_cron(cli, *argv):
    """Ready is a cron daemon once it has written its process id."""
    if os.path.exists(PID_FILE):
        os.unlink(PID_FILE)
    cli.host.spawn(argv or [CRON, "-f"], ready=lambda: os.path.exists(PID_FILE))


def enable_timer():
    """What `systemctl enable` does; the unit itself need not be there to be seen."""
    os.makedirs(WANTS)
    os.symlink(f"/lib/systemd/system/{TIMER}", f"{WANTS}/{TIMER}")


def test_nothing_to_renew_needs_nothing_that_does_it(cli):
    cli.write_index({})
    expect_finding(cli, "renewal job", "ok", "none, and no certificate to renew yet", "")


def test_nothing_that_renews_is_a_failure_once_there_is_a_certificate(cli):
    expect_finding(cli, "renewal job", "failure",
                   f"{paths.CRON_JOB} does not exist, and {TIMER} is not enabled",
                   "kova-letsencrypt add-cronjob; on a host with systemd and no cron daemon "
                   f"systemctl enable --now {TIMER}")


def test_a_job_that_a_running_cron_daemon_sees_is_fine(cli):
    add_job(cli)
    start_cron(cli)
    expect_finding(cli, "renewal job", "ok", BY_CRON, "")


def expect_stopped(cli):
    expect_finding(cli, "renewal job", "failure",
                   f"{paths.CRON_JOB} is in place, but the cron daemon does not run",
                   "start it, and see to it that it starts with the host (systemctl enable --now "
                   "cron)")


def test_a_cron_daemon_that_does_not_run_is_a_failure(cli):
    add_job(cli)
    expect_stopped(cli)


def test_a_cron_daemon_that_sees_another_folder_of_jobs_does_not_count(cli):
    """Such as that of a container, whose processes the host sees as well."""
    add_job(cli)
    start_cron(cli, "/usr/bin/unshare", "--mount", "/bin/sh", "-c",
               f"mount -t tmpfs tmpfs /etc/cron.d && exec {CRON} -f")
    expect_stopped(cli)


def test_a_process_of_another_name_does_not_count(cli, host):
    add_job(cli)
    start_cron(cli, shutil.copy(CRON, host.workspace + "/cronolog"), "-f")
    expect_stopped(cli)


@pytest.mark.parametrize("name", ["crond", "bcron-sched"])
def test_relatives_of_cron_count_when_they_run(cli, host, name):
    add_job(cli)
    program = shutil.copy(CRON, f"{host.workspace}/{name}")
    start_cron(cli, program, "-f")
    expect_finding(cli, "renewal job", "ok", BY_CRON)


@pytest.fixture
def no_cron(cli):
    os.rename(CRON, CRON + ".away")
    yield
    os.rename(CRON + ".away", CRON)


def test_no_cron_daemon_at_all_is_a_failure(cli, no_cron):
    add_job(cli)
    expect_finding(cli, "renewal job", "failure",
                   f"{paths.CRON_JOB} is in place, but there is no cron daemon to run it",
                   "install one that reads /etc/cron.d (Debian: cron), or systemctl enable --now "
                   + TIMER)


def test_timers_that_systemd_generates_of_the_jobs_count_when_systemd_runs(cli, host, no_cron,
                                                                          systemd):
    add_job(cli)
    host.mount("/lib/systemd/system-generators")
    host.write("/lib/systemd/system-generators/systemd-crontab-generator", "", 0o755)
    expect_finding(cli, "renewal job", "ok", BY_CRON)
    os.rename(SYSTEMD, SYSTEMD + ".away")
    expect_stopped(cli)
    os.rename(SYSTEMD + ".away", SYSTEMD)


def test_an_enabled_timer_is_fine_where_systemd_runs(cli, systemd):
    enable_timer()
    expect_finding(cli, "renewal job", "ok", BY_TIMER, "")


def test_an_enabled_timer_is_a_failure_where_systemd_does_not_run(cli):
    enable_timer()
    expect_finding(cli, "renewal job", "failure",
                   f"{TIMER} is enabled, but systemd does not run here",
                   "kova-letsencrypt add-cronjob, with a cron daemon")


def test_job_and_timer_are_told_together(cli, systemd):
    add_job(cli)
    start_cron(cli)
    enable_timer()
    expect_finding(cli, "renewal job", "ok",
                   f"{BY_CRON}; {BY_TIMER} as well, which does no harm: one waits for the other", "")


def test_the_timer_makes_up_for_a_cron_daemon_that_does_not_run(cli, systemd):
    add_job(cli)
    enable_timer()
    expect_finding(cli, "renewal job", "ok", BY_TIMER)


def test_the_job_makes_up_for_a_timer_that_does_not_run(cli):
    add_job(cli)
    start_cron(cli)
    enable_timer()
    expect_finding(cli, "renewal job", "ok", BY_CRON)


def test_neither_running_is_one_failure(cli):
    add_job(cli)
    enable_timer()
    assert the_only(check(cli), "renewal job")["level"] == "failure"
