"""revoke: at the CA, in the archive and in the cron table."""

import base64
import json
import os
import re
import signal
import textwrap

import pytest
from cryptography import x509
from cryptography.hazmat.primitives.serialization import Encoding
from lib import expect, jws, paths
from lib.http_script import Reply
from lib.renewal import INDEX, NAME, Archive, folder_of, record, service, tolerate_padding
from lib.signed_server import problem

ID = "AbC123"
FOLDER = folder_of(ID)
TAG = "kova-letsencrypt:# "
NOT_JSON = ["", "{", "7", "null", "[]", '"x"', "[" * 100000]


@pytest.fixture
def archive(host):
    return Archive(host)


@pytest.fixture(autouse=True)
def padding(ca):
    tolerate_padding(ca)


@pytest.fixture
def job(host):
    """The weekly renewal job, as it stands on a host with an ACME certificate."""
    host.write(paths.CRON_JOB, "@weekly root true\n")


def issue(host, ca, archive, identity=ID, domains=(NAME,)):
    """A certificate that the CA issued, entered in the index under that id."""
    os.makedirs(folder_of(identity))
    result = host.new_cert(ca.directory, list(domains), "-c", identity)
    assert result.document["error"] == 0
    archive.enter(identity, {"services": []})
    return folder_of(identity)


def revoke(host, *more, identity=ID):
    return host.run("revoke", "-c", identity, *more)


def finished(result, identity=ID):
    """It ran to its end: the styled result, whatever became of the certificate."""
    assert result.stdout == ('{\n   "cert_path" : "%s",\n   "error" : 0\n}\n'
                             % folder_of(identity))
    assert (result.status, result.stderr) == (0, "")


def died(result, reason):
    """It ended abnormally: no document, the reason in the system log alone."""
    assert result.status == -signal.SIGABRT
    assert result.stdout == ""
    assert result.errors == [f"{TAG}revoke failed. [{FOLDER}][{reason}]"]


def job_stands():
    return os.path.exists(paths.CRON_JOB)


# -- at the CA -------------------------------------------------------------------------------------


def test_certificate_is_revoked_with_the_recorded_account(host, ca, account, archive):
    issue(host, ca, archive)
    before = len(ca.requests)
    result = revoke(host)
    finished(result)
    assert result.errors == []
    assert ca.trace[before:] == ["directory", "newNonce", "revokeCert"]
    der = ca.certificates[-1].public_bytes(Encoding.DER)
    sent, = ca.payloads("revokeCert")
    assert set(sent) == {"certificate"}  # no reason
    assert jws.decode(sent["certificate"].rstrip("=")) == der
    assert len(ca.revoked) == 1
    assert ca.calls("revokeCert")[0].jws.header["kid"] in ca.accounts


def test_only_the_record_goes(host, ca, account, archive):
    issue(host, ca, archive)
    before = expect.tree(FOLDER)
    finished(revoke(host))
    del before[FOLDER + "/renew.json"]
    assert expect.tree(FOLDER) == before


def test_only_the_first_certificate_of_the_file_is_sent(host, ca, account, archive):
    issue(host, ca, archive)
    leaf = expect.read(FOLDER + "/cert.pem")
    os.unlink(FOLDER + "/cert.pem")
    host.write(FOLDER + "/cert.pem", f"preamble\n{leaf}\n{expect.read(FOLDER + '/chain.pem')}")
    finished(revoke(host))
    assert jws.decode(ca.revoked[0]["certificate"]) == x509.load_pem_x509_certificate(
        leaf.encode()).public_bytes(Encoding.DER)


@pytest.mark.parametrize("remainder", [0, 1, 2])
def test_padding_is_kept_without_strict_encoding(host, ca, account, archive, remainder):
    host.settings(strictencoding=None)
    archive.add(ID, record=record(ca.directory, account))
    data = b"x" * (300 + remainder)
    os.unlink(FOLDER + "/cert.pem")
    text = base64.b64encode(data).decode()
    host.write(FOLDER + "/cert.pem", "-----BEGIN CERTIFICATE-----\n" + "\n".join(
        textwrap.wrap(text, 64)) + "\n-----END CERTIFICATE-----\n")
    ca.answer("revokeCert", Reply(200))
    finished(revoke(host))
    assert ca.payloads("revokeCert") == [
        {"certificate": text.replace("+", "-").replace("/", "_")}]


def test_revoked_certificate_counts_as_success(host, ca, account, archive, job):
    issue(host, ca, archive)
    ca.answer("revokeCert", problem("alreadyRevoked", "done before", 409))
    result = revoke(host, "-v")
    assert "Has already revoked" in result.debug
    assert result.debug[-1] == f"revoke success. [{FOLDER}]."
    assert result.status == 0
    assert not os.path.exists(FOLDER + "/renew.json")
    assert not job_stands()


