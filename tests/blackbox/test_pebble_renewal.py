"""Renewal and revocation with everything real: the CA, the web server that serves the certificate,
and the client that looks at it."""

import json
import os
import signal

import pytest
from cryptography import x509
from cryptography.hazmat.primitives.serialization import Encoding
from lib import expect, paths
from lib.accounts import store_account
from lib.https_site import FOLDER, HttpsSite
from lib.issuer import Issuer, pem
from lib.real_ca import RealCa
from lib.renewal import INDEX, host_user, put_certificate, quiet, reported, serial

ARCHIVE_PROGRAM = "/usr/kova/sbin/kova-archive"
# Of such a length that neither the request nor the certificate needs "=" at the end of its base64
# text. The program sends that along; this CA, unlike the public ones, does not take it.
NAME = "due.example"
REAL_WAITS = {"LD_PRELOAD": ""}


@pytest.fixture
def real_ca(host):
    return RealCa(host)


@pytest.fixture
def nginx(host):
    return HttpsSite(host)


@pytest.fixture
def user():
    with host_user() as user:
        yield user


def run(host, *arguments):
    return host.run(*arguments, env=REAL_WAITS)


def administer(host, *arguments):
    result = host.run(*arguments, program=ARCHIVE_PROGRAM, env=REAL_WAITS)
    assert (result.status, result.stderr) == (0, "")


def issue(host, ca, *more):
    return expect.issued(host.new_cert(ca.directory, [NAME], *more, env=REAL_WAITS), [NAME])


class DueSite:
    """A site whose certificate, issued by "Let's Encrypt", is due. Its renewal record is the real
    CA's."""

    def __init__(self, host, ca, nginx, owner):
        self.folder = issue(host, ca)
        self.identity = os.path.basename(self.folder)
        issuer = Issuer("Let's Encrypt")
        self.old_root = pem(issuer.root).decode()
        self.old_serial = put_certificate(host, self.folder, issuer, [NAME], days=5)
        administer(host, "add", self.identity)
        administer(host, "bind", self.identity, "--subscriber", "nginx", "--service", "web",
                   "--display-name", "Web site", "--owner", owner)
        nginx.serve_https()
        nginx.serves(NAME, self.old_root, self.old_serial)

    @property
    def serial(self):
        return serial(self.folder + "/cert.pem")


@pytest.fixture
def site(host, real_ca, nginx, user):
    return DueSite(host, real_ca, nginx, user.pw_name)


# -- renewal ---------------------------------------------------------------------------------------


def test_due_certificate_is_renewed_and_seen_to_be_served(host, real_ca, nginx, site, user):
    index = expect.read(INDEX)
    calls = len(nginx.reloads)
    quiet(run(host, "renew-all"))

    assert site.serial != site.old_serial
    nginx.serves(NAME, real_ca.root(), site.serial)  # to a client that knows the real CA alone
    assert nginx.reloads[calls:] == ["web"]
    assert real_ca.status(site.serial) == "Valid"
    assert real_ca.status(site.old_serial) is None

    # In the old place and in the service's folder, whole and to its owner alone.
    assert host.certificates() == [site.folder]
    expect.certificate_folder(site.folder, [NAME])
    assert expect.read(INDEX) == index
    names = ["cert.pem", "chain.pem", "fullchain.pem", "privkey.pem"]
    assert sorted(os.listdir(FOLDER)) == names
    for name in names:
        status = os.stat(f"{FOLDER}/{name}")
        assert (status.st_uid, status.st_gid) == (user.pw_uid, user.pw_gid), name
        assert expect.mode(f"{FOLDER}/{name}") == 0o400, name
        assert expect.read(f"{FOLDER}/{name}") == expect.read(f"{site.folder}/{name}"), name
    assert sorted(os.listdir(os.path.dirname(FOLDER))) == ["web"]


def test_renewed_certificate_is_renewed_again_when_it_is_due(host, real_ca, nginx, site):
    quiet(run(host, "renew-all"))
    first = site.serial
    nginx.serves(NAME, real_ca.root(), first)
    assert run(host, "renew", "-c", site.identity).document == {"error": 0, "id": site.identity}
    assert site.serial != first
    # Alone it deploys nothing.
    assert nginx.served(NAME, real_ca.root()).serial_number == first
    administer(host, "deploy", site.identity)
    nginx.serves(NAME, real_ca.root(), site.serial)


def test_renewal_while_the_ca_is_down_leaves_the_old_certificate_served(host, real_ca, nginx, site):
    real_ca.stop()
    before = expect.tree(site.folder)
    deployed = os.stat(FOLDER + "/cert.pem").st_ino
    calls, workers = len(nginx.reloads), nginx.workers
    result = run(host, "renew-all")
    reported(result, (100, "Server is not reachable.", "client_network"))
    assert result.errors == []
    assert expect.tree(site.folder) == before
    assert os.stat(FOLDER + "/cert.pem").st_ino != deployed  # anew, all the same
    assert nginx.reloads[calls:] == ["web"]
    nginx.replaced(workers)
    assert nginx.served(NAME, site.old_root).serial_number == site.old_serial


