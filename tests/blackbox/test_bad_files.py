"""Files and members beside the settings that are garbage or of another type: one clear line in the
log, the default in their place, and the certificate all the same."""

import json
import os

import pytest
from lib import expect, paths
from lib.http_script import edited_json
from lib.renewal import NAME, Archive, folder_of, record

ID = "AbC123"
FOLDER = folder_of(ID)
HISTORY = f"/usr/kova/etc/letsencrypt/renewal/{ID}.json"
EAB = "/usr/kova/etc/letsencrypt/eab.json"
GARBAGE = ["", "{", "[]", "null", "7", '"x"', "\0\0", "\xff\xfe", "[" * 100000, '{"a":' * 100000]
NO_TEXT = [None, 7, True, 1.5, ["x"], {"x": "y"}]


@pytest.fixture
def archive(host):
    return Archive(host)


def written(host, path, text):
    host.write(path, text.encode("latin-1") if isinstance(text, str) else json.dumps(text), 0o600)


# -- the renewal history ---------------------------------------------------------------------------


def renewed_in_spite_of(host, ca, account, archive, content, line):
    host.settings(renewfailures=True)
    archive.add(ID, record=record(ca.directory, account))
    written(host, HISTORY, content)
    result = host.run("renew-all")
    assert (result.status, result.stdout) == (0, "") and len(ca.certificates) == 1
    assert result.errors == ["kova-letsencrypt:# " + line]
    assert json.loads(expect.read(HISTORY))["failures"] == 0
    archive.add(ID, record=record(ca.directory, account))
    assert host.run("renew-all").errors == []  # the file is a good one now


@pytest.mark.parametrize("content", GARBAGE)
def test_history_that_is_garbage(host, ca, account, archive, content):
    renewed_in_spite_of(host, ca, account, archive, content,
                        f"[{HISTORY}] is not used: it is no JSON object.")


@pytest.mark.parametrize("member, values", [
    *[(name, NO_TEXT) for name in ("last_attempt", "last_success", "last_notice", "failing_since",
                                   "msg", "file")],
    *[(name, [None, "7", True, 1.5, 2 ** 40, [7], {}]) for name in ("failures", "error")]])
def test_history_with_a_member_of_another_type(host, ca, account, archive, member, values):
    for value in values:
        del ca.certificates[:]
        renewed_in_spite_of(
            host, ca, account, archive, {member: value},
            f"[{HISTORY}] has members of another type, which are not used: {member}")


@pytest.mark.parametrize("content", [
    {"failures": 2 ** 31 - 1}, {"failures": -2 ** 31}, {"failures": 9, "last_attempt": "soon"},
    {"failures": 9, "last_attempt": "9999-12-31T23:59:59Z"},
    {"failures": 9, "last_attempt": "2026-99-99T99:99:99Z"}, {"error": -1, "msg": "x" * 100000}])
def test_history_with_odd_values_holds_nothing_up(host, ca, account, archive, content):
    host.settings(renewfailures=True)
    archive.add(ID, record=record(ca.directory, account))
    written(host, HISTORY, content)
    result = host.run("renew-all")
    assert (result.status, result.stdout, result.errors) == (0, "", [])
    assert len(ca.certificates) == 1


@pytest.mark.parametrize("failures", [2 ** 31 - 1, -2 ** 31])
def test_failures_are_counted_on_from_any_number(host, archive, failures):
    host.settings(renewfailures=True)
    archive.add(ID, record=record("http://127.0.0.1:9/directory", "/nowhere"))
    written(host, HISTORY, {"failures": failures})
    assert host.run("renew-all").status == 0
    assert json.loads(expect.read(HISTORY))["failures"] == (1000000 if failures > 0 else 1)


# -- what was chosen for a certificate -------------------------------------------------------------


def choosing(host, ca, archive, account, **members):
    host.settings(keytype="ec256", profile="short", preferredchain="Other Root")
    ca.always("directory", edited_json(
        lambda body: body["meta"].update(profiles={"short": "", "long": ""})))
    archive.add(ID, record={**record(ca.directory, account), **members})
    return host.run("renew", "-c", ID)


@pytest.mark.parametrize("value", NO_TEXT)
@pytest.mark.parametrize("member", ["profile", "preferred_chain", "key_type"])
def test_choice_of_another_type_leaves_it_to_the_settings(host, ca, account, archive, member, value):
    before = choosing(host, ca, archive, account)
    result = choosing(host, ca, archive, account, **{member: value})
    assert result.status == 0 and len(ca.certificates) == 2
    line = ("Ignored key type []" if member == "key_type" else
            f"renew info has no text as {member}, it is not used. [{FOLDER}]")
    assert result.errors == ["kova-letsencrypt:# " + line, *before.errors]
    assert [order["profile"] for order in ca.payloads("newOrder")] == ["short", "short"]
    assert expect.key_type(FOLDER) == "ec256"


# -- external account binding, device record -------------------------------------------------------


@pytest.mark.parametrize("content", GARBAGE)
def test_binding_that_is_garbage(host, ca, content):
    written(host, EAB, content)
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result, [NAME])
    assert result.errors == [f"client_v2:# {EAB} is not used: it is no JSON object."]
    assert "externalAccountBinding" not in ca.payloads("newAccount")[0]


@pytest.mark.parametrize("entry", [
    *NO_TEXT, "text", {}, *[{"kid": value, "hmac_key": "c2VjcmV0"} for value in NO_TEXT],
    *[{"kid": "k", "hmac_key": value} for value in [*NO_TEXT, "c2V/", "", "*"]]])
def test_binding_of_another_type(host, ca, entry):
    written(host, EAB, {ca.directory: entry})
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result, [NAME])
    assert result.errors == [
        f"client_v2:# {EAB} has no usable kid and hmac_key for {ca.directory}."]
    assert "externalAccountBinding" not in ca.payloads("newAccount")[0]


def test_binding_is_no_matter_of_a_renewal(host, ca, account, archive):
    archive.add(ID, record=record(ca.directory, account))
    written(host, EAB, "{")
    result = host.run("renew", "-c", ID)
    assert (result.status, result.errors) == (0, [])


@pytest.mark.parametrize("content", GARBAGE)
def test_device_record_that_is_garbage(host, ca, account, archive, content):
    # Without the record the host looks for a router, which the sandbox does not have.
    host.hook("router-detect", "exit 1\n")
    archive.add(ID, record=record(ca.directory, account))
    written(host, paths.DEVICE_RECORD, content)
    for arguments in (["renew", "-c", ID],
                      ["new-cert", "-s", ca.directory, "-d", NAME, "-m", "admin@host.example"]):
        result = host.run(*arguments)
        assert result.status == 0
        assert result.errors == [
            f"device:# Unusable device record [{paths.DEVICE_RECORD}]: not a JSON object"]


@pytest.mark.parametrize("value", [None, 7, True, ["x"], {"x": {}}])
def test_device_record_with_members_of_another_type(host, ca, account, archive, value):
    host.hook("router-detect", "exit 1\n")
    archive.add(ID, record=record(ca.directory, account))
    host.device(**dict.fromkeys(["user_agent", "serial_number", "ddns_hostname", "account", "router",
                                 "ddns_name_server", "mac_address", "web_frontend"], value))
    result = host.run("renew", "-c", ID)
    assert (result.status, result.errors) == (0, [])
    assert os.path.exists(FOLDER + "/cert.pem") and len(ca.certificates) == 1
