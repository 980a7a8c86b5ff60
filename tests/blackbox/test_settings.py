"""The settings file: debug output, default server, challenge types; and files that are broken."""

import json
import os

import pytest
from lib import expect, paths
from lib.http_script import NORMAL, Reply, edited
from lib.signed_server import problem

NAME = "www.host.example"
BROKEN = ["", "{", "[]", "7", "null", '"text"', "[{}]", '{"server": ', "\0\0", "[" * 100000,
          '{"a":' * 100000]


def test_v_is_level_1_and_vv_level_2(host, ca, account):
    quiet = host.new_cert(ca.directory, [NAME])
    steps = host.new_cert(ca.directory, [NAME], "-v")
    details = host.new_cert(ca.directory, [NAME], "-vv")
    assert "DEBUG" not in quiet.stdout
    assert "DEBUG: GET Request: " in steps.stdout and "Curl Reply" not in steps.stdout
    assert "DEBUG: Curl Reply: [200]" in details.stdout


def test_the_last_v_wins(host, ca, account):
    result = host.new_cert(ca.directory, [NAME], "-vv", "-v")
    assert "DEBUG: GET Request: " in result.stdout and "Curl Reply" not in result.stdout
    result = host.new_cert(ca.directory, [NAME], "-v", "-vx")
    assert "DEBUG: Curl Reply: [200]" in result.stdout


@pytest.mark.parametrize("level", [[], ["-v"]])
def test_debuglog_sends_level_2_to_the_system_log(host, ca, account, level):
    host.settings(debuglog=1)
    result = host.new_cert(ca.directory, [NAME], *level)
    expect.issued(result, [NAME])
    assert "DEBUG" not in result.stdout
    texts = [line.text for line in result.syslog]
    assert f"GET Request: {ca.directory}" in texts
    assert any(text.startswith("Curl Reply: [200] Header: [HTTP/1.1 200") for text in texts)
    steps = [line for line in result.syslog if "GET Request" in line.text]
    assert {(line.priority, line.facility, line.identity) for line in steps} == {
        (3, 1, "kova-letsencrypt")}


@pytest.mark.parametrize("value", [0, "1", True, 1.5, None, [], {}])
def test_debuglog_of_zero_or_another_type_is_off(host, ca, account, value):
    host.write_settings(json.dumps({"debuglog": value}))
    result = host.new_cert(ca.directory, [NAME], "-v")
    expect.issued(result)
    assert f"DEBUG: GET Request: {ca.directory}" in result.stdout
    assert "Curl Reply" not in result.stdout
    assert not any("GET Request" in line.text for line in result.syslog)


def test_server_of_the_settings_is_used_without_s(host, ca, account):
    host.settings(server=ca.directory)
    expect.issued(host.run("new-cert", "-d", NAME, "-m", "admin@host.example"), [NAME])


def test_s_overrides_the_server_of_the_settings(host, ca, account):
    host.settings(server="http://127.0.0.1:1/")
    expect.issued(host.new_cert(ca.directory, [NAME]), [NAME])


@pytest.mark.parametrize("value", [None, 7, [], {}, True])
def test_without_a_server_the_production_directory_is_asked(host, value):
    host.settings(server=value)
    result = host.run("new-cert", "-d", NAME, "-m", "admin@host.example", "-v")
    assert result.debug[1] == "Server: " + paths.PRODUCTION_DIRECTORY
    # There is no way out of the sandbox.
    last = result.stdout.splitlines()[-1]
    assert last == expect.failure_text(100, "Server is not reachable.", "client_network").strip()
    assert result.status == 100


@pytest.mark.parametrize("text", BROKEN)
def test_broken_file_means_the_defaults(host, ca, account, text):
    host.write_settings(text)
    result = host.new_cert(ca.directory, [NAME], "-v")
    expect.issued(result, [NAME])
    assert f"Failed to read from {paths.SETTINGS} [0]" in result.debug
    assert "dns-01 is not support for www.host.example" in result.debug


def test_missing_file_means_the_defaults(host, ca, account):
    os.unlink(paths.SETTINGS)
    result = host.new_cert(ca.directory, [NAME], "-v")
    expect.issued(result, [NAME])
    assert f"Failed to read from {paths.SETTINGS} [2]" in result.debug


