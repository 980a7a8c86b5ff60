"""The order of a renewal names the certificate that it replaces; and with renewalinfo absent or of
another type every request is the one of a program that knows nothing of it."""

import json
import re

import pytest
from lib import expect, jws
from lib.acme_ca import AcmeCa
from lib.accounts import store_account
from lib.renewal import NAME, Archive, folder_of, put_certificate, quiet, record, serial
from lib.renewal_info import DAY, identifier, window
from lib.signed_server import problem

ID = "AbC123"
CERTIFICATE = folder_of(ID) + "/cert.pem"
PAST = window(-2 * DAY, -DAY)
OFF = [None, False, 1, "true", [True], {}]


@pytest.fixture
def archive(host):
    host.settings(renewalinfo=True)
    return Archive(host)


@pytest.fixture
def ending(ca, account, archive):
    """A certificate that is about to end."""
    ca.renewal_info = PAST
    archive.add(ID, days=10, record=record(ca.directory, account))
    return identifier(CERTIFICATE)


def replaced(ca):
    return [payload.get("replaces") for payload in ca.payloads("newOrder")]


@pytest.mark.parametrize("command", [["renew-all"], ["renew", "-c", ID]])
def test_renewal_says_what_it_replaces(host, ca, ending, command):
    assert host.run(*command).errors == []
    assert replaced(ca) == [ending] and ca.calls("renewalInfo") == []
    assert serial(CERTIFICATE) == ca.certificates[0].serial_number


@pytest.mark.parametrize("number", [0x7F, 0x80, 0xFFFFFFFFFFFFFFFF, 2 ** 158 - 1, 2 ** 159 - 1])
def test_identifier_has_every_octet_of_the_serial_number(host, ca, ending, number, monkeypatch):
    monkeypatch.setattr("cryptography.x509.random_serial_number", lambda: number)
    put_certificate(host, folder_of(ID), ca.issuer, [NAME], 10)
    monkeypatch.undo()
    assert serial(CERTIFICATE) == number
    expected = identifier(CERTIFICATE)
    quiet(host.run("renew-all"))
    assert replaced(ca) == [expected]
    key, number_text = expected.split(".")
    assert len(jws.decode(key)) == 20
    octets = jws.decode(number_text)
    assert int.from_bytes(octets, "big", signed=True) == number
    assert len(octets) == number.bit_length() // 8 + 1


def test_new_certificate_replaces_none(host, ca, ending):
    expect.issued(host.new_cert(ca.directory, [NAME]), [NAME])
    expect.issued(host.new_cert(ca.directory, [NAME], "-c", ID), [NAME])
    assert replaced(ca) == [None, None] and ca.calls("renewalInfo") == []


def test_ca_without_renewal_information_is_not_told(host, ca, ending):
    ca.renewal_info = None
    quiet(host.run("renew-all"))
    assert replaced(ca) == [None]


def test_damaged_certificate_replaces_none(host, ca, ending):
    host.write(CERTIFICATE, "garbage", 0o400)
    assert host.run("renew", "-c", ID).status == 0
    assert replaced(ca) == [None] and len(ca.certificates) == 1


def refused(status):
    return [f"client_v2:# The CA refused the order as a replacement of [{{}}] ({status}), it is "
            "placed without."]


def test_certificate_that_another_order_replaced(host, ca, ending):
    ca.replaced.add(ending)
    result = host.run("renew-all")
    assert (result.stdout, result.errors) == ("", [refused(409)[0].format(ending)])
    assert replaced(ca) == [ending, None] and len(ca.certificates) == 1


@pytest.mark.parametrize("kind, status", [("malformed", 400), ("malformed", 404),
                                          ("unauthorized", 403), ("conflict", 409)])
def test_refused_replacement_is_ordered_without(host, ca, ending, kind, status):
    ca.answer("newOrder", problem(kind, "not that one", status))
    result = host.run("renew-all")
    assert (result.stdout, result.errors) == ("", [refused(status)[0].format(ending)])
    assert replaced(ca) == [ending, None] and len(ca.certificates) == 1


def test_refused_twice_is_a_failure(host, ca, ending):
    ca.always("newOrder", problem("malformed", "not at all", 400))
    result = host.run("renew-all")
    assert replaced(ca) == [ending, None]
    assert json.loads(result.stdout.splitlines()[0])["error"] == 102


