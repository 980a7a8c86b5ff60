"""kova-archive obtain, renew and revoke with everything real: the CA, the web server that publishes
the proofs and then serves the certificate, and the client that looks at it."""

import json
import os

import pytest
from cryptography import x509
from lib import expect
from lib.archive_cli import PROGRAM
from lib.https_site import FOLDER, HttpsSite
from lib.obtain import BIND, MAIL
from lib.real_ca import RealCa
from lib.renewal import serial

NAMES = ["www.pebble.example", "pebble.example"]
REAL_WAITS = {"LD_PRELOAD": ""}


@pytest.fixture
def nginx(host):
    return HttpsSite(host)


def run(host, *arguments):
    return host.run(*arguments, program=PROGRAM, env=REAL_WAITS)


def obtain(host, ca, *more, names=NAMES):
    result = run(host, "obtain", *(word for name in names for word in ("-d", name)), "-m", MAIL,
                 "--server", ca.directory, "--json", *more)
    assert (result.status, result.stderr) == (0, ""), result
    return result.document


def last_of_chain(folder):
    end = "-----END CERTIFICATE-----\n"
    last = expect.read(folder + "/fullchain.pem").split(end)[-2] + end
    return x509.load_pem_x509_certificate(last.encode())


def test_from_nothing_to_a_site_that_is_renewed_and_revoked(host, nginx):
    ca = RealCa(host, strict=True)
    host.settings(renewanyissuer=True)
    document = obtain(host, ca, *BIND)
    identity, number = document["id"], serial(document["folder"] + "/cert.pem")
    assert document["names"] == NAMES and document["service_folder"] == FOLDER
    expect.certificate_folder(document["folder"], NAMES)
    assert serial(FOLDER + "/cert.pem") == number and nginx.reloads == ["web"]
    nginx.serve_https()
    nginx.serves(NAMES[1], ca.root(), number)
    assert run(host, "renew", identity).stdout.startswith(f"{identity} is not due: ")
    result = run(host, "renew", identity, "--force")
    assert (result.status, result.stderr) == (0, "")
    renewed = serial(FOLDER + "/cert.pem")
    assert renewed != number and nginx.reloads == ["web", "web"]
    nginx.serves(NAMES[0], ca.root(), renewed)
    result = run(host, "revoke", identity, "--reason", "keyCompromise")
    assert (result.status, result.stderr) == (0, "")
    assert (ca.status(renewed), ca.status(number)) == ("Revoked", "Valid")
    assert ca.revocation(renewed)["Reason"] == 1
    assert os.path.exists(document["folder"] + "/privkey.pem")


@pytest.mark.parametrize("settings", [{}, {"keytype": "rsa3072", "profile": "shortlived"}])
def test_choices_are_kept_for_the_renewals(host, nginx, settings):
    ca = RealCa(host, PEBBLE_ALTERNATE_ROOTS="2")
    wanted = x509.load_pem_x509_certificate(ca.root(2).encode()).subject
    name = wanted.rfc4514_string().removeprefix("CN=")
    host.settings(preferredchain="nobody" if settings else None, **settings)
    folder = obtain(host, ca, "--key-type", "ec256", "--preferred-chain", name)["folder"]
    kept = json.loads(expect.read(folder + "/renew.json"))
    assert (kept["key_type"], kept["preferred_chain"]) == ("ec256", name)
    for _ in range(2):
        assert expect.key_type(folder) == "ec256"
        assert last_of_chain(folder).issuer == wanted
        result = run(host, "renew", os.path.basename(folder), "--force")
        assert (result.status, result.stderr) == (0, "")


def test_refusal_is_one_sentence(host, nginx):
    ca = RealCa(host)
    nginx.publish("/var/empty")
    result = run(host, "obtain", "-d", NAMES[0], "-m", MAIL, "--server", ca.directory)
    assert (result.status, result.stdout, result.stderr.count("\n")) == (1, "", 1)
    assert result.stderr.startswith(f"kova-archive: obtain: {NAMES[0]}: ")
    assert "[110]. Make sure that /.well-known/acme-challenge/ of that name leads to" in result.stderr
