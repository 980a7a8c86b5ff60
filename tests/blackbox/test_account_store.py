"""The account store: what is written, what is found again, what is broken."""

import json
import os
import stat

import pytest
from lib import expect, jws, paths
from lib.accounts import store_account

NAME = "www.host.example"
MAIL = "admin@host.example"


@pytest.fixture
def jwk(account_key):
    return jws.key_to_jwk(account_key)


def test_new_account_is_stored(host, ca):
    expect.issued(host.new_cert(ca.directory, [NAME]))
    [folder] = host.accounts()
    assert os.path.dirname(folder) == paths.ACCOUNTS and len(os.path.basename(folder)) == 6
    assert sorted(os.listdir(folder)) == ["info.json", "private_key.json"]
    url = next(iter(ca.accounts))
    assert expect.read(folder + "/info.json") == (
        '{\n   "account_url" : "%s",\n   "contact" : "%s",\n   "directory" : "%s",\n'
        '   "version" : 2\n}\n' % (url, MAIL, ca.directory))


def test_stored_key_is_the_registered_one(host, ca):
    expect.issued(host.new_cert(ca.directory, [NAME]))
    text = expect.read(host.accounts()[0] + "/private_key.json")
    key = json.loads(text)
    assert list(key) == ["d", "dp", "dq", "e", "kty", "n", "p", "q", "qi"]
    assert text.startswith('{\n   "d" : "') and text.endswith('"\n}\n')
    assert key["kty"] == "RSA" and key["e"] == "AQAB"
    [account] = ca.accounts.values()
    assert {name: key[name] for name in ("kty", "n", "e")} == account["jwk"]
    numbers = {name: int.from_bytes(jws.decode(value), "big")
               for name, value in key.items() if name != "kty"}
    p, q, d = numbers["p"], numbers["q"], numbers["d"]
    assert p * q == numbers["n"] and numbers["n"].bit_length() == 2048
    assert (numbers["dp"], numbers["dq"]) == (d % (p - 1), d % (q - 1))
    assert numbers["qi"] * q % p == 1


@pytest.mark.parametrize("umask", [0, 0o022, 0o077, 0o777])
def test_modes(host, ca, umask):
    expect.issued(host.new_cert(ca.directory, [NAME], umask=umask))
    [folder] = host.accounts()
    if umask != 0o777:  # which takes everything from folders that exist for the first time
        assert expect.mode(paths.ACCOUNT_ROOT) == 0o700
        assert expect.mode(paths.ACCOUNTS) == 0o700
        assert expect.mode(folder) == 0o700
    assert expect.mode(folder + "/info.json") == 0o600
    assert expect.mode(folder + "/private_key.json") == 0o600


def test_account_of_another_directory_is_not_used(host, ca, jwk):
    store_account(host, ca.directory + "/", ca.register(jwk), jwk)
    expect.issued(host.new_cert(ca.directory, [NAME]))
    assert len(ca.calls("newAccount")) == 1
    assert len(host.accounts()) == 2


@pytest.mark.parametrize("mail", ["ADMIN@host.example", "other@host.example", " " + MAIL])
def test_account_of_another_contact_is_not_used(host, ca, account, mail):
    expect.issued(host.new_cert(ca.directory, [NAME], mail=mail))
    assert ca.payloads("newAccount")[0]["contact"] == ["mailto:" + mail]
    assert len(host.accounts()) == 2


@pytest.mark.parametrize("version", [1, 3, "2", 2.5, None, True, [2]])
def test_account_of_another_version_is_not_used(host, ca, jwk, version):
    store_account(host, ca.directory, ca.register(jwk), jwk, version=version)
    expect.issued(host.new_cert(ca.directory, [NAME]))
    assert len(ca.calls("newAccount")) == 1


def test_of_two_matching_accounts_the_first_name_counts(host, ca, jwk):
    store_account(host, ca.directory, ca.url + "/account/unknown", jwk, name="b")
    url = ca.register(jwk)
    store_account(host, ca.directory, url, jwk, name="a")
    expect.issued(host.new_cert(ca.directory, [NAME]))
    assert ca.calls("newOrder")[0].jws.header["kid"] == url


def test_a_name_comes_before_one_that_it_begins(host, ca, jwk):
    store_account(host, ca.directory, ca.url + "/account/unknown", jwk, name="abc-old")
    url = ca.register(jwk)
    store_account(host, ca.directory, url, jwk, name="abc")
    expect.issued(host.new_cert(ca.directory, [NAME]))
    assert ca.calls("newOrder")[0].jws.header["kid"] == url


