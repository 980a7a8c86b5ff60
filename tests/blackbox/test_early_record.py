"""Certificates of the early protocol: renewed through today's, revoked through their own."""

import json
import os
import signal

import pytest
from lib import expect, jws, paths, validators
from lib.accounts import store_account
from lib.renewal import NAME, Archive, folder_of, record
from lib.signed_server import problem
from lib.v1ca import AcmeV1Ca

ID = "AbC123"
FOLDER = folder_of(ID)


@pytest.fixture
def archive(host):
    return Archive(host)


@pytest.fixture
def early_ca():
    server = AcmeV1Ca()
    server.validators["http-01"] = validators.webroot
    yield server
    server.close()
    assert server.violations == []


# -- renewal ---------------------------------------------------------------------------------------


def renew(host, *more):
    return host.run("renew", "-c", ID, *more)


def renewed(result, names=(NAME,)):
    assert result.stdout == '{\n   "error" : 0,\n   "id" : "AbC123"\n}\n'
    assert (result.status, result.stderr, result.errors) == (0, "", [])
    expect.certificate_folder(FOLDER, names)


def refused(result, code, message, file="kova-letsencrypt"):
    assert result.stdout == expect.failure_text(code, message, file)
    assert (result.status, result.stderr) == (1, "")


@pytest.fixture
def early_account(host, early_ca):
    """An account of the early protocol: it has no URL that counts."""
    return store_account(host, early_ca.directory, "", {"kty": "RSA"}, "me@host.example", "early",
                         version=1)


def entered(archive, early_ca, early_account, domains=NAME):
    archive.add(ID, record=record(early_ca.directory, early_account, domains, version=1))


def test_early_record_is_renewed_at_the_settings_server(host, ca, early_ca, early_account, archive):
    entered(archive, early_ca, early_account, "a.example; b.example")
    host.settings(server=ca.directory)
    renewed(renew(host), ["a.example", "b.example"])
    assert early_ca.requests == []
    assert ca.payloads("newAccount") == [
        {"contact": ["mailto:me@host.example"], "termsOfServiceAgreed": True}]
    account = next(folder for folder in host.accounts() if folder != early_account)
    assert json.loads(expect.read(FOLDER + "/renew.json")) == record(
        ca.directory, account, "a.example;b.example")
    assert host.certificates() == [FOLDER]


def test_early_record_uses_the_stored_account_of_the_same_contact(host, ca, early_ca, account_key,
                                                                  archive):
    jwk = jws.key_to_jwk(account_key)
    known = store_account(host, ca.directory, ca.register(jwk), jwk, "me@host.example")
    early = store_account(host, early_ca.directory, "", {}, "me@host.example", "early", version=1)
    entered(archive, early_ca, early)
    host.settings(server=ca.directory)
    renewed(renew(host))
    assert ca.calls("newAccount") == []
    assert json.loads(expect.read(FOLDER + "/renew.json"))["account"] == known


@pytest.mark.parametrize("server", [None, 7, ["x"]])
def test_early_record_goes_to_the_default_directory_without_a_setting(host, early_ca, early_account,
                                                                      archive, server):
    entered(archive, early_ca, early_account)
    host.settings(server=server)
    result = renew(host, "-v")
    assert result.stdout.endswith("\n" + expect.failure_text(100, "Server is not reachable.",
                                                             "client_network"))
    assert result.status == 1
    assert f"Server: {paths.PRODUCTION_DIRECTORY}" in result.debug
    assert "Email: me@host.example" in result.debug
    assert early_ca.requests == []


def test_early_record_tries_every_challenge_type(host, ca, ddns, early_ca, early_account, archive):
    name = "www.box.ddns.example"
    entered(archive, early_ca, early_account, name)
    host.settings(server=ca.directory)
    ca.refusals.append(("dns", "no record"))
    result = renew(host)
    assert result.document == {"error": 0, "id": ID}
    assert [challenge.type for challenge in ca.challenges if challenge.status != "pending"] == [
        "dns-01", "http-01"]
    assert expect.retries(result) == [expect.retry_line(109, "no record")]
    expect.certificate_folder(FOLDER, [name])


def test_early_record_gives_up_as_issuance_does(host, ca, early_ca, early_account, archive):
    entered(archive, early_ca, early_account)
    before = expect.tree(FOLDER)
    host.settings(server=ca.directory)
    ca.refusals.append(("connection", "nobody there"))
    refused(renew(host), 101, "Failed to new certificate.")
    assert expect.tree(FOLDER) == before


@pytest.mark.parametrize("domains, code, message", [
    ("", 106, "no valid domain name"), (" ; ", 106, "no valid domain name"),
    ("*.a.example", 108, "*.a.example is not Kova ddns")])
