"""Fixtures of the real-world scenarios. They share the fresh host of the black-box tests."""

import os
import sys

import pytest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [os.path.join(HERE, "..", "blackbox")]

from lib.host import Host  # noqa: E402
from world.ca import Pebble  # noqa: E402
from world.name_server import NameServer  # noqa: E402
from world.network import Network  # noqa: E402
from world.web import Nginx  # noqa: E402

if "KOVA_SANDBOX" not in os.environ:
    pytest.exit("run these tests through tests/sandbox/sandbox (ctest does)", 2)


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item):
    """A skipped test is a failed one; a failed one tells what happened."""
    outcome = yield
    report = outcome.get_result()
    if report.skipped:
        report.outcome, report.longrepr = "failed", f"skipped: {report.longrepr}"
    if report.failed:
        for name, value in item.funcargs.items():
            if hasattr(value, "report"):
                report.sections.append((f"{name}", value.report()))


@pytest.fixture
def network():
    """The home network and the internet. The sandbox takes the namespaces with it in any case."""
    network = Network()
    try:
        network.start()
        yield network
    finally:
        network.stop()


@pytest.fixture
def host(network, tmp_path):
    """The appliance's files: fresh, with the installed tree. Waits are real here."""
    host = Host(os.environ["KOVA_STAGE"], "", tmp_path)
    host.start()
    host.device()
    yield host
    host.stop()


@pytest.fixture
def names(host):
    return NameServer(host)


@pytest.fixture
def ca(host, network, names):
    return Pebble(host, network)


@pytest.fixture
def web(host):
    return Nginx(host)
