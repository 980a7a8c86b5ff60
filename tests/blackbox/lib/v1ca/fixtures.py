"""What the tests of the early protocol start from; a test file imports what it uses."""

import json

import pytest

from .. import expect, jws, paths
from ..nginx import Nginx
from .ca import AcmeV1Ca
from .message import parse_key

CONTACT = "admin@host.example"


@pytest.fixture(name="early_ca")
def early_ca_fixture():
    """The CA. The test fails when the client broke a rule of the protocol; a test that provokes
    this clears early_ca.violations."""
    server = AcmeV1Ca()
    yield server
    server.close()
    assert server.violations == []


@pytest.fixture(name="web")
def web_fixture(host):
    """nginx on port 80, where the CA fetches the tokens."""
    return Nginx(host).start()


@pytest.fixture(name="early_account")
def early_account_fixture(host, early_ca, account_key):
    """An account that is known to the CA and stored on the host; its value is the folder. Saves a
    registration where a test is about later steps."""
    return store_account(host, early_ca, account_key)


def store_account(host, ca, key, name="early", **changes):
    """Registers the key, the terms agreed to, and stores the account as the program does."""
    jwk = jws.key_to_jwk(key)
    public = {member: jwk[member] for member in ("e", "kty", "n")}
    ca.registrations.register(parse_key(public), ["mailto:" + CONTACT], ca.registrations.terms_url)
    info = {"contact": CONTACT, "directory": ca.directory, "version": 1, **changes}
    folder = f"{paths.ACCOUNTS}/{name}"
    host.write(folder + "/info.json", json.dumps(info), 0o600)
    host.write(folder + "/private_key.json", json.dumps(jwk), 0o600)
    return folder


def new_cert(host, server, domains, *more, **options):
    return host.new_cert(server, domains, "-p", "1", *more, **options)


def failed(result, code, message, file="client_v1"):
    """The run ended with that failure document alone; the early protocol logs no attempts."""
    expect.failed(result, code, message, file)
    assert result.errors == []


def steps(result):
    """The progress messages without those of the transport."""
    return [line for line in result.debug
            if not line.startswith(("GET Request: ", "Post Request: ", "Failed to KLIBBoxinfo"))]
