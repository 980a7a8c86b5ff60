"""Fixtures of the package test: the built package and clean systems to install it on."""

import glob
import os
import subprocess
import sys

import pytest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [os.path.join(HERE, "..", "blackbox"), os.path.join(HERE, "..", "clean_root")]

from clean_root import CleanRoot, unpack  # noqa: E402
from lib.reporting import pytest_runtest_makereport  # noqa: E402,F401

DEPENDS = os.environ["KOVA_PACKAGE_DEPENDS"]


@pytest.fixture(scope="session")
def deb():
    """The package that cpack made."""
    found = glob.glob(os.environ["KOVA_PACKAGE"] + "/*.deb")
    assert len(found) == 1, found
    return found[0]


@pytest.fixture(scope="session")
def next_deb(deb, tmp_path_factory):
    """The same package under a later version."""
    return _repacked(deb, tmp_path_factory.mktemp("next"), "9.0-1", lambda tree: None)


@pytest.fixture(scope="session")
def next_deb_with_new_settings(deb, tmp_path_factory):
    """A later version that comes with other settings."""
    def change(tree):
        path = f"{tree}/usr/kova/etc.defaults/letsencrypt/letsencrypt.default"
        with open(path, "w", encoding="utf-8") as settings:
            settings.write('{"orderattempts": 5}\n')
    return _repacked(deb, tmp_path_factory.mktemp("changed"), "9.1-1", change)


def _repacked(deb, folder, version, change):
    tree = f"{folder}/tree"
    subprocess.run(["dpkg-deb", "-R", deb, tree], check=True)
    change(tree)
    with open(f"{tree}/DEBIAN/control", encoding="utf-8") as control:
        lines = [f"Version: {version}\n" if line.startswith("Version:") else line
                 for line in control]
    with open(f"{tree}/DEBIAN/control", "w", encoding="utf-8") as control:
        control.writelines(lines)
    subprocess.run(["dpkg-deb", "--root-owner-group", "-b", tree, f"{folder}/next.deb"],
                   check=True, stdout=subprocess.DEVNULL)
    return f"{folder}/next.deb"


@pytest.fixture(scope="session")
def minimal_system(tmp_path_factory):
    folder = tmp_path_factory.mktemp("minimal")
    unpack(os.environ["KOVA_CLEAN_SYSTEM"] + "/root.tar", folder)
    return folder


@pytest.fixture(scope="session")
def system_with_depends(minimal_system, tmp_path_factory):
    """A folder like the above; the packages that ours depends on are installed there once."""
    folder = tmp_path_factory.mktemp("prepared")
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", str(folder)], check=True)
    root = CleanRoot(minimal_system, tmp_path_factory.mktemp("installing"), DEPENDS)
    root.install_depends()
    subprocess.run(["cp", "-a", "--one-file-system", root.folder + "/.", str(folder)], check=True)
    root.close()
    return folder


@pytest.fixture
def bare_root(minimal_system, tmp_path):
    """A minimal system without anything that the package depends on."""
    root = CleanRoot(minimal_system, tmp_path, DEPENDS)
    yield root
    root.close()


@pytest.fixture
def root(system_with_depends, tmp_path):
    """A minimal system with what the package depends on."""
    root = CleanRoot(system_with_depends, tmp_path, DEPENDS)
    yield root
    root.close()
