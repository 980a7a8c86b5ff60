"""Words for people: on a terminal, standard error says what is wrong, why a command failed and what to
try. Off a terminal it stays empty, and documents and exit codes are the same in both."""

import re

import pytest
from lib import paths
from lib.renewal import Archive, record
from lib.signed_server import problem

NAME = "a.host.example"
REWRITE = "\r\x1b[K"
# What people are told after the message, by code.
ADVICE = {
    100: "Check the server's URL, the network and its name servers, this host's clock and its trust "
         "store (ca-certificates).",
    102: "Check that each name is spelt right and is yours; if the authority only took too long, try "
         "again later.",
    104: "Wait as long as the authority asks, and use its staging directory for trials.",
    109: "Check what the public DNS has for that name: an A or AAAA record of this host, or with dns-01 "
         "the TXT record below _acme-challenge.",
}


def words(result):
    """The lines for people, without the progress line before them."""
    text = result.stderr.rsplit(REWRITE, 1)[-1].replace("\r\n", "\n")
    assert text == "" or text.endswith("\n")
    lines = text.splitlines()
    assert all(line.startswith("kova-letsencrypt: ") for line in lines), lines
    return [line[len("kova-letsencrypt: "):] for line in lines]


def early_words(result):
    """Those before the progress line."""
    return [line[len("kova-letsencrypt: "):]
            for line in result.stderr.split(REWRITE)[0].replace("\r\n", "\n").splitlines()]


def both(run):
    """The same on a terminal and off it: document, exit code and log. Returns the former."""
    off, on = run(tty=False), run(tty=True)
    assert off.stderr == ""
    assert (on.status, on.stdout, on.errors) == (off.status, off.stdout, off.errors)
    return on


# -- why it failed ---------------------------------------------------------------------------------


def test_validation_that_failed_says_which_name_and_what_the_ca_said(host, ca, account, once):
    ca.refusals.extend([None, ("dns", "NXDOMAIN looking up A.")] * 2)
    result = both(lambda tty: host.new_cert(ca.directory, [NAME, "b.host.example"], tty=tty))
    assert result.status == 109
    assert words(result) == [f"b.host.example: NXDOMAIN looking up A [109]. {ADVICE[109]}"]


def test_refused_order_says_what_the_ca_said(host, ca, account, once):
    ca.always("newOrder", problem("rejectedIdentifier", "policy forbids it", 400))
    result = both(lambda tty: host.new_cert(ca.directory, [NAME], tty=tty))
    assert result.status == 102
    assert words(result) == [f"{NAME}: policy forbids it [102]. {ADVICE[102]}"]


def test_rate_limit_names_all_that_was_asked_for(host, ca, account, once):
    ca.always("newOrder", problem("rateLimited", "too many", 429))
    names = ["a.example", "b.example", "c.example", "d.example"]
    result = both(lambda tty: host.new_cert(ca.directory, names, tty=tty))
    assert words(result) == [
        f"a.example, b.example, c.example and 1 more: too many [104]. {ADVICE[104]}"]


def test_server_that_cannot_be_reached(host):
    result = both(lambda tty: host.new_cert("http://127.0.0.1:9/directory", [NAME], tty=tty))
    assert result.status == 100
    assert words(result) == [f"{NAME}: Server is not reachable [100]. {ADVICE[100]}"]


def test_nothing_from_the_ca_controls_the_terminal(host, ca, account, once):
    ca.always("newOrder", problem("rateLimited", "x\x1b]0;owned\x07\r\ny\u202e" + "z" * 500, 429))
    result = both(lambda tty: host.new_cert(ca.directory, [NAME], tty=tty))
    [line] = words(result)
    assert line.startswith(f"{NAME}: x\\x1b]0;owned\\x07\\x0d\\ny\\xe2\\x80\\xaezzz")
    assert "z... [104]. " in line and len(line) < 600
    assert not re.search(r"[^ -~]", line)


def test_success_needs_no_words(host, ca, account):
    result = host.new_cert(ca.directory, [NAME], tty=True)
    assert (result.status, words(result), early_words(result)) == (0, [], [])


@pytest.mark.parametrize("arguments, missing", [
    (["-d", NAME], ["new-cert needs an e-mail address (-m)."]),
    (["-m", "a@host.example"], ["new-cert needs host names (-d)."]),
    ([], ["new-cert needs host names (-d).", "new-cert needs an e-mail address (-m)."])])
def test_option_that_is_missing(host, arguments, missing):
    result = both(lambda tty: host.run("new-cert", *arguments, tty=tty))
    assert result.status == 1
    assert words(result) == missing


# -- renewal and revocation ------------------------------------------------------------------------


@pytest.fixture
def archived(host, ca, account):
    archive = Archive(host)
    archive.add("due", record=record(ca.directory, account, "www.host.example;b.host.example"))
    return archive


@pytest.mark.parametrize("command", [["renew", "-c", "due"], ["renew-all"]])
def test_failed_renewal_says_of_which_names(host, ca, archived, command):
    ca.always("newOrder", problem("rateLimited", "too many", 429))
    result = both(lambda tty: host.run(*command, tty=tty))
    assert result.document["error"] == 104
    assert words(result) == [
        f"www.host.example, b.host.example: too many [104]. {ADVICE[104]}"]


def test_record_that_cannot_be_used_is_told(host, archived):
    archived.record("due", "{")
    result = both(lambda tty: host.run("renew", "-c", "due", tty=tty))
    assert (result.status, result.stdout) == (1, "")
    assert words(result) == [
        f"due: its renewal record is no JSON object [{paths.ARCHIVE}/due/renew.json] [1]. Obtain the "
        "certificate anew: what was kept to renew it cannot be used."]