def test_skipdns01_leaves_dns01_out(host, ca, account):
    host.settings(skipdns01=True)
    result = host.new_cert(ca.directory, [NAME], "-v")
    expect.issued(result)
    assert "Skip dns challenge is enabled" in result.debug
    assert not any("dns-01" in line for line in result.debug)


@pytest.mark.parametrize("value", [False, "true", 1, None, [], {}])
def test_skipdns01_of_another_type_is_off(host, ca, account, value):
    host.write_settings(json.dumps({"skipdns01": value}))
    result = host.new_cert(ca.directory, [NAME], "-v")
    expect.issued(result)
    assert "Skip dns challenge is enabled" not in result.debug
    assert "dns-01 is not support for www.host.example" in result.debug


# -- asynchronous finalize ----------------------------------------------------------------------


def test_installed_settings_wait_for_the_certificate(host, ca, account):
    ca.states_after_finalize = ["processing"] * 3
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result, [NAME])
    assert ca.trace[-5:] == ["finalize", "order", "order", "order", "certificate"]
    assert result.sleeps == [1, 1, 1]


@pytest.mark.parametrize("value", [None, False, 1, "true"])
def test_without_asyncfinalize_a_processing_order_fails(host, ca, account, value):
    host.bare_settings(asyncfinalize=value, orderattempts=1, skipdns01=True)
    ca.states_after_finalize = ["processing"]
    result = host.new_cert(ca.directory, [NAME])
    # The download of an empty URL.
    expect.gave_up(result, 100, "Server is not reachable.", "client_network", attempts=1)
    assert ca.calls("order") == [] and ca.trace[-1] == "finalize"


@pytest.mark.parametrize("header, pause", [
    ("3", 3), ("0", 1), ("60", 10), ("00009", 9), ("-3", 1), ("soon", 1), ("", 1),
    ("Thu, 01 Jan 1970 00:00:00 GMT", 1), ("Fri, 31 Dec 2199 23:59:59 GMT", 10)])
def test_pause_is_the_one_that_the_ca_asks_for(host, ca, account, header, pause):
    ca.states_after_finalize = ["processing"]
    ca.answer("finalize", edited(headers={"Retry-After": header}))
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result)
    assert result.sleeps == [pause]


def test_each_poll_may_ask_for_another_pause(host, ca, account):
    ca.states_after_finalize = ["processing"] * 2
    ca.answer("order", edited(headers={"Retry-After": "4"}))
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result)
    assert result.sleeps == [1, 4]


def test_waiting_for_the_certificate_ends_after_a_minute(host, ca, account):
    ca.states_after_finalize = ["processing"] * 1000
    host.settings(orderattempts=1, skipdns01=True)
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 102, "Order timeout", attempts=1)
    assert 58 <= sum(result.sleeps) <= 60


def test_long_pauses_do_not_overrun_the_minute(host, ca, account):
    ca.states_after_finalize = ["processing"] * 1000
    ca.always("finalize", edited(headers={"Retry-After": "10"}))
    ca.always("order", edited(headers={"Retry-After": "10"}))
    host.settings(orderattempts=1, skipdns01=True)
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 102, "Order timeout", attempts=1)
    assert 40 <= sum(result.sleeps) <= 60 and set(result.sleeps) == {10}


def test_order_that_turns_invalid_fails_with_its_detail(host, ca, account):
    ca.states_after_finalize = ["processing"]
    ca.answer("order", Reply(200, {"status": "invalid", "error": {"detail": "no %s%n way"}}))
    host.settings(orderattempts=1, skipdns01=True)
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 200, "no %s%n way", attempts=1)


def not_ready():
    return problem("orderNotReady", "the order is not ready", 403)


def order_in(status):
    return Reply(200, {"status": status})


def test_order_that_is_not_ready_yet_is_finalized_again(host, ca, account):
    ca.answer("finalize", not_ready())
    ca.answer("order", order_in("pending"), order_in("processing"))
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result)
    assert ca.trace[-6:] == ["finalize", "order", "order", "order", "finalize", "certificate"]
    assert result.sleeps == [1, 1, 1]


