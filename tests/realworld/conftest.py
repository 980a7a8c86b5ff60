"""Fixtures of the real-world scenarios. They share the fresh host of the black-box tests."""

import os
import sys

import pytest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [os.path.join(HERE, "..", "blackbox")]

from lib.host import Host  # noqa: E402
from lib.reporting import pytest_runtest_makereport  # noqa: E402,F401
from world.ca import Pebble  # noqa: E402
from world.name_server import NameServer  # noqa: E402
from world.network import Network  # noqa: E402
from world.web import Nginx  # noqa: E402


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
