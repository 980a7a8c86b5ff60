"""The clock renews: a real cron daemon runs the installed job, and the certificate that the web
server serves changes by itself."""

import os
import re

import pytest
from cryptography import x509
from cryptography.hazmat.primitives.asymmetric import rsa

from lib import paths
from lib.expect import certificate_folder, issued, mode, read
from lib.issuer import Issuer, pem
from world import appliance
from world.name_server import HOME_NAME
from world.network import APPLIANCE, inside
from world.upnp_router import CLOSED, OPENED, UpnpRouter

ARCHIVE_PROGRAM = "/usr/kova/sbin/kova-archive"
DEPLOYED = "/usr/kova/etc/certificate/nginx/www"
SCHEDULE = re.compile(r"^\d+ \d+ \* \* [0-6](?=[ \t]+root[ \t])", re.MULTILINE)


def served(network):
    """The certificate that a browser at home gets to see."""
    shown = network.run("neighbour", "openssl", "s_client", "-connect", f"{APPLIANCE}:443",
                        "-servername", HOME_NAME, "-showcerts", quiet=True)
    leaf = re.search("-----BEGIN.*?-----END CERTIFICATE-----", shown, re.DOTALL)[0]
    return x509.load_pem_x509_certificate(leaf.encode())


def archive(host, *arguments):
    result = appliance.run(host, *arguments, installed=ARCHIVE_PROGRAM)
    assert (result.status, result.stderr) == (0, ""), result


def bind_to_nginx(host, web, certificate_id):
    """What an administrator does once."""
    archive(host, "add", certificate_id)
    archive(host, "bind", certificate_id, "--subscriber", "nginx", "--service", "www",
            "--display-name", "Web site", "--owner", "root", "--reload", "nginx")
    web.serve(DEPLOYED + "/fullchain.pem", DEPLOYED + "/privkey.pem")
    web.reload()


def grow_old(host, folder):
    """Puts a certificate into the folder that Let's Encrypt issued 85 days ago, so to speak."""
    issuer = Issuer("Let's Encrypt")
    key = rsa.generate_private_key(65537, 2048)
    leaf, *chain = map(pem, issuer.chain(issuer.issue([HOME_NAME], key.public_key(), days=5)))
    for name, content in (("cert.pem", leaf), ("chain.pem", b"".join(chain)),
                          ("fullchain.pem", leaf + b"".join(chain)), ("privkey.pem", pem(key))):
        os.unlink(f"{folder}/{name}")
        host.write(f"{folder}/{name}", content, 0o400)


@pytest.fixture
def site(host, network, ca, web):
    """A site whose certificate is due; the renewal job is as it was installed."""
    router = UpnpRouter(host, network)
    folder = issued(appliance.new_cert(host, HOME_NAME), [HOME_NAME])
    certificate_id = os.path.basename(folder)
    bind_to_nginx(host, web, certificate_id)
    wait_until_served(network, folder)
    grow_old(host, folder)
    archive(host, "deploy", certificate_id)
    wait_until_served(network, folder)
    return folder, router


def wait_until_served(network, folder):
    """nginx takes up new files in its own time, and its old workers answer for a while yet: the new
    certificate counts once it has been seen ten times in a row."""
    appliance.wait_until(lambda: all(
        served(network).serial_number == leaf_of(folder).serial_number for _ in range(10)))


def leaf_of(folder):
    return x509.load_pem_x509_certificate(read(folder + "/cert.pem").encode())


def test_cron_renews_what_nginx_serves(host, network, ca, site):
    folder, router = site
    old = served(network)
    assert "Let's Encrypt" in old.issuer.rfc4514_string()
    asked = len(router.asked())

    every_minute, changed = SCHEDULE.subn("* * * * *", read(paths.CRON_JOB))
    assert changed == 1
    host.write(paths.CRON_JOB, every_minute)
    host.spawn(inside("appliance", "/usr/sbin/cron", "-f"))
    appliance.wait_until(lambda: served(network).serial_number != old.serial_number, seconds=150)

    wait_until_served(network, folder)
    new = served(network)
    assert "Pebble Intermediate" in new.issuer.rfc4514_string()
    host.write("/tmp/ca-root.pem", ca.root())
    shown = network.run("neighbour", "curl", "-sS", "--cacert", "/tmp/ca-root.pem",
                        "--resolve", f"{HOME_NAME}:443:{APPLIANCE}", f"https://{HOME_NAME}/")
    assert shown == "the appliance\n"

    # In its old place, deployed, and nothing left over.
    appliance.wait_until(lambda: host.certificates() == [folder])
    certificate_folder(folder, [HOME_NAME])
    assert leaf_of(folder).serial_number == new.serial_number
    assert read(DEPLOYED + "/privkey.pem") == read(folder + "/privkey.pem")
    assert mode(DEPLOYED + "/privkey.pem") == 0o400
    renewal = router.asked()[asked:]
    assert renewal[:2] == OPENED and sorted(renewal[2:4]) == CLOSED
    assert router.mappings() == []
