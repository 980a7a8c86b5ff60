"""A person at the shell of a fresh server, who does what the README says."""

import os
import re
import subprocess

from clean_root import ENVIRONMENT
from document import PROJECT
from internet import AUTHORITY, PRODUCTION, STAGING
from lib.nginx import accepts

CLONE = "/root/kova-letsencrypt"
SITE = "/etc/nginx/sites-enabled/default"
LOCAL_ROOT = "/usr/local/share/ca-certificates/test-web-pki.crt"


class Newcomer:
    def __init__(self, root, servers):
        self.root = root
        self._servers = servers
        self._typed = []  # (commands, output); variables live on
        self._be_installed()
        self._clone()

    def _be_installed(self):
        """What an installer leaves on a server, and apt's packages as a repository of files."""
        self.root.write("/etc/hosts", "127.0.0.1 localhost\n"
                        f"{AUTHORITY} {PRODUCTION} {STAGING}\n")
        self.root.write("/etc/machine-id", "0123456789abcdef0123456789abcdef\n")
        self.root.use_repository()

    def _clone(self):
        self.root.write(CLONE + "/.keep", "")
        with subprocess.Popen(["tar", "-C", PROJECT, "--exclude=./build*", "--exclude=./.git",
                               "-cf", "-", "."], stdout=subprocess.PIPE) as files:
            subprocess.run(["tar", "-C", self.root.path(CLONE), "-xf", "-"], stdin=files.stdout,
                           check=True)

    def trust(self, authority):
        """Whoever the web's servers have their certificates from. Takes effect as soon as the
        system has a trust store."""
        self.root.write(LOCAL_ROOT, authority.decode())

    def type(self, commands):
        """Runs the block after the variables of those before. Returns its output."""
        variables = [line for text, _ in self._typed for line in text.splitlines()
                     if re.match(r"\w+=", line)]
        script = "\n".join(["set -euo pipefail", f"cd {CLONE}", *variables, commands])
        done = subprocess.run(["chroot", self.root.folder, "/bin/bash", "-c", script], text=True,
                              timeout=1200, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, check=False, env=ENVIRONMENT)
        self._typed.append((commands, done.stdout))
        assert done.returncode == 0, f"{commands}\n{done.stdout[-6000:]}"
        return done.stdout

    def write_site(self, *configurations):
        """With an editor: the file is a link that leads nowhere outside of this system."""
        subprocess.run(["chroot", self.root.folder, "tee", SITE], text=True, check=True,
                       input="\n".join(configurations), stdout=subprocess.DEVNULL,
                       env=ENVIRONMENT)

    def boot(self):
        """The system has no init that would have started what was installed."""
        self._boot("/usr/sbin/nginx", "-g", "daemon off;", ready=lambda: accepts(80))
        self._boot("/usr/sbin/cron", "-f", ready=lambda: self.root.exists("/run/crond.pid"))

    def _boot(self, *argv, ready):
        self._servers.spawn(["/usr/sbin/chroot", self.root.folder, *argv], ready=ready)

    def boot_cron(self):
        """Likewise. It hands its jobs the environment that they get on a server."""
        pid_file = self.root.path("/run/crond.pid")
        self._servers.spawn(["/usr/sbin/chroot", self.root.folder, "/usr/sbin/cron", "-f"],
                            ready=lambda: os.path.exists(pid_file))

    def report(self):
        return "\n".join(f"{commands}--- output\n{output[-10000:]}"
                         for commands, output in self._typed)
