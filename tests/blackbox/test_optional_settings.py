"""The settings that are off when absent and that the installed file switches on."""

import pytest
from lib import expect, jws
from lib.http_script import NORMAL, Reply, edited, edited_json
from lib.signed_server import problem

NAME = "www.host.example"


# -- asynchronous finalize ----------------------------------------------------------------------


def test_installed_settings_wait_for_the_certificate(host, ca, account):
    ca.states_after_finalize = ["processing"] * 3
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result, [NAME])
    assert ca.trace[-5:] == ["finalize", "order", "order", "order", "certificate"]
    assert result.sleeps == [0.1, 0.2, 0.4]


@pytest.mark.parametrize("value", [None, False, 1, "true"])
def test_without_asyncfinalize_a_processing_order_fails(host, ca, account, value):
    host.bare_settings(asyncfinalize=value, orderattempts=1, skipdns01=True)
    ca.states_after_finalize = ["processing"]
    result = host.new_cert(ca.directory, [NAME])
    # The download of an empty URL.
    expect.gave_up(result, 100, "Server is not reachable.", "client_network", attempts=1)
    assert ca.calls("order") == [] and ca.trace[-1] == "finalize"


@pytest.mark.parametrize("header, pause", [
    ("3", 3), ("0", 1), ("60", 10), ("00009", 9), ("-3", 0.1), ("soon", 0.1), ("", 0.1),
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
    assert result.sleeps == [0.1, 4]


def test_waiting_for_the_certificate_ends_after_a_minute(host, ca, account):
    ca.states_after_finalize = ["processing"] * 1000
    host.settings(orderattempts=1, skipdns01=True)
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 102, "Order timeout", attempts=1)
    assert result.sleeps[:6] == [0.1, 0.2, 0.4, 0.8, 1.6, 2]
    assert 56 <= sum(result.sleeps) <= 60 and set(result.sleeps[5:]) == {2}


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


@pytest.mark.parametrize("value", [None, False, 1, "true"])
def test_order_that_finalize_finds_invalid_is_looked_at_with_the_setting_alone(host, ca, account,
                                                                               value):
    host.bare_settings(asyncfinalize=value, orderattempts=1, skipdns01=True)
    ca.answer("finalize", Reply(200, {"status": "invalid", "error": {"detail": "no"}}))
    expect.gave_up(host.new_cert(ca.directory, [NAME]), 100, "Server is not reachable.",
                   "client_network", attempts=1)


def test_order_that_finalize_finds_invalid_fails_with_its_detail(host, ca, account):
    host.settings(orderattempts=1, skipdns01=True)
    ca.answer("finalize", Reply(200, {"status": "invalid", "error": {"detail": "CAA %s%n"}}))
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 200, "CAA %s%n", attempts=1)
    assert ca.trace[-1] == "finalize"


@pytest.mark.parametrize("none", [None, ""])
def test_certificate_that_is_none_yet_is_waited_for(host, ca, account, none):
    ca.states_after_finalize = ["processing"]
    ca.answer("finalize", edited_json(lambda order: {**order, "certificate": none}))
    expect.issued(host.new_cert(ca.directory, [NAME]), [NAME])


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
    assert result.sleeps == [0.1, 0.2, 0.4]


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


# -- quick validation ---------------------------------------------------------------------------


def test_quick_validation_looks_soon_and_then_less_often(host, ca, account):
    host.settings(quickvalidation=True)
    ca.states_before_valid = ["pending", "processing", "pending"]
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result, [NAME])
    assert result.sleeps == [0.05, 0.1, 0.2, 0.4]
    assert len(ca.calls("authz")) == 1 + 3 + 1


def test_quick_validation_waits_as_long_as_the_ca_asks(host, ca, account):
    host.settings(quickvalidation=True)
    ca.answer("challenge", edited(headers={"Retry-After": "3"}))
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result, [NAME])
    assert result.sleeps == [3]


def test_quick_validation_ends_after_a_minute(host, ca, account):
    host.settings(quickvalidation=True, orderattempts=1, skipdns01=True)
    ca.states_before_valid = ["pending"] * 1000
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 102, "Autuhorization timeout", attempts=1)
    assert 56 <= sum(result.sleeps) <= 60 and set(result.sleeps[6:]) == {2}


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


def test_pause_asked_for_by_an_earlier_reply_is_not_kept(host, ca, account):
    ca.answer("newOrder", refused(**{"Retry-After": "9"}), Reply(drop=True))
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result)
    assert result.sleeps == [9, 2]


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


def test_refill_that_fails_lends_no_older_pause(host, ca, account):
    host.settings(orderattempts=2, skipdns01=True)
    ca.answer("newOrder", Reply(500, {}, headers={"Retry-After": "9"}))
    ca.always("newNonce", edited(nonce=None))
    ca.answer("directory", NORMAL)
    result = host.new_cert(ca.directory, [NAME])
    assert result.document["error"] == 204
    assert result.sleeps == [2]


# -- strict encoding ----------------------------------------------------------------------------

# Requests for these need "==" and "=" at the end of their base64 text, and nothing.
NAMES = ["www.host.example", "wwwww.host.example", "wwww.host.example"]


def ends(ca):
    """How the base64 text of each request ended."""
    texts = [payload["csr"] for payload in ca.payloads("finalize")]
    return [text[len(text.rstrip("=")):] for text in texts]


def line_feeds(ca):
    """Whether the signed texts end in a line feed: of the headers, of the payloads."""
    signed = [request.jws.raw for request in ca.requests if request.jws is not None]
    return tuple({jws.decode(raw[part]).endswith(b"\n") for raw in signed if raw[part]}
                 for part in ("protected", "payload"))


def test_installed_settings_send_strict_texts(host, ca):
    ca.takes_padding = False
    for name in NAMES:
        expect.issued(host.new_cert(ca.directory, [name]), [name])
    assert ends(ca) == ["", "", ""]
    assert line_feeds(ca) == ({False}, {False})


@pytest.mark.parametrize("value", [None, False, 1, "true"])
def test_without_strictencoding_texts_are_loose(host, ca, value):
    host.bare_settings(strictencoding=value)
    for name in NAMES:
        expect.issued(host.new_cert(ca.directory, [name]), [name])
    assert set(ends(ca)) == {"", "=", "=="}
    assert line_feeds(ca) == ({True}, {True})


def test_refused_request_is_not_sent_again(host, ca, account):
    host.settings(orderattempts=1, skipdns01=True)
    ca.always("finalize", problem("malformed", "no"))
    result = host.new_cert(ca.directory, [NAMES[0]])
    expect.gave_up(result, 200, "new-cert: Unexpect httpcode. (new-cert)", attempts=1)
    assert len(ca.calls("finalize")) == 1
