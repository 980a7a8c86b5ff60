"""One fresh host per test: the installed tree, the folders that the program works in, its system
log and the processes that the test starts."""

import glob
import json
import os
import shutil
import subprocess

from . import memcheck, mounts, paths
from .program import Result, run_program
from .servers import Servers
from .syslog_capture import SyslogCapture

# Fresh, empty and gone after the test. /usr/kova is filled from the staged installation.
FRESH_FOLDERS = ["/usr/kova", "/etc/cron.d", "/usr/local/etc", "/usr/local/libexec",
                 "/usr/libexec/certificate.d"]


# Settings that the installed file switches on and that decide what renew-all renews, and when.
DUE_KEYS = ("cronperiod", "renewalinfo", "renewanyissuer", "renewfailures", "renewlifetime")


MOST_MEMORY = 64  # MiB


class Host(Servers):
    def __init__(self, stage, preload, workspace, sanitized=False, own_log=False):
        """`own_log`: the system log is not that of the other hosts that run beside this one."""
        super().__init__(workspace)
        self.runs = []  # every Result, for the report of a failed test
        self._stage = stage
        self._preload = ":".join(map(_for_everybody, preload.split(":")))
        self._sanitized = sanitized
        self._takes_more = sanitized or memcheck.FOLDER  # memory than the program alone
        self._own_log = own_log
        self._mounted = []

    # -- life ------------------------------------------------------------------------------------

    def start(self):
        for folder in FRESH_FOLDERS:
            self.mount(folder)
        subprocess.run(["/bin/cp", "-a", self._stage + "/usr/kova/.", "/usr/kova"], check=True)
        _remove(paths.WEBROOT)
        _remove(paths.ARCHIVE + "/INFO")  # a test writes the index that it is about
        # What is due is the bare rules' to say, unless a test asks for others (test_due.py); and waits
        # are those without `quickvalidation`, which has its own in test_optional_settings.py.
        self.settings(**dict.fromkeys(DUE_KEYS), quickvalidation=None)
        self.syslog = SyslogCapture(self.workspace + "/log" if self._own_log else None)
        # No router: looking for one would take two seconds of every run.
        self.device(router="none")

    def stop(self):
        self.end_all()
        for folder in reversed(self._mounted):
            mounts.unmount(folder)
        _remove(paths.WEBROOT)
        self.syslog.close()

    def mount(self, folder, mode=0o755, size=None):
        """A fresh tmpfs over `folder` until the test ends; a small `size` makes a full disk."""
        mounts.mount_tmpfs(folder, mode, size)
        self._mounted.append(folder)

    # -- configuration ---------------------------------------------------------------------------

    def device(self, **values):
        """Replaces the device record."""
        self.write(paths.DEVICE_RECORD, json.dumps(values), 0o600)

    def settings(self, **changes):
        """Changes keys of the installed settings file; None takes a key out."""
        with open(paths.SETTINGS, encoding="utf-8") as installed:
            values = json.load(installed)
        values.update(changes)
        self.write_settings(json.dumps({k: v for k, v in values.items() if v is not None}))

    def bare_settings(self, **values):
        """A settings file with these keys alone, so without the extras of the installed one."""
        self.write_settings(json.dumps(values))

    def write_settings(self, text):
        self.write(paths.SETTINGS, text, 0o644)

    def hook(self, name, script, mode=0o755):
        """Installs a shell script as the platform hook `name`."""
        self.write(f"{paths.HOOKS}/{name}", "#!/bin/sh\n" + script, mode)

    # -- programs --------------------------------------------------------------------------------

    def run(self, *args, program=paths.PROGRAM, env=None, **options):
        """Runs the program to its end; see run_program for the options. Waits are counted, not
        waited for. Returns a Result; more memory than any run may take is a failure."""
        log = self.workspace + f"/sleeps.{len(self.runs)}"
        peaks = self.workspace + f"/peaks.{len(self.runs)}"
        environment = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LANG": "C.UTF-8", "TZ": "UTC",
                       "LD_PRELOAD": self._preload, "KOVA_SLEEP_LOG": log,
                       "KOVA_PEAK_LOG": peaks}
        if self._sanitized:
            environment["ASAN_OPTIONS"] = "verify_asan_link_order=0:exitcode=99"
        if self._takes_more:
            # The sanitizers reserve terabytes of addresses.
            options["limits"] = {name: value for name, value in options.get("limits", {}).items()
                                 if name != "AS"}
        environment.update(env or {})
        before = len(self.syslog.lines())
        argv = [program, *map(str, args)]
        options["timeout"] = memcheck.patience(options.get("timeout", 60))
        status, out, err, seconds = run_program(
            memcheck.command(argv), memcheck.environment(environment), **options)
        result = Result(argv, status, out, err, self.syslog.lines()[before:], _sleeps(log), seconds,
                        _peak(peaks))
        self.runs.append(result)
        # Whatever a server sends.
        assert self._takes_more or result.peak <= MOST_MEMORY, result
        return result

    def new_cert(self, server, domains, *more, mail="admin@host.example", **options):
        """new-cert for `domains` (a list, or the text of -d) at that directory URL."""
        text = domains if isinstance(domains, str) else ";".join(domains)
        return self.run("new-cert", "-s", server, "-d", text, "-m", mail, *more, **options)

    # -- what the user has left ------------------------------------------------------------------

    @staticmethod
    def accounts():
        """The stored account folders, sorted."""
        return sorted(glob.glob(paths.ACCOUNTS + "/*"))

    @staticmethod
    def certificates():
        """The folders of the archive, sorted."""
        return sorted(path for path in glob.glob(paths.ARCHIVE + "/*") if os.path.isdir(path))

    def report(self):
        return "\n".join(map(str, self.runs)) + super().report()


def _remove(path):
    if os.path.isdir(path):
        shutil.rmtree(path)
    elif os.path.lexists(path):
        os.unlink(path)


def _sleeps(log):
    if not os.path.exists(log):
        return []
    with open(log, encoding="ascii") as lines:
        return [int(value) if value == int(value) else value for value in map(float, lines)]


def _for_everybody(library):
    """A copy that programs without root can load, too: the tree may be in a folder of root's own.
    Without a library there is nothing to load: such hosts really wait."""
    if not library:
        return ""
    copy = "/usr/local/lib/" + os.path.basename(library)
    if not os.path.exists(copy):
        shutil.copy(library, copy)
        os.chmod(copy, 0o755)
    return copy


def _peak(log):
    """MiB; of several of our programs in one run the one that took the most."""
    if not os.path.exists(log):
        return 0.0
    with open(log, encoding="ascii") as lines:
        return max((int(line) / 1024 for line in lines), default=0.0)
