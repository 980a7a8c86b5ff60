"""The host of a sweep: one installed tree, one authority of each protocol, and a quick way back to
where a scenario starts."""

import copy
import glob
import os
import shutil
import tempfile

from cryptography.hazmat.primitives import serialization
from cryptography.hazmat.primitives.asymmetric import rsa
from lib import jws, paths, validators
from lib.accounts import store_account
from lib.acme_ca import AcmeCa
from lib.archive_cli import ArchiveCli
from lib.host import Host
from lib.renewal import Archive, Reloads, tolerate_padding
from lib.v1ca import AcmeV1Ca
from lib.v1ca.fixtures import store_account as store_early_account

from .fault_point import FaultPoint
from .state import Snapshot, content

POOLED_KEYS = 17  # the last one is the stored account's, and never dealt out


def make_keys(folder):
    """Keys that preload_keys.c deals out: making them would take most of a sweep's time."""
    os.makedirs(folder, exist_ok=True)
    for number in range(POOLED_KEYS):
        if not os.path.exists(f"{folder}/{number}"):
            key = rsa.generate_private_key(65537, 2048)
            with open(f"{folder}/{number}", "wb") as file:
                file.write(key.private_bytes(serialization.Encoding.PEM,
                                             serialization.PrivateFormat.TraditionalOpenSSL,
                                             serialization.NoEncryption()))


def _key(path):
    with open(path, "rb") as file:
        return serialization.load_pem_private_key(file.read(), None)


class Lab:
    """Works inside tests/sandbox alone; `build` is the build tree with what was staged in it."""

    def __init__(self, build):
        # Not below a folder that is watched for what the programs do.
        self.workspace = tempfile.mkdtemp(prefix="faults.", dir="/dev/shm")
        support = build + "/tests/support/libkova_test_preload.so"
        faults = build + "/tests/faults/libkova_faults_preload.so"
        self.host = Host(build + "/stage", f"{support}:{faults}", self.workspace)
        shutil.copytree(build + "/faults-keys", self.workspace + "/keys")
        self.host.write(self.workspace + "/keys/next", bytes(4))
        self.zone = self.workspace + "/zone"  # a file per TXT record, NAME.VALUE
        os.mkdir(self.zone)
        # The tree itself may be below what the host hides.
        tool = shutil.copy(build + "/tests/faults/fault_point", self.workspace)
        self.host.start()
        self.host.mount("/tmp", 0o1777)
        self.host.write(paths.ARCHIVE + "/INFO", "{}\n", 0o600)
        self.installed = Snapshot()
        self._faults = faults
        self.tool = FaultPoint(self.host, tool)
        self.account_key = _key(f"{self.workspace}/keys/{POOLED_KEYS - 1}")
        self.ca = AcmeCa()
        tolerate_padding(self.ca)
        self.early_ca = AcmeV1Ca()
        self.settings = content(paths.SETTINGS)
        self.clear()

    def clear(self):
        """A host as it is after the installation: no certificates, accounts and services."""
        self.installed.restore()
        self._registrations = 0
        self.ca.accounts.clear()
        self._accounts = {}
        self.forget()
        for hook in os.listdir(paths.HOOKS):
            os.unlink(f"{paths.HOOKS}/{hook}")
        for server in (self.ca, self.early_ca):
            server.validators["http-01"] = validators.webroot
        self.ca.challenge_types = ["dns-01", "http-01"]
        self.host.write_settings(self.settings)
        self.archive = Archive(self.host)
        self.cli = ArchiveCli(self.host)
        self.reloads = Reloads(self.host)

    def forget(self):
        """What the servers and the log remember of earlier runs."""
        self.host.runs.clear()
        self.host.syslog.forget()
        for left in glob.glob(self.workspace + "/*.log") + glob.glob(self.zone + "/*"):
            os.unlink(left)
        for server in (self.ca, self.early_ca):
            server.requests.clear()
            server.violations.clear()
        # Dealt keys come round again, and the early authority knows a key once.
        del self.early_ca.state.registrations[self._registrations:]
        self.ca.accounts.clear()
        self.ca.accounts.update(copy.deepcopy(self._accounts))
        for things in (self.ca.orders, self.ca.authorizations, self.ca.challenges):
            things.clear()

    def texts(self, name):
        """The TXT records of that name."""
        return [record[len(name) + 1:] for record in os.listdir(self.zone)
                if record.startswith(name + ".")]

    def run(self, command):
        """Runs [program, arguments...] undisturbed."""
        return self.host.run(*command[1:], program=command[0],
                             env={"KOVA_KEY_POOL": self.workspace + "/keys"})

    def run_disturbed(self, command, *disturbance, **options):
        return self.tool.run(command, *disturbance, **options,
                             env={"KOVA_KEY_POOL": self.workspace + "/keys"})

    def real_time(self):
        """The environment of a program that waits in earnest."""
        return {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LANG": "C.UTF-8", "TZ": "UTC",
                "LD_PRELOAD": self._faults, "KOVA_KEY_POOL": self.workspace + "/keys"}

    def account(self):
        """Stores an account that the CA knows; returns its folder."""
        jwk = jws.key_to_jwk(self.account_key)
        url = self.ca.register(jwk)
        self._accounts = copy.deepcopy(self.ca.accounts)
        return store_account(self.host, self.ca.directory, url, jwk)

    def early_account(self):
        folder = store_early_account(self.host, self.early_ca, self.account_key)
        self._registrations = len(self.early_ca.state.registrations)
        return folder

    def close(self):
        self.host.stop()
        self.ca.close()
        self.early_ca.close()
        shutil.rmtree(self.workspace)
