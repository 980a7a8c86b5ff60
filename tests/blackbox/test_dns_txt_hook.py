"""dns-01 for any zone: the hook dns-txt places the records."""

import os

import pytest
from lib import expect, jws, paths, validators
from lib.ddns import HOSTNAME
from lib.http_script import edited_json

NAME = "www.other.example"
WILDCARD = "*." + NAME
RECORD = "_acme-challenge." + NAME
SETUP_FAILED = f"Failed to setup challegne for {NAME} of dns-01"
WILDCARD_REFUSED = expect.failure_text(108, f"{WILDCARD} is not Kova ddns", "kova-letsencrypt")


class Zone:
    """What the hook keeps: a folder per name, a file per value; and a list of its calls."""

    def __init__(self, host):
        self._folder = host.workspace + "/zone"
        self._calls = host.workspace + "/calls"
        self._host = host
        self.hook()

    def hook(self, more="", mode=0o755):
        """`more` goes in front of the script's work."""
        self._host.hook("dns-txt", f"""
echo "$@" >> {self._calls}
{more}
mkdir -p "{self._folder}/$2"
case $1 in
  add) touch "{self._folder}/$2/$3" ;;
  remove) rm -f "{self._folder}/$2/$3" ;;
esac
""", mode)

    def texts(self, name):
        folder = f"{self._folder}/{name}"
        return os.listdir(folder) if os.path.isdir(folder) else []

    def calls(self):
        if not os.path.exists(self._calls):
            return []
        with open(self._calls, encoding="ascii") as lines:
            return [tuple(line.split()) for line in lines]


@pytest.fixture
def zone(host, ca):
    host.settings(orderattempts=1)
    zone = Zone(host)
    ca.validators["dns-01"] = validators.txt_records(zone)
    return zone


def proof(ca, index=0):
    jwk = next(iter(ca.accounts.values()))["jwk"]
    return validators.txt_value(ca.challenges[index].token + "." + jws.thumbprint(jwk))


def test_a_record_is_added_validated_and_removed(host, ca, zone):
    ca.challenge_types = ["dns-01"]
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result, [NAME])
    assert zone.calls() == [("add", RECORD, proof(ca)), ("remove", RECORD, proof(ca))]
    assert zone.texts(RECORD) == []
    assert result.errors == [] and result.sleeps == []


def test_a_name_and_its_wildcard_have_a_value_each(host, ca, zone):
    ca.challenge_types = ["dns-01"]
    names = [NAME, WILDCARD]
    expect.issued(host.new_cert(ca.directory, names), names)
    assert zone.calls() == [(action, RECORD, proof(ca, index))
                            for index in (0, 1) for action in ("add", "remove")]


def test_without_a_hook_a_wildcard_is_refused(host, ca, zone):
    os.unlink(paths.HOOKS + "/dns-txt")
    result = host.new_cert(ca.directory, [WILDCARD])
    assert result.stdout == WILDCARD_REFUSED and result.status == 108
    assert ca.requests == []


def test_a_hook_that_others_can_write_is_as_good_as_none(host, ca, zone):
    zone.hook(mode=0o775)
    result = host.new_cert(ca.directory, [WILDCARD])
    assert result.stdout == WILDCARD_REFUSED and result.status == 108
    assert zone.calls() == []
    assert [text for text in result.errors if "Ignored hook" in text] == [
        f"hooks:# Ignored hook [{paths.HOOKS}/dns-txt]: writable by group or others"]


def test_the_vendors_names_stay_with_the_vendors_service(host, ca, zone, ddns, dns):
    host.settings(kovaddns=ddns.endpoint, orderattempts=1)
    vendors = "www." + HOSTNAME

    def either(name, token, key_authorization):
        where = dns if name.endswith(HOSTNAME) else zone
        return validators.txt_records(where)(name, token, key_authorization)
    ca.validators["dns-01"] = either
    expect.issued(host.new_cert(ca.directory, [vendors, NAME]), [vendors, NAME])
    assert [update.hostname for update in ddns.updates] == [vendors] * 2
    assert {call[1] for call in zone.calls()} == {RECORD}


def test_dns01_that_is_switched_off_asks_no_hook(host, ca, zone):
    host.settings(skipdns01=True, orderattempts=1)
    expect.issued(host.new_cert(ca.directory, [NAME]), [NAME])
    assert zone.calls() == []


def test_a_hook_that_fails_to_add(host, ca, zone):
    zone.hook("[ $1 = remove ] || exit 7")
    result = host.new_cert(ca.directory, [NAME], "-v")
    expect_no_certificate(host, result)
    assert "Failed to setup challenge by dns-txt with [7]" in result.debug
    assert f"Failed to setup challenge for {NAME} with type dns-01." in result.debug
    # It may have gone half way, so it is asked to clean up.
    assert [call[0] for call in zone.calls()] == ["add", "remove"]
    assert "challenge" not in ca.trace