def test_progress_messages(host, ca, account, archive):
    issue(host, ca, archive)
    result = revoke(host, "-v")
    sent = ca.payloads("revokeCert")[0]["certificate"]
    assert [text for text in result.debug if "Request" not in text] == [
        f"revoke certificate. [{ID}].", f"revoke with v2. [{FOLDER}].",
        f"setup acme url {ca.directory}", f"revoke certifiaction for {FOLDER}.",
        "=========== certification info ===========", sent,
        "==========================================", f"revoke success. [{FOLDER}]."]


def test_second_revocation_finds_no_record(host, ca, account, archive):
    issue(host, ca, archive)
    finished(revoke(host))
    result = revoke(host)
    finished(result)
    assert result.errors == [f"{TAG}renew json not exist. [{FOLDER}/renew.json]"]
    assert len(ca.revoked) == 1


def test_revoked_certificate_is_no_longer_renewed(host, ca, account, archive):
    archive.add(ID, service(), record=record(ca.directory, account))
    ca.answer("revokeCert", Reply(200))
    finished(revoke(host))
    result = host.run("renew-all")
    assert (result.status, result.stdout) == (0, "")
    assert ca.calls("newOrder") == []


# -- refusals end it abnormally --------------------------------------------------------------------


@pytest.mark.parametrize("status, detail", [
    (403, "not yours"), (404, ""), (500, "100%s %n"), (400, "malformed"), (201, "created")])
def test_refusal_ends_it_abnormally(host, ca, account, archive, job, status, detail):
    issue(host, ca, archive)
    before = expect.tree(FOLDER)
    ca.answer("revokeCert", problem("unauthorized", detail, status))
    died(revoke(host), f"Revoke failed - {status}  {detail}")
    assert expect.tree(FOLDER) == before
    assert job_stands()


def test_reason_of_the_authority_stays_on_one_line_of_the_log(host, ca, account, archive, job):
    issue(host, ca, archive)
    ca.answer("revokeCert", problem("unauthorized", "no\nOct 1 host sshd: all is well\r\t\x1b[2J", 403))
    died(revoke(host), "Revoke failed - 403  no Oct 1 host sshd: all is well   [2J")


def test_refusal_without_json(host, ca, account, archive, job):
    issue(host, ca, archive)
    ca.answer("revokeCert", Reply(502, "<html>"))
    died(revoke(host), "body is not json.")
    assert job_stands()


def test_server_that_is_down(host, account, archive, job):
    archive.add(ID, record=record("http://127.0.0.1:9/directory", account))
    died(revoke(host), "Server is not reachable.")
    assert job_stands() and os.path.exists(FOLDER + "/renew.json")


def test_missing_account(host, ca, archive, job):
    archive.add(ID, record=record(ca.directory, "/nowhere"))
    died(revoke(host), "failed to load User Info: /nowhere/info.json")
    assert ca.trace == ["directory"]
    assert job_stands()


@pytest.mark.parametrize("text, reason", [
    (None, "no -----BEGIN CERTIFICATE-----"), ("", "no -----BEGIN CERTIFICATE-----"),
    ("-----BEGIN CERTIFICATE-----\nTUlJ\n", "no -----END CERTIFICATE-----")])
def test_certificate_file_that_holds_none(host, ca, account, archive, job, text, reason):
    archive.add(ID, record=record(ca.directory, account))
    os.unlink(FOLDER + "/cert.pem")
    if text is not None:
        host.write(FOLDER + "/cert.pem", text)
    died(revoke(host), reason)
    assert ca.calls("revokeCert") == []
    assert job_stands() and os.path.exists(FOLDER + "/renew.json")


def test_progress_up_to_an_abnormal_end_is_not_lost(host, ca, account, archive):
    issue(host, ca, archive)
    ca.answer("revokeCert", problem("unauthorized", "not yours", 403))
    result = revoke(host, "-v")
    assert result.status == -signal.SIGABRT
    assert result.debug[0] == f"revoke certificate. [{ID}]."
    assert result.debug[-1] == f"Post Request: {ca.links['revokeCert']}"
    assert "error" not in result.stdout


# -- problems with the record are only logged ------------------------------------------------------


def test_certificate_without_a_record(host, archive):
    archive.add(ID)
    result = revoke(host)
    finished(result)
    assert result.errors == [f"{TAG}renew json not exist. [{FOLDER}/renew.json]"]


def test_unknown_id(host, archive):
    host.write(INDEX, "{}")
    result = revoke(host, identity="gone")
    finished(result, "gone")
    assert result.errors == [f"{TAG}renew json not exist. [{folder_of('gone')}/renew.json]"]


