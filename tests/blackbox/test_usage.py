"""Command words, options, the usage text and exit statuses."""

import pytest
from lib import paths

USAGE = """\
kova-letsencrypt <command> [<args>]
  new-cert 
      -d [domains]   Domain name to be registed. (required)
      -m [mail]      Email address for contact. (required)
      -s [server]    Let's encrypt directory URL. (optional)
      -c [certid]    Certificat Id. (optional)
      -p [version]   ACME version, should use with -s (optional)

  renew-all

  revoke
     -c [cert-path]  revoke a certificat. (required)

For all command, you can add the following arguments for debug.
      -v             Show debug message.
      -vv            Show more debug message.

"""  # noqa: W291 - the blank after "new-cert" is part of the text


def usage_shown(result):
    banner, _, text = result.stdout.partition("\n")
    assert banner.startswith("kova-letsencrypt")
    assert text == USAGE
    assert result.stderr == ""
    assert result.status == 1
    assert result.syslog == []


@pytest.mark.parametrize("args", [
    [], ["help"], ["--help"], ["-h"], ["new-certs"], ["NEW-CERT"], [""], ["-v", "renew-all"]])
def test_no_command_word_or_an_unknown_one(host, args):
    usage_shown(host.run(*args))


@pytest.mark.parametrize("args", [
    ["-h"], ["-x"], ["--help"], ["-d"], ["-m"], ["-s"], ["-c"], ["-p"], [],
    ["-d", "a.example"], ["-m", "me@host.example"], ["-d", "", "-m", "me@host.example"],
    ["-d", "a.example", "-m", ""], ["-d", "a.example", "-m", "me@host.example", "-h"],
    ["-d", "a.example", "-m", "me@host.example", "-q"],
    ["-d", "a.example", "-m", "me@host.example", "-s"]])
def test_new_cert_needs_domains_and_mail(host, ca, args):
    usage_shown(host.run("new-cert", *args))
    assert ca.requests == []


@pytest.mark.parametrize("command", ["renew-all", "revoke", "renew"])
def test_the_other_commands_do_not_know_h(host, command):
    usage_shown(host.run(command, "-h"))


@pytest.mark.parametrize("args", [[], ["-v"], ["-c"], ["-c", ""], ["-c", "id", "-x"]])
def test_revoke_needs_an_id(host, args):
    usage_shown(host.run("revoke", *args))


def test_renew_all_takes_no_id(host):
    usage_shown(host.run("renew-all", "-c", "id"))


def test_renew_does_not_ask_for_an_id(host):
    result = host.run("renew")
    assert (result.status, result.stdout, result.stderr) == (1, "", "")
    assert result.errors != []


def test_usage_keeps_what_is_there(host):
    host.write(paths.CRON_JOB, "mine")
    usage_shown(host.run("new-cert", "-d", "a.example"))
    with open(paths.CRON_JOB, encoding="ascii") as job:
        assert job.read() == "mine"


def test_options_may_be_attached_and_the_last_one_counts(host, ca):
    result = host.run("new-cert", "-snowhere", "-s" + ca.directory, "-dx.example",
                      "-dwww.host.example", "-mme@host.example")
    assert result.status == 0
    assert ca.payloads("newOrder")[0]["identifiers"] == [
        {"type": "dns", "value": "www.host.example"}]


def test_a_terminal_is_told_what_is_wrong_with_an_option(host):
    result = host.run("new-cert", "-x", tty=True)
    # The command word takes the place of the program's name.
    assert result.stderr.splitlines() == ["new-cert: invalid option -- 'x'"]
    assert result.stdout.partition("\n")[2] == USAGE


@pytest.mark.parametrize("version", ["3", "", "02", "two", "1.0", "%s%n"])
def test_wrong_version(host, ca, version):
    result = host.new_cert(ca.directory, ["a.example"], "-p", version)
    assert result.stdout == (
        '{"error":202,"file":"kova-letsencrypt","msg":"Incorrect version specify [%s]"}\n'
        .replace("%s", version, 1))
    assert result.status == 202
    assert ca.requests == []


def test_wrong_version_is_cut_like_every_formatted_message(host, ca):
    result = host.new_cert(ca.directory, ["a.example"], "-p", "9" * 2000)
    assert result.status == 202
    assert result.document["msg"].startswith("Incorrect version specify [999")
    assert len(result.document["msg"]) == 1023
