"""bash completion of both commands, as a bash with nothing but the installed file does it."""

import json
import os
import re
import subprocess

import pytest

from lib import paths

COMPLETIONS = os.environ["KOVA_STAGE"] + "/usr/share/bash-completion/completions"
FUNCTIONS = {"kova-letsencrypt": "_kova_letsencrypt", "kova-archive": "_kova_archive"}

ASK = r'''
. "$1"
shift
COMP_WORDS=("$@")
COMP_CWORD=$(($# - 1))
COMP_LINE="$*" COMP_POINT=${#COMP_LINE}
function=$(complete -p "$1" | sed 's/.*-F \([^ ]*\).*/\1/')
"$function" "$1" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD-1]}"
printf '%s\n' "${COMPREPLY[@]}"
'''


def complete(*words):
    """What the last word can become."""
    done = subprocess.run(["bash", "--norc", "-c", ASK, "bash", f"{COMPLETIONS}/{words[0]}",
                           *words], text=True, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, env={"PATH": "/usr/bin:/bin"}, check=False)
    assert (done.returncode, done.stderr) == (0, ""), done
    return sorted(line for line in done.stdout.split("\n") if line)


@pytest.fixture
def index(host):
    """Writes INFO: a text as it is, anything else as JSON."""
    def write(document):
        text = document if isinstance(document, str) else json.dumps(document)
        host.write(paths.ARCHIVE + "/INFO", text, 0o600)
    return write


SERVICE = {"display_name": "Web \"site\": {x", "subscriber": "nginx", "service": "www",
           "isPkg": False, "owner": "root"}
INDEX = {"aB3xYz": {"desc": "a: \\\" {[", "services": [SERVICE]}, "aC": {"services": []},
         "old_one": {}}
IDS = ["aB3xYz", "aC", "old_one"]


@pytest.mark.parametrize("name", FUNCTIONS)
def test_either_name_loads_the_completion_of_both(name):
    ask = f'. {COMPLETIONS}/{name}; complete -p'
    said = subprocess.run(["bash", "--norc", "-c", ask], text=True, stdout=subprocess.PIPE,
                          check=True).stdout.splitlines()
    assert sorted(said) == sorted(f"complete -F {function} {command}"
                                  for command, function in FUNCTIONS.items())


def archive_help(host, *command):
    return host.run(*command, "--help", program="/usr/kova/sbin/kova-archive").stdout


def archive_commands(host):
    return re.findall(r"^  ([a-z-]+) ", archive_help(host), re.MULTILINE)


def test_commands(host):
    told = re.findall(r"^  ([a-z-]+)(?: |$)", host.run().stdout, re.MULTILINE)
    # These two are not for people, and not in the usage text.
    assert complete("kova-letsencrypt", "") == sorted([*told, "add-cronjob", "renew"]) == [
        "add-cronjob", "new-cert", "renew", "renew-all", "revoke"]
    assert complete("kova-letsencrypt", "re") == ["renew", "renew-all", "revoke"]


def test_commands_of_the_archive_are_those_of_its_help(host):
    commands = archive_commands(host)
    assert {"list", "add", "self-signed"} <= set(commands)
    assert complete("kova-archive", "") == sorted([*commands, "--help", "--version"])
    assert complete("kova-archive", "de") == ["default", "deploy"]
    assert complete("kova-archive", "--") == ["--help", "--version"]


def test_accounts(host):
    for name in ("aB3xYz", "other"):
        host.write(f"{paths.ACCOUNTS}/{name}/info.json", "{}", 0o600)
    host.write(f"{paths.ACCOUNTS}/nokey", "")
    actions = ["deactivate", "list", "rollover", "update"]
    assert complete("kova-archive", "account", "") == actions
    assert complete("kova-archive", "account", "r") == ["rollover"]
    assert complete("kova-archive", "account", "rollover", "") == ["aB3xYz", "other"]
    assert complete("kova-archive", "account", "update", "o") == ["other"]
    assert complete("kova-archive", "account", "list", "") == []
    assert complete("kova-archive", "account", "rollover", "other", "") == []
    assert complete("kova-archive", "account", "update", "other", "--") == [
        "--force", "--help", "--json", "--mail"]
    assert complete("kova-archive", "account", "update", "other", "--mail", "") == []


def test_options():
    assert complete("kova-letsencrypt", "new-cert", "-") == sorted(
        ["-d", "-m", "-s", "-c", "-p", "-v", "-vv", "-h"])
    assert complete("kova-letsencrypt", "renew-all", "") == ["-v", "-vv"]
    assert complete("kova-letsencrypt", "revoke", "-") == ["-c", "-v", "-vv"]
    assert complete("kova-letsencrypt", "new-cert", "-p", "") == ["1", "2"]
    assert complete("kova-letsencrypt", "new-cert", "-d", "") == []
    assert complete("kova-letsencrypt", "add-cronjob", "") == []


def test_options_of_the_archive(host):
    assert complete("kova-archive", "list", "-") == ["--help", "--json"]
    assert complete("kova-archive", "bind", "aC", "--s") == ["--service", "--subscriber"]
    assert complete("kova-archive", "add", "x", "--d") == ["--desc"]
    assert complete("kova-archive", "check", "--h") == ["--help", "--host"]
    assert complete("kova-archive", "check", "--expiry", "-") == []
    assert complete("kova-archive", "check", "--host", "-") != []


