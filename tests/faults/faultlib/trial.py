"""One scenario under faults: a listed run as the measure, then one run per fault with the checks
after it and after the run that follows."""

from dataclasses import asdict, dataclass

from . import invariants
from .fault_point import errors_of
from .invariants import INDEX, Tidiness
from .state import Snapshot, json_of

TIME_LIMIT = 60


@dataclass(frozen=True)
class Fault:
    point: int
    error: str = None  # None: the run is killed

    @property
    def disturbance(self):
        return ("--kill", self.point) if self.error is None else ("--fail", self.point, self.error)


@dataclass
class Broken:
    """What did not hold at one point."""
    scenario: str
    point: int
    error: str
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
        lab.forget()
        self._command = scenario.prepare(lab)
        self._follow = scenario.follow or self._command
        self._start = Snapshot()
        self._first_index = json_of(INDEX)
        self._tidiness = Tidiness()
        self._tidiness.learn()
        self.points = self._measure()

    def _measure(self):
        """The undisturbed run and the one after it: what they leave is as it should be."""
        self._reset()
        outcome = self._lab.run_disturbed(self._command)
        assert self._scenario.done(self._start), f"{self._scenario.name}\n{outcome.result}"
        assert not outcome.exposed, outcome.exposed
        self._tidiness.learn()
        self._indexes = [self._first_index, json_of(INDEX), *self._scenario.between]
        second = self._lab.run(self._follow)
        assert self._scenario.done(self._start), f"{self._scenario.name}\n{second}"
        self._tidiness.learn()
        return outcome.points

    def _reset(self):
        self._start.restore()
        self._lab.forget()

    # -- faults ------------------------------------------------------------------------------------

    def kills(self):
        return [Fault(point["point"]) for point in self.points]

    def errors(self):
        return [Fault(point["point"], error) for point in self.points
                for error in errors_of(point["call"])]

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
        return Broken(self._scenario.name, fault.point, fault.error, at["call"], at["program"],
                      at["paths"], flaws)

    def _after_fault(self, fault, outcome):
        flaws = [f"others can read a key: {path}" for path in sorted(set(outcome.exposed))]
        flaws += invariants.index(self._indexes) + invariants.accounts()
        flaws += invariants.services(self._scenario.services)
        if fault.error is not None:
            flaws += self._false_success(outcome.result)
        return flaws

    def _false_success(self, result):
        """A run that says nothing has done what it was asked for."""
        silent = result.status == 0 and not result.stderr and not _complaints(result)
        if silent and not self._scenario.done(self._start):
            return ["success that is none"]
        return []

    def _after_next(self):
        was_done = self._scenario.done(self._start)
        result = self._lab.run(self._follow)
        flaws = [] if was_done or result.status == 0 else [
            f"the next run fails: {result.status} {(result.stderr or result.stdout)[:200]}"]
        if not self._scenario.done(self._start):
            flaws.append(f"not done after the next run {was_done}: {_complaints(result)}")
        flaws += invariants.archive() + invariants.services(self._scenario.services)
        flaws += invariants.accounts() + self._tidiness.check()
        return [f"next: {flaw}" for flaw in flaws]


def _complaints(result):
    return [line.plain for line in result.syslog if line.priority <= 4]
