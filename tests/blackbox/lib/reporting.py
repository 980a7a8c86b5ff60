"""What every conftest.py here shares: a skipped test is a failed one, a failed test tells what came,
and nothing runs outside of the sandbox."""

import os

import pytest


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item):
    """A failed test shows what every fixture with a `report` method has to say."""
    outcome = yield
    report = outcome.get_result()
    if report.skipped:
        report.outcome, report.longrepr = "failed", f"skipped: {report.longrepr}"
    if report.failed:
        for name, value in item.funcargs.items():
            if hasattr(value, "report"):
                report.sections.append((name, value.report()))


if "KOVA_SANDBOX" not in os.environ:
    pytest.exit("run these tests through tests/sandbox/sandbox (ctest does)", 2)