def expect_no_certificate(host, result):
    assert expect.retries(result) == [expect.retry_line(202, SETUP_FAILED, "client_v2")]
    assert result.status == 202
    assert host.certificates() == []


@pytest.mark.parametrize("script", ["#!/no/such/interpreter\n", "\x7fELFgarbage", ""])
def test_a_hook_that_is_no_program(host, ca, zone, script):
    host.write(paths.HOOKS + "/dns-txt", script, 0o755)
    expect_no_certificate(host, host.new_cert(ca.directory, [NAME]))


def test_a_hook_that_fails_to_remove_is_one_line_in_the_log(host, ca, zone):
    zone.hook("[ $1 = add ] || exit 3")
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result, [NAME])
    assert result.errors == [f"challenge:# The hook dns-txt failed to remove [{RECORD}]"
                             f"[{proof(ca)}]. [3]"]


def test_what_the_hook_prints_is_ignored(host, ca, zone):
    zone.hook("echo '{\"error\": 1}'; head -c 20000 /dev/urandom; cat")
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result, [NAME])
    assert result.errors == []


ENDED = f"hooks:# Ended hook [{paths.HOOKS}/dns-txt]: "


def test_a_hook_that_hangs_is_killed_after_ten_minutes(host, ca, zone):
    os.mkfifo(host.workspace + "/never")
    # It is to be ended together with what it started.
    zone.hook(f'[ $1 = remove ] || {{ echo $$ > {host.workspace}/pid; (read -r x < '
              f'{host.workspace}/never) & read -r x < {host.workspace}/never; }}')
    result = host.new_cert(ca.directory, [NAME], env={"KOVA_HANGING_POLL": "1500"})
    expect_no_certificate(host, result)
    assert [text for text in result.errors if "hook" in text] == [ENDED + "still running after 600 s"]
    assert len(result.sleeps) == 1 and 598 < result.sleeps[0] <= 600
    assert [call[0] for call in zone.calls()] == ["add", "remove"]
    assert no_process_of_group(expect.read(host.workspace + "/pid"))


def test_a_hook_that_hangs_while_it_removes_costs_no_certificate(host, ca, zone):
    os.mkfifo(host.workspace + "/never")
    zone.hook(f'[ $1 = add ] || read -r x < {host.workspace}/never')
    result = host.new_cert(ca.directory, [NAME], env={"KOVA_HANGING_POLL": "1500"})
    expect.issued(result, [NAME])
    assert len(result.sleeps) == 1 and 598 < result.sleeps[0] <= 600
    assert result.errors == [ENDED + "still running after 600 s",
                             f"challenge:# The hook dns-txt failed to remove [{RECORD}]"
                             f"[{proof(ca)}]. [-1]"]


def no_process_of_group(number):
    """Whether nothing is left of the process group, whose number the hook wrote down."""
    try:
        os.killpg(int(number), 0)
    except ProcessLookupError:
        return True
    return False


@pytest.mark.parametrize("output", ["yes", "cat /dev/urandom", "head -c 65537 /dev/zero"])
def test_a_hook_that_prints_without_end_is_killed(host, ca, zone, output):
    zone.hook(f"[ $1 = remove ] || {output}")
    result = host.new_cert(ca.directory, [NAME])
    expect_no_certificate(host, result)
    assert [text for text in result.errors if "hook" in text] == [
        ENDED + "more than 65536 bytes of output"]
    assert [call[0] for call in zone.calls()] == ["add", "remove"]


def test_a_hook_that_prints_all_that_it_may_is_fine(host, ca, zone):
    zone.hook("head -c 65536 /dev/zero")
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result, [NAME])
    assert result.errors == []


def test_the_record_is_removed_when_the_validation_fails(host, ca, zone):
    ca.challenge_types = ["dns-01"]
    ca.refusals.append(("dns", "not there"))
    result = host.new_cert(ca.directory, [NAME])
    assert expect.retries(result)[0] == expect.retry_line(109, "not there")
    assert [call[0] for call in zone.calls()][:2] == ["add", "remove"]
    assert zone.texts(RECORD) == []


@pytest.mark.parametrize("name", ["$(touch /tmp/x).example", "a b.example", "a\nsend\n.example",
                                  "-x;y", "*.other.example", ""])
def test_a_name_from_the_ca_that_is_none_reaches_no_hook(host, ca, zone, name):
    def edit(body):
        body["identifier"]["value"] = name
    ca.answer("authz", edited_json(edit))
    result = host.new_cert(ca.directory, [NAME])
    assert result.status == 202
    assert zone.calls() == []


def test_a_renewal_uses_it_as_well(host, ca, zone):
    names = [NAME, WILDCARD]
    folder = expect.issued(host.new_cert(ca.directory, names), names)
    identifier = os.path.basename(folder)
    before = expect.read(folder + "/cert.pem")
    result = host.run("renew", "-c", identifier)
    assert result.status == 0
    assert expect.read(folder + "/cert.pem") != before
    assert len(zone.calls()) == 8
    assert zone.texts(RECORD) == []