def test_options_of_the_archive_are_those_of_its_help(host):
    for command in archive_commands(host):
        told = archive_help(host, command)
        options = re.findall(r"^  (--?[a-zA-Z][a-z-]*)", told, re.MULTILINE)
        assert {"--json", "--help"} <= set(options)
        assert complete("kova-archive", command, "-") == sorted(options)
        for option in re.findall(r"^  (--?[a-zA-Z][a-z-]*) [A-Z]", told, re.MULTILINE):
            assert complete("kova-archive", command, option, "--") == []


def test_a_letter_stands_for_its_option(host):
    assert complete("kova-archive", "obtain", "-d", "-") == []
    assert complete("kova-archive", "obtain", "-h", "--ke") == ["--key-type"]


def test_choices_are_those_that_the_program_takes(host):
    kinds = complete("kova-archive", "obtain", "--key-type", "")
    assert kinds == ["ec256", "ec384", "rsa2048", "rsa3072", "rsa4096"]
    assert complete("kova-archive", "obtain", "--key-type", "ec") == ["ec256", "ec384"]
    reasons = complete("kova-archive", "revoke", "aC", "--reason", "")
    refusal = host.run("revoke", "none", "--reason", "frobnicate",
                       program="/usr/kova/sbin/kova-archive").stderr.splitlines()[0]
    assert set(re.findall(r"\w+", refusal.split(", only ")[1])) - {"and", "or"} == set(reasons)
    for reason in reasons:
        told = host.run("revoke", "none", "--reason", reason, program="/usr/kova/sbin/kova-archive")
        assert told.status == 1 and "reason" not in told.stderr


def test_operands_of_the_archive_are_those_of_its_help(host, index):
    index(INDEX)
    for command in set(archive_commands(host)) - {"add"}:
        usage = archive_help(host, command).splitlines()[0]
        takes_id = re.match(rf"Usage: kova-archive {command} \[?ID", usage) is not None
        assert (complete("kova-archive", command, "") == IDS) == takes_id, usage


def test_a_command_that_is_none_has_nothing_to_offer(host):
    assert complete("kova-archive", "frobnicate", "-") == []
    assert complete("kova-archive", "frobnicate", "") == []


def test_without_the_program_there_is_nothing_to_offer(host):
    os.unlink("/usr/kova/sbin/kova-archive")
    assert complete("kova-archive", "") == ["--help", "--version"]
    assert complete("kova-archive", "bind", "-") == []


@pytest.mark.parametrize("command", ["new-cert", "revoke", "renew"])
def test_ids_come_from_the_index(index, command):
    index(INDEX)
    assert complete("kova-letsencrypt", command, "-c", "") == IDS
    assert complete("kova-letsencrypt", command, "-c", "a") == ["aB3xYz", "aC"]
    assert complete("kova-letsencrypt", command, "-vv", "-c", "o") == ["old_one"]


@pytest.mark.parametrize("command", ["remove", "default", "bind", "unbind", "deploy"])
def test_a_command_takes_one_id(index, command):
    index(INDEX)
    assert complete("kova-archive", command, "") == IDS
    assert complete("kova-archive", command, "--json", "a") == ["aB3xYz", "aC"]
    assert complete("kova-archive", command, "aC", "") == []


def test_check_takes_many_ids(index):
    index(INDEX)
    assert complete("kova-archive", "check", "aC", "") == ["aB3xYz", "old_one"]
    assert complete("kova-archive", "check", "--expiry", "7", "aC", "o") == ["old_one"]


def test_add_offers_the_folders_that_the_index_lacks(host, index):
    index(INDEX)
    for name in ("aC", "fresh1", "fresh2", "we ird"):
        host.write(f"{paths.ARCHIVE}/{name}/cert.pem", "")
    os.mkdir(paths.ARCHIVE + "/empty")
    assert complete("kova-archive", "add", "") == ["fresh1", "fresh2"]


def test_values(host):
    host.write("/usr/libexec/certificate.d/nginx", "")
    host.write("/usr/local/libexec/certificate.d/mail", "")
    assert complete("kova-archive", "bind", "x", "--subscriber", "") == ["mail", "nginx"]
    assert complete("kova-archive", "bind", "x", "--owner", "roo") == ["root"]
    examples = os.environ["KOVA_STAGE"] + "/usr/kova/share/doc/kova-letsencrypt/examples/reload"
    assert complete("kova-archive", "bind", "x", "--reload", "") == sorted(os.listdir(examples))
    assert complete("kova-archive", "bind", "x", "--service", "") == []
    assert "/usr/kova" in complete("kova-archive", "self-signed", "/usr/ko")


def test_the_layout_of_the_index_does_not_matter(index):
    for indent in (None, 1, 3):
        index(json.dumps(INDEX, indent=indent, separators=(" , ", " : ")))
        assert complete("kova-archive", "deploy", "") == IDS


def test_without_an_index_there_are_no_ids(host):
    path = paths.ARCHIVE + "/INFO"
    if os.path.exists(path):
        os.unlink(path)
    assert complete("kova-archive", "deploy", "") == []
    os.mkdir(path)
    assert complete("kova-archive", "deploy", "") == []


@pytest.mark.parametrize("text", ["", "{", '{"a', '["a", {"b": 1}]', "\x00\xff{{{]]:", '"a":1',
                                  "null", '{"": 1}'])
def test_a_broken_index_has_no_ids(index, text):
    index(text)
    assert complete("kova-archive", "deploy", "") == []


def test_nothing_in_the_index_reaches_the_shell(index):
    index({"$(touch /tmp/owned)": {}, "`touch /tmp/owned`": {}, "a b": {}, "../up": {},
           "-rf": {}, "*": {}, "quo\"te": {}, "uml\u00e4ut": {}, "plain": {}})
    assert complete("kova-archive", "deploy", "") == ["plain"]
    assert not os.path.exists("/tmp/owned")
