"""Runs of the programs under valgrind, for scripts/memcheck.sh: with KOVA_MEMCHECK=FOLDER in the
environment each run leaves a file there when something was found, named after its test."""

import os
import re

FOLDER = os.environ.get("KOVA_MEMCHECK")
SLOWER = 30  # times

# What is in a child that is not replaced by another program is in its parent's file, too. A child
# need not free what its end frees.
VALGRIND = ["/usr/bin/valgrind", "--quiet", "--leak-check=no", "--trace-children=no",
            "--num-callers=30"]


def command(argv, number):
    """`argv` as it is run: as the test's run of that number under valgrind, or as it is."""
    if not FOLDER:
        return argv
    test = re.sub(r"[^A-Za-z0-9_.-]+", "-", os.environ.get("PYTEST_CURRENT_TEST", "no-test"))
    return [*VALGRIND, f"--log-file={FOLDER}/{test[-150:]}.{number}", *argv]


def patience(timeout):
    """The seconds that the run may take."""
    return timeout * SLOWER if FOLDER else timeout
