"""What scripts/mutants.sh runs; it says how.

Each worker has a copy of the tree below build/mutants, changes it, builds the room's unit tests and
runs them in the sandbox, where moreover the rest of the machine is read-only: a mutant may well remove
what it should not.
"""

import argparse
import concurrent.futures
import filecmp
import os
import pathlib
import queue
import random
import re
import shutil
import signal
import subprocess
import sys
import time

from operators import mutants_of

TREE = pathlib.Path.cwd()
BAR = 90  # per cent of the valid mutants
READ_ONLY = ["unshare", "--mount", "--", "/bin/sh", "-c",
             'mount -o remount,bind,ro / && exec "$@"', "sh"]
KILLED, SURVIVED, INVALID = "killed", "survived", "invalid"


def rooms():
    """{room: its unit test programs}"""
    lists = sorted(TREE.glob("tests/unit/*/CMakeLists.txt"))
    return {path.parent.name: [name + "_test" for name in
                               re.findall(r"^kova_unit_test\((\w+)", path.read_text(), re.MULTILINE)]
            for path in lists if (TREE / "src" / path.parent.name).is_dir()}


def mutants_of_room(room):
    files = sorted(path for path in (TREE / "src" / room).iterdir() if path.suffix in (".cpp", ".h"))
    return [mutant for path in files
            for mutant in mutants_of(path.relative_to(TREE).as_posix(), path.read_text())]


def run(command, limit=None, **options):
    """Whether the command ended well and in time; ends all that it started."""
    with subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, start_new_session=True, **options) as process:
        try:
            output, _ = process.communicate(timeout=limit)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.communicate()
            return False, b"timed out"
    return process.returncode == 0, output


def bring(source, target):
    """Copies a file that is another. It is then new: what was built from a mutant is built again."""
    if not os.path.exists(target) or not filecmp.cmp(source, target, shallow=False):
        shutil.copyfile(source, target)
        shutil.copymode(source, target)


class Worker:
    """A copy of the tree, and its build."""

    def __init__(self, name):
        self.tree = TREE / "build/mutants" / name
        for path in (self.tree / "src").glob("**/*.*"):
            if not (TREE / path.relative_to(self.tree)).exists():
                path.unlink()
        shutil.copytree(TREE, self.tree, symlinks=True, dirs_exist_ok=True, copy_function=bring,
                        ignore=lambda folder, _: ["build", ".git"] if folder == str(TREE) else [])
        self.changed = None  # the file that holds a mutant
        # An unused variable makes no mutant invalid.
        good, output = run(["cmake", "--preset", "debug", "-D", "KOVA_WERROR=OFF"], cwd=self.tree)
        if not good:
            sys.exit(output.decode())

    def build(self, programs):
        return run(["cmake", "--build", "--preset", "debug", "--parallel", "1",
                    "--target", *programs], cwd=self.tree)

    def test(self, room, programs, limit=None):
        environment = os.environ | {"GTEST_FAIL_FAST": "1"}
        for program in programs:
            path = self.tree / "build/debug/tests/unit" / room / program
            good, output = run(READ_ONLY + [self.tree / "tests/sandbox/sandbox", path], limit,
                               cwd=self.tree, env=environment)
            if not good:
                return False, output
        return True, b""

    def restore(self):
        if self.changed:
            shutil.copyfile(TREE / self.changed, self.tree / self.changed)
        self.changed = None

    def judge(self, mutant, room, programs, limit):
        if self.changed != mutant.path:
            self.restore()
        self.changed = mutant.path
        (self.tree / mutant.path).write_text(mutant.apply((TREE / mutant.path).read_text()))
        if not self.build(programs)[0]:
            return INVALID
        return SURVIVED if self.test(room, programs, limit)[0] else KILLED


def baseline(worker, room, programs):
    """The time limit for a run with a mutant: the room's tests have to pass without one."""
    worker.restore()
    good, output = worker.build(programs)
    if good:
        began = time.monotonic()
        good, output = worker.test(room, programs)
    if not good:
        sys.exit(f"{room}: the tests fail without a mutant\n{output.decode(errors='replace')}")
    return 20 + 8 * (time.monotonic() - began)


def judge_room(room, programs, mutants, workers):
    """Prints the survivors as they are found; returns the counts of the outcomes."""
    limit = max(baseline(worker, room, programs) for worker in workers)
    free = queue.SimpleQueue()
    for worker in workers:
        free.put(worker)

    def judge(mutant):
        worker = free.get()
        try:
            outcome = worker.judge(mutant, room, programs, limit)
        finally:
            free.put(worker)
        if outcome == SURVIVED:
            print(f"survived  {mutant}", flush=True)
        return outcome

    with concurrent.futures.ThreadPoolExecutor(len(workers)) as pool:
        outcomes = list(pool.map(judge, mutants))
    return {name: outcomes.count(name) for name in (KILLED, SURVIVED, INVALID)}


def summary(room, counts):
    """One line; and whether the room is above the bar."""
    valid = counts[KILLED] + counts[SURVIVED]
    share = 100 * counts[KILLED] / valid if valid else 0
    told = ", ".join(f"{count} {name}" for name, count in counts.items())
    print(f"{room}: {told}; {share:.0f}% of the valid mutants killed", flush=True)
    return share >= BAR


def main():
    known = rooms()
    parser = argparse.ArgumentParser(prog="mutants.sh")
    parser.add_argument("--room", action="append", choices=sorted(known))
    parser.add_argument("--sample", type=int)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=1)
    parser.add_argument("--list", action="store_true")
    given = parser.parse_args()
    chosen = {}
    for room in given.room or known:
        mutants = mutants_of_room(room)
        if given.sample is not None and given.sample < len(mutants):
            kept = set(random.Random(given.seed).sample(range(len(mutants)), given.sample))
            mutants = [mutant for index, mutant in enumerate(mutants) if index in kept]
        chosen[room] = mutants
    if given.list:
        print("\n".join(str(mutant) for mutants in chosen.values() for mutant in mutants))
        return 0
    workers = [Worker(f"worker{number}") for number in range(given.jobs)]
    results = [summary(room, judge_room(room, known[room], mutants, workers))
               for room, mutants in chosen.items()]
    return 0 if all(results) else 1


if __name__ == "__main__":
    sys.exit(main())
