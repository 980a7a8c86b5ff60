"""renewalinfo: when the CA's advice makes a certificate due, what is kept of it, and that nothing the
CA does with the question stands in the way of a renewal."""

import json
import os
import re
import time

import pytest
from lib import expect
from lib.acme_ca import AcmeCa
from lib.http_script import Reply
from lib.renewal import NAME, Archive, folder_of, put_certificate, quiet, record, serial
from lib.renewal_info import (DAY, HISTORY, advice, asked_for, identifier, moment, seconds_of,
                              window)
from lib.signed_server import problem
from lib.syslog_capture import LOG_WARNING

ID = "AbC123"
FOLDER = folder_of(ID)
HOUR = 3600
FAR = window(40 * DAY, 50 * DAY)


@pytest.fixture
def archive(host):
    host.settings(renewalinfo=True, cronperiod="daily")
    return Archive(host)


@pytest.fixture
def fresh(host, ca, account, archive):
    """A certificate that no other rule makes due, of a CA that wants it renewed much later."""
    ca.renewal_info = FAR
    archive.add(ID, days=80, record=record(ca.directory, account))
    return identifier(FOLDER + "/cert.pem")


def at(seconds):
    """The environment of a run that many seconds from now."""
    return {"KOVA_WALL_CLOCK": str(int(time.time() + seconds))}


def no_information(identity, why):
    return f"kova-letsencrypt:# No renewal information for [{identity}]: {why}"


# -- the window ------------------------------------------------------------------------------------


def test_past_window_makes_it_due_at_once(host, ca, fresh):
    ca.renewal_info = window(-2 * DAY, -DAY)
    quiet(host.run("renew-all"))
    assert ca.trace[:2] == ["directory", "renewalInfo"] and ca.trace.count("renewalInfo") == 1
    assert asked_for(ca) == [fresh]
    assert serial(FOLDER + "/cert.pem") == ca.certificates[0].serial_number
    [request] = ca.calls("renewalInfo")
    assert (request.method, request.body) == ("GET", b"")


def test_far_window_does_not(host, ca, fresh):
    quiet(host.run("renew-all"))
    assert ca.trace == ["directory", "renewalInfo"] and asked_for(ca) == [fresh]


@pytest.mark.parametrize("period, start, due", [
    ("daily", DAY - 600, True), ("daily", DAY + 60, False), ("weekly", 7 * DAY - 600, True),
    ("weekly", 7 * DAY + 60, False), (None, 7 * DAY - 600, True), (None, 7 * DAY + 60, False),
    ("monthly", 31 * DAY - 600, True), ("monthly", 31 * DAY + 60, False)])
def test_moment_before_the_next_run_makes_it_due(host, ca, fresh, period, start, due):
    host.settings(cronperiod=period)
    ca.renewal_info = window(start, start + 300)
    quiet(host.run("renew-all"))
    assert len(ca.certificates) == due


def test_window_that_is_now_is_over_by_its_end(host, ca, fresh):
    ca.renewal_info = window(-HOUR, HOUR)
    quiet(host.run("renew-all"))
    assert len(ca.certificates) == 1