def test_early_record_with_unusable_domains(host, ca, early_ca, early_account, archive, domains,
                                            code, message):
    entered(archive, early_ca, early_account, domains)
    host.settings(server=ca.directory)
    refused(renew(host), code, message)
    assert ca.requests == []


@pytest.mark.parametrize("value", [None, 7, ["a.example"], {}])
def test_early_record_with_domains_that_are_no_text(host, ca, early_ca, early_account, archive,
                                                    value):
    entered(archive, early_ca, early_account, value)
    host.settings(server=ca.directory)
    refused(renew(host), 106, "no valid domain name", "kova-letsencrypt")


@pytest.mark.parametrize("value", [None, 7, ["a.example"], {}])
def test_early_record_whose_server_is_no_text_is_renewed(host, ca, early_account, archive, value):
    """Its server is not looked at."""
    archive.add(ID, record=record(value, early_account, version=1))
    host.settings(server=ca.directory)
    renewed(renew(host), [NAME])


def test_exception_of_another_kind_is_reported_as_202(host, ca, early_ca, early_account, archive):
    entered(archive, early_ca, early_account, "*")
    host.settings(server=ca.directory)
    result = renew(host)
    assert result.document["error"] == 202
    assert result.document["file"] == "kova-letsencrypt"
    assert "basic_string" in result.document["msg"]
    assert (result.status, result.stdout.count("\n")) == (1, 1)


@pytest.mark.parametrize("text", [None, "", "[]", "{"])
def test_early_record_without_a_readable_account(host, ca, early_ca, early_account, archive, text):
    entered(archive, early_ca, early_account)
    host.settings(server=ca.directory)
    if text is None:
        os.unlink(early_account + "/info.json")
    else:
        host.write(early_account + "/info.json", text)
    result = renew(host)
    assert (result.status, result.stdout, result.stderr) == (1, "", "")
    assert result.errors == ["kova-letsencrypt:# can not read the account of a version 1 record. "
                             f"[{early_account}/info.json]"]
    assert ca.requests == []


# -- revocation ------------------------------------------------------------------------------------


def revoke(host, *more):
    return host.run("revoke", "-c", ID, *more)


def died(result, reason):
    """It ended abnormally, without a document; the renewal job stays."""
    assert (result.status, result.stdout) == (-signal.SIGABRT, "")
    assert result.errors == [f"kova-letsencrypt:# revoke failed. [{FOLDER}][{reason}]"]
    assert os.path.exists(paths.CRON_JOB)


@pytest.fixture
def issued(host, early_ca, archive):
    """A certificate that the early CA issued to the program; its record is of version 1."""
    os.makedirs(FOLDER)
    result = host.new_cert(early_ca.directory, [NAME], "-p", "1", "-c", ID)
    assert result.document["error"] == 0
    archive.enter(ID, {"services": []})
    early_ca.requests.clear()
    return early_ca.state.certificates[-1]


def test_early_record_is_revoked_at_its_own_server(host, ca, early_ca, issued):
    host.settings(server=ca.directory)
    before = expect.tree(FOLDER)
    result = revoke(host, "-v")
    assert (result.status, result.errors) == (0, [])
    assert issued.revoked
    assert early_ca.trace == ["directory", "revoke-cert"]
    assert ca.requests == []
    assert [text for text in result.debug if "Request" not in text] == [
        f"revoke certificate. [{ID}].", f"revoke with v1. [{FOLDER}].",
        f"setup acme url {early_ca.directory}", "revoke certifiaction.",
        f"revoke success. [{FOLDER}]."]
    # The early client leaves the record, so there still is something to renew.
    assert expect.tree(FOLDER) == before
    assert os.path.exists(paths.CRON_JOB)


def test_issued_is_revoked_twice(host, early_ca, issued):
    assert revoke(host).document == {"error": 0, "cert_path": FOLDER}
    result = revoke(host, "-v")
    assert (result.status, result.errors) == (0, [])
    assert "Has already revoked" in result.debug


def test_refusal_of_the_early_ca_ends_it_abnormally(host, early_ca, issued):
    early_ca.answer("revoke-cert", problem("unauthorized", "not yours", 403, "urn:acme:error:"))
    died(revoke(host), "Revoke failed - 403  not yours")


def test_early_account_that_is_lost_ends_it_abnormally(host, early_ca, issued):
    account = json.loads(expect.read(FOLDER + "/renew.json"))["account"]
    os.unlink(account + "/private_key.json")
    died(revoke(host), f"failed to load User Account key: {account}/private_key.json")
    assert early_ca.trace == ["directory"]
