"""Home networks of their own, several at once: each has a fresh host with a CA, and a router at the
other end of a wire.

    host 192.168.77.10 (eth0) ---- (lan) 192.168.77.1 router, 192.168.77.20 neighbour,
                                         203.0.113.9 somebody in the internet

A home is a child process in network and mount namespaces of its own, which vanish with it. What only
waits costs nothing there, so many homes are as quick as the slowest."""

import ctypes
import os
import pathlib
import signal
import subprocess
import tempfile
import threading
import time
import traceback

from . import jws, memcheck
from .accounts import store_account
from .acme_ca import AcmeCa
from .host import Host
from .igd import Igd

HOST, ROUTER, NEIGHBOUR, INTERNET = "192.168.77.10", "192.168.77.1", "192.168.77.20", "203.0.113.9"
# On the wire, but nobody's: packets to it are lost.
NOWHERE = "192.168.77.99"

_NEW_MOUNTS, _NEW_NETWORK = 0x00020000, 0x40000000
_AT_ONCE = 2 if memcheck.FOLDER else 16
_LONGEST = memcheck.patience(100)  # seconds


def _call(function, *arguments):
    if function(*arguments) != 0:
        raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))


def _unshare(what):
    _call(ctypes.CDLL(None, use_errno=True).unshare, what)


def _ip(*arguments):
    subprocess.run(["/usr/sbin/ip", *arguments], check=True, timeout=20)


def _wire(other):
    """Lays it; `other` is the thread whose network is the router's."""
    _ip("link", "set", "lo", "up")
    _ip("link", "add", "eth0", "type", "veth", "peer", "name", "lan", "netns", str(other))
    for command in (("addr", "add", HOST + "/24", "dev", "eth0"),
                    ("link", "set", "eth0", "up"),
                    ("route", "add", "default", "via", ROUTER),
                    ("neigh", "add", NOWHERE, "lladdr", "02:00:00:00:00:99", "dev", "eth0")):
        _ip(*command)


def _addresses():
    """Of the router's end."""
    for address in (ROUTER + "/24", NEIGHBOUR + "/24", INTERNET + "/32"):
        _ip("addr", "add", address, "dev", "lan")
    for device in ("lo", "lan"):
        _ip("link", "set", device, "up")


class Home:
    """`host`, `ca`, `router` (lib/igd.py) and `own`, another one, on the host's own loopback, which
    is never found."""

    def __init__(self, name, number, account_key, folder):
        self.name, self.number = name, number
        _unshare(_NEW_MOUNTS | _NEW_NETWORK)
        subprocess.run(["/bin/mount", "--make-rprivate", "/"], check=True)
        for fresh in (folder, "/run", "/var/lib"):
            subprocess.run(["/bin/mount", "-t", "tmpfs", "tmpfs", fresh], check=True)
        workspace = pathlib.Path(folder)
        self._there = threading.Event()
        self._wired = threading.Event()
        self._ready = threading.Event()
        threading.Thread(target=self._be_the_router, daemon=True).start()
        assert self._there.wait(20)
        _wire(self._thread)
        self._wired.set()
        assert self._ready.wait(20), "no router"
        self.own = Igd("127.0.0.1")
        self.host = Host(os.environ["KOVA_STAGE"], os.environ["KOVA_TEST_PRELOAD"], workspace,
                         os.environ.get("KOVA_SANITIZED") == "1", own_log=True)
        self.host.start()
        self.host.device()  # with a router to look for
        self.host.settings(orderattempts=1, skipdns01=True, debuglog=1,
                           keytype="ec256")
        self.ca = AcmeCa()
        jwk = jws.key_to_jwk(account_key)
        store_account(self.host, self.ca.directory, self.ca.register(jwk), jwk)

    def _be_the_router(self):
        """What is made here belongs to the router's network, for as long as the thread lives."""
        _unshare(_NEW_NETWORK)
        self._thread = threading.get_native_id()
        self._there.set()
        self._wired.wait()
        _addresses()
        self.router = Igd(ROUTER, search=True)
        self._ready.set()
        threading.Event().wait()

    def note(self, text):
        """Something to read when KOVA_HOME_NOTES names a file."""
        if path := os.environ.get("KOVA_HOME_NOTES"):
            with open(path, "a", encoding="utf-8") as notes:
                notes.write(f"{self.name}: {text}\n")

    def report(self):
        return (f"{self.host.report()}--- the router was asked\n{self.router.report()}"
                f"--- on the loopback\n{self.own.report()}--- the CA was asked\n{self.ca.report()}")


def _live(name, number, work, account_key, folder, story):
    """In the child: tells in the file `story` what went wrong."""
    home, told = None, ""
    try:
        home = Home(name, number, account_key, folder)
        work(home)
        assert home.ca.violations == []
    except BaseException:  # pylint: disable=broad-except
        told = traceback.format_exc() + (home.report() if hasattr(home, "ca") else "")
    with open(story, "w", encoding="utf-8", errors="replace") as file:
        file.write(told)


class _Living:
    def __init__(self, name, number, work, account_key, folder):
        self.name, self._story = name, f"{folder}/story"
        self._deadline = time.monotonic() + _LONGEST
        os.makedirs(f"{folder}/home")
        self._child = os.fork()
        if self._child == 0:
            status = 1
            try:
                _live(name, number, work, account_key, f"{folder}/home", self._story)
                status = 0
            finally:
                os._exit(status)

    def ended(self):
        if time.monotonic() > self._deadline:
            os.kill(self._child, signal.SIGKILL)
            self._deadline = float("inf")
        return os.waitpid(self._child, os.WNOHANG)[0] != 0

    @property
    def story(self):
        if not os.path.exists(self._story):
            return "it never ended\n"
        with open(self._story, encoding="utf-8") as file:
            return file.read()


def at_homes(account_key, works):
    """Calls each of {name: function of a Home} in a home of its own. All that fail are told of."""
    waiting, living, stories = list(works.items()), [], {}
    assert waiting
    with tempfile.TemporaryDirectory() as folder:
        Host(os.environ["KOVA_STAGE"], os.environ["KOVA_TEST_PRELOAD"], folder)  # copies it for all
        while waiting or living:
            while waiting and len(living) < _AT_ONCE:
                name, work = waiting.pop(0)
                number = len(waiting)
                living.append(_Living(name, number, work, account_key, f"{folder}/{number}"))
            for each in [each for each in living if each.ended()]:
                living.remove(each)
                stories[each.name] = each.story
            time.sleep(0.02)
    failures = [f"=== {name}\n{story}" for name, story in stories.items() if story]
    assert len(stories) == len(works)
    assert not failures, "\n".join([f"{len(failures)} of {len(works)} failed", *failures])
