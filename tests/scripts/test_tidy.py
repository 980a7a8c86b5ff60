"""scripts/tidy.sh: which sources it looks at, and that a finding fails it."""

import pathlib
import shutil
import subprocess

import pytest

TREE = pathlib.Path(__file__).parents[2]
CLEAN = "namespace kova {\nint Twice(int number) { return 2 * number; }\n}  // namespace kova\n"


def tidy(tree, *arguments):
    return subprocess.run([tree / "scripts/tidy.sh", *arguments], capture_output=True, text=True,
                          check=False)


def listed(tree, *arguments):
    result = tidy(tree, "--list", *arguments)
    assert result.returncode == 0, result.stderr
    return result.stdout.splitlines()


@pytest.fixture(name="repository")
def fixture_repository(tmp_path):
    (tmp_path / "scripts").mkdir()
    shutil.copy(TREE / "scripts/tidy.sh", tmp_path / "scripts")
    git(tmp_path, "init", "--quiet")
    return tmp_path


def git(tree, *arguments):
    subprocess.run(["git", "-c", "user.name=T", "-c", "user.email=t@host.example",
                    "-c", "safe.directory=*", *arguments], cwd=tree, check=True)


def commit(tree, **files):
    for name, text in files.items():
        path = tree / "src" / name.replace("__", "/").replace("_cpp", ".cpp").replace("_h", ".h")
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
    git(tree, "add", "--all")
    git(tree, "commit", "--quiet", "--message=x")


def test_sources_of_the_last_20_commits_newest_first(repository):
    commit(repository, base__old_cpp="")
    for number in range(20):
        commit(repository, **{f"base__file{number}_cpp": ""})
    assert listed(repository) == [f"src/base/file{number}.cpp" for number in range(19, -1, -1)]
    assert "src/base/old.cpp" in listed(repository, "--thorough")


def test_a_header_is_seen_through_a_source(repository):
    commit(repository, base__own_h="", base__own_cpp="", base__lone_h="", base__unused_h="",
           net__user_cpp='#include "base/lone.h"\n')
    for number in range(19):
        commit(repository, base__filler_cpp=str(number))
    commit(repository, base__own_h="//", base__lone_h="//", base__unused_h="//")
    assert listed(repository) == ["src/net/user.cpp", "src/base/own.cpp", "src/base/filler.cpp"]


def test_what_is_gone_is_not_looked_for(repository):
    commit(repository, base__gone_cpp="", base__here_cpp="")
    (repository / "src/base/gone.cpp").unlink()
    commit(repository)
    assert listed(repository) == ["src/base/here.cpp"]


def test_without_a_history_it_fails(repository):
    assert tidy(repository, "--list").returncode != 0


@pytest.mark.parametrize("text, finding", [
    (CLEAN, None),
    (CLEAN.replace("Twice", "twice_of"), "[readability-identifier-naming"),
    (CLEAN.replace("number", "theNumber"), "[readability-identifier-naming"),
    (CLEAN.replace("int Twice", "int count = 0;\nint Twice"),
     "[cppcoreguidelines-avoid-non-const-global-variables"),
    (CLEAN.replace("{ return", "{\n" + "number++;\n" * 41 + "return"), "[readability-function-size"),
    (CLEAN.replace("{ return", "{" + "if (number > 1) {" * 5 + "number++;" + "}" * 5 + "return"),
     "[readability-function-cognitive-complexity"),
    ("nonsense\n", "[clang-diagnostic-error"),
])
def test_a_finding_fails(tmp_path, text, finding):
    source = tmp_path / "planted.cpp"
    source.write_text(text)
    result = tidy(TREE, source)
    assert (result.returncode, "clang-tidy is content with 1 sources." in result.stdout) == (
        (1, False) if finding else (0, True)), result.stdout + result.stderr
    if finding:
        assert finding in result.stdout
