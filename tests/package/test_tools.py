"""What cpack does on a machine that lacks one of its tools: it fails, and says which."""

import glob
import os
import subprocess
import sys

import pytest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "install"))

from installed import BuildTree  # noqa: E402


@pytest.fixture
def build():
    build = BuildTree(os.environ["KOVA_BUILD"])
    yield build
    build.close()


@pytest.fixture
def missing(request):
    """A tool that is not there while the test runs; CMake looks beyond PATH."""
    places = [place for place in glob.glob(f"/usr/*bin/{request.param}") if os.path.exists(place)]
    assert places
    for place in places:
        os.rename(place, place + ".hidden")
    yield request.param
    for place in places:
        os.rename(place + ".hidden", place)


def pack(build, folder):
    return subprocess.run(["cpack", "-G", "DEB", "--config", build.folder + "/CPackConfig.cmake",
                           "-B", str(folder)], text=True, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)


@pytest.mark.parametrize("missing, package", [("file", "file"), ("dpkg-shlibdeps", "dpkg-dev")],
                         indirect=["missing"])
def test_no_package_is_made_without(missing, package, build, tmp_path):
    done = pack(build, tmp_path)
    said = f"The Debian package needs {missing}: apt-get install {package}"
    assert [line.strip() for line in done.stdout.splitlines()].count(said) == 1, done.stdout
    assert done.returncode != 0
    assert glob.glob(f"{tmp_path}/**/*.deb", recursive=True) == []


def test_with_all_of_them_it_depends_on_the_libraries(build, tmp_path):
    done = pack(build, tmp_path)
    assert done.returncode == 0, done.stdout
    package, = glob.glob(f"{tmp_path}/*.deb")
    depends = subprocess.run(["dpkg-deb", "-f", package, "Depends"], text=True, check=True,
                             stdout=subprocess.PIPE).stdout
    for library in ("libc6", "libcurl4", "libjsoncpp25", "libminiupnpc17", "libssl3"):
        assert library in depends
