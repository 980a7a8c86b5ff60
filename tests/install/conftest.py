"""Fixtures of the installation's test."""

import os
import sys

import pytest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [os.path.join(HERE, "..", "blackbox"), HERE]

from installed import BuildTree, Installed  # noqa: E402
from lib import mounts  # noqa: E402


@pytest.fixture
def build(tmp_path_factory):
    """The build folder; what it is written to is gone after the test."""
    build = BuildTree(os.environ["KOVA_BUILD"])
    yield build
    build.close()


@pytest.fixture
def stage(build, tmp_path):
    """A root folder that the program is installed in (DESTDIR)."""
    return Installed(build, str(tmp_path / "stage"))


@pytest.fixture
def machine(build):
    """The machine itself, as the sandbox shows it, without what may be installed there."""
    mounts.mount_tmpfs("/usr/kova", 0o755)
    machine = Installed(build, "")
    yield machine
    machine.uninstall()
    mounts.unmount("/usr/kova")
