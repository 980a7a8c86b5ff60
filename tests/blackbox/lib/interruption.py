"""Signals in the middle of a run."""

import os
import signal
import time

from . import memcheck, paths
from .http_script import Reply

NEVER = 8  # seconds before an answer that nobody waits for
SIGNALS = {signal.SIGTERM: "Terminated", signal.SIGINT: "Interrupt", signal.SIGHUP: "Hangup"}


def runs_of(program):
    """The processes that run `program`, the oldest first: a child of its own is younger."""
    processes = sorted(int(name) for name in os.listdir("/proc") if name.isdigit())
    return [process for process in processes if memcheck.is_run_of(process, program)]


def tell(number, program=paths.PROGRAM):
    """Sends the signal to the program under test, the only one of this host."""
    os.kill(runs_of(program)[0], number)


def has_open(process, path):
    try:
        descriptors = os.listdir(f"/proc/{process}/fd")
        return any(os.readlink(f"/proc/{process}/fd/{each}") == path for each in descriptors)
    except OSError:
        return False  # it has ended, or closed it


def asks_for_lock(path, program=paths.PROGRAM):
    """Waits until the program under test has opened the lock file that somebody else holds. Whether
    it has: one that ends without is not waited for."""
    while processes := runs_of(program):
        if has_open(processes[0], path):
            return True
        time.sleep(0.01)
    return False


def telling(number, *look, program=paths.PROGRAM):
    """As an answer of a server: the signal first, and then nothing. `look` is called before it."""
    def answer(_request, _normal):
        for each in look:
            each()
        tell(number, program)
        return Reply(200, {}, delay=NEVER)
    return answer


def ended(result, number, program="kova-letsencrypt"):
    assert result.status == -number
    assert result.stdout == ""
    assert f"{program}:# Ended by signal {int(number)} ({SIGNALS[number]})" in result.errors
    assert result.seconds < memcheck.patience(NEVER - 2)


def while_validating(ca, answer):
    """`answer` to the look that follows the challenge."""
    ca.answer("authz", lambda _request, normal: normal(), answer)
