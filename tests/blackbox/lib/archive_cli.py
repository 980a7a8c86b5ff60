"""kova-archive on a host of its own: runs, what its one line on standard error says, and the state
that it left."""

import json
import os
import shutil

from . import expect, paths, renewal

PROGRAM = "/usr/kova/sbin/kova-archive"
INDEX = paths.ARCHIVE + "/INFO"
DEFAULT = paths.ARCHIVE + "/DEFAULT"
LOCK = "/tmp/kovacertificate_info.lock"


class ArchiveCli:
    def __init__(self, host):
        self.host = host
        self.reloads = renewal.Reloads(host)
        self._certificates = renewal.Archive(host)
        if os.path.lexists(LOCK):
            os.unlink(LOCK)

    # -- the host before the run -----------------------------------------------------------------

    def folder(self, identity, **certificate):
        """A certificate folder that is not in the index. Returns its path."""
        before = expect.read(INDEX) if os.path.exists(INDEX) else None
        folder = self._certificates.add(identity, **certificate)
        if before is None:
            os.unlink(INDEX)
        else:
            self.host.write(INDEX, before, 0o600)
        return folder

    def certificate(self, identity, *services, **certificate):
        """A certificate that is in the index with these services. Returns its folder."""
        folder = self.folder(identity, **certificate)
        index = self.index() if os.path.exists(INDEX) else {}
        index[identity] = {"services": list(services)}
        self.write_index(index)
        return folder

    def write_index(self, index):
        text = index if isinstance(index, str) else json.dumps(index)
        self.host.write(INDEX, text, 0o600)

    def default(self, identity):
        self.host.write(DEFAULT, identity + "\n", 0o600)

    # -- runs ------------------------------------------------------------------------------------

    def run(self, *args, **options):
        return self.host.run(*args, program=PROGRAM, **options)

    def bind(self, identity, *more, subscriber="nginx", service="web", owner="root",
             name="Web site", **options):
        return self.run("bind", identity, "--subscriber", subscriber, "--service", service,
                        "--display-name", name, "--owner", owner, *more, **options)

    def unbind(self, identity, *more, subscriber="nginx", service="web"):
        return self.run("unbind", identity, "--subscriber", subscriber, "--service", service, *more)

    # -- the host after it -----------------------------------------------------------------------

    @staticmethod
    def index():
        return json.loads(expect.read(INDEX))

    @staticmethod
    def services(identity):
        """The names of what the certificate lists, in its order."""
        return [f"{each['subscriber']}/{each['service']}"
                for each in ArchiveCli.index()[identity]["services"]]


def done(result, stdout=None):
    """The run succeeded and had nothing to complain about."""
    assert (result.status, result.stderr) == (0, "")
    if stdout is not None:
        assert result.stdout == stdout


def failed(result, message):
    """The run failed with that one line, and nothing on standard output."""
    assert result.stderr == f"kova-archive: {message}\n"
    assert (result.status, result.stdout) == (1, "")


def refused(result, message, command=None):
    """A usage error: what is wrong, then the usage text."""
    first, rest = result.stderr.split("\n", 1)
    assert first == "kova-archive: " + (f"{command}: " if command else "") + message
    assert rest.startswith("Usage: kova-archive " + (command or "COMMAND"))
    assert (result.status, result.stdout) == (2, "")


def remove(path):
    shutil.rmtree(path) if os.path.isdir(path) else os.unlink(path)
