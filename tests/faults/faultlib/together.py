"""Two commands on one host at the same time, one of them held at a rename; and many at once."""

import os
import random
import signal
import subprocess
import threading
import time
from dataclasses import asdict, dataclass

from cryptography import x509
from lib import paths
from lib.renewal import INDEX, folder_of, put_certificate, record, service

from . import invariants, state
from .invariants import Tidiness
from .scenarios import BIND, ID, MAIL, NAME, OTHER, WEB, front, kova, serve

ADDED = "gHi789"
TIME_LIMIT = 60

COMMANDS = {
    "renew-all": kova("renew-all"),
    "renew": kova("renew", "-c", ID),
    "new-cert-c": kova("new-cert", "-s", "SERVER", "-d", NAME, "-m", "admin@host.example", "-c", ID),
    "revoke": kova("revoke", "-c", ID),
    "add-cronjob": kova("add-cronjob"),
    "add": front("add", ADDED),
    "default": front("default", ID),
    "bind": front("bind", OTHER, *BIND),
    "unbind": front("unbind", ID, "--subscriber", "pkg", "--service", "mail"),
    "deploy": front("deploy", ID),
    "check": front("check", ID),
}
# Renewals that leave the services to whoever asked for them.
HANDS_OUT_NOTHING = {"renew", "new-cert-c"}


def prepare(lab):
    """A due certificate of the CA with two services, another one, which is the default, and a
    third that is not in the index."""
    lab.clear()
    for subscriber, package in (("nginx", False), ("pkg", True)):
        local = "local/" if package else ""
        lab.host.write(f"/usr/{local}libexec/certificate.d/{subscriber}", "#!/bin/sh\n", 0o755)
    account = lab.account()
    lab.archive.add(ID, service(), service("pkg", "mail", package=True))
    result = lab.run(with_server(COMMANDS["new-cert-c"], lab))
    assert result.status == 0, str(result)
    put_certificate(lab.host, folder_of(ID), lab.ca.issuer)
    lab.ca.certificates.append(_leaf(folder_of(ID)))
    lab.archive.record(ID, record(lab.ca.directory, account))
    lab.archive.add(OTHER, days=80)
    put_certificate(lab.host, folder_of(ADDED), lab.ca.issuer, days=80)
    lab.cli.default(OTHER)
    serve(lab, ID, WEB)
    serve(lab, ID, MAIL)


def _leaf(folder):
    return x509.load_pem_x509_certificate(state.content(folder + "/cert.pem"))


def with_server(command, lab):
    return [lab.ca.directory if word == "SERVER" else word for word in command]


@dataclass
class Clash:
    """What did not hold of a pair."""
    first: str
    second: str
    point: int
    paths: list
    flaws: list

    as_json = asdict


