"""Two commands on one host at the same time, one of them held at a rename; and many at once."""

import functools
import glob
import operator
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
from .commands import ADDED, COMMANDS, SPARE, words_of
from .invariants import Tidiness
from .scenarios import ID, MAIL, OTHER, WEB, front, serve

TIME_LIMIT = 60


def prepare(lab):
    """A due certificate of the CA with two services, another one, which is the default, a third
    that nobody uses and a fourth that is not in the index."""
    lab.clear()
    for subscriber, package in (("nginx", False), ("pkg", True)):
        local = "local/" if package else ""
        lab.host.write(f"/usr/{local}libexec/certificate.d/{subscriber}", "#!/bin/sh\n", 0o755)
    account = lab.account()
    lab.early_account()
    lab.archive.add(ID, service(), service("pkg", "mail", package=True))
    result = lab.run(words_of("new-cert-c", lab))
    assert result.status == 0, str(result)
    put_certificate(lab.host, folder_of(ID), lab.ca.issuer)
    lab.ca.certificates.append(_leaf(folder_of(ID)))
    lab.archive.record(ID, record(lab.ca.directory, account))
    lab.archive.add(OTHER, days=80)
    lab.archive.add(SPARE, days=80)
    put_certificate(lab.host, folder_of(ADDED), lab.ca.issuer, days=80)
    lab.cli.default(OTHER)
    serve(lab, ID, WEB)
    serve(lab, ID, MAIL)


def _leaf(folder):
    return x509.load_pem_x509_certificate(state.content(folder + "/cert.pem"))


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
        self._identities = recorded()
        self._alone = {name: self._learn(name) for name in COMMANDS}
        self._in_turn = {}
        for name in COMMANDS:
            self._succeeds(name)

    def _succeeds(self, name):
        """By itself: else a race would show nothing of it."""
        self._reset()
        result = self._lab.run(words_of(name, self._lab))
        assert result.status == 0, f"{name}\n{result}"
        assert len(recorded() - self._identities) == COMMANDS[name].makes, name
        assert not COMMANDS[name].done or COMMANDS[name].done(self._lab), name

    def _learn(self, *names):
        """What the commands leave one after the other, and with a renewal and deployments after
        them, is as it should be."""
        self._reset()
        tidiness = Tidiness()
        tidiness.learn()
        for name in (*names, "renew-all"):
            self._lab.run(words_of(name, self._lab))
            tidiness.learn()
        self._deploy()
        tidiness.learn()
        return tidiness

    def _deploy(self):
        for identity in (ID, OTHER, SPARE):
            self._lab.run(front("deploy", identity))

    def _untidy(self, first, second):
        """What none of the two leaves, nor the one after the other."""
        alone = self._alone[first] | self._alone[second]
        flaws = alone.check()
        if not flaws:
            return []
        found = state.Snapshot()
        if (first, second) not in self._in_turn:
            self._in_turn[first, second] = (alone | self._learn(first, second)
                                            | self._learn(second, first))
        found.restore()
        return self._in_turn[first, second].check()

    def _reset(self):
        self._start.restore()
        self._lab.forget()

    def renames(self, name):
        """The points of a command at which it renames."""
        self._reset()
        outcome = self._lab.run_disturbed(words_of(name, self._lab))
        return [point for point in outcome.points if point["call"].startswith("rename")]

    # -- pairs -------------------------------------------------------------------------------------

    def clash(self, first, second, point):
        """Holds the first command at the point while the second one runs as far as it gets. None
        when everything holds afterwards, else a Clash."""
        self._reset()
        held = self._start_process(self._lab.tool.argv(
            words_of(first, self._lab), "--hold", point["point"]))
        _until_stopped(held)
        other = self._start_process(words_of(second, self._lab))
        _wait(other, 1.0)
        held.send_signal(signal.SIGCONT)
        flaws = [f"{name} does not end" for name, process in ((first, held), (second, other))
                 if not _ends(process)]
        flaws += [f"{first} exposed {path}" for path in self._lab.tool.read().exposed]
        flaws += self.flaws_now() + self._undone((first, held), (second, other))
        flaws += self._after_renewal(not (COMMANDS[first].deploys and COMMANDS[second].deploys),
                                     lambda: self._untidy(first, second))
        return Clash(first, second, point["point"], point["paths"], flaws) if flaws else None

    def _undone(self, *runs):
        """What those that succeeded were asked for, and is not so."""
        done = [COMMANDS[name] for name, process in runs if process.returncode == 0]
        flaws = [f"success that is none: {' '.join(command.words)}" for command in done
                 if command.done and not command.done(self._lab)]
        made, new = sum(command.makes for command in done), recorded() - self._identities
        return flaws + ([f"{made} certificates made, {len(new)} there"] if len(new) < made else [])

    def _start_process(self, command):
        return subprocess.Popen(command, env=self._lab.real_time(), stdin=subprocess.DEVNULL,
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, cwd="/",
                                start_new_session=True)

    def flaws_now(self):
        index = state.json_of(INDEX)
        if not isinstance(index, dict):
            return ["INFO is no object"]
        flaws = invariants.accounts() + invariants.services([WEB, MAIL]) + invariants.archive()
        if recorded() and not os.path.exists(paths.CRON_JOB):
            flaws.append("a renewal record without the job")
        return flaws

    def _after_renewal(self, deploy, untidy):
        """The next renewal run (and deployment) leaves every service with its certificate, and
        nothing else."""
        result = self._lab.run(words_of("renew-all", self._lab))
        flaws = [] if result.status == 0 else [f"renew-all fails: {result.stdout[:200]}"]
        if deploy:
            self._deploy()
        flaws += self.flaws_now() + served() + invariants.known_accounts(self._lab.ca) + untidy()
        return [f"next: {flaw}" for flaw in flaws]

    # -- many --------------------------------------------------------------------------------------

    def turmoil(self, seconds, workers=8, kills=True):
        """So many processes at a time, any command, some of them killed. Returns (number of runs,
        number of kills, flaws)."""
        fine = functools.reduce(operator.or_, self._alone.values())
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
        return counts["runs"], counts["kills"], flaws + self._after_renewal(
            True, lambda: fine.check(counted=False))  # nobody knows how many there may be

    def _work(self, deadline, kills, counts, choose):
        while time.monotonic() < deadline:
            name = choose.choice(sorted(name for name in COMMANDS if COMMANDS[name].mixes))
            process = self._start_process(words_of(name, self._lab))
            if kills and choose.random() < 0.4:
                _wait(process, choose.uniform(0, 0.6))
                if process.poll() is None:
                    os.killpg(process.pid, signal.SIGKILL)
                    counts["kills"] += 1
            counts["runs"] += 1
            counts["hanging"] += not _ends(process)


def recorded():
    """The certificates that are to be renewed."""
    return {path.split("/")[-2] for path in glob.glob(folder_of("*") + "/renew.json")}


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
