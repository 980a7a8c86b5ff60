"""Adds up the results of ctest: count_results.py NAME=RESULTS.xml...

One line per suite and the sum, in test cases: each GoogleTest or pytest program says how many of its
cases passed and failed. A program that says nothing counts as one case, and one that failed, did not
run or was skipped as at least one failed case. The exit status is 1 unless everything passed.
"""

import re
import sys
import xml.etree.ElementTree as ElementTree

PASSED = [r"\[  PASSED  \] (\d+) test", r"(?:^|, )(\d+) passed"]
FAILED = [r"^ ?(\d+) FAILED TEST", r"(?:^|, )(\d+) failed", r"(?:^|, )(\d+) errors?\b"]


def last(patterns, text):
    """The last number that each pattern finds, added up."""
    found = [re.findall(pattern, text, re.MULTILINE) for pattern in patterns]
    return sum(int(numbers[-1]) for numbers in found if numbers)


def cases(test):
    """(passed, failed) of one program."""
    output = test.findtext("system-out") or ""
    passed, failed = last(PASSED, output), last(FAILED, output)
    if test.get("status") != "run":
        return passed, max(failed, 1)
    return max(passed, 1), failed


def main(arguments):
    total = [0, 0]
    for argument in arguments:
        name, _, path = argument.partition("=")
        tests = ElementTree.parse(path).getroot().findall("testcase")
        counts = [cases(test) for test in tests]
        passed, failed = (sum(count[side] for count in counts) for side in (0, 1))
        wrong = [test.get("name") for test in tests if test.get("status") != "run"]
        print(f"{name}: {len(tests)} programs, {passed} cases passed, {failed} failed"
              + "".join(f"\n  {test}" for test in wrong))
        if not tests:
            failed = 1  # nothing ran
        total = [total[0] + passed, total[1] + failed]
    print(f"{total[0]} passed, {total[1]} failed")
    return 0 if total[1] == 0 else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