def test_proof_that_the_ca_cannot_fetch_leaves_the_old_certificate_served(host, real_ca, nginx,
                                                                          site):
    # Of a name that it has never seen proven: seldom this CA reuses a proof that it should not.
    record = json.loads(expect.read(site.folder + "/renew.json"))
    record["domains"] += ";unproven.example"
    host.write(site.folder + "/renew.json", json.dumps(record), 0o400)
    nginx.publish("/nowhere")
    before, workers = expect.tree(site.folder), nginx.workers
    result = run(host, "renew-all")
    assert result.document["error"] == 110
    assert (result.status, result.stdout.count("\n")) == (0, 1)
    assert expect.tree(site.folder) == before
    assert host.certificates() == [site.folder]
    nginx.replaced(workers)
    assert nginx.served(NAME, site.old_root).serial_number == site.old_serial


def test_early_record_moves_to_the_ca_of_the_settings(host, real_ca, nginx, site):
    early = store_account(host, "http://127.0.0.1:9/directory", "", {}, "early@host.example",
                          "early", version=1)
    os.unlink(site.folder + "/renew.json")
    host.write(site.folder + "/renew.json", json.dumps({
        "account": early, "domains": NAME, "server": "http://127.0.0.1:9/directory",
        "version": 1}), 0o400)
    host.settings(server=real_ca.directory)
    quiet(run(host, "renew-all"))
    nginx.serves(NAME, real_ca.root(), site.serial)
    record = json.loads(expect.read(site.folder + "/renew.json"))
    assert (record["version"], record["server"]) == (2, real_ca.directory)
    account = json.loads(expect.read(record["account"] + "/info.json"))
    assert (account["contact"], account["version"]) == ("early@host.example", 2)


@pytest.mark.parametrize("key_type", ["rsa2048", "rsa3072", "rsa4096", "ec256", "ec384"])
def test_every_kind_of_key_from_its_issue_to_its_revocation(host, real_ca, nginx, user, key_type):
    host.settings(keytype=key_type)
    folder = issue(host, real_ca)
    identity = os.path.basename(folder)
    assert expect.key_type(folder) == key_type
    administer(host, "add", identity)
    administer(host, "bind", identity, "--subscriber", "nginx", "--service", "web",
               "--display-name", "Web site", "--owner", user.pw_name)
    administer(host, "check", identity)
    nginx.serve_https()
    first = serial(folder + "/cert.pem")
    nginx.serves(NAME, real_ca.root(), first)

    assert run(host, "renew", "-c", identity).status == 0
    assert expect.key_type(folder) == key_type
    expect.certificate_folder(folder, [NAME])
    administer(host, "deploy", identity)
    second = serial(folder + "/cert.pem")
    assert second != first
    nginx.serves(NAME, real_ca.root(), second)
    assert run(host, "revoke", "-c", identity).document == {"error": 0, "cert_path": folder}
    assert (real_ca.status(first), real_ca.status(second)) == ("Valid", "Revoked")


# -- revocation ------------------------------------------------------------------------------------


def x509_of(folder):
    return x509.load_pem_x509_certificate(expect.read(folder + "/cert.pem").encode())


@pytest.fixture
def issued(host, real_ca, nginx):
    """An entered certificate that can be sent without padding; once in a while one cannot."""
    folder = issue(host, real_ca)
    identity = os.path.basename(folder)
    while len(x509_of(folder).public_bytes(Encoding.DER)) % 3 != 0:
        issue(host, real_ca, "-c", identity)
    administer(host, "add", identity)
    return folder


def revoke(host, folder):
    return run(host, "revoke", "-c", os.path.basename(folder))


def died(result, folder, reason):
    assert (result.status, result.stdout) == (-signal.SIGABRT, "")
    assert result.errors == [
        f"kova-letsencrypt:# revoke failed. [{folder}][Revoke failed - {reason}]"]
    assert os.path.exists(paths.CRON_JOB)


def test_revocation_is_known_to_the_ca(host, real_ca, issued):
    number = serial(issued + "/cert.pem")
    assert real_ca.status(number) == "Valid"
    assert os.path.exists(paths.CRON_JOB)
    result = revoke(host, issued)
    assert result.document == {"error": 0, "cert_path": issued}
    assert (result.status, result.errors) == (0, [])
    assert real_ca.status(number) == "Revoked"
    assert sorted(os.listdir(issued)) == ["cert.pem", "chain.pem", "fullchain.pem", "privkey.pem"]
    assert not os.path.exists(paths.CRON_JOB)


def test_certificate_that_was_revoked_elsewhere_ends_it_abnormally(host, real_ca, issued):
    record = expect.read(issued + "/renew.json")
    assert revoke(host, issued).status == 0
    host.write(issued + "/renew.json", record)
    host.write(paths.CRON_JOB, "@weekly root true\n")
    # Only the status 409 counts as done before; this CA says the same with 400.
    died(revoke(host, issued), issued, "400  Certificate has already been revoked.")
    assert expect.read(issued + "/renew.json") == record


def test_account_that_may_not_revoke_ends_it_abnormally(host, real_ca, issued):
    other = issue(host, real_ca, "-m", "other@host.example")
    record = expect.read(other + "/renew.json")
    os.unlink(issued + "/renew.json")
    host.write(issued + "/renew.json", record, 0o400)
    result = revoke(host, issued)
    reason = result.errors[0].partition("[Revoke failed - ")[2].rstrip("]")
    assert reason.startswith("403  ")
    died(result, issued, reason)
    assert real_ca.status(serial(issued + "/cert.pem")) == "Valid"
    assert expect.read(issued + "/renew.json") == record
