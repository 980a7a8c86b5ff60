"""One scenario under faults: a listed run as the measure, then one run per fault with the checks
after it and after the run that follows."""

import re
import signal
from dataclasses import asdict, dataclass

from lib import paths

from . import invariants, state
from .fault_point import errors_of
from .invariants import INDEX, Tidiness
from .state import Snapshot, json_of

TIME_LIMIT = 60


KILL = "kill"


@dataclass(frozen=True)
class Fault:
    point: int
    what: str  # KILL, or the name of an error or a signal

    @property
    def is_signal(self):
        return self.what.startswith("SIG")

    @property
    def disturbance(self):
        if self.what == KILL:
            return "--kill", self.point
        if self.is_signal:
            return "--signal", self.point, signal.Signals[self.what].value
        return "--fail", self.point, self.what


@dataclass
class Broken:
    """What did not hold at one point."""
    scenario: str
    point: int
    fault: str
    call: str
    program: str
    paths: list
    flaws: list

    as_json = asdict


class Trial:
    def __init__(self, lab, scenario):
        self._lab = lab
        self._scenario = scenario
        lab.clear()
        self._command = scenario.prepare(lab)
        self._follow = scenario.follow or self._command
        self._lab.start = Snapshot()
        self._first_index = json_of(INDEX)
        self._tidiness = Tidiness()
        self._tidiness.learn()
        self.points = self._measure()

    def _measure(self):
        """The undisturbed run and the one after it: what they leave is as it should be."""
        self._reset()
        outcome = self._lab.run_disturbed(self._command)
        assert self._scenario.done(self._lab), f"{self._scenario.name}\n{outcome.result}"
        assert not outcome.exposed, outcome.exposed
        self._tidiness.learn()
        self._indexes = [self._first_index, json_of(INDEX), *self._scenario.between]
        second = self._lab.run(self._follow)
        assert self._scenario.done(self._lab), f"{self._scenario.name}\n{second}"
        self._tidiness.learn()
        return outcome.points

    def _reset(self):
        self._lab.start.restore()
        self._lab.forget()

    # -- faults ------------------------------------------------------------------------------------

    def kills(self):
        return [Fault(point["point"], KILL) for point in self.points]

    def errors(self):
        return [Fault(point["point"], error) for point in self.points
                for error in errors_of(point["call"])]

    def signals(self):
        return [Fault(point["point"], "SIGTERM") for point in self.points]

    def try_fault(self, fault):
        """None when everything held, else a Broken."""
        self._reset()
        try:
            outcome = self._lab.run_disturbed(self._command, *fault.disturbance,
                                              timeout=TIME_LIMIT)
            flaws = self._after_fault(fault, outcome) + self._after_next()
        except AssertionError as hanging:
            return self._broken(fault, None, [f"does not end: {str(hanging)[:300]}"])
        at = next((each for each in outcome.points if each["point"] == fault.point), None)
        return self._broken(fault, at, flaws) if flaws else None

    def _broken(self, fault, at, flaws):
        at = at or self.points[fault.point - 1]
        return Broken(self._scenario.name, fault.point, fault.what, at["call"], at["program"],
                      at["paths"], flaws)

    def _after_fault(self, fault, outcome):
        flaws = [f"others can read a key: {path}" for path in sorted(set(outcome.exposed))]
        flaws += invariants.index(self._indexes) + invariants.accounts()
        flaws += invariants.services(self._scenario.services)
        if fault.is_signal:
            flaws += self._badly_ended(outcome.result, signal.Signals[fault.what].value)
        elif fault.what != KILL:
            flaws += self._false_success(outcome.result)
        return flaws

    def _badly_ended(self, result, number):
        """A run that a signal ends takes its proofs back and says so; one that is already through
        ends as ever."""
        flaws = [f"left behind by the signal: {path}" for path in state.paths()
                 if path.startswith(paths.TOKENS + "/")]
        if self._scenario.taken_back and not self._scenario.taken_back(self._lab):
            flaws.append("not taken back by the signal")
        if result.status == 128 + number:
            if result.stdout:
                flaws.append(f"ended by the signal, but says {result.stdout[:80]!r}")
            # A tool that was cut short is told of as one that failed.
            told = [line for line in _complaints(result) if "Ended by signal" in line]
            if len(told) != 1:
                flaws.append(f"ended by the signal with {len(told)} lines in the log that say so")
        elif not self._scenario.done(self._lab):
            flaws.append(f"not ended by the signal: {result.status}")
        return flaws

    def _false_success(self, result):
        """A run that says nothing has done what it was asked for."""
        silent = (result.status == 0 and not result.stderr and not _complaints(result)
                  and not re.search(r'"error" ?: ?[1-9]', result.stdout))
        if silent and not self._scenario.done(self._lab):
            return ["success that is none"]
        return []

    def _after_next(self):
        was_done = self._scenario.done(self._lab)
        result = self._lab.run(self._follow)
        flaws = [] if was_done or result.status == 0 else [
            f"the next run fails: {result.status} {(result.stderr or result.stdout)[:200]}"]
        if not self._scenario.done(self._lab):
            flaws.append(f"not done after the next run {was_done}: {_complaints(result)}")
        flaws += invariants.archive() + invariants.services(self._scenario.services)
        flaws += invariants.accounts() + self._tidiness.check()
        return [f"next: {flaw}" for flaw in flaws]


def _complaints(result):
    return [line.plain for line in result.syslog if line.priority <= 4]
