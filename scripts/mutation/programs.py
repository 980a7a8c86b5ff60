"""The unit test programs of a room: which of their tests to ask first about a mutant.

Only tests that enter a function can notice what is changed in it (trace.cpp tells which do). Most
mutants are noticed by a test that noticed another one of the same file, and at once. So these come
first, with those of the file's own X_test.cpp; then all that are quick; then the slow ones, some at a
time, since they mostly wait.
"""

import collections
import dataclasses
import functools
import os
import pathlib
import re
import signal
import subprocess
import time

from operators import blanked, in_function

FIRST = 0.5   # seconds that the tests which are asked first may take together
QUICK = 0.1   # seconds that a quick test takes at most
SHARDS = 4    # of the slow tests
# A mutant may well remove what it should not, or fill what it can: the rest of the machine is read-only.
CONFINED = ["unshare", "--mount", "--", "/bin/sh", "-c",
            'mount -o remount,bind,ro / && ulimit -v 4000000 && ulimit -f 400000 && exec "$@"', "sh"]
PASSED = re.compile(r"^\[       OK \] (\S+) \((\d+) ms\)", re.MULTILINE)
FAILED = re.compile(r"^\[  FAILED  \] ([^\s,]+)", re.MULTILINE)
BEGUN = re.compile(r"^\[ RUN      \] (\S+)", re.MULTILINE)
LATE = "\ntimed out"
ENTERED = re.compile(r"^\[ entered  \] (\S+)(.*)", re.MULTILINE)
SUITE = re.compile(r"^(?:TYPED_)?TEST(?:_F|_P)?\((\w+)", re.MULTILINE)


@functools.cache
def read(path):
    return path.read_text()


def block_of(text, line):
    """Which of the text's outermost functions or classes the line is in: how many end before it."""
    return sum(1 for before in text.splitlines()[:line - 1] if before.startswith("}"))


@dataclasses.dataclass(frozen=True)
class Test:
    program: str
    name: str
    seconds: float


class Command:
    """A command in a session of its own, with a time limit."""

    def __init__(self, command, limit=None, **options):
        self.ends = time.monotonic() + limit if limit else None
        self.process = subprocess.Popen(  # pylint: disable=consider-using-with
            command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            start_new_session=True, **options)

    def wait(self):
        """(whether it ended well and in time, its output); ends all that it started."""
        try:
            output, _ = self.process.communicate(timeout=self.ends and max(0, self.ends - time.monotonic()))
            return self.process.returncode == 0, output.decode(errors="replace")
        except subprocess.TimeoutExpired:
            os.killpg(self.process.pid, signal.SIGKILL)
            return False, self.process.communicate()[0].decode(errors="replace") + LATE


def culprit(output):
    """The test that failed, crashed or did not end."""
    found = FAILED.findall(output) or BEGUN.findall(output)[-1:]
    return found[0] if found else ""


def own_suites(tests, source):
    """The suites of X_test.cpp for src/ROOM/X.cpp or X.h, none when there is no such file."""
    own = tests / (os.path.splitext(os.path.basename(source))[0] + "_test.cpp")
    return set(SUITE.findall(own.read_text())) if own.exists() else set()


def suite_of(test):
    """Suite, of "Suite.Name" and of "Values/Suite.Name/0"."""
    return test.name.split(".")[0].split("/")[-1]


