"""What is due by the settings that say so, and what becomes of failures. Each without its key, and
with one of another type, changes nothing."""

import json
import os
import re
import time

import pytest
from lib import expect, paths
from lib.renewal import NAME, Archive, folder_of, quiet, record
from lib.signed_server import problem

ID = "AbC123"
FOLDER = folder_of(ID)
HISTORY = f"/usr/kova/etc/letsencrypt/renewal/{ID}.json"
OFF = [None, False, 1, "true", [True]]


@pytest.fixture
def archive(host):
    return Archive(host)


def now_plus(seconds):
    return {"KOVA_WALL_CLOCK": str(int(time.time() + seconds))}


# -- renewanyissuer --------------------------------------------------------------------------------


@pytest.mark.parametrize("organisation", ["Kova Inc.", None])
def test_any_issuer_with_a_record(host, ca, account, archive, organisation):
    host.settings(renewanyissuer=True)
    archive.add(ID, organisation=organisation, record=record(ca.directory, account))
    quiet(host.run("renew-all"))
    assert len(ca.certificates) == 1


@pytest.mark.parametrize("value", OFF)
def test_another_issuer_without_the_key(host, ca, account, archive, value):
    host.settings(renewanyissuer=value)
    archive.add(ID, organisation="Kova Inc.", record=record(ca.directory, account))
    quiet(host.run("renew-all"), expect.ignored_key("renewanyissuer", value))
    assert ca.requests == []


@pytest.mark.parametrize("content", [
    None, "{", {"server": "s", "account": "a", "version": 2},
    {"server": "s", "account": "a", "version": 3, "domains": NAME},
    {"server": "s", "account": "a", "version": 2, "domains": " ; "}])
def test_another_issuer_without_a_usable_record(host, archive, content):
    host.settings(renewanyissuer=True)
    archive.add(ID, organisation="Kova Inc.", record=content)
    quiet(host.run("renew-all"))


def test_what_is_not_about_to_end_is_not_due_whoever_issued_it(host, ca, account, archive):
    host.settings(renewanyissuer=True)
    archive.add(ID, organisation="Kova Inc.", days=60, record=record(ca.directory, account))
    quiet(host.run("renew-all"))
    assert ca.requests == []


# -- renewlifetime ---------------------------------------------------------------------------------


@pytest.mark.parametrize("days, passed, due", [
    (90, 59, False), (90, 61, True), (45, 29, False), (45, 31, True), (6, 2.9, False),
    (6, 3.1, True), (90, 95, True)])
def test_lifetime(host, ca, account, archive, days, passed, due):
    # The CA's clock is not moved: what it issues may have ended by the program's.
    host.settings(renewlifetime=True, checkissued=None)
    archive.add(ID, days=days, record=record(ca.directory, account))
    quiet(host.run("renew-all", env=now_plus(passed * 86400)))
    assert len(ca.certificates) == due


@pytest.mark.parametrize("lead, due", [(31, True), (29, False)])
def test_days_of_the_settings_count_beside_the_lifetime(host, ca, account, archive, lead, due):
    host.settings(renewlifetime=True, renew_before_expire_days=lead)
    archive.add(ID, days=90, record=record(ca.directory, account))
    quiet(host.run("renew-all", env=now_plus(59.5 * 86400)))
    assert len(ca.certificates) == due


@pytest.mark.parametrize("value", OFF)
def test_days_alone_without_the_key(host, ca, account, archive, value):
    host.settings(renewlifetime=value)
    archive.add(ID, days=20, record=record(ca.directory, account))
    quiet(host.run("renew-all"), expect.ignored_key("renewlifetime", value))
    assert len(ca.certificates) == 1  # 30 days is the rule


# -- renewfailures ---------------------------------------------------------------------------------


def failing(host, ca, account, archive, days=20):
    host.settings(renewfailures=True)
    ca.always("newOrder", problem("rateLimited", "slow\ndown", 429))
    archive.add(ID, days=days, record=record(ca.directory, account))


def history():
    return json.loads(expect.read(HISTORY))


def test_failure_is_remembered_logged_and_told_once(host, ca, account, archive):
    failing(host, ca, account, archive)
    told = host.workspace + "/told"
    host.hook("notify", f'echo "$*" >> {told}\n')
    results = [host.run("renew-all"), host.run("renew", "-c", ID)]
    document = results[0].document
    for result in results:
        [line] = [line for line in result.errors if "renew failed." in line]
        assert line.startswith(f"kova-letsencrypt:# renew failed. [{FOLDER}][104][")
    assert expect.read(told).splitlines() == [
        f"certificate_renew_failed {ID} " + document["msg"].replace("\n", " ")]
    kept = history()
    assert (kept["failures"], kept["error"], kept["msg"], kept["file"]) == (
        2, 104, document["msg"], document["file"])
    assert kept["last_success"] == ""
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", kept["last_attempt"])
    assert expect.mode(HISTORY) == 0o600
    assert expect.mode(os.path.dirname(HISTORY)) == 0o700


