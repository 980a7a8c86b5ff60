"""Comfort for people: one line on the terminal that rewrites itself, and nothing without one."""

import re

from lib import expect
from lib.http_script import edited_json
from lib.signed_server import problem

NAMES = ["a.host.example", "b.host.example"]
REWRITE = "\r\x1b[K"


def lines_shown(result):
    """What the line said, one rewriting after the other."""
    assert result.stderr.startswith(REWRITE)
    return result.stderr.split(REWRITE)[1:]


def test_nothing_without_a_terminal(host, ca):
    ca.states_before_valid = ["pending"]
    result = host.new_cert(ca.directory, NAMES)
    expect.issued(result, NAMES)
    assert result.stderr == ""


def test_standard_output_is_the_same_with_a_terminal(host, ca, account):
    result = host.new_cert(ca.directory, NAMES, tty=True)
    assert result.status == 0
    assert result.stdout == '{\n   "cert_path" : "%s",\n   "error" : 0\n}\n' % (
        host.certificates()[0])


def test_one_line_that_rewrites_itself(host, ca):
    ca.states_before_valid = ["pending"] * 3
    result = host.new_cert(ca.directory, NAMES, tty=True)
    assert "\n" not in result.stderr
    shown = lines_shown(result)
    assert shown[-1] == "", "the line is wiped at the end"
    assert all(len(text) < 80 for text in shown)
    # Nothing but the rewriting itself controls the terminal.
    assert not re.search(r"[^ -~]", "".join(shown))


def test_line_tells_name_stage_and_time_waited(host, ca):
    ca.states_before_valid = ["pending"] * 3
    shown = lines_shown(host.new_cert(ca.directory, NAMES, tty=True))
    for name in NAMES:
        about = [text for text in shown if text.startswith(name + ": ")]
        assert f"{name}: setting up http-01" in about
        assert [re.search(r"\(waited (\d+) s\)", text)[1] for text in about
                if "waited" in text] == ["2", "4", "6"]
    positions = [next(i for i, text in enumerate(shown) if name in text) for name in NAMES]
    assert positions == sorted(positions)


def test_stages_of_an_issuance(host, ca):
    shown = lines_shown(host.new_cert(ca.directory, NAMES[:1], tty=True))
    stages = [re.sub(r"https?://\S+", "CA", text) for text in shown if text]
    wanted = ["contacting", "registering", "placing the order", "setting up http-01", "validate",
              "generating", "waiting for the certificate", "storing"]
    found = [word for text in stages for word in wanted if word in text]
    assert list(dict.fromkeys(found)) == wanted


def test_line_is_wiped_before_the_failure_document(host, ca, account):
    host.settings(orderattempts=1, skipdns01=True)
    ca.refusals.append(("dns", "no"))
    result = host.new_cert(ca.directory, NAMES, tty=True)
    assert result.status == 109
    line, words = result.stderr.rsplit(REWRITE, 1)
    assert line and words.startswith("kova-letsencrypt: a.host.example: no [109]. ")
    assert result.stdout == expect.failure_text(109, "Failed to new certificate.",
                                                "kova-letsencrypt")


def test_nothing_from_the_ca_controls_the_terminal(host, ca, account):
    def edit(body):
        body["identifier"]["value"] = "x\x1b]0;owned\x07\r\ny" + "z" * 200
    ca.answer("authz", edited_json(edit))
    result = host.new_cert(ca.directory, NAMES[:1], tty=True)
    shown = lines_shown(result)
    assert not re.search(r"[^ -~]", "".join(shown))
    assert any(text.startswith("x?]0;owned???y") for text in shown)
    assert all(len(text) < 80 for text in shown)


def test_long_names_do_not_wrap_the_line(host, ca, account):
    name = "a" * 63 + "." + "b" * 63 + ".host.example"
    # No request can hold such a name; behind the line stands that it failed.
    shown = lines_shown(host.new_cert(ca.directory, [name], tty=True))[:-1]
    assert all(len(text) < 80 for text in shown)
    assert any(text.startswith("a" * 63) for text in shown)


def test_debug_output_and_the_line_keep_apart(host, ca, account):
    ca.states_before_valid = ["pending"]
    result = host.new_cert(ca.directory, NAMES[:1], "-v", tty=True)
    assert result.status == 0
    assert "DEBUG" not in result.stderr
    assert "\x1b" not in result.stdout
    assert result.document["error"] == 0


def test_pause_between_attempts_is_shown(host, ca, account):
    ca.answer("newOrder", problem("rateLimited", "slow", 429, headers={"Retry-After": "7"}))
    shown = lines_shown(host.new_cert(ca.directory, NAMES[:1], tty=True))
    assert any("next attempt" in text and "waited 7 s" in text for text in shown)
