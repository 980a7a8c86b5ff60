"""keytype: which key a certificate gets, and what the CA sees of it."""

import json
import os

import pytest
from lib import expect

NAME = "www.host.example"
TYPES = ["rsa2048", "rsa3072", "rsa4096", "ec256", "ec384"]


@pytest.fixture(autouse=True)
def http01(host, ca):
    ca.challenge_types = ["http-01"]


def record(folder):
    return json.loads(expect.read(folder + "/renew.json"))


@pytest.mark.parametrize("key_type", TYPES)
def test_the_settings_choose_for_issuance_and_renewal(host, ca, account, key_type):
    host.settings(skipdns01=True, keytype=key_type)
    result = host.new_cert(ca.directory, [NAME])
    folder = expect.issued(result, [NAME])
    assert expect.key_type(folder) == key_type
    assert "key_type" not in record(folder)
    assert result.errors == []
    before = expect.read(folder + "/privkey.pem")
    assert host.run("renew", "-c", os.path.basename(folder)).status == 0
    assert expect.key_type(folder) == key_type
    assert expect.read(folder + "/privkey.pem") != before


@pytest.mark.parametrize("value", ["rsa1024", "", "EC256", 256, True, None, [], {}, "x\ny"])
def test_anything_else_is_one_line_and_the_usual_key(host, ca, account, value):
    host.write_settings(json.dumps({"skipdns01": True, "orderattempts": 1, "keytype": value}))
    result = host.new_cert(ca.directory, [NAME])
    assert expect.key_type(expect.issued(result, [NAME])) == "rsa2048"
    shown = value.replace("\n", " ") if isinstance(value, str) else ""
    assert result.errors == [f"kova-letsencrypt:# Ignored key type [{shown}]"]


def test_a_record_keeps_its_own(host, ca, account):
    host.settings(skipdns01=True)
    folder = expect.issued(host.new_cert(ca.directory, [NAME]), [NAME])
    assert expect.key_type(folder) == "rsa2048"
    host.write(folder + "/renew.json", json.dumps({**record(folder), "key_type": "ec256"}), 0o400)
    host.settings(skipdns01=True, keytype="rsa3072")
    for _ in range(2):
        assert host.run("renew", "-c", os.path.basename(folder)).status == 0
        assert expect.key_type(folder) == "ec256"
        assert record(folder)["key_type"] == "ec256"


@pytest.mark.parametrize("value", ["ec512", 7, None, ["ec256"]])
def test_a_record_with_another_is_one_line_and_the_settings_key(host, ca, account, value):
    host.settings(skipdns01=True, keytype="ec384")
    folder = expect.issued(host.new_cert(ca.directory, [NAME]), [NAME])
    host.write(folder + "/renew.json", json.dumps({**record(folder), "key_type": value}), 0o400)
    result = host.run("renew", "-c", os.path.basename(folder))
    assert result.status == 0
    assert expect.key_type(folder) == "ec384"
    shown = value if isinstance(value, str) else ""
    assert [text for text in result.errors if "key type" in text] == [
        f"kova-letsencrypt:# Ignored key type [{shown}]"]
    assert "key_type" not in record(folder)