@pytest.mark.parametrize("kind, status, code", [("rateLimited", 429, 104),
                                                ("rejectedIdentifier", 400, 102),
                                                ("serverInternal", 500, 200)])
def test_order_that_is_refused_for_another_reason_is_not_repeated(host, ca, ending, kind, status,
                                                                  code):
    ca.always("newOrder", problem(kind, "no", status))
    result = host.run("renew-all")
    assert json.loads(result.stdout.splitlines()[0])["error"] == code
    assert replaced(ca) == [ending]


def test_renewal_that_failed_late_is_ordered_without(host, ca, ending):
    """The CA counts the certificate as replaced once the order is finalized."""
    ca.answer("certificate", problem("serverInternal", "later", 500))
    assert host.run("renew-all").stdout != ""
    result = host.run("renew-all")
    assert result.errors == [refused(409)[0].format(ending)]
    assert replaced(ca) == [ending, ending, None]
    assert serial(CERTIFICATE) == ca.certificates[1].serial_number


# -- inert -----------------------------------------------------------------------------------------


def bare(text, server):
    """A request's text without what differs from run to run: nonces and the server's numbers."""
    text = re.sub(re.escape(server.url), "CA", text)
    return re.sub(r"/(account|order|authz|challenge|finalize|certificate)/\d+", r"/\1/N", text)


def seen(server):
    """Every byte that the CA saw but nonces, signatures, ports, and the CSR of a fresh key."""
    everything = []
    for request in server.requests:
        headers = [(name, "" if name in ("Host", "Content-Length") else value)
                   for name, value in request.headers]
        message = []
        if request.jws:
            header = {**request.jws.header, "nonce": ""}
            text = request.jws.text.decode()
            text = f"csr of {len(text)}" if '"csr"' in text else text
            message = [bare(json.dumps(header), server), bare(text, server),
                       sorted(json.loads(request.body)), request.body[-1:]]
        everything.append([request.method, bare(request.target, server), request.version, headers,
                           message])
    return everything


def whole_life(host, account_key, **settings):
    """What a CA sees of one issuance, a look at what is not due, and one renewal."""
    server = AcmeCa()
    try:
        server.renewal_info = PAST
        jwk = jws.key_to_jwk(account_key)
        account = store_account(host, server.directory, server.register(jwk), jwk)
        host.settings(orderattempts=1, skipdns01=True, **settings)
        expect.issued(host.new_cert(server.directory, [NAME, "b.example"]))
        archive = Archive(host)
        archive.add(ID, days=80, record=record(server.directory, account))
        told = expect.ignored_key("renewalinfo", settings["renewalinfo"])
        quiet(host.run("renew-all"), told)
        not_due = len(server.requests)
        put_certificate(host, folder_of(ID), server.issuer, [NAME], 10)
        quiet(host.run("renew-all"), told)
        assert server.violations == []
        return seen(server)[:not_due], seen(server)[not_due:], server
    finally:
        server.close()


@pytest.mark.parametrize("value", OFF)
def test_every_request_is_the_same_when_it_is_off(host, account_key, value):
    plain = whole_life(host, account_key, renewalinfo=None)
    assert len(plain[0]) == 11 and len(plain[1]) == 8
    assert whole_life(host, account_key, renewalinfo=value)[:2] == plain[:2]
    assert not any("replaces" in str(request) for request in plain[1])


def test_with_it_only_the_question_and_the_replacement_come_to_it(host, account_key):
    plain = whole_life(host, account_key, renewalinfo=None)
    host.settings(checkissued=True)
    on = whole_life(host, account_key, renewalinfo=True)
    issued = len(plain[0])
    assert on[0][:issued] == plain[0]
    # The past window makes the certificate due at once: a question, then the renewal.
    question, renewal = on[0][issued:issued + 2], on[0][issued + 2:]
    assert [entry[1].split("/")[1] for entry in question] == ["directory", "renewal-info"]
    without = [json.loads(re.sub(r'\\"replaces\\": ?\\"[^"]*\\",?|,\\"replaces\\": ?\\"[^"]*\\"', "",
                                 json.dumps(entry, default=list))) for entry in renewal]
    assert without == json.loads(json.dumps(plain[1], default=list))
