"""The examples of reload scripts, each with the server that it is for: what is deployed is what the
neighbours get to see."""

import os
import re
import shutil
import stat

import pytest
from cryptography import x509

from lib import expect, paths
from lib.issuer import Issuer
from lib.renewal import put_certificate
from world import appliance, tls_servers
from world.network import APPLIANCE

ARCHIVE_PROGRAM = "/usr/kova/sbin/kova-archive"
EXAMPLES = "/usr/kova/share/doc/kova-letsencrypt/examples/reload"
CRON = {"PATH": "/usr/bin:/bin"}  # cron's own
FOLDER = paths.ARCHIVE + "/abc"


@pytest.fixture(params=tls_servers.ALL, ids=lambda server: server.name)
def server(request, host):
    """The server, configured and not started; its certificate is in the archive, and the script in
    its place."""
    server = request.param(host)
    put_certificate(host, FOLDER, Issuer("Old"))
    script = f"/usr/libexec/certificate.d/{server.name}"
    shutil.copy(f"{EXAMPLES}/{server.name}", script)
    assert os.access(script, os.X_OK)
    archive(host, "add", "abc")
    yield server
    server.stop()


def archive(host, *arguments):
    """Runs it as cron runs renew-all: with that environment, and without a terminal."""
    result = appliance.run(host, *arguments, installed=ARCHIVE_PROGRAM, env=CRON)
    assert result.status == 0, result
    return result


def bind(host, server):
    return archive(host, "bind", "abc", "--subscriber", server.name, "--service", server.service,
                   "--display-name", "Server", "--owner", "root")


def renew(host):
    """Another set takes the place of the old one. Returns the serial number."""
    return put_certificate(host, FOLDER, Issuer("New"))


def served(network, port):
    """The serial number that a neighbour gets to see; none when nobody answers."""
    shown = network.run("neighbour", "openssl", "s_client", "-connect", f"{APPLIANCE}:{port}",
                        "-showcerts", status=None, quiet=True)
    leaf = re.search("-----BEGIN.*?-----END CERTIFICATE-----", shown, re.DOTALL)
    return leaf and x509.load_pem_x509_certificate(leaf[0].encode()).serial_number


def start(server, network):
    server.configure()
    server.start(ready=lambda: served(network, server.port) is not None)


def reload_failures(host):
    return archive(host, "list", "--json").document["certificates"][0]["services"][0][
        "reload_status"]


def test_what_is_deployed_is_served(host, network, server):
    old = expect.read(FOLDER + "/cert.pem")
    result = bind(host, server)  # the server does not run yet, which is no failure
    assert (result.stderr, result.errors, reload_failures(host)) == ("", [], 0)
    start(server, network)
    assert served(network, server.port) == x509.load_pem_x509_certificate(
        old.encode()).serial_number

    new = renew(host)
    result = archive(host, "deploy", "abc")
    assert (result.stderr, result.errors, reload_failures(host)) == ("", [], 0)
    # Servers take up new files in their own time, and old workers answer for a while yet.
    appliance.wait_until(lambda: all(served(network, server.port) == new for _ in range(5)))


def test_a_configuration_that_is_refused_leaves_the_server_as_it_is(host, network, server):
    bind(host, server)
    start(server, network)
    old = served(network, server.port)
    server.spoil()
    renew(host)
    result = archive(host, "deploy", "abc")
    assert server.complaint in result.stderr.lower()
    assert reload_failures(host) > 0
    assert [served(network, server.port) for _ in range(5)] == [old] * 5


def test_haproxy_gets_chain_and_key_in_one_file_that_is_roots_alone(host):
    server = tls_servers.Haproxy(host)
    put_certificate(host, FOLDER, Issuer("Old"))
    shutil.copy(f"{EXAMPLES}/haproxy", "/usr/libexec/certificate.d/haproxy")
    archive(host, "add", "abc")
    bind(host, server)
    folder = "/etc/haproxy/certificate"
    assert os.listdir(folder) == ["www.pem"]
    assert expect.read(folder + "/www.pem") == (expect.read(FOLDER + "/fullchain.pem")
                                                + expect.read(FOLDER + "/privkey.pem"))
    status = os.stat(folder + "/www.pem")
    assert (stat.S_IMODE(status.st_mode), status.st_uid, status.st_gid) == (0o600, 0, 0)
    assert stat.S_IMODE(os.stat(folder).st_mode) == 0o700
    # The file of a moment ago is replaced, not written over.
    before = os.stat(folder + "/www.pem").st_ino
    held = os.open(folder + "/www.pem", os.O_RDONLY)  # keeps its inode from being used again
    renew(host)
    archive(host, "deploy", "abc")
    assert os.stat(folder + "/www.pem").st_ino != before
    os.close(held)


def test_every_example_is_tried(host):
    assert sorted(os.listdir(EXAMPLES)) == sorted(server.name for server in tls_servers.ALL)
