"""Certificates of the archive as a host has them before its weekly run: folder, renewal record,
index entry, services with their reload scripts."""

import contextlib
import json
import os
import pwd

from cryptography import x509
from cryptography.hazmat.primitives.asymmetric import ec

from . import expect, paths
from .issuer import Issuer, pem

NAME = "www.host.example"
INDEX = paths.ARCHIVE + "/INFO"


def service(subscriber="nginx", name="web", owner="root", package=False, **more):
    """A ServiceObject of the index."""
    return {"display_name": f"{subscriber} {name}", "isPkg": package, "owner": owner,
            "service": name, "subscriber": subscriber, **more}


def service_folder(subscriber="nginx", name="web", package=False):
    """Where that service finds its certificate files."""
    return f"/usr/{'local' if package else 'kova'}/etc/certificate/{subscriber}/{name}"


def folder_of(identity):
    return f"{paths.ARCHIVE}/{identity}"


def serial(path):
    """The serial number of the first certificate in a PEM file."""
    return x509.load_pem_x509_certificate(expect.read(path).encode()).serial_number


def put_certificate(host, folder, issuer, names=(NAME,), days=10):
    """Puts a certificate from that issuer and its key into a folder, in the place of what it has.
    Returns the serial number."""
    key = ec.generate_private_key(ec.SECP256R1())
    leaf = issuer.issue(names, key.public_key(), days)
    first, *chain = (pem(each) for each in issuer.chain(leaf))
    content = {"cert.pem": first, "chain.pem": b"".join(chain), "privkey.pem": pem(key),
               "fullchain.pem": first + b"".join(chain)}
    os.makedirs(folder, 0o700, exist_ok=True)
    for name, data in content.items():
        if os.path.exists(f"{folder}/{name}"):
            os.unlink(f"{folder}/{name}")
        host.write(f"{folder}/{name}", data, 0o400)
    return leaf.serial_number


class Archive:
    """The archive of one host."""

    def __init__(self, host):
        self._host = host
        self._index = {}

    def add(self, identity, *services, organisation="Let's Encrypt", days=10, names=(NAME,),
            record=None, index=None):
        """A certificate of that issuer organisation which expires in so many days, entered in the
        index with these services (`index`: with that entry instead). Returns its folder."""
        folder = folder_of(identity)
        put_certificate(self._host, folder, Issuer(organisation), names, days)
        if record is not None:
            self.record(identity, record)
        self.enter(identity, {"services": list(services)} if index is None else index)
        return folder

    def record(self, identity, content):
        """Its renewal record: an object, or text as it is."""
        text = content if isinstance(content, (str, bytes)) else json.dumps(content)
        self._host.write(f"{folder_of(identity)}/renew.json", text, 0o400)

    def enter(self, identity, value):
        """An entry of the index, with or without a folder."""
        self._index[identity] = value
        self._host.write(INDEX, json.dumps(self._index), 0o600)


def record(directory, account, domains=NAME, version=2):
    """The renewal record of a certificate from the CA with that directory."""
    return {"account": account, "domains": domains, "server": directory, "version": version}


@contextlib.contextmanager
def host_user(name="webuser", uid=4242, gid=4343):
    """A user of the host for as long as it lasts."""
    with open("/etc/passwd", encoding="ascii") as passwd:
        original = passwd.read()
    with open("/etc/passwd", "a", encoding="ascii") as passwd:
        passwd.write(f"{name}:x:{uid}:{gid}::/nonexistent:/usr/sbin/nologin\n")
    try:
        yield pwd.getpwnam(name)
    finally:
        with open("/etc/passwd", "w", encoding="ascii") as passwd:
            passwd.write(original)


def quiet(result, told=()):
    """A renew-all that ended well and had nothing to report but these lines in the log."""
    assert (result.status, result.stdout, result.stderr, result.errors) == (0, "", "", [*told])


def reported(result, *documents):
    """A renew-all with exactly these failure documents (code, message, file), one per line."""
    assert result.stdout == "".join(expect.failure_text(*document) for document in documents)
    assert (result.status, result.stderr) == (0, "")


def deployed(archive_folder, folder=None):
    """The service's folder holds exactly the archive's certificate files, private ones. Returns the
    serial number of the certificate."""
    folder = folder or service_folder()
    names = ["cert.pem", "chain.pem", "fullchain.pem", "privkey.pem"]
    assert sorted(os.listdir(folder)) == names
    for name in names:
        assert expect.read(f"{folder}/{name}") == expect.read(f"{archive_folder}/{name}"), name
        assert expect.mode(f"{folder}/{name}") == 0o400
    return serial(folder + "/cert.pem")


def tolerate_padding(ca):
    """Lets the scripted CA take a certificate to revoke with "=" at its end, as real CAs do."""
    def answer(request, normal):
        sent = request.jws.payload
        request.jws.payload = {**sent, "certificate": sent["certificate"].rstrip("=")}
        try:
            return normal()
        finally:
            request.jws.payload = sent

    ca.always("revokeCert", answer)


class Reloads:
    """What the host was made to reload or restart, in order: a reload script that ran gives the
    words of its call after its subscriber's name, the web front-end's hook "web-restart"."""

    def __init__(self, host):
        self._host = host
        self._log = host.workspace + "/reloads"

    def script(self, subscriber="nginx", then="", package=False):
        """Installs the reload script of a subscriber; `then` is a shell command that ends it."""
        path = f"/usr/{'local/' if package else ''}libexec/certificate.d/{subscriber}"
        self._host.write(path, f'#!/bin/sh\necho {subscriber} "$@" >> {self._log}\n{then}\n', 0o755)
        return path

    def web_frontend(self, status=0):
        """Installs the hook that restarts the web front-end; it ends with that status."""
        self._host.hook("web-restart", f'echo web-restart "$@" >> {self._log}\nexit {status}\n')

    @property
    def lines(self):
        return expect.read(self._log).splitlines() if os.path.exists(self._log) else []
