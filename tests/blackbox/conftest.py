"""Fixtures of the black-box tests; README.md shows how to use them."""

import os

import pytest
from cryptography.hazmat.primitives.asymmetric import rsa

pytest.register_assert_rewrite("lib.expect")

from lib import jws
from lib.accounts import store_account
from lib.acme_ca import AcmeCa
from lib.ddns import DdnsService
from lib.dns_server import DnsServer
from lib.host import Host
from lib.renewal import Archive, Reloads
from lib.reporting import pytest_runtest_makereport  # noqa: F401
from lib.router import Router


def pytest_make_parametrize_id(val):
    """Short names for long parameters; they go into the environment of every child."""
    text = repr(val)
    return None if len(text) <= 60 else f"{text[:30]}...{len(text)}"


def _closing(server):
    yield server
    server.close()


@pytest.fixture
def host(tmp_path):
    """A fresh host (lib/host.py): installed tree, empty archive and account store, own syslog."""
    host = Host(os.environ["KOVA_STAGE"], os.environ["KOVA_TEST_PRELOAD"], tmp_path,
                os.environ.get("KOVA_SANITIZED") == "1")
    host.start()
    yield host
    host.stop()


@pytest.fixture
def ca():
    """A scripted ACME v2 CA (lib/acme_ca.py). The test fails when the client broke a rule of the
    protocol; a test that provokes this clears ca.violations."""
    with_ca = AcmeCa()
    yield with_ca
    with_ca.close()
    assert with_ca.violations == []


@pytest.fixture
def dns():
    """The name server 127.0.0.1:53 (lib/dns_server.py)."""
    yield from _closing(DnsServer())


@pytest.fixture
def ddns(host, dns):
    """The dynamic-DNS service (lib/ddns.py), feeding `dns`; the host is its customer."""
    service = DdnsService(dns)
    host.device(**service.device_record())
    host.settings(kovaddns=service.endpoint)
    yield from _closing(service)


@pytest.fixture
def router(host):
    """A home router (lib/router.py), played by the platform's hooks."""
    return Router(host)


@pytest.fixture(scope="session")
def account_key():
    return rsa.generate_private_key(65537, 2048)


@pytest.fixture
def account(host, ca, account_key):
    """An account that is known to `ca` and stored on the host, for contact admin@host.example.
    Its value is the account folder. Saves a registration where a test is about later steps."""
    jwk = jws.key_to_jwk(account_key)
    return store_account(host, ca.directory, ca.register(jwk), jwk)


@pytest.fixture
def once(host):
    """One attempt only, so that every request is the first of its kind. Without dns-01 from the
    start: an attempt that finds it unsupported uses it up, and another one follows."""
    host.settings(orderattempts=1, skipdns01=True)


@pytest.fixture
def archive(host):
    """Certificates of the archive (lib/renewal.py)."""
    return Archive(host)


@pytest.fixture
def reloads(host):
    """Reload scripts of nginx and of the system's default service, whose web front-end runs."""
    reloads = Reloads(host)
    reloads.script("nginx")
    reloads.script("system")
    reloads.web_frontend()
    return reloads