def test_finalize_is_repeated_once_only(host, ca, account):
    ca.always("finalize", not_ready())
    host.settings(orderattempts=1, skipdns01=True)
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 200, "new-cert: Unexpect httpcode. (new-cert)", attempts=1)
    assert len(ca.calls("finalize")) == 2
    assert "client_v2:# Failed to new cert with unknown (unknown) [403]" in result.errors


def test_without_asyncfinalize_an_order_that_is_not_ready_fails(host, ca, account):
    host.settings(asyncfinalize=None, orderattempts=1, skipdns01=True)
    ca.answer("finalize", not_ready())
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 200, "new-cert: Unexpect httpcode. (new-cert)", attempts=1)
    assert ca.calls("order") == []


# -- attempts -----------------------------------------------------------------------------------


def refused(**headers):
    return problem("rateLimited", "too many", 429, headers=headers)


def test_installed_settings_give_up_after_three_refused_orders(host, ca, account):
    ca.always("newOrder", refused())
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 104, "too many", attempts=3)
    assert len(ca.calls("newOrder")) == 3
    assert result.sleeps == [2, 2]


def test_number_of_attempts_can_be_set(host, ca, account):
    host.settings(orderattempts=1, skipdns01=True)
    ca.always("newOrder", refused())
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 104, "too many", attempts=1)
    assert result.sleeps == []


@pytest.mark.parametrize("header, pause", [("7", 7), ("0", 1), ("3600", 10), ("later", 2)])
def test_pause_between_attempts_is_the_one_that_the_ca_asks_for(host, ca, account, header, pause):
    ca.answer("newOrder", refused(**{"Retry-After": header}))
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result)
    assert result.sleeps == [pause]


@pytest.mark.parametrize("value", [0, -1, "3", 1.5, True, None, [], {}])
def test_without_a_valid_number_the_attempts_have_no_bound(host, ca, account, value):
    host.bare_settings(orderattempts=value)
    ca.answer("newOrder", *[refused()] * 5)
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result)
    assert len(expect.retries(result)) == 5
    assert result.sleeps == []


def test_an_attempt_that_found_a_type_unsupported_used_it_up(host, ca, account):
    ca.always("finalize", Reply(500))
    result = host.new_cert(ca.directory, [NAME])
    # dns-01 went in the first attempt, which is neither counted nor followed by a pause.
    expect.gave_up(result, 200, "new-cert: Unexpect httpcode. (new-cert)", attempts=4)
    assert result.sleeps == [2, 2]


def test_an_attempt_that_used_up_a_type_starts_the_count_anew(host, ca, ddns, account):
    ca.challenge_types = ["dns-01", "http-01"]
    name = "www.box.ddns.example"
    ca.refusals.append(("dns", "no record"))
    ca.answer("newOrder", refused(), refused(), NORMAL, refused(), refused())
    result = host.new_cert(ca.directory, [name])
    expect.issued(result, [name])
    assert len(ca.calls("newOrder")) == 6
    assert expect.retries(result) == [
        expect.retry_line(104, "too many"), expect.retry_line(104, "too many"),
        expect.retry_line(109, "no record"),
        expect.retry_line(104, "too many"), expect.retry_line(104, "too many")]
    assert result.sleeps == [2, 2, 2, 2]


# -- nonces -------------------------------------------------------------------------------------


def test_installed_settings_refill_an_empty_nonce_pool(host, ca, account):
    ca.answer("newOrder", edited(nonce=None))
    expect.issued(host.new_cert(ca.directory, [NAME]))
    order = ca.trace.index("newOrder")
    assert ca.trace[order:order + 3] == ["newOrder", "newNonce", "authz"]


def test_refill_that_brings_nothing_gives_up_with_the_usual_code(host, ca, account):
    host.settings(orderattempts=1, skipdns01=True)
    ca.always("newNonce", edited(nonce=None))
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 204, "No Nonce.... Not Yet implement", attempts=1)
    assert ca.trace == ["directory", "newNonce", "newNonce"]


@pytest.mark.parametrize("value", [None, False, 1, "true"])
def test_without_noncerefill_an_empty_pool_fails(host, ca, account, value):
    host.bare_settings(noncerefill=value, orderattempts=1, skipdns01=True)
    ca.answer("newOrder", edited(nonce=None))
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 204, "No Nonce.... Not Yet implement", attempts=1)
    assert ca.trace == ["directory", "newNonce", "newOrder"]