def test_revocation_that_does_nothing_is_told(host, ca, archived):
    archived.record("due", "{")
    result = both(lambda tty: host.run("revoke", "-c", "due", tty=tty))
    assert (result.status, result.document["error"], ca.trace) == (0, 0, [])
    assert words(result) == ["[due] cannot be revoked: its renewal record is no JSON object "
                             f"[{paths.ARCHIVE}/due/renew.json]"]


def test_refused_revocation_ends_abnormally_and_says_why(host, ca, archived):
    ca.always("revokeCert", problem("unauthorized", "not yours", 403))
    ca.violations.clear()
    on = host.run("revoke", "-c", "due", tty=True)
    off = host.run("revoke", "-c", "due")
    ca.violations.clear()
    assert (on.status, on.stdout) == (off.status, off.stdout) == (-6, "")
    assert on.stderr.startswith("kova-letsencrypt: due: Revoke failed - 403  not yours [200]. ")
    assert on.stderr.partition("\r\n")[2].replace("\r\n", "\n") == off.stderr


# -- traps -----------------------------------------------------------------------------------------


def test_names_given_twice(host, ca, account):
    def run(tty):
        return host.run("new-cert", "-s", ca.directory, "-m", "admin@host.example", "-d", "x.example",
                        "-d", NAME, tty=tty)
    off, on = run(False), run(True)
    assert (off.status, on.status, off.stderr) == (0, 0, "")
    assert early_words(on) == [f'-d was given more than once, and only the last one counts: [{NAME}]. '
                               'Several names go into one -d, with ";" between them.']
    assert [each["identifiers"] for each in ca.payloads("newOrder")] == [
        [{"type": "dns", "value": NAME}]] * 2


def test_comma_between_names(host, ca, account, once):
    ca.always("newOrder", problem("malformed", "no such name", 400))
    names = "a.example,b.example; c.example"
    result = both(lambda tty: host.new_cert(ca.directory, names, tty=tty))
    assert early_words(result) == [
        '[a.example,b.example] is taken for one name: ";" separates names, not ",".']
    assert [each["value"] for each in ca.payloads("newOrder")[-1]["identifiers"]] == [
        "a.example,b.example", "c.example"]


UNKNOWN = (f"there is no certificate [nosuch] in {paths.ARCHIVE}; -c takes an id, the last part of a "
           '"cert_path".')


def test_unknown_certificate_is_told_before_the_ca_is_asked(host, ca, account, once):
    host.settings(orderattempts=1, stagedupdate=True)
    result = both(lambda tty: host.new_cert(ca.directory, [NAME], "-c", "nosuch", tty=tty))
    assert ca.trace == []
    assert words(result) == [
        UNKNOWN, f"{NAME}: Folder not exist. [{paths.ARCHIVE}/nosuch] [202]. See the system log for what failed; "
        "free space and the modes below /usr/kova/etc are the usual reasons."]


def test_unknown_certificate_is_told_early_where_it_fails_late(host, ca, account, once):
    host.settings(orderattempts=1, skipdns01=True, stagedupdate=None)
    before = []

    def look(request, normal):
        before.append(request.endpoint)
        return normal()
    ca.always("directory", look)
    result = both(lambda tty: host.new_cert(ca.directory, [NAME], "-c", "nosuch", tty=tty))
    assert result.status == 202 and before == ["directory"] * 2
    assert early_words(result) == [UNKNOWN]
    assert words(result)[0].startswith(f"{NAME}: Failed to save pems [202]. ")


@pytest.mark.parametrize("identity", ["nosuch", "../etc", "a/b", paths.ARCHIVE + "/nosuch"])
@pytest.mark.parametrize("command", ["renew", "revoke"])
def test_unknown_certificate_of_the_other_commands(host, command, identity):
    result = both(lambda tty: host.run(command, "-c", identity, tty=tty))
    assert words(result)[0] == UNKNOWN.replace("nosuch", identity)


def test_certificate_that_is_there_is_not_told(host, ca, archived, once):
    host.settings(orderattempts=1, skipdns01=True, stagedupdate=None)
    result = host.new_cert(ca.directory, [NAME], "-c", "due", tty=True)
    assert (result.status, early_words(result), words(result)) == (0, [], [])


# -- without root ----------------------------------------------------------------------------------

NOT_ROOT = ("not started as root, so this cannot be finished: accounts, certificates and the renewal "
            "job are root's.")


def as_nobody(host, *arguments, tty):
    return host.run("--reuid", "65534", "--regid", "65534", "--clear-groups", paths.PROGRAM, *arguments,
                    program="/usr/bin/setpriv", tty=tty)


@pytest.mark.parametrize("command", [
    ["new-cert", "-s", "http://127.0.0.1:9/directory", "-d", NAME, "-m", "a@host.example"],
    ["renew-all"], ["renew", "-c", "x"], ["revoke", "-c", "x"], ["add-cronjob"]])
def test_without_root_it_says_so_first(host, command):
    result = both(lambda tty: as_nobody(host, *command, tty=tty))
    assert result.stderr.split(REWRITE)[0].startswith(f"kova-letsencrypt: {NOT_ROOT}\r\n")


def test_root_is_not_told(host):
    assert host.run("renew-all", tty=True).stderr == ""


def test_usage_needs_no_root(host):
    assert as_nobody(host, tty=True).stderr == ""
