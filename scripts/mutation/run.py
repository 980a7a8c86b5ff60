"""What scripts/mutants.sh runs; it says how.

Each worker has a copy of the tree below build/mutants, changes it, builds the room's unit tests and
runs them in the sandbox, those first that most probably notice (programs.py).
"""

import argparse
import concurrent.futures
import filecmp
import json
import os
import pathlib
import queue
import random
import re
import shutil
import sys
import threading

from operators import mutants_of
from programs import Command, Programs

TREE = pathlib.Path.cwd()
BAR = 90  # per cent of the valid mutants
# No mutant is built twice, and none is looked at by a debugger.
QUICK_BUILD = [
    "-DKOVA_WERROR=OFF",  # an unused variable makes no mutant invalid
    "-DCMAKE_CXX_FLAGS=-w", "-DCMAKE_CXX_FLAGS_DEBUG=-O0", "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold",
    "-DCMAKE_CXX_COMPILER_LAUNCHER=", "-DKOVA_CCACHE=OFF",
    "-DCMAKE_PROJECT_INCLUDE=scripts/mutation/quick.cmake"]
KILLED, SURVIVED, INVALID = "killed", "survived", "invalid"


def rooms():
    """{room: its unit test programs}"""
    lists = sorted(TREE.glob("tests/unit/*/CMakeLists.txt"))
    return {path.parent.name: [name + "_test" for name in
                               re.findall(r"^kova_unit_test\((\w+)", path.read_text(), re.MULTILINE)]
            for path in lists if (TREE / "src" / path.parent.name).is_dir()}


def mutants_of_room(room):
    files = [path for suffix in ("*.cpp", "*.h")  # headers last: they take longest to build
             for path in sorted((TREE / "src" / room).glob(suffix))]
    return [mutant for path in files
            for mutant in mutants_of(path.relative_to(TREE).as_posix(), path.read_text())]


def bring(source, target):
    """Copies a file that is another. It is then new: what was built from a mutant is built again."""
    if not os.path.exists(target) or not filecmp.cmp(source, target, shallow=False):
        shutil.copyfile(source, target)
        shutil.copymode(source, target)


class Worker:
    """A copy of the tree, its build, and the programs of the room that it is in."""

    def __init__(self, name):
        self.tree = TREE / "build/mutants" / name
        for path in (self.tree / "src").glob("**/*.*"):
            if not (TREE / path.relative_to(self.tree)).exists():
                path.unlink()
        shutil.copytree(TREE, self.tree, symlinks=True, dirs_exist_ok=True, copy_function=bring,
                        ignore=lambda folder, _: ["build", ".git"] if folder == str(TREE) else [])
        self.changed = None  # the file that holds a mutant
        self.programs = None

    def cmake(self, *arguments):
        return Command(["cmake", *arguments], cwd=self.tree).wait()

    def build(self, programs):
        return self.cmake("--build", "--preset", "clang", "--parallel", "1", "--target", *programs)

    def enter(self, room, programs):
        """Builds the room's tests and learns about them: they have to pass without a mutant."""
        self.restore()
        self.programs = Programs(self.tree, self.tree / "tests/unit" / room, programs)
        good, output = self.cmake("--preset", "clang", *QUICK_BUILD, f"-DKOVA_ROOM={room}")
        if good:
            good, output = self.build(programs)
        if good:
            good, output = self.programs.learn()
        if not good:
            sys.exit(f"{room}: the tests fail without a mutant\n{output}")

    def restore(self):
        if self.changed:
            shutil.copyfile(TREE / self.changed, self.tree / self.changed)
        self.changed = None

    def judge(self, mutant):
        if self.changed != mutant.path:
            self.restore()
        self.changed = mutant.path
        text = (TREE / mutant.path).read_text()
        (self.tree / mutant.path).write_text(mutant.apply(text))
        if not self.build(self.programs.names)[0]:
            return INVALID
        return KILLED if self.programs.noticed(mutant, text) else SURVIVED


class Record:
    """The outcomes so far; also in a file, which is whole at any time, when there is one.

    What the file has already is not judged again: an interrupted run can be gone on with.
    """

    def __init__(self, path):
        self.path = path
        self.outcomes = json.loads(path.read_text()) if path and path.exists() else {}
        self.lock = threading.Lock()

    def add(self, mutant, outcome):
        if outcome == SURVIVED:
            print(f"survived  {mutant}", flush=True)
        with self.lock:
            self.outcomes[str(mutant)] = outcome
            if self.path:
                self.path.with_suffix(".new").write_text(json.dumps(self.outcomes, indent=0))
                self.path.with_suffix(".new").replace(self.path)


def judge_room(mutants, workers, record):
    """The counts of the outcomes."""
    free = queue.SimpleQueue()
    for worker in workers:
        free.put(worker)

    def judge(mutant):
        if str(mutant) not in record.outcomes:
            worker = free.get()
            try:
                record.add(mutant, worker.judge(mutant))
            finally:
                free.put(worker)
        return record.outcomes[str(mutant)]

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


def chosen_mutants(given, room):
    mutants = mutants_of_room(room)
    if given.survivors:
        before = json.loads(given.survivors.read_text())
        mutants = [mutant for mutant in mutants if before.get(str(mutant)) == SURVIVED]
    if given.sample is not None and given.sample < len(mutants):
        kept = set(random.Random(given.seed).sample(range(len(mutants)), given.sample))
        mutants = [mutant for index, mutant in enumerate(mutants) if index in kept]
    return mutants


def arguments(known):
    parser = argparse.ArgumentParser(prog="mutants.sh")
    parser.add_argument("--room", action="append", choices=sorted(known))
    parser.add_argument("--sample", type=int)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=1)
    parser.add_argument("--list", action="store_true")
    for option in "--json", "--survivors":
        parser.add_argument(option, type=pathlib.Path, metavar="FILE")
    return parser.parse_args()


def main():
    known = rooms()
    given = arguments(known)
    chosen = {room: chosen_mutants(given, room) for room in given.room or known}
    chosen = {room: mutants for room, mutants in chosen.items() if mutants}
    if given.list:
        print("\n".join(str(mutant) for mutants in chosen.values() for mutant in mutants))
        return 0
    workers = [Worker(f"worker{number}") for number in range(given.jobs)]
    record = Record(given.json)
    results = []
    for room, mutants in chosen.items():
        for worker in workers:
            worker.enter(room, known[room])
        results.append(summary(room, judge_room(mutants, workers, record)))
    return 0 if all(results) else 1


if __name__ == "__main__":
    sys.exit(main())
