"""kova-archive revoke: at the CA, for a reason or none; the files stay."""

import fcntl
import json
import os
import signal
import threading
import time

import pytest
from cryptography.hazmat.primitives.serialization import Encoding
from lib import expect, jws, paths
from lib.archive_cli import LOCK, PROGRAM, ArchiveCli, done, failed, refused
from lib.interruption import asks_for_lock, ended, telling
from lib.renewal import NAME, folder_of, record, service
from lib.signed_server import problem

REASONS = {"unspecified": 0, "keyCompromise": 1, "affiliationChanged": 3, "superseded": 4,
           "cessationOfOperation": 5}
ALL = ", ".join(REASONS)


def revoke(host, *more, identity="aaa", **options):
    return host.run("revoke", identity, *more, program=PROGRAM, **options)


@pytest.fixture
def issued(host, ca, account):
    """A certificate of the CA, in the index. Returns its folder."""
    os.makedirs(folder_of("aaa"))
    assert host.new_cert(ca.directory, [NAME], "-c", "aaa").status == 0
    ArchiveCli(host).write_index({"aaa": {"services": [service()]}})
    return folder_of("aaa")


def sent_certificate(ca, sent):
    assert jws.decode(sent["certificate"]) == ca.certificates[-1].public_bytes(Encoding.DER)


def test_without_a_reason_the_request_is_that_of_the_other_front(host, ca, issued):
    before, requests = expect.tree(issued), len(ca.requests)
    done(revoke(host), f"aaa is revoked at {ca.directory}.\nIts files stay; it is not renewed any "
                       "more.\nnginx/web still uses it.\n")
    assert ca.trace[requests:] == ["directory", "newNonce", "revokeCert"]
    sent, = ca.payloads("revokeCert")
    assert set(sent) == {"certificate"}
    sent_certificate(ca, sent)
    del before[issued + "/renew.json"]
    assert expect.tree(issued) == before
    assert ArchiveCli.services("aaa") == ["nginx/web"]
    assert not os.path.exists(paths.CRON_JOB)  # nothing is left to renew


@pytest.mark.parametrize("reason, number", REASONS.items())
def test_reason_goes_out_as_its_number(host, ca, issued, reason, number):
    result = revoke(host, "--reason", reason, "--json")
    done(result)
    assert json.loads(result.stdout) == {"error": 0, "id": "aaa", "server": ca.directory,
                                         "reason": reason, "services": ["nginx/web"]}
    sent, = ca.revoked
    assert sent["reason"] is not True and sent["reason"] == number
    assert set(sent) == {"certificate", "reason"}
    sent_certificate(ca, sent)


def test_no_reason_is_null_for_programs(host, ca, issued):
    assert json.loads(revoke(host, "--json").stdout)["reason"] is None


@pytest.mark.parametrize("reason", ["", "keycompromise", "1", "cACompromise", "superseded "])
def test_another_reason_is_a_usage_error(host, ca, issued, reason):
    requests = len(ca.requests)
    refused(revoke(host, "--reason", reason), f"there is no reason [{reason}], only {ALL}", "revoke")
    assert len(ca.requests) == requests and os.path.exists(issued + "/renew.json")


@pytest.mark.parametrize("status", [400, 409])
def test_one_that_was_revoked_before(host, ca, issued, status):
    ca.answer("revokeCert", problem("alreadyRevoked", "again?", status))
    assert revoke(host).status == 0
    assert not os.path.exists(issued + "/renew.json") and not os.path.exists(paths.CRON_JOB)


@pytest.mark.parametrize("type_, status", [("alreadyRevoked", 403), ("badPublicKey", 400)])
def test_one_that_the_ca_does_not_say_to_be_revoked(host, ca, issued, type_, status):
    ca.answer("revokeCert", problem(type_, "no", status))
    assert revoke(host).status == 1
    assert os.path.exists(issued + "/renew.json")


def test_refusal_of_the_ca(host, ca, issued):
    before = expect.tree(issued)
    ca.answer("revokeCert", problem("unauthorized", "not\tyours", 403))
    result = revoke(host, "--reason", "superseded")
    assert (result.status, result.stdout) == (1, "")
    assert result.stderr.startswith(
        "kova-archive: revoke: certificate [aaa] is not revoked: www.host.example: Revoke failed - "
        r"403  not\tyours [200]. ")
    assert expect.tree(issued) == before and os.path.exists(paths.CRON_JOB)


