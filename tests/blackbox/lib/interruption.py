"""Signals in the middle of a run."""

import os
import signal

from . import memcheck, paths
from .http_script import Reply

NEVER = 8  # seconds before an answer that nobody waits for
SIGNALS = {signal.SIGTERM: "Terminated", signal.SIGINT: "Interrupt", signal.SIGHUP: "Hangup"}


def tell(number, program=paths.PROGRAM):
    """Sends the signal to the program under test, the only one of this host."""
    processes = [int(name) for name in os.listdir("/proc") if name.isdigit()]
    processes = [process for process in processes if memcheck.is_run_of(process, program)]
    os.kill(min(processes), number)  # a child of its own is younger


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