@pytest.mark.parametrize("text", NOT_JSON)
def test_record_that_is_no_json_object(host, archive, job, text):
    archive.add(ID, record=text)
    result = revoke(host)
    finished(result)
    assert result.errors == [f"{TAG}renew info is not json. [{FOLDER}]"]
    assert job_stands()  # there still is a record, such as it is


@pytest.mark.parametrize("name", ["server", "domains", "account", "version"])
def test_record_that_lacks_a_member(host, ca, account, archive, job, name):
    content = record(ca.directory, account)
    del content[name]
    archive.add(ID, record=content)
    result = revoke(host)
    finished(result)
    assert result.errors == [f"{TAG}renew info contain info not enoungh. [{FOLDER}]"]
    assert ca.requests == []
    assert job_stands()


@pytest.mark.parametrize("domains", ["", None, 7, ["a.example"], {}])
def test_domains_only_have_to_be_there(host, ca, account, archive, domains):
    archive.add(ID, record=record(ca.directory, account, domains))
    ca.answer("revokeCert", Reply(200))
    result = revoke(host)
    finished(result)
    assert result.errors == []
    assert not os.path.exists(FOLDER + "/renew.json")


@pytest.mark.parametrize("version", ["2", "1", 0, 3, -1, 2.5, True, None, [2], 2**32 + 2])
def test_wrong_version(host, ca, account, archive, job, version):
    archive.add(ID, record=record(ca.directory, account, version=version))
    result = revoke(host, "-v")
    assert result.errors == [f"{TAG}renew version seems to be wrong. [{FOLDER}]"]
    assert result.debug == [f"revoke certificate. [{ID}]."]
    assert result.status == 0
    assert ca.requests == []
    assert job_stands()


# -- the renewal job -------------------------------------------------------------------------------


def test_last_acme_certificate_takes_the_job_along(host, ca, account, archive, job):
    archive.add("self-signed", organisation="Kova Inc.")
    issue(host, ca, archive)
    result = revoke(host)
    finished(result)
    assert result.errors == []
    assert not job_stands()


def test_job_that_cannot_be_removed_is_in_the_log(host, ca, account, archive, job):
    issue(host, ca, archive)
    os.unlink(paths.CRON_JOB)
    os.mkdir(paths.CRON_JOB)
    result = revoke(host)
    finished(result)
    [line] = result.errors
    assert re.fullmatch(r"kova-letsencrypt:# Failed to remove the renewal job\."
                        r"\[0x0015 \S*crond\.cpp:\d+\]", line)  # 21: a folder


def test_one_of_two_keeps_the_job(host, ca, account, archive, job):
    issue(host, ca, archive, "one", ["one.example"])
    issue(host, ca, archive, "two", ["two.example"])
    finished(revoke(host, identity="one"), "one")
    assert expect.read(paths.CRON_JOB) == "@weekly root true\n"
    finished(revoke(host, identity="two"), "two")
    assert not job_stands()


def test_acme_certificate_outside_of_the_index_does_not_keep_the_job(host, ca, account, archive,
                                                                     job):
    archive.add("unlisted", record=record(ca.directory, account))
    issue(host, ca, archive)
    host.write(INDEX, json.dumps({ID: {"services": []}}))
    finished(revoke(host))
    assert not job_stands()


def test_index_that_names_a_deleted_folder(host, ca, account, archive, job):
    issue(host, ca, archive)
    archive.enter("gone", {"services": []})
    result = revoke(host)
    finished(result)
    assert result.errors == [
        f"utils:# Folder not exist. [No such file or directory][{folder_of('gone')}]"]
    assert not job_stands()


def test_missing_index_takes_the_job_along(host, ca, account, archive, job):
    issue(host, ca, archive)
    os.unlink(INDEX)
    result = revoke(host)
    finished(result)
    assert result.errors == [f"utils:# File not exist. [No such file or directory][{INDEX}]"]
    assert not job_stands()


@pytest.mark.parametrize("text", NOT_JSON)
def test_broken_index_takes_the_job_along(host, ca, account, archive, job, text):
    issue(host, ca, archive)
    host.write(INDEX, text)
    result = revoke(host)
    finished(result)
    reason = "Success" if text in ("", "{", "[" * 100000) else "not an object"
    assert result.errors == [f"utils:# Read json file failed. [{reason}][{INDEX}]"]
    assert not job_stands()


def test_self_signed_certificate_alone_takes_the_job_along(host, archive, job):
    archive.add(ID, organisation="Kova Inc.")
    finished(revoke(host))
    assert not job_stands()


def test_no_job_is_no_failure(host, ca, account, archive):
    issue(host, ca, archive)
    os.unlink(paths.CRON_JOB)
    result = revoke(host)
    finished(result)
    assert result.errors == []
