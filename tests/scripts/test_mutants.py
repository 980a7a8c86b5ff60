"""scripts/mutants.sh on a small tree of its own: what its tests notice is killed, and only that."""

import json
import os
import pathlib
import shutil
import subprocess

import pytest

TREE = pathlib.Path(__file__).parents[2]

SOURCE = """\
#include "toy/toy.h"

namespace kova {

int calls = 0;

// The larger one: "a > b" or not.
int Larger(int a, int b) {
  ++calls;
  return a > b ? a : b;
}

bool IsTwice(int a, int b) { return a == b + b; }

int Calls() {
  if (calls < 0) {
    calls = 0;
  }
  return calls;
}

}  // namespace kova
"""
HEADER = "int Larger(int a, int b);\nbool IsTwice(int a, int b);\nint Calls();\n"
TEST = """\
#include "toy/toy.h"

int main() {
  using namespace kova;
  const bool good = Larger(3, 2) == 3 && Larger(2, 3) == 3 && IsTwice(4, 2) && !IsTwice(3, 2);
  return good ? 0 : 1;
}
"""
# Two tests, told of as GoogleTest does; the second one notices what the first one does not ask.
TWO_TESTS = """\
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "toy/toy.h"

bool Asked(const char* name) {
  const char* filter = std::getenv("GTEST_FILTER");
  return std::strcmp(filter, "*") == 0 || std::strstr(filter, name) != nullptr;
}

int main() {
  const bool first = Asked("Toy.Larger");
  if (first) std::puts("[ RUN      ] Toy.Larger\\n[       OK ] Toy.Larger (1 ms)");
  if (!Asked("Toy.Twice")) return 0;
  const bool good = !(NOTICES) || (kova::IsTwice(4, 2) && !kova::IsTwice(3, 2));
  std::puts("[ RUN      ] Toy.Twice");
  std::puts(good ? "[       OK ] Toy.Twice (1 ms)" : "[  FAILED  ] Toy.Twice (1 ms)");
  return good ? 0 : 1;
}
"""
CMAKE = """\
cmake_minimum_required(VERSION 3.25)
project(toy LANGUAGES CXX)
function(kova_unit_test name)
  cmake_parse_arguments(arg "" "" "SOURCES;USES" ${ARGN})
  add_executable(${name}_test ${arg_SOURCES} ${CMAKE_SOURCE_DIR}/src/toy/toy.cpp)
  target_include_directories(${name}_test PRIVATE ${CMAKE_SOURCE_DIR}/src)
endfunction()
add_subdirectory(tests/unit/toy)
"""
# The same as the tree has them: a library for each room, one for all tests.
GTEST = """\
#include <gtest/gtest.h>

#include "toy/toy.h"

TEST(Toy, Larger) { EXPECT_EQ(kova::Larger(3, 2), 3); }
TEST(Toy, Twice) { EXPECT_TRUE(kova::IsTwice(4, 2)); }
TEST(Toy, Nothing) {}
TEST(Toy, InAChild) { EXPECT_EXIT(std::exit(0 * kova::Calls()), testing::ExitedWithCode(0), ""); }
"""
GTEST_CMAKE = """\
cmake_minimum_required(VERSION 3.25)
project(toy LANGUAGES CXX)
find_package(GTest REQUIRED)
add_library(kova_options INTERFACE)
target_include_directories(kova_options INTERFACE src)
add_library(kova_toy STATIC src/toy/toy.cpp)
target_link_libraries(kova_toy PUBLIC kova_options)
file(WRITE ${CMAKE_BINARY_DIR}/support.cpp "")
add_library(kova_test_support STATIC ${CMAKE_BINARY_DIR}/support.cpp)
target_link_libraries(kova_test_support PUBLIC kova_options GTest::gtest_main)
function(kova_unit_test name)
  add_executable(${name}_test ${name}_test.cpp)
  target_link_libraries(${name}_test PRIVATE kova_toy kova_test_support)
endfunction()
add_subdirectory(tests/unit/toy)
"""
ABLE = """\
import run
worker = run.Worker("worker0")
worker.enter("toy", ["toy_test"])
for mutant in run.mutants_of_room("toy"):
    tests = worker.programs.able(mutant, (run.TREE / mutant.path).read_text())
    print(mutant.line, " ".join(test.name for test in tests))
"""


@pytest.fixture(name="toy")
def fixture_toy(tmp_path):
    files = {
        "src/toy/toy.h": f"#pragma once\nnamespace kova {{\n{HEADER}}}  // namespace kova\n",
        "src/toy/toy.cpp": SOURCE,
        "tests/unit/toy/toy_test.cpp": TEST,
        "tests/unit/toy/CMakeLists.txt": "kova_unit_test(toy SOURCES toy_test.cpp)\n",
        "tests/sandbox/sandbox": "#!/bin/sh\nexec \"$@\"\n",
        "CMakeLists.txt": CMAKE,
    }
    for name, text in files.items():
        (tmp_path / name).parent.mkdir(parents=True, exist_ok=True)
        (tmp_path / name).write_text(text)
    (tmp_path / "tests/sandbox/sandbox").chmod(0o755)
    shutil.copy(TREE / "CMakePresets.json", tmp_path)
    shutil.copytree(TREE / "scripts", tmp_path / "scripts")
    return tmp_path


def mutants(tree, *arguments):
    result = subprocess.run([tree / "scripts/mutants.sh", *arguments], capture_output=True, text=True,
                            check=False)
    return result.returncode, result.stdout.splitlines()


