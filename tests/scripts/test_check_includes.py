"""scripts/check-includes on this tree, and on copies of it with a fault each."""

import pathlib
import shutil
import subprocess

import pytest

TREE = pathlib.Path(__file__).parents[2]


def check(tree):
    result = subprocess.run([TREE / "scripts/check-includes", tree], capture_output=True, text=True,
                            check=False)
    return result.returncode, result.stdout.splitlines()


@pytest.fixture(name="copy")
def fixture_copy(tmp_path):
    shutil.copytree(TREE / "src", tmp_path / "src")
    shutil.copy(TREE / "ARCHITECTURE.md", tmp_path)
    return tmp_path


def add_include(copy, name, target):
    path = copy / "src" / name
    path.write_text(f'#include "{target}"\n{path.read_text()}')


def change_document(copy, old, new):
    path = copy / "ARCHITECTURE.md"
    assert old in path.read_text()
    path.write_text(path.read_text().replace(old, new))


def test_this_tree_runs_as_drawn():
    status, (line,) = check(TREE)
    assert (status, line.split(" ", 1)[1].startswith("includes of")) == (0, True), line
    assert int(line.split()[0]) > 500


@pytest.mark.parametrize("name, target", [
    ("platform/clock.cpp", "base/json.h"),          # one floor up
    ("crypto/rsa.cpp", "net/client_network.h"),     # sideways
    ("archive/index.cpp", "acme/account_store.h"),  # to a neighbour's ground
    ("archive_cli/add.cpp", "acme_v1/acme_v1.h"),   # through a room that has it for itself
])
def test_an_include_against_the_arrows_fails(copy, name, target):
    add_include(copy, name, target)
    room = name.split("/", maxsplit=1)[0]
    assert check(copy) == (1, [f"src/{name}: includes {target}, which {room} does not stand on"])


def test_a_path_from_folder_to_folder_is_an_arrow_too(copy):
    add_include(copy, "platform/clock.cpp", "../base/json.h")
    assert check(copy) == (
        1, ["src/platform/clock.cpp: includes base/json.h, which platform does not stand on"])


def test_what_a_room_below_stands_on_is_in_reach(copy):
    add_include(copy, "archive_cli/add.cpp", "platform/clock.h")
    assert check(copy)[0] == 0


def test_two_files_that_include_each_other_fail(copy):
    add_include(copy, "base/json.h", "base/log.h")
    add_include(copy, "base/log.h", "base/json.h")
    assert check(copy) == (1, ["src/: a circle: base/json.h -> base/log.h -> base/json.h"])


def test_a_folder_that_the_table_does_not_have_fails(copy):
    (copy / "src/attic").mkdir()
    (copy / "src/attic/old.h").write_text("#pragma once\n")
    assert check(copy) == (1, ["ARCHITECTURE.md: the table has no room attic",
                               "ARCHITECTURE.md: the drawing has no room attic"])


def test_a_drawing_without_a_room_fails(copy):
    change_document(copy, " crypto/ net/", " net/")
    assert check(copy) == (1, ["ARCHITECTURE.md: the drawing has no room crypto"])


def test_an_arrow_that_is_drawn_upwards_fails(copy):
    change_document(copy, "`json.h` | platform |", "`json.h` | platform, archive |")
    status, lines = check(copy)
    assert status == 1
    assert "ARCHITECTURE.md: base stands on archive, which is drawn above it" in lines


def test_rooms_that_stand_on_each_other_fail(copy):
    change_document(copy, "`certificate.h` | base |", "`certificate.h` | base, net |")
    change_document(copy, "`client_network.h` | base |", "`client_network.h` | base, crypto |")
    status, lines = check(copy)
    assert status == 1
    assert "ARCHITECTURE.md: crypto and net stand on each other" in lines


def test_a_tree_without_sources_fails(copy):
    shutil.rmtree(copy / "src")
    assert check(copy)[0] == 1