def test_refusal_for_programs(host, ca, issued):
    ca.answer("revokeCert", problem("unauthorized", "no", 403))
    result = revoke(host, "--json")
    document = json.loads(result.stdout)
    assert (result.status, document["error"], document["code"], document["name"],
            document["detail"]) == (1, 1, 200, NAME, "Revoke failed - 403  no")
    assert document["advice"] and document["msg"].endswith(document["advice"])


def test_second_revocation_finds_no_record(host, ca, issued):
    revoke(host)
    requests = len(ca.requests)
    failed(revoke(host), "revoke: certificate [aaa] cannot be revoked: it has no renewal record "
                         f"[{issued}/renew.json]")
    assert len(ca.requests) == requests


@pytest.mark.parametrize("content, why", [
    ("{", "its renewal record is no JSON object"), ("{}", "its renewal record is not complete"),
    (json.dumps(record("x", "x", version=3)), "its renewal record is of an unknown version")])
def test_record_that_cannot_be_used(host, content, why):
    cli = ArchiveCli(host)
    folder = cli.certificate("aaa")
    host.write(folder + "/renew.json", content, 0o400)
    failed(revoke(host), f"revoke: certificate [aaa] cannot be revoked: {why} [{folder}/renew.json]")


def test_early_protocol_knows_no_reasons(host, ca):
    folder = ArchiveCli(host).certificate("aaa")
    host.write(folder + "/renew.json", json.dumps(record(ca.directory, "/x", version=1)), 0o400)
    failed(revoke(host, "--reason", "superseded"),
           "revoke: certificate [aaa] cannot be revoked for a reason: it is of the early protocol, "
           "which knows none")
    assert ca.requests == []


@pytest.mark.parametrize("identity, message", [
    ("nope", f"[{paths.ARCHIVE}/nope] is not a folder of the archive"),
    ("..", "the id [..] is not a plain name"), ("a/b", "the id [a/b] is not a plain name")])
def test_wrong_ids(host, identity, message):
    failed(revoke(host, identity=identity), "revoke: " + message)


def test_one_outside_the_index_can_be_revoked(host, ca, issued):
    os.unlink(paths.ARCHIVE + "/INFO")
    done(revoke(host))
    assert len(ca.revoked) == 1


def test_usage(host):
    refused(host.run("revoke", program=PROGRAM), "missing ID", "revoke")
    refused(revoke(host, "--reason"), "missing value of --reason", "revoke")


def test_without_root_nothing_is_begun(host, ca, issued):
    requests = len(ca.requests)
    failed(host.run("--reuid=65534", "--regid=65534", "--clear-groups", PROGRAM, "revoke", "aaa",
                    program="/usr/bin/setpriv"), "revoke: only root can do this")
    assert len(ca.requests) == requests


def test_signal_ends_it(host, ca, issued):
    ca.answer("revokeCert", telling(signal.SIGINT, program=PROGRAM))
    ended(revoke(host), signal.SIGINT, "kova-archive")
    assert os.path.exists(issued + "/renew.json")


def test_job_stays_for_a_certificate_that_is_entered_meanwhile(host, ca, issued):
    """Somebody else holds the index while the job's other users are looked for."""
    def interfere():
        while os.path.exists(issued + "/renew.json"):
            time.sleep(0.01)
        asked.append(asks_for_lock(LOCK, PROGRAM))
        os.makedirs(folder_of("bbb"))
        host.write(folder_of("bbb") + "/renew.json", "{}", 0o400)
        ArchiveCli(host).write_index({"aaa": {"services": []}, "bbb": {"services": []}})
        fcntl.flock(lock, fcntl.LOCK_UN)

    asked = []
    with open(LOCK, "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        thread = threading.Thread(target=interfere)
        thread.start()
        result = revoke(host, env={"LD_PRELOAD": ""})  # its waits are real
        thread.join()
    assert asked == [True]
    assert (result.status, result.stderr) == (0, "")
    assert os.path.exists(paths.CRON_JOB)