class Arena:
    """A host for pairs; the clock of the programs is the real one, since they wait for each other."""

    def __init__(self, lab):
        self._lab = lab
        prepare(lab)
        self._start = state.Snapshot()
        self._tidiness = Tidiness()
        for command in COMMANDS:
            self._learn(command)

    def _learn(self, name):
        """What the command leaves by itself, and with a renewal after it, is as it should be."""
        self._reset()
        self._tidiness.learn()
        for words in (COMMANDS[name], COMMANDS["renew-all"]):
            self._lab.run(with_server(words, self._lab))
            self._tidiness.learn()

    def _reset(self):
        self._start.restore()
        self._lab.forget()

    def renames(self, name):
        """The points of a command at which it renames."""
        self._reset()
        outcome = self._lab.run_disturbed(with_server(COMMANDS[name], self._lab))
        return [point for point in outcome.points if point["call"].startswith("rename")]

    # -- pairs -------------------------------------------------------------------------------------

    def clash(self, first, second, point):
        """Holds the first command at the point while the second one runs as far as it gets. None
        when everything holds afterwards, else a Clash."""
        self._reset()
        held = self._start_process(self._lab.tool.argv(
            with_server(COMMANDS[first], self._lab), "--hold", point["point"]))
        _until_stopped(held)
        other = self._start_process(with_server(COMMANDS[second], self._lab))
        _wait(other, 1.0)
        held.send_signal(signal.SIGCONT)
        flaws = [f"{name} does not end" for name, process in ((first, held), (second, other))
                 if not _ends(process)]
        flaws += [f"{first} exposed {path}" for path in self._lab.tool.read().exposed]
        flaws += self.flaws_now() + self._after_renewal(HANDS_OUT_NOTHING & {first, second})
        return Clash(first, second, point["point"], point["paths"], flaws) if flaws else None

    def _start_process(self, command):
        return subprocess.Popen(command, env=self._lab.real_time(), stdin=subprocess.DEVNULL,
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, cwd="/",
                                start_new_session=True)

    def flaws_now(self):
        index = state.json_of(INDEX)
        if not isinstance(index, dict):
            return ["INFO is no object"]
        flaws = invariants.accounts() + invariants.services([WEB, MAIL]) + invariants.archive()
        if os.path.exists(folder_of(ID) + "/renew.json") and not os.path.exists(paths.CRON_JOB):
            flaws.append("a renewal record without the job")
        return flaws

    def _after_renewal(self, deploy):
        """The next renewal run (and deployment) leaves every service with its certificate, and
        nothing else."""
        result = self._lab.run(COMMANDS["renew-all"])
        flaws = [] if result.status == 0 else [f"renew-all fails: {result.stdout[:200]}"]
        if deploy:
            self._lab.run(COMMANDS["deploy"])
            self._lab.run(front("deploy", OTHER))
        flaws += self.flaws_now() + served() + self._tidiness.check()
        return [f"next: {flaw}" for flaw in flaws]

    # -- many --------------------------------------------------------------------------------------

    def turmoil(self, seconds, workers=8, kills=True):
        """So many processes at a time, any command, some of them killed. Returns (number of runs,
        number of kills, flaws)."""
        self._reset()
        counts = {"runs": 0, "kills": 0, "hanging": 0}
        threads = [threading.Thread(target=self._work, args=(time.monotonic() + seconds, kills,
                                                             counts, random.Random(number)))
                   for number in range(workers)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        flaws = [f"{counts['hanging']} do not end"] if counts["hanging"] else []
        return counts["runs"], counts["kills"], flaws + self._after_renewal(True)

    def _work(self, deadline, kills, counts, choose):
        while time.monotonic() < deadline:
            name = choose.choice(sorted(COMMANDS))
            process = self._start_process(with_server(COMMANDS[name], self._lab))
            if kills and choose.random() < 0.4:
                _wait(process, choose.uniform(0, 0.6))
                if process.poll() is None:
                    os.killpg(process.pid, signal.SIGKILL)
                    counts["kills"] += 1
            counts["runs"] += 1
            counts["hanging"] += not _ends(process)


def served():
    """Every service of the index has the files of the certificate that lists it."""
    flaws = []
    for identity, entry in (state.json_of(INDEX) or {}).items():
        for listed in entry["services"]:
            local = "local" if listed["isPkg"] else "kova"
            folder = f"/usr/{local}/etc/certificate/{listed['subscriber']}/{listed['service']}"
            if not invariants.same_set(folder_of(identity), folder):
                flaws.append(f"{folder} has not the set of {identity}, which lists it")
    return flaws


def _until_stopped(process):
    """Until it stops or ends, without taking its end away from Popen."""
    os.waitid(os.P_PID, process.pid, os.WSTOPPED | os.WEXITED | os.WNOWAIT)


def _wait(process, seconds):
    try:
        process.wait(seconds)
        return True
    except subprocess.TimeoutExpired:
        return False


def _ends(process):
    if _wait(process, TIME_LIMIT):
        return True
    os.killpg(process.pid, signal.SIGKILL)
    process.wait()
    return False
