"""What can go wrong once the names are proved: finalize, download, storage."""

import os

import pytest
from lib import expect, paths
from lib.http_script import Reply, edited, edited_json
from lib.signed_server import bad_nonce, problem

NAME = "www.host.example"


def test_finalize_keeps_getting_bad_nonces(host, ca, account, once):
    ca.always("finalize", bad_nonce())
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 205, "badnonce for new-cert", attempts=1)
    assert result.errors[0] == "client_v2:# Failed to new cert due to badnonce"
    assert len(ca.calls("finalize")) == 4


@pytest.mark.parametrize("status", [201, 202, 400, 403, 404, 429, 500])
def test_finalize_with_another_status(host, ca, account, once, status):
    ca.answer("finalize", problem("badCSR", "not consulted", status))
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 200, "new-cert: Unexpect httpcode. (new-cert)", attempts=1)
    assert result.errors[0] == (
        f"client_v2:# Failed to new cert with unknown (unknown) [{status}]")


@pytest.mark.parametrize("status", [201, 202, 403, 404, 500])
def test_download_with_another_status(host, ca, account, once, status):
    ca.answer("finalize", edited_json(lambda body: {"certificate": body["certificate"], "a": "%s"}))
    ca.answer("certificate", edited(status=status))
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 200, "new-cert: Unexpect httpcode. (download cert)", attempts=1)
    url = ca.calls("certificate")[0].jws.header["url"]
    assert result.errors[0] == ('client_v2:# Failed to download cert with '
                                '{"a":"%%s","certificate":"%s"} [%d]' % (url, status))


def test_status_of_the_finalized_order_is_not_looked_at(host, ca, account):
    ca.answer("finalize", edited_json(lambda body: {"certificate": body["certificate"],
                                                    "status": "invalid"}))
    expect.issued(host.new_cert(ca.directory, [NAME]))


def test_finalized_order_without_a_certificate(host, ca, account, once):
    ca.answer("finalize", edited_json(lambda body: {"status": "valid"}))
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 100, "Server is not reachable.", "client_network", attempts=1)


BEGIN, END = "-----BEGIN CERTIFICATE-----", "-----END CERTIFICATE-----"


@pytest.mark.parametrize("body", [
    "", "<html>", BEGIN, END, END + BEGIN, f"{BEGIN}\nx\n{END}\n",
    f"{END}\n{BEGIN}\nx\n", f"{BEGIN}\nx\n{BEGIN}\ny\n{END}\n"])
def test_chain_that_cannot_be_split(host, ca, account, body):
    host.settings(orderattempts=1, skipdns01=True, checkissued=None)
    ca.answer("certificate", Reply(200, body))
    expect.gave_up(host.new_cert(ca.directory, [NAME]), 202, "Failed to save pems", attempts=1)
    assert host.certificates() == []


def test_single_certificate_is_not_enough(host, ca, account, once):
    ca.issuer.intermediates.clear()
    expect.gave_up(host.new_cert(ca.directory, [NAME]), 202, "Failed to save pems", attempts=1)
    assert host.certificates() == []


def test_files_of_another_kind_stay_when_saving_fails(host, ca, account):
    host.settings(orderattempts=1, skipdns01=True, checkissued=None)
    host.write(paths.ARCHIVE + "/AbC123/info", "mine")
    ca.answer("certificate", Reply(200, ""))
    result = host.new_cert(ca.directory, [NAME], "-c", "AbC123")
    expect.gave_up(result, 202, "Failed to save pems", attempts=1)
    assert expect.read(paths.ARCHIVE + "/AbC123/info") == "mine"


def test_archive_that_is_missing(host, ca, account, once):
    os.rmdir(paths.ARCHIVE)
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 202, "Failed to create folder for account item.", attempts=1)


def test_nothing_that_was_there_is_touched_by_a_failed_run(host, ca, account, once):
    host.write(paths.ARCHIVE + "/INFO", '{"old": {}}')
    host.write(paths.ARCHIVE + "/old/cert.pem", "old", 0o400)
    before = expect.tree("/usr/kova")
    ca.always("finalize", Reply(500))
    expect.gave_up(host.new_cert(ca.directory, [NAME]), 200,
                   "new-cert: Unexpect httpcode. (new-cert)", attempts=1)
    assert expect.tree("/usr/kova") == before