def test_moment_is_drawn_once_and_again_when_the_window_changes(host, ca, fresh):
    drawn = set()
    for begin in range(40, 60):
        ca.renewal_info = window(begin * DAY, begin * DAY + 30 * DAY)
        moments = []
        for run in range(2):
            quiet(host.run("renew-all", env=at(run * 7 * HOUR)))
            kept = advice(ID)
            assert kept["window"] == ca.renewal_info["suggestedWindow"]
            moments.append(seconds_of(kept["moment"]))
        assert moments[0] == moments[1]
        start, end = (seconds_of(kept["window"][name]) for name in ("start", "end"))
        assert start <= moments[0] <= end
        drawn.add((moments[0] - start) // DAY)
        os.unlink(f"{HISTORY}/{ID}.json")
    assert len(ca.calls("renewalInfo")) == 40
    assert len(drawn) > 5  # of 30 days, in 20 draws


def test_what_is_kept(host, ca, fresh):
    ca.renewal_info = {**FAR, "explanationURL": "https://ca.example/why"}
    before = int(time.time())
    host.run("renew-all")
    path = f"{HISTORY}/{ID}.json"
    assert expect.mode(path) == 0o600 and expect.mode(HISTORY) == 0o700
    document = json.loads(expect.read(path))
    kept = document.pop("ari")
    assert document == {"failures": 0, "last_attempt": "", "last_success": ""}
    assert set(kept) == {"certificate", "window", "moment", "ask_again", "explanation_url"}
    assert kept["certificate"] == fresh and kept["window"] == FAR["suggestedWindow"]
    assert kept["explanation_url"] == "https://ca.example/why"
    assert before + 6 * HOUR <= seconds_of(kept["ask_again"]) <= before + 6 * HOUR + 60


def test_other_rules_hold_beside_it(host, ca, account, archive):
    archive.add(ID, days=10, record=record(ca.directory, account))
    ca.renewal_info = FAR
    quiet(host.run("renew-all"))
    assert ca.calls("renewalInfo") == [] and len(ca.certificates) == 1


def test_renewed_certificate_is_another_one_to_the_ca(host, ca, fresh):
    host.settings(renewfailures=True)
    ca.renewal_info = window(-2 * DAY, -DAY)
    quiet(host.run("renew-all"))
    ca.renewal_info = FAR
    quiet(host.run("renew-all"))
    assert asked_for(ca) == [fresh, identifier(FOLDER + "/cert.pem")]
    assert len(ca.certificates) == 1
    assert advice(ID)["certificate"] == asked_for(ca)[1]


# -- the next question -----------------------------------------------------------------------------


@pytest.mark.parametrize("header, pause", [
    (None, 6 * HOUR), ("7200", 2 * HOUR), ("1", 60), ("999999", DAY), ("soon", 6 * HOUR),
    ("Wed, 21 Oct 2015 07:28:00 GMT", 60)])
def test_ca_is_not_asked_before_it_says(host, ca, fresh, header, pause):
    headers = {} if header is None else {"Retry-After": header}
    ca.always("renewalInfo", Reply(200, FAR, headers, nonce=None))
    quiet(host.run("renew-all"))
    quiet(host.run("renew-all", env=at(pause - 30)))
    assert ca.trace == ["directory", "renewalInfo"]
    quiet(host.run("renew-all", env=at(pause + 5)))
    assert ca.trace == ["directory", "renewalInfo"] * 2


def test_kept_moment_comes_while_the_ca_is_not_to_be_asked(host, ca, fresh):
    ca.always("renewalInfo", Reply(200, window(DAY + HOUR, DAY + HOUR + 60),
                                   {"Retry-After": "86400"}, nonce=None))
    quiet(host.run("renew-all"))
    assert ca.certificates == []
    quiet(host.run("renew-all", env=at(2 * HOUR)))
    assert len(ca.certificates) == 1 and len(ca.calls("renewalInfo")) == 1


def test_kept_moment_outlives_a_failed_question(host, ca, fresh):
    ca.answer("renewalInfo", Reply(200, window(3 * DAY, 4 * DAY), nonce=None), Reply(404))
    quiet(host.run("renew-all"))
    before = advice(ID)
    result = host.run("renew-all", env=at(7 * HOUR))
    assert result.errors == [no_information(ID, "the CA answered 404.")]
    assert {**advice(ID), "ask_again": None} == {**before, "ask_again": None}
    ca.always("renewalInfo", Reply(404))
    result = host.run("renew-all", env=at(4 * DAY))
    assert len(ca.certificates) == 1


def test_clock_that_was_put_back_holds_no_question_up(host, ca, fresh):
    quiet(host.run("renew-all", env=at(30 * DAY)))
    quiet(host.run("renew-all"))
    assert len(ca.calls("renewalInfo")) == 2


@pytest.mark.parametrize("text", [
    "", "{", "[]", "null", '{"ari": 5}', '{"ari": []}', '{"ari": {"certificate": 5}}',
    '{"ari": {"certificate": "%s", "ask_again": 7, "window": [], "moment": {}}}',
    '{"ari": {"certificate": "%s", "ask_again": "soon"}}',
    '{"ari": {"certificate": "another.one", "ask_again": "2099-01-01T00:00:00Z"}}'])
def test_history_that_cannot_be_used_is_as_good_as_none(host, ca, fresh, text):
    host.write(f"{HISTORY}/{ID}.json", text.replace("%s", fresh), 0o600)
    result = host.run("renew-all")
    assert (result.status, result.stdout) == (0, "")
    # One line, except about what is inside of "ari".
    told = [] if '"certificate"' in text else [f"kova-letsencrypt:# [{HISTORY}/{ID}.json] " + (
        "has members of another type, which are not used: ari" if "ari" in text else
        "is not used: it is no JSON object.")]
    assert result.errors == told
    assert asked_for(ca) == [fresh] and advice(ID)["window"] == FAR["suggestedWindow"]


def test_moment_outside_of_its_window_is_drawn_again(host, ca, fresh):
    host.write(f"{HISTORY}/{ID}.json", json.dumps({"ari": {
        "certificate": fresh, "window": FAR["suggestedWindow"], "moment": moment(0)}}), 0o600)
    quiet(host.run("renew-all"))
    assert 40 * DAY - 60 < seconds_of(advice(ID)["moment"]) - time.time() < 50 * DAY


# -- answers that are none -------------------------------------------------------------------------


START, END = FAR["suggestedWindow"]["start"], FAR["suggestedWindow"]["end"]
NO_WINDOW = "the CA's answer has no usable window."
UNREACHABLE = "Server is not reachable."
BAD_ANSWERS = [
    (Reply(200, {"suggestedWindow": {"start": START, "end": START}}), NO_WINDOW),
    (Reply(200, {"suggestedWindow": {"start": moment(-DAY), "end": moment(-2 * DAY)}}), NO_WINDOW),
    (Reply(200, {"suggestedWindow": {"start": START}}), NO_WINDOW),
    (Reply(200, {"suggestedWindow": {"start": 1, "end": 2}}), NO_WINDOW),
    (Reply(200, {"suggestedWindow": {"start": "2020-01-01", "end": "2020-01-02"}}), NO_WINDOW),
    (Reply(200, {"suggestedWindow": "now"}), NO_WINDOW),
    (Reply(200, {}), NO_WINDOW), (Reply(200, "null"), NO_WINDOW), (Reply(200, "[]"), NO_WINDOW),
    (Reply(200, b"\0\xff<html>"), NO_WINDOW), (Reply(200, ""), NO_WINDOW),
    (Reply(200, "[" * 100000), NO_WINDOW), (Reply(204), "the CA answered 204."),
    (problem("malformed", "unknown\n%s", 404), "the CA answered 404."),
    (problem("rateLimited", "slow down", 429, headers={"Retry-After": "3600"}),
     "the CA answered 429."),
    (Reply(500, "<html>"), "the CA answered 500."), (Reply(302), "the CA answered 302."),
    (Reply(drop=True), UNREACHABLE), (Reply(raw=b"garbage\r\n\r\n"), UNREACHABLE),
    (Reply(200, " " * 300000), UNREACHABLE), (Reply(200, FAR, cut=20), UNREACHABLE)]


@pytest.mark.parametrize("answer, why", BAD_ANSWERS)
def test_bad_answer_is_one_line_in_the_log(host, ca, account, archive, fresh, answer, why):
    """And the certificate that another rule makes due is renewed, whichever comes first."""
    ca.renewal_info = FAR
    ca.always("renewalInfo", answer)
    for identity in ("AAA", "ZZZ"):
        archive.add(identity, days=10, record=record(ca.directory, account))
    result = host.run("renew-all")
    assert (result.status, result.stdout) == (0, "")
    assert result.errors == [no_information(ID, why)]
    assert len(ca.certificates) == 2
    assert serial(FOLDER + "/cert.pem") not in [leaf.serial_number for leaf in ca.certificates]


@pytest.mark.parametrize("answer, pause", [
    (Reply(404), 6 * HOUR), (Reply(200, "{}"), 6 * HOUR),
    (Reply(429, "", {"Retry-After": "3600"}), HOUR),
    (Reply(503, "", {"Retry-After": "7200"}), 2 * HOUR)])
def test_bad_answer_has_its_pause_too(host, ca, fresh, answer, pause):
    ca.always("renewalInfo", answer)
    host.run("renew-all")
    quiet(host.run("renew-all", env=at(pause - 30)))
    assert len(ca.calls("renewalInfo")) == 1
    host.run("renew-all", env=at(pause + 5))
    assert len(ca.calls("renewalInfo")) == 2


def test_redirection_is_not_followed(host, ca, fresh):
    with_more = AcmeCa()
    try:
        ca.always("renewalInfo", Reply(307, "", {"Location": with_more.url + "/renewal-info/x"}))
        result = host.run("renew-all")
        assert result.errors == [no_information(ID, "the CA answered 307.")]
        assert with_more.requests == []
    finally:
        with_more.close()


def several(ca, account, archive, count=4):
    for number in range(count):
        archive.add(f"id{number}", days=80, record=record(ca.directory, account))


def test_ca_that_asks_for_patience_is_left_alone(host, ca, account, archive):
    """For all of its certificates, in this run and in those until then."""
    ca.renewal_info = FAR
    ca.always("renewalInfo", Reply(429, "", {"Retry-After": "7200"}))
    several(ca, account, archive)
    result = host.run("renew-all")
    assert result.errors == [no_information("id0", "the CA answered 429.")]
    quiet(host.run("renew-all", env=at(HOUR)))
    assert len(ca.calls("renewalInfo")) == 1 and len(ca.calls("directory")) == 1
    ca.always("renewalInfo", None)
    quiet(host.run("renew-all", env=at(3 * HOUR)))
    assert len(ca.calls("renewalInfo")) == 5


def test_slow_ca_holds_a_run_up_once(host, ca, account, archive):
    host.settings(transfertimeout=1)
    ca.renewal_info = FAR
    ca.always("renewalInfo", lambda _request, normal: Reply(200, FAR, nonce=None, drip=True))
    several(ca, account, archive)
    archive.add("zzz", days=10, record=record(ca.directory, account))
    result = host.run("renew-all")
    assert result.errors == [no_information("id0", UNREACHABLE)]
    assert 1 <= result.seconds < 6
    assert len(ca.calls("renewalInfo")) == 1 and len(ca.certificates) == 1


def test_ca_that_answers_late_is_waited_for(host, ca, fresh):
    ca.renewal_info = window(-2 * DAY, -DAY)
    ca.answer("renewalInfo", lambda _request, normal: Reply(200, ca.renewal_info, delay=1.5))
    quiet(host.run("renew-all"))
    assert len(ca.certificates) == 1


def test_dead_ca_is_asked_once_a_run(host, ca, account, archive):
    several(ca, account, archive)
    for number in range(4):
        archive.record(f"id{number}", record("http://127.0.0.1:9/directory", account))
    archive.add("zzz", days=80, record=record(ca.directory, account))
    ca.renewal_info = window(-2 * DAY, -DAY)
    result = host.run("renew-all")
    assert result.errors == [no_information("id0", UNREACHABLE)]
    assert len(ca.certificates) == 1
    assert os.listdir(HISTORY) == ["zzz.json"]


@pytest.mark.parametrize("answer, why", [
    (Reply(drop=True), UNREACHABLE), (Reply(200, "<html>"), "body is not json."),
    (Reply(404), "the CA answered 404."), (Reply(503), "the CA answered 503.")])
def test_directory_that_cannot_be_had(host, ca, account, archive, answer, why):
    several(ca, account, archive)
    ca.always("directory", answer)
    result = host.run("renew-all")
    assert (result.status, result.stdout) == (0, "")
    assert result.errors == [no_information("id0", why)]
    assert len({request.connection for request in ca.calls("directory")}) == 1


def test_ca_without_renewal_information_is_looked_up_once(host, ca, account, archive):
    several(ca, account, archive)
    quiet(host.run("renew-all"))
    assert ca.trace == ["directory"] and not os.path.exists(HISTORY)


def test_one_directory_and_one_connection_for_all(host, ca, account, archive):
    host.settings(keepconnections=True)
    ca.keep()
    ca.renewal_info = FAR
    several(ca, account, archive)
    quiet(host.run("renew-all"))
    assert ca.trace == ["directory"] + ["renewalInfo"] * 4
    assert {request.connection for request in ca.requests} == {1}
    assert asked_for(ca) == [identifier(folder_of(f"id{n}") + "/cert.pem") for n in range(4)]


def test_history_that_cannot_be_written_stops_nothing(host, ca, fresh):
    ca.renewal_info = window(-2 * DAY, -DAY)
    host.write(HISTORY, "in the way")
    result = host.run("renew-all")
    assert result.errors == ["kova-letsencrypt:# Failed to write the renewal history. "
                             f"[{HISTORY}/{ID}.json][Not a directory]"]
    assert len(ca.certificates) == 1


# -- whom the CA is asked about --------------------------------------------------------------------


@pytest.mark.parametrize("content", [
    None, "{", {"version": 1}, {"version": 3}, {"domains": ""}, {"server": 7}])
def test_record_that_cannot_be_renewed_with_version_2_is_not_asked_about(host, ca, account,
                                                                         archive, content):
    ca.renewal_info = FAR
    usable = record(ca.directory, account)
    archive.add(ID, days=80, record={**usable, **content} if isinstance(content, dict) else content)
    result = host.run("renew-all")
    assert (result.status, result.stdout) == (0, "") and ca.requests == []


@pytest.mark.parametrize("any_issuer, asked", [(True, 1), (False, 0)])
def test_certificate_that_renew_all_leaves_is_not_asked_about(host, ca, account, archive,
                                                              any_issuer, asked):
    host.settings(renewanyissuer=any_issuer)
    ca.renewal_info = FAR
    archive.add(ID, organisation="Kova Inc.", days=80, record=record(ca.directory, account))
    quiet(host.run("renew-all"))
    assert len(ca.calls("renewalInfo")) == asked


def test_certificate_that_does_not_name_its_issuers_key_is_not_asked_about(host, ca, account,
                                                                           archive):
    ca.renewal_info = window(-2 * DAY, -DAY)
    host.settings(renewanyissuer=True)
    archive.add(ID, days=80, record=record(ca.directory, account))
    root = "/usr/kova/etc/root"
    host.run("self-signed", root, program="/usr/kova/sbin/kova-archive")
    os.unlink(FOLDER + "/cert.pem")
    host.write(FOLDER + "/cert.pem", expect.read(root + "/kova-ca-cert.pem"), 0o400)
    quiet(host.run("renew-all"))
    assert ca.requests == []


def test_commands_that_only_look_ask_nobody(host, ca, fresh):
    ca.renewal_info = window(-2 * DAY, -DAY)
    for words in (["list"], ["list", "--json"], ["check", ID], ["check", "--expiry", "30"]):
        assert host.run(*words, program="/usr/kova/sbin/kova-archive").status == 0
    assert ca.requests == []


# -- explanations ----------------------------------------------------------------------------------


def explanations(result):
    """What was told; nothing else was."""
    lines = [line for line in result.syslog if line.priority <= LOG_WARNING]
    assert {line.priority for line in lines} <= {LOG_WARNING}
    begin = f"kova-letsencrypt:# The CA explains when [{ID}] is to be renewed: "
    assert all(line.plain.startswith(begin) for line in lines)
    return [line.plain[len(begin):] for line in lines]


def test_explanation_is_told_once_and_again_when_it_changes(host, ca, fresh):
    ca.renewal_info = {**FAR, "explanationURL": "https://ca.example/why"}
    assert explanations(host.run("renew-all")) == ["https://ca.example/why"]
    for run in (1, 2):
        assert explanations(host.run("renew-all", env=at(run * 7 * HOUR))) == []
    ca.renewal_info = {**FAR, "explanationURL": "https://ca.example/why?again"}
    later = host.run("renew-all", env=at(21 * HOUR))
    assert explanations(later) == ["https://ca.example/why?again"]
    assert len(ca.calls("renewalInfo")) == 4


def test_explanation_is_one_line_of_bounded_length(host, ca, fresh):
    text = "https://x/\n<3> %s\x1b[2J\0ä" + "y" * 1000
    ca.renewal_info = {**FAR, "explanationURL": text}
    [told] = explanations(host.run("renew-all"))
    assert re.fullmatch(r"https://x/ <3> %s \[2J   y+", told) and len(told) == 512
    assert explanations(host.run("renew-all", env=at(7 * HOUR))) == []


@pytest.mark.parametrize("value", [None, 7, [], {}, ""])
def test_explanation_of_another_type_is_none(host, ca, fresh, value):
    ca.renewal_info = {**window(-2 * DAY, -DAY), "explanationURL": value}
    quiet(host.run("renew-all"))
    assert len(ca.certificates) == 1


# -- together with renewfailures -------------------------------------------------------------------


def test_failures_hold_the_renewal_back_and_the_question_too(host, ca, fresh):
    host.settings(renewfailures=True)
    ca.renewal_info = window(-2 * DAY, -DAY)
    ca.always("newOrder", problem("rateLimited", "slow down", 429))
    for attempt in range(1, 4):
        assert host.run("renew-all", env=at(attempt * 7 * HOUR)).stdout != ""
        assert len(ca.calls("newOrder")) == len(ca.calls("renewalInfo")) == attempt
        assert advice(ID)["certificate"] == fresh
    quiet(host.run("renew-all", env=at(28 * HOUR)))
    assert len(ca.calls("newOrder")) == len(ca.calls("renewalInfo")) == 3
    assert json.loads(expect.read(f"{HISTORY}/{ID}.json"))["failures"] == 3


def test_without_renewfailures_the_history_keeps_the_advice_alone(host, ca, fresh):
    ca.renewal_info = window(-2 * DAY, -DAY)
    ca.always("newOrder", problem("rateLimited", "slow down", 429))
    for attempt in range(1, 6):
        assert host.run("renew-all").stdout != ""
        assert len(ca.calls("newOrder")) == attempt
    document = json.loads(expect.read(f"{HISTORY}/{ID}.json"))
    assert (document["failures"], document["last_attempt"]) == (0, "") and "msg" not in document
    assert len(ca.calls("renewalInfo")) == 1


def test_replaced_files_are_asked_about_anew(host, ca, fresh):
    """A certificate that somebody put there by hand is not the one that the history tells of."""
    ca.renewal_info = FAR
    quiet(host.run("renew-all"))
    put_certificate(host, FOLDER, ca.issuer, [NAME], 80)
    quiet(host.run("renew-all"))
    assert asked_for(ca) == [fresh, identifier(FOLDER + "/cert.pem")]