@pytest.mark.parametrize("member", ["directory", "contact", "version", "account_url"])
def test_record_without_a_member_is_skipped(host, ca, account, jwk, member):
    info = json.loads(expect.read(account + "/info.json"))
    del info[member]
    host.write(paths.ACCOUNTS + "/early/info.json", json.dumps(info), 0o600)
    expect.issued(host.new_cert(ca.directory, [NAME]))
    assert len(ca.calls("newAccount")) == 0


@pytest.mark.parametrize("text", ["", "{", "[]", "null", "7", '"x"', "[" * 100000, "\0"])
def test_broken_record_is_skipped(host, ca, account, text):
    host.write(paths.ACCOUNTS + "/early/info.json", text, 0o600)
    expect.issued(host.new_cert(ca.directory, [NAME]))
    assert len(ca.calls("newAccount")) == 0


def test_what_a_crash_leaves_is_skipped(host, ca, account):
    os.makedirs(paths.ACCOUNTS + "/empty")
    host.write(paths.ACCOUNTS + "/file", "no folder")
    os.symlink("/nowhere", paths.ACCOUNTS + "/dangling")
    os.makedirs(paths.ACCOUNTS + "/folder/info.json")
    expect.issued(host.new_cert(ca.directory, [NAME]))
    assert len(ca.calls("newAccount")) == 0


@pytest.mark.parametrize("text", [None, "", "{", "[]", "null", "[" * 100000])
def test_key_that_cannot_be_read(host, ca, account, text):
    path = account + "/private_key.json"
    os.unlink(path)
    if text is not None:
        host.write(path, text, 0o600)
    result = host.new_cert(ca.directory, [NAME])
    expect.failed(result, 201, "failed to load User Account key: " + path)
    assert "newOrder" not in ca.trace


@pytest.mark.parametrize("member", ["n", "e", "d", "p", "q", "dp", "dq", "qi"])
@pytest.mark.parametrize("value", [None, 7, "", "%%%", []])
def test_key_with_a_damaged_member_shows_at_signing(host, ca, account, jwk, member, value):
    host.settings(orderattempts=1, skipdns01=True)
    host.write(account + "/private_key.json", json.dumps({**jwk, member: value}), 0o600)
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 201, "RSA: key sing failed.", "rsa", attempts=1)
    assert ca.trace == ["directory", "newNonce"]


@pytest.mark.parametrize("value", [None, 7, "EC"])
def test_kty_of_the_stored_key_is_not_looked_at(host, ca, account, jwk, value):
    host.write(account + "/private_key.json", json.dumps({**jwk, "kty": value}), 0o600)
    expect.issued(host.new_cert(ca.directory, [NAME]))


@pytest.mark.parametrize("value", [7, None, True, ["u"], {}, ""])
def test_account_url_of_another_type_is_none(host, ca, account, value):
    info = json.loads(expect.read(account + "/info.json"))
    text = json.dumps({**info, "account_url": value})
    host.write(account + "/info.json", text, 0o600)
    expect.issued(host.new_cert(ca.directory, [NAME]), [NAME])
    assert len(ca.calls("newAccount")) == 1 and len(host.accounts()) == 2
    assert expect.read(account + "/info.json") == text


def test_account_is_stored_before_the_order(host, ca):
    def look(_request, normal):
        assert len(host.accounts()) == 1
        return normal()
    ca.answer("newOrder", look)
    expect.issued(host.new_cert(ca.directory, [NAME]))


@pytest.mark.parametrize("place, what", [
    ("/usr/kova/etc", "let's encrypt"), (paths.ACCOUNT_ROOT, "account"),
    (paths.ACCOUNTS, "account item")])
def test_folder_that_cannot_be_made(host, ca, place, what):
    if os.path.exists(place):
        os.rename(place, place + ".away")
    host.write(place, "in the way")
    result = host.new_cert(ca.directory, [NAME])
    expect.failed(result, 202, f"Failed to create folder for {what}.")
    assert [text for text in result.errors if text.startswith("client_v2")] == [
        f"client_v2:# Failed to create folder for {what}. [20]"]
    assert expect.read(place) == "in the way"


def test_renewal_record_names_the_folder_of_the_account(host, ca):
    folder = expect.issued(host.new_cert(ca.directory, [NAME]))
    record = json.loads(expect.read(folder + "/renew.json"))
    assert [record["account"]] == host.accounts()
    assert stat.S_ISDIR(os.lstat(record["account"]).st_mode)
