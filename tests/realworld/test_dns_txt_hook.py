"""The example hook of the package: dns-01 in a zone of the owner's, by signed dynamic updates of a real
name server, which the CA asks as well. What the zone held when is read from the server's journal."""

import os
import subprocess

import pytest

from lib import paths
from lib.expect import certificate_folder, issued
from world import appliance
from world.name_server import OWN_KEY, OWN_KEY_NAME, OWN_ZONE
from world.network import ENVIRONMENT

EXAMPLE = "/usr/kova/share/doc/kova-letsencrypt/examples/dns-txt-rfc2136"
HOOK = paths.HOOKS + "/dns-txt"
KEY_FILE = "/usr/kova/etc/letsencrypt/dns-txt.key"
WILDCARD = "*." + OWN_ZONE
RECORD = "_acme-challenge." + OWN_ZONE


@pytest.fixture
def example(host):
    """Installs the example as the README says; `edit` changes lines of it."""
    def install(secret=OWN_KEY, edit=lambda script: script):
        with open(EXAMPLE, encoding="utf-8") as script:
            host.write(HOOK, edit(script.read()), 0o755)
        host.write(KEY_FILE, f"hmac-sha256:{OWN_KEY_NAME}:{secret}\n", 0o600)
        host.settings(orderattempts=1)
    return install


def came_and_went(names):
    """Every record that came is gone again; their (name, text), as they came."""
    history = names.history(OWN_ZONE)
    came = [event[1:] for event in history if event[0] == "+"]
    assert sorted(event[1:] for event in history if event[0] == "-") == sorted(came), history
    assert names.ask(RECORD) == []
    return came


def test_a_name_and_its_wildcard(host, network, names, ca, example):
    example()
    result = appliance.new_cert(host, OWN_ZONE, WILDCARD)
    issued(result, [OWN_ZONE, WILDCARD])
    came = came_and_went(names)
    assert [name for name, _ in came] == [RECORD] * 2
    assert len(set(came)) == 2


def test_an_alias_is_followed_into_the_zone_where_it_leads(host, network, names, ca, example):
    example()
    result = appliance.new_cert(host, "*.alias." + OWN_ZONE)
    issued(result, ["*.alias." + OWN_ZONE])
    assert [name for name, _ in came_and_went(names)] == ["alias.proofs." + OWN_ZONE]


# The second run holds its proof until the first has taken away its own, and is validated then.
TAKING_TURNS = """#!/bin/sh
{example} "$@" || exit 1
case $1 in
  add)
    mkdir {folder}/first 2>/dev/null && touch {folder}/first/$3
    kdig +short @203.0.113.1 "$2" TXT > {folder}/shown.$3
    [ -e {folder}/first/$3 ] && until [ -e {folder}/second ]; do sleep 0.1; done
    [ -e {folder}/first/$3 ] || {{ touch {folder}/second
      until [ -e {folder}/removed ]; do sleep 0.1; done; }} ;;
  remove)
    [ ! -e {folder}/first/$3 ] || kdig +short @203.0.113.1 "$2" TXT > {folder}/left
    touch {folder}/removed ;;
esac
exit 0
"""


def test_two_values_at_one_name_at_once(host, network, names, ca, example):
    example()
    folder = host.workspace + "/turns"
    os.mkdir(folder)
    host.write(host.workspace + "/example", open(HOOK, encoding="utf-8").read(), 0o755)
    host.write(HOOK, TAKING_TURNS.format(folder=folder, example=host.workspace + "/example"), 0o755)
    runs = [subprocess.Popen(appliance.command("new-cert", "-s", appliance.DIRECTORY, "-d", name,
                                               "-m", appliance.MAIL),
                             stdout=subprocess.PIPE, text=True, env=ENVIRONMENT)
            for name in (OWN_ZONE, WILDCARD)]
    outputs = [run.communicate(timeout=120)[0] for run in runs]
    assert [run.returncode for run in runs] == [0, 0], outputs
    for certificate in host.certificates():
        certificate_folder(certificate)
    assert len(host.certificates()) == 2
    [first] = os.listdir(folder + "/first")
    [other] = {text for _, text in came_and_went(names)} - {first}
    with open(folder + "/left", encoding="ascii") as left:
        assert left.read().split() == [f'"{other}"']
    with open(f"{folder}/shown.{other}", encoding="ascii") as shown:
        assert sorted(shown.read().split()) == sorted([f'"{first}"', f'"{other}"'])


def refused(host, result):
    assert result.status == 202
    assert any(f"Failed to setup challegne for {OWN_ZONE} of dns-01" in text
               for text in result.errors)
    assert host.certificates() == []


def test_a_key_that_the_zone_does_not_know(host, network, names, ca, example):
    example(secret="bm90IHRoZSBrZXk=")
    refused(host, appliance.new_cert(host, WILDCARD, OWN_ZONE))
    assert names.history(OWN_ZONE) == []


def test_a_server_of_the_zone_that_does_not_get_the_record(host, network, names, ca, example):
    # Nobody answers there, so it can't be said that every server shows the record.
    example(edit=lambda script: script.replace(
        "patience=300", "patience=1").replace('ask "$host" A\n', 'echo 203.0.113.9\n'))
    refused(host, appliance.new_cert(host, WILDCARD, OWN_ZONE))
    assert [name for name, _ in came_and_went(names)] == [RECORD]


def test_a_missing_key_file(host, network, names, ca, example):
    example()
    os.unlink(KEY_FILE)
    refused(host, appliance.new_cert(host, OWN_ZONE))
    assert names.history(OWN_ZONE) == []


def test_rubbish_that_the_hook_prints(host, network, names, ca, example):
    example(edit=lambda script: script.replace(
        "#!/bin/sh\n", "#!/bin/sh\necho '{\"error\": 7}'; head -c 5000 /dev/urandom\n"))
    issued(appliance.new_cert(host, OWN_ZONE), [OWN_ZONE])
    assert len(came_and_went(names)) == 1
