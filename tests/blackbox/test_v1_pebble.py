"""The way out of the early protocol: a certificate that it issued is renewed through a real ACME v2
authority, over real TLS, and is of version 2 from then on."""

import json

import pytest
from cryptography import x509
from lib import expect, paths
from lib.real_ca import RealCa
from lib.renewal import INDEX
from lib.v1ca.fixtures import CONTACT, early_ca_fixture, new_cert, web_fixture

# Of such lengths that the request's base64 text needs no "=" at its end: ACME v2 requests are sent
# with it, and pebble, unlike the public authorities, does not take that.
NAMES = ["b.host.example", "aaa.host.example"]
REAL_WAITS = {"LD_PRELOAD": ""}


@pytest.fixture(name="real_ca")
def real_ca_fixture(host, web):
    return RealCa(host)


@pytest.fixture(name="early_folder")
def early_folder_fixture(host, early_ca, web):
    """A certificate as the early protocol left it, its record of version 1 included."""
    result = new_cert(host, early_ca.directory, NAMES)
    assert result.status == 0
    folder = result.document["cert_path"]
    assert read_record(folder)["domains"] == "; ".join(NAMES)
    early_ca.requests.clear()
    return folder


def read_record(folder):
    return json.loads(expect.read(folder + "/renew.json"))


def identity(folder):
    return folder.rpartition("/")[2]


def leaf(folder):
    return x509.load_pem_x509_certificate(expect.read(folder + "/cert.pem").encode())


def test_renewal_moves_to_the_authority_of_the_settings(host, real_ca, early_ca, early_folder):
    old, early_account = leaf(early_folder), read_record(early_folder)["account"]
    before = expect.tree(early_account)
    host.settings(server=real_ca.directory)
    result = host.run("renew", "-c", identity(early_folder), env=REAL_WAITS)
    assert result.stdout == '{\n   "error" : 0,\n   "id" : "%s"\n}\n' % identity(early_folder)
    assert (result.status, result.stderr, result.errors) == (0, "", [])

    expect.certificate_folder(early_folder, NAMES)
    assert host.certificates() == [early_folder]
    new = leaf(early_folder)
    assert new.serial_number != old.serial_number
    assert real_ca.status(new.serial_number) == "Valid"
    assert early_ca.requests == []

    # Two accounts of one contact, side by side; the record names the one of version 2.
    newer_account, = (folder for folder in host.accounts() if folder != early_account)
    assert read_record(early_folder) == {"account": newer_account, "domains": ";".join(NAMES),
                                         "server": real_ca.directory, "version": 2}
    info = json.loads(expect.read(newer_account + "/info.json"))
    assert (info["contact"], info["version"]) == (CONTACT, 2)
    assert expect.tree(early_account) == before


def test_renewed_certificate_belongs_to_version_2(host, real_ca, early_ca, early_folder):
    host.settings(server=real_ca.directory)
    serials = [leaf(early_folder).serial_number]
    for _ in range(2):
        assert host.run("renew", "-c", identity(early_folder), env=REAL_WAITS).status == 0
        serials.append(leaf(early_folder).serial_number)
    assert len(set(serials)) == 3
    assert len(host.accounts()) == 2
    assert early_ca.requests == []


def test_early_account_still_serves_the_early_protocol(host, real_ca, early_ca, early_folder):
    host.settings(server=real_ca.directory)
    assert host.run("renew", "-c", identity(early_folder), env=REAL_WAITS).status == 0
    assert new_cert(host, early_ca.directory, NAMES).status == 0
    assert early_ca.calls("new-reg") == []
    assert len(host.accounts()) == 2


def test_failed_move_leaves_the_early_certificate(host, real_ca, early_ca, early_folder):
    real_ca.stop()
    host.settings(server=real_ca.directory)
    before = expect.tree(early_folder)
    result = host.run("renew", "-c", identity(early_folder), env=REAL_WAITS)
    assert result.stdout == expect.failure_text(100, "Server is not reachable.", "client_network")
    assert result.status == 1
    assert expect.tree(early_folder) == before
    assert early_ca.requests == []


def test_early_certificate_is_revoked_at_its_own_authority(host, real_ca, early_ca, early_folder):
    host.settings(server=real_ca.directory)
    host.write(INDEX, json.dumps({identity(early_folder): {"services": []}}), 0o600)
    before = expect.tree(early_folder)
    result = host.run("revoke", "-c", identity(early_folder))
    assert result.document == {"error": 0, "cert_path": early_folder}
    assert early_ca.trace == ["directory", "revoke-cert"]
    assert early_ca.state.certificates[0].revoked
    assert expect.tree(early_folder) == before
    # The record that it leaves can still be renewed, so the job stays.
    assert expect.read(paths.CRON_JOB)