def test_after_three_failures_it_is_tried_once_a_day(host, ca, account, archive):
    failing(host, ca, account, archive)
    for _ in range(3):
        assert host.run("renew-all").stdout != ""
    quiet(host.run("renew-all"))
    quiet(host.run("renew-all", env=now_plus(20 * 3600)))
    assert len(ca.calls("newOrder")) == 3
    ca.always("newOrder", None)
    quiet(host.run("renew-all", env=now_plus(86400)))
    assert len(ca.certificates) == 1
    assert history()["failures"] == 0 and "msg" not in history()
    assert history()["last_success"] == history()["last_attempt"]


def test_what_is_nearly_over_is_always_tried(host, ca, account, archive):
    failing(host, ca, account, archive, days=10)
    late = now_plus(9.5 * 86400)
    for attempt in range(1, 6):
        assert host.run("renew-all", env=late).stdout != ""
        assert len(ca.calls("newOrder")) == attempt


@pytest.mark.parametrize("value", OFF)
def test_nothing_is_kept_without_the_key(host, ca, account, archive, value):
    failing(host, ca, account, archive)
    host.settings(renewfailures=value)
    host.hook("notify", f"touch {host.workspace}/told\n")
    for attempt in range(1, 6):
        result = host.run("renew-all")
        assert (result.status, result.errors) == (0, expect.ignored_key("renewfailures", value))
        assert len(ca.calls("newOrder")) == attempt
    assert not os.path.exists(os.path.dirname(HISTORY))
    assert not os.path.exists(host.workspace + "/told")


def test_failed_issuance_is_one_line_in_the_log(host):
    host.settings(renewfailures=True)
    result = host.new_cert("http://127.0.0.1:9/directory", ["a.example", "b.example"])
    assert result.errors == [
        "kova-letsencrypt:# new-cert failed. [a.example;b.example][100][Server is not reachable.]"]


def test_removed_certificate_takes_its_history_along(host, ca, account, archive):
    failing(host, ca, account, archive)
    archive.enter(ID, {"services": []})
    host.run("renew", "-c", ID)
    assert os.path.exists(HISTORY)
    result = host.run("remove", ID, program="/usr/kova/sbin/kova-archive")
    assert result.status == 0
    assert not os.path.exists(HISTORY)


# -- cronperiod ------------------------------------------------------------------------------------


FIELDS = {"daily": r"\* \* \*", "weekly": r"\* \* \d", "monthly": r"1 \* \*"}


def job_is(period):
    return re.search(rf"^\d+ \d+ {FIELDS[period]} root ", expect.read(paths.CRON_JOB), re.M)


@pytest.mark.parametrize("value, period", [
    ("daily", "daily"), ("weekly", "weekly"), ("monthly", "monthly"), (None, "weekly"),
    (7, "weekly"), (["daily"], "weekly")])
def test_period_of_a_new_job(host, ca, account, value, period):
    host.settings(cronperiod=value)
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result)
    assert job_is(period) and result.errors == expect.ignored_key("cronperiod", value, str)


def test_unknown_period_is_logged(host, ca, account):
    host.settings(cronperiod="hourly\n")
    result = host.new_cert(ca.directory, [NAME])
    assert job_is("weekly")
    assert result.errors == [
        "kova-letsencrypt:# Unknown cronperiod [hourly ], the renewal job runs weekly."]


def test_job_of_another_period_is_put_right_by_a_renewal(host, ca, account, archive):
    expect.issued(host.new_cert(ca.directory, [NAME]))
    archive.add(ID, record=record(ca.directory, account))
    weekly = expect.read(paths.CRON_JOB)
    host.settings(cronperiod="daily")
    assert host.run("renew", "-c", ID).status == 0
    assert job_is("daily")
    host.settings(cronperiod="weekly")
    archive.add(ID, record=record(ca.directory, account))
    quiet(host.run("renew-all"))
    assert expect.read(paths.CRON_JOB) == weekly


def test_edited_job_and_a_missing_one_are_left(host, ca, account, archive):
    host.settings(cronperiod="daily")
    archive.add(ID, record=record(ca.directory, account))
    assert host.run("renew", "-c", ID).status == 0
    assert not os.path.exists(paths.CRON_JOB)
    edited = "# kova-letsencrypt - renew\n1 2 * * 3 root /usr/kova/sbin/kova-letsencrypt renew-all\n"
    host.write(paths.CRON_JOB, edited)
    assert host.run("renew", "-c", ID).status == 0
    assert expect.read(paths.CRON_JOB) == edited
    expect.issued(host.new_cert(ca.directory, [NAME]))
    assert expect.read(paths.CRON_JOB) == edited


def test_job_that_cannot_be_put_right_is_in_the_log(host, ca, account, archive):
    host.mount("/etc/cron.d", size=4096)
    expect.issued(host.new_cert(ca.directory, [NAME]))
    assert job_is("weekly")
    host.settings(cronperiod="daily")
    archive.add(ID, record=record(ca.directory, account))
    result = host.run("renew", "-c", ID)
    assert result.status == 0 and job_is("weekly")
    assert re.fullmatch(r"kova-letsencrypt:# Failed to add the renewal job\."
                        r"\[0x001C \S*crond\.cpp:\d+\]", result.errors[-1])