class Programs:
    """The programs of a room, as they are built in one tree."""

    def __init__(self, tree, sources, names):
        self.tree, self.sources, self.names = tree, sources, names
        self.tests = {}                               # {(program, test): Test}
        self.entering = collections.defaultdict(set)  # {(source, its block): tests}
        self.killers = collections.defaultdict(list)  # {source: its mutants' killers, the latest first}

    def path(self, program):
        return self.tree / "build/clang/tests/unit" / self.sources.name / program

    def start(self, program, limit=None, **environment):
        environment = os.environ | {"GTEST_FAIL_FAST": "1", "GTEST_COLOR": "no"} | environment
        return Command(CONFINED + [self.tree / "tests/sandbox/sandbox", self.path(program)], limit,
                       cwd=self.tree, env=environment)

    def learn(self):
        """Runs all tests, and notes what they do: (whether they pass, the output)."""
        for program in self.names:
            good, output = self.start(program, GTEST_FILTER="*", KOVA_TRACE="1").wait()
            if not good:
                return False, output
            for name, milliseconds in PASSED.findall(output) or [("*", "0")]:
                self.tests[program, name] = Test(program, name, int(milliseconds) / 1000)
            self.trace(program, ENTERED.findall(output))
        return self.run(self.tests.values(), 1)[1:]  # together as later, slow ones aside

    def trace(self, program, entered):
        """Notes which tests enter which block, by the places of the functions that they told."""
        places = sorted({place for _, told in entered for place in told.split()})
        lines = subprocess.run(["addr2line", "-e", self.path(program)], input="\n".join(places),
                               capture_output=True, text=True, check=True).stdout.splitlines()
        blocks = dict(zip(places, map(self.block_at, lines)))
        for name, told in entered:
            for block in {blocks[place] for place in told.split()} - {None}:
                self.entering[block].add(self.tests[program, name])

    def block_at(self, where):
        """(source, its block), of "/tree/src/room/file.cpp:12"; none outside of the room."""
        path, _, line = where.split(" ")[0].rpartition(":")
        room = self.tree / "src" / self.sources.name
        path = pathlib.Path(os.path.normpath(path))
        if path.parent != room or not line.isdigit():
            return None
        return path.relative_to(self.tree).as_posix(), block_of(read(path), int(line))

    def able(self, mutant, text):
        """The tests that can notice it: all, when it is no part of a function, or of one in a header."""
        entering = self.entering[mutant.path, block_of(text, mutant.line)]
        known = mutant.path.endswith(".cpp") and in_function(blanked(text), mutant.start)
        return [test for test in self.tests.values() if test in entering or not (known and entering)]

    def first(self, tests, source):
        """Those of the tests that know the source best."""
        own = own_suites(self.sources, source)
        candidates = [test for test in self.killers[source] if test in tests] + [
            test for test in tests if suite_of(test) in own and test.seconds < QUICK]
        chosen, seconds = [], 0.0
        for test in candidates:
            if test not in chosen and seconds + test.seconds < FIRST:
                chosen.append(test)
                seconds += test.seconds
        return chosen

    def run(self, tests, shards):
        """(culprit, whether all pass, the output of the first program that fails)"""
        tests = list(tests)
        limit = 10 + 4 * sum(test.seconds for test in tests) / shards
        running = []
        for program in self.names:
            names = [test.name for test in tests if test.program == program]
            for number in range(min(shards, len(names))):
                running.append((program, self.start(
                    program, limit, GTEST_FILTER=":".join(names), GTEST_SHARD_INDEX=str(number),
                    GTEST_TOTAL_SHARDS=str(shards))))
        results = [(program, *command.wait()) for program, command in running]
        for program, good, output in results:
            if not good:
                return self.tests.get((program, culprit(output))), False, output
        return None, True, ""

    def noticed(self, mutant, text):
        """Whether a test fails: the mutant of the text is killed."""
        source, tests = mutant.path, self.able(mutant, text)
        first = self.first(tests, source)
        others = [test for test in tests if test not in first]
        quick = [test for test in others if test.seconds < QUICK]
        slow = [test for test in others if test.seconds >= QUICK]
        return (self.fails(first, 1, source) or self.fails(quick, 1, source)
                or self.fails(slow, SHARDS, source))

    def fails(self, tests, shards, source):
        """Whether one of the tests fails; not one that fails in company alone, on a busy machine."""
        for _ in range(2):
            killer, good, output = self.run(tests, shards)
            if good:
                return False
            if killer is None or killer in self.killers[source] or output.endswith(LATE) or (
                    not self.run([killer], 1)[1]):
                self.remember(killer, source)
                return True
        return False

    def remember(self, killer, source):
        if killer:
            others = [test for test in self.killers[source] if test != killer]
            self.killers[source] = [killer, *others]
