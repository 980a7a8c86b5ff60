"""Authorities that take base64url without padding only. The program sends requests and certificates
padded; with the installed settings it sends what was refused as malformed once more without."""

import base64

import pytest
from lib import expect, paths
from lib.http_script import Reply
from lib.real_ca import needs_no_padding
from lib.renewal import Archive, record
from lib.signed_server import problem

# Names of three lengths in a row: the requests for two of them need padding, that for the third not.
NAMES = ["w.example", "ww.example", "www.example"]
PADDED = [name for name in NAMES if not needs_no_padding([name])]
UNPADDED = [name for name in NAMES if needs_no_padding([name])]


def test_names_of_these_tests_fit():
    assert (len(PADDED), len(UNPADDED)) == (2, 1)


def strict(member):
    """Answers as a server that refuses padding does, and as usual otherwise."""
    def answer(request, normal):
        if request.jws.payload[member].endswith("="):
            return problem("malformed", "illegal base64 data", 400)
        return normal()
    return answer


def texts(ca, endpoint, member):
    return [payload[member] for payload in ca.payloads(endpoint)]


@pytest.mark.parametrize("name", PADDED)
def test_request_refused_as_malformed_is_sent_again_without_padding(host, ca, account, name):
    host.settings(skipdns01=True)
    ca.always("finalize", strict("csr"))
    result = host.new_cert(ca.directory, [name])
    assert result.document["error"] == 0
    first, second = texts(ca, "finalize", "csr")
    assert first.endswith("=") and second == first.rstrip("=")
    assert result.errors == []


@pytest.mark.parametrize("value", [None, False, 1])
def test_without_the_setting_it_is_not_sent_again(host, ca, account, value):
    host.bare_settings(unpaddedretry=value, orderattempts=1, skipdns01=True)
    ca.always("finalize", strict("csr"))
    result = host.new_cert(ca.directory, [PADDED[0]])
    expect.gave_up(result, 200, "new-cert: Unexpect httpcode. (new-cert)", attempts=1)
    assert len(ca.calls("finalize")) == 1
    assert texts(ca, "finalize", "csr")[0].endswith("=")


@pytest.mark.parametrize("reply", [problem("badCSR", "no", 400), problem("malformed", "no", 403)])
def test_another_refusal_is_final(host, ca, account, reply):
    host.settings(orderattempts=1, skipdns01=True)
    ca.always("finalize", reply)
    result = host.new_cert(ca.directory, [PADDED[0]])
    expect.gave_up(result, 200, "new-cert: Unexpect httpcode. (new-cert)", attempts=1)
    assert len(ca.calls("finalize")) == 1


@pytest.mark.parametrize("name", UNPADDED)
def test_request_without_padding_is_sent_once(host, ca, account, name):
    host.settings(orderattempts=1, skipdns01=True)
    ca.always("finalize", problem("malformed", "no", 400))
    result = host.new_cert(ca.directory, [name])
    expect.gave_up(result, 200, "new-cert: Unexpect httpcode. (new-cert)", attempts=1)
    assert len(ca.calls("finalize")) == 1


def test_request_refused_twice_fails_as_any_other(host, ca, account):
    host.settings(orderattempts=1, skipdns01=True)
    ca.always("finalize", problem("malformed", "no", 400))
    result = host.new_cert(ca.directory, [PADDED[0]])
    expect.gave_up(result, 200, "new-cert: Unexpect httpcode. (new-cert)", attempts=1)
    assert len(ca.calls("finalize")) == 2


@pytest.mark.parametrize("remainder, sent", [(0, 1), (1, 2), (2, 2)])
def test_certificate_to_revoke_is_sent_again_without_padding(host, ca, account, remainder, sent):
    folder = Archive(host).add("abc", record=record(ca.directory, account))
    text = base64.urlsafe_b64encode(b"x" * (300 + remainder)).decode()
    host.write(folder + "/cert.pem",
               f"-----BEGIN CERTIFICATE-----\n{text}\n-----END CERTIFICATE-----\n", 0o400)
    replies = [problem("malformed", "illegal base64 data", 400)] * (sent - 1) + [Reply(200)]
    ca.answer("revokeCert", *replies)
    result = host.run("revoke", "-c", "abc")
    assert result.document == {"error": 0, "cert_path": f"{paths.ARCHIVE}/abc"}
    assert texts(ca, "revokeCert", "certificate") == [text, text.rstrip("=")][:sent]
    assert result.errors == []