def test_mutants_are_one_operator_or_statement_each(toy):
    assert mutants(toy, "--list") == (0, [
        "src/toy/toy.cpp:9:3: `++calls;` removed",
        "src/toy/toy.cpp:9:3: `++` -> `--`",
        "src/toy/toy.cpp:10:12: `>` -> `>=`",
        "src/toy/toy.cpp:13:39: `==` -> `!=`",
        "src/toy/toy.cpp:13:44: `+` -> `-`",
        "src/toy/toy.cpp:16:7: `calls < 0` -> `!(calls < 0)`",
        "src/toy/toy.cpp:16:13: `<` -> `<=`",
        "src/toy/toy.cpp:17:5: `calls = 0;` removed"])
    assert len(mutants(toy, "--list", "--sample", "3")[1]) == 3


def test_what_no_test_notices_survives(toy):
    # Nobody asks how often Larger was called; "a >= b" is as good as "a > b".
    assert mutants(toy, "--room", "toy") == (1, [
        "survived  src/toy/toy.cpp:9:3: `++calls;` removed",
        "survived  src/toy/toy.cpp:9:3: `++` -> `--`",
        "survived  src/toy/toy.cpp:10:12: `>` -> `>=`",
        "survived  src/toy/toy.cpp:16:7: `calls < 0` -> `!(calls < 0)`",
        "survived  src/toy/toy.cpp:16:13: `<` -> `<=`",
        "survived  src/toy/toy.cpp:17:5: `calls = 0;` removed",
        "toy: 2 killed, 6 survived, 0 invalid; 25% of the valid mutants killed"])


def test_what_hangs_is_killed_and_what_does_not_compile_is_invalid(toy):
    # Larger runs in circles without its count, and constants can't be counted down.
    source = (SOURCE.replace("  return a > b ? a : b;", "  while (calls < 1) {}\n  return a;")
              .replace("return a == b + b", "static_assert(1 + 1 == 2); return b")
              .split("int Calls()", maxsplit=1)[0] + "}\n")
    (toy / "src/toy/toy.cpp").write_text(source)
    test = "#include \"toy/toy.h\"\nint main() { return kova::Larger(3, 2) - 3; }\n"
    (toy / "tests/unit/toy/toy_test.cpp").write_text(test)
    assert mutants(toy, "--jobs", "2") == (
        0, ["toy: 3 killed, 0 survived, 2 invalid; 100% of the valid mutants killed"])


def test_survivors_can_be_tried_again(toy):
    found = toy / "found.json"
    assert mutants(toy, "--json", found)[0] == 1
    assert mutants(toy, "--json", found) == (1, [
        "toy: 2 killed, 6 survived, 0 invalid; 25% of the valid mutants killed"])
    outcomes = json.loads(found.read_text())
    assert list(outcomes.values()).count("survived") == 6
    assert outcomes["src/toy/toy.cpp:13:39: `==` -> `!=`"] == "killed"
    (toy / "tests/unit/toy/toy_test.cpp").write_text(
        TEST.replace("return good", "return good && Calls() == 2"))
    assert mutants(toy, "--survivors", found) == (1, [
        "survived  src/toy/toy.cpp:10:12: `>` -> `>=`",
        "survived  src/toy/toy.cpp:16:13: `<` -> `<=`",
        "survived  src/toy/toy.cpp:17:5: `calls = 0;` removed",
        "toy: 3 killed, 3 survived, 0 invalid; 50% of the valid mutants killed"])


@pytest.mark.parametrize("notices, killed", [("first", 0), ("true", 2)])
def test_what_fails_in_company_alone_kills_nothing(toy, notices, killed):
    # On a busy machine a test may fail that waits for something.
    (toy / "tests/unit/toy/toy_test.cpp").write_text(TWO_TESTS.replace("NOTICES", notices))
    assert mutants(toy)[1][-1].startswith(f"toy: {killed} killed, {8 - killed} survived, 0 invalid;")


def test_tests_are_asked_about_the_functions_that_they_enter(toy):
    (toy / "CMakeLists.txt").write_text(GTEST_CMAKE)
    (toy / "tests/unit/toy/toy_test.cpp").write_text(GTEST)
    result = subprocess.run(["/usr/bin/python3", "-B", "-c", ABLE], cwd=toy, capture_output=True,
                            text=True, check=False,
                            env=os.environ | {"PYTHONPATH": toy / "scripts/mutation"})
    assert result.returncode == 0, result.stderr
    # A one-line function belongs to the next one.
    assert result.stdout.splitlines() == [
        "9 Toy.Larger", "9 Toy.Larger", "10 Toy.Larger", "13 Toy.Twice Toy.InAChild",
        "13 Toy.Twice Toy.InAChild", "16 Toy.Twice Toy.InAChild", "16 Toy.Twice Toy.InAChild",
        "17 Toy.Twice Toy.InAChild"]


def test_tests_that_fail_without_a_mutant_are_told(toy):
    (toy / "tests/unit/toy/toy_test.cpp").write_text("int main() { return 1; }\n")
    assert mutants(toy, "--room", "toy")[0] == 1


def test_a_second_run_does_not_start_from_the_last_mutant_of_the_first(toy):
    seed = next(str(number) for number in range(1000) if mutants(
        toy, "--list", "--sample", "1", "--seed", str(number))[1] == [
            "src/toy/toy.cpp:13:39: `==` -> `!=`"])
    for _ in range(2):
        assert mutants(toy, "--sample", "1", "--seed", seed) == (
            0, ["toy: 1 killed, 0 survived, 0 invalid; 100% of the valid mutants killed"])


def test_the_tree_itself_is_left_as_it_is(toy):
    mutants(toy, "--room", "toy", "--sample", "1")
    assert (toy / "src/toy/toy.cpp").read_text() == SOURCE
