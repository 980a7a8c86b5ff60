"""Runs of the programs under valgrind, for scripts/memcheck.sh: with KOVA_MEMCHECK=FOLDER in the
environment each run leaves a file there, named after its test, of what was found. KOVA_BOUNDS names
the library without which the router's child cannot bound itself there. Keys are dealt from a pool when
KOVA_KEYS names the library that does so: one that is made takes ten seconds."""

import os
import re
import time

FOLDER = os.environ.get("KOVA_MEMCHECK")
SLOWER = 30  # times

# What is in a child that is not replaced by another program is in its parent's file, too. A child
# need not free what its end frees.
VALGRIND = ["/usr/bin/valgrind", "--quiet", "--leak-check=no", "--trace-children=no",
            "--num-callers=30", "--vex-guest-chase=no"]  # the latter begins a program sooner


def command(argv):
    """`argv` as it is run: under valgrind, or as it is."""
    if not FOLDER:
        return argv
    test = re.sub(r"[^A-Za-z0-9_.-]+", "-", os.environ.get("PYTEST_CURRENT_TEST", "no-test"))
    return [*VALGRIND, f"--log-file={FOLDER}/{test[-150:]}.{time.monotonic_ns()}", *argv]


def environment(variables):
    """The environment of such a run, from that of a usual one."""
    if not FOLDER:
        return variables
    libraries = [variables.get("LD_PRELOAD"), os.environ["KOVA_BOUNDS"]]
    if os.environ.get("KOVA_KEYS") and libraries[0]:
        pool = {name: os.environ[name] for name in ("KOVA_KEY_POOL", "KOVA_KEY_COUNT")}
        variables = {**variables, **pool}
        libraries.append(os.environ["KOVA_KEYS"])
    return {**variables, "LD_PRELOAD": ":".join(filter(None, libraries))}


def is_run_of(process, program):
    """Whether the process of that number runs `program`, under valgrind or not."""
    try:
        runs = os.readlink(f"/proc/{process}/exe")
    except OSError:
        return False  # it has ended
    if runs == program or not FOLDER:
        return runs == program
    with open(f"/proc/{process}/cmdline", "rb") as line:
        words = line.read().split(b"\0")
    return b"valgrind" in words[0] and program.encode() in words


def patience(timeout):
    """The seconds that the run may take."""
    return timeout * SLOWER if FOLDER else timeout
