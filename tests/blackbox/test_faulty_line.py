"""A bad line between the program and a real CA: requests and replies of an issuance are lost, cut,
reset, late or doubled, one in each run. It ends with the right code and leaves nothing behind, and
the next run succeeds."""

import shutil

import pytest
from lib import expect
from lib.bad_line import NAME, SHORT_WAITS, STEP, BadLine, nothing_left_over
from lib.faulty_proxy import FAULTS, HARMLESS, UNANSWERED

UNREACHABLE = {100}
REFUSED = {102, 200}  # which of them is the step's


@pytest.fixture
def line(host):
    line = BadLine(host)
    yield line
    line.close()


def issue(host, line, fault=None, number=0):
    line.strike(fault, number)
    return host.new_cert(line.directory, [NAME], env=SHORT_WAITS)


def forget(host):
    """As after the installation, so that each run registers an account as well."""
    for folder in host.certificates() + host.accounts():
        shutil.rmtree(folder)


def assert_failed(host, line, result, codes):
    """Said and logged, and the next run makes it good."""
    assert result.status in codes and result.document["error"] == result.status
    assert result.errors != []
    assert host.certificates() == []
    expect.issued(issue(host, line), [NAME])
    nothing_left_over(host)


def strike_each(host, line, fault):
    """Yields the number of each request with the result of the run that was struck at it."""
    expect.issued(issue(host, line), [NAME])
    undisturbed = line.requests
    assert undisturbed >= 10
    for number in sorted({1, *range(1 + FAULTS.index(fault) % STEP, undisturbed + 1, STEP)}):
        forget(host)
        result = issue(host, line, fault, number)
        assert line.requests >= number, "the fault did not come about"
        nothing_left_over(host)
        yield number, result


@pytest.mark.parametrize("fault", FAULTS)
def test_each_request_and_reply_in_turn(host, line, fault):
    host.settings(keepconnections=None)
    for _, result in strike_each(host, line, fault):
        if fault in HARMLESS:
            expect.issued(result, [NAME])
        else:
            assert_failed(host, line, result, UNREACHABLE)


@pytest.mark.parametrize("fault", sorted(UNANSWERED))
def test_request_on_a_kept_connection_is_sent_again(host, line, fault):
    refusals = 0
    for number, result in strike_each(host, line, fault):
        if number == 1:  # of a fresh connection
            assert_failed(host, line, result, UNREACHABLE)
        elif result.status == 0:
            expect.issued(result, [NAME])
        else:  # the CA had seen its nonce
            assert_failed(host, line, result, REFUSED)
            refusals += 1
    assert refusals == 0 or fault.endswith("_reply")
