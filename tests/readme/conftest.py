"""Fixtures of the README's test: a newcomer at a minimal system, and the internet."""

import os
import sys

import pytest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [HERE, os.path.join(HERE, "..", "blackbox"), os.path.join(HERE, "..", "clean_root")]

from clean_root import CleanRoot, unpack  # noqa: E402
from internet import Internet  # noqa: E402
from lib.reporting import pytest_runtest_makereport  # noqa: E402,F401
from lib.servers import Servers  # noqa: E402
from lib.syslog_capture import SyslogCapture  # noqa: E402
from newcomer import Newcomer  # noqa: E402


class Syslog(SyslogCapture):
    def report(self):
        return "\n".join(line.text for line in self.lines())


@pytest.fixture
def syslog():
    capture = Syslog()
    yield capture
    capture.close()


@pytest.fixture
def servers(tmp_path):
    """What runs around the newcomer's shell."""
    servers = Servers(tmp_path)
    yield servers
    servers.end_all()


@pytest.fixture
def internet(servers):
    internet = Internet(servers)
    yield internet
    servers.end_all()
    internet.close()


@pytest.fixture
def newcomer(servers, syslog, internet, tmp_path_factory):
    """Sits at a minimal system with the project's sources and an apt that has packages."""
    system = tmp_path_factory.mktemp("system")
    unpack(os.environ["KOVA_CLEAN_SYSTEM"] + "/root.tar", system)
    root = CleanRoot(system, tmp_path_factory.mktemp("newcomer"),
                     os.environ["KOVA_README_PACKAGES"])
    newcomer = Newcomer(root, servers)
    newcomer.trust(internet.web_root)
    yield newcomer
    servers.end_all()
    root.close()
