"""Each call of the renewal job's writer fails in turn: the command does what it is for, and the log
says that the job could not be written."""

import os
import re
import sys

import pytest

sys.path[:0] = [os.path.join(os.path.dirname(os.path.abspath(__file__)), "../blackbox")]

from faultlib import scenarios  # noqa: E402
from faultlib.fault_point import errors_of  # noqa: E402
from faultlib.lab import Lab, make_keys  # noqa: E402
from faultlib.state import Snapshot, content  # noqa: E402
from lib import paths  # noqa: E402

BUILD = os.environ["KOVA_BUILD"]
FOLDER = os.path.dirname(paths.CRON_JOB)
FAILED = re.compile(r"kova-letsencrypt:# Failed to add the renewal job\.\[0x[0-9A-F]{4} \S+:\d+\]")


@pytest.fixture(scope="module")
def lab():
    make_keys(BUILD + "/faults-keys")
    lab = Lab(BUILD)
    yield lab
    lab.close()


def renew_with_another_period(lab):
    """The job stands, of another period than the settings'."""
    command = scenarios.renew(lab)
    assert lab.run(scenarios.kova("add-cronjob")).status == 0
    lab.host.settings(cronperiod="daily")
    return command


@pytest.mark.parametrize("prepare, done, calls", [
    (scenarios.add_cronjob, lambda _lab: True, {"openat", "write", "fsync", "linkat"}),
    (scenarios.with_account, lambda lab: lab.host.certificates(),
     {"openat", "write", "fsync", "linkat"}),
    (renew_with_another_period, scenarios.replaced,
     {"openat", "write", "fsync", "linkat", "rename"})])
def test_failure_of_each_call_is_in_the_log(lab, prepare, done, calls):
    lab.clear()
    command = prepare(lab)
    lab.start = start = Snapshot()
    before = content(paths.CRON_JOB)
    points = [point for point in lab.run_disturbed(command).points
              if any(path.startswith(FOLDER) for path in point["paths"])]
    assert calls <= {point["call"] for point in points}
    after = content(paths.CRON_JOB)
    assert after and after != before
    for point in points:
        for error in errors_of(point["call"]):
            start.restore()
            lab.forget()
            check(lab, command, (point["point"], error, point["call"]), done, {before, after})


def check(lab, command, fault, done, contents):
    result = lab.run_disturbed(command, "--fail", *fault[:2]).result
    told = [line for line in result.errors if FAILED.fullmatch(line)]
    assert result.status == 0 and done(lab), (fault, str(result))
    assert content(paths.CRON_JOB) in contents, fault
    assert os.listdir(FOLDER) in ([], [os.path.basename(paths.CRON_JOB)]), fault
    # An interrupted write is taken up again.
    assert len(told) == (0 if fault[1:] == ("EINTR", "write") else 1), (fault, str(result))
