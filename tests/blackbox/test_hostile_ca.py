"""Whatever body a CA sends, on whichever request: the run ends by itself, with one failure
document, a code of ours, and nothing left behind. No reply ends the process by a signal."""

import pytest
from lib import hostile
from lib.hostile_replies import BODIES
from lib.http_script import Reply


@pytest.fixture(autouse=True)
def one_attempt(host, ca, account):
    hostile.prepare(host, ca)
    yield
    # What the CA itself spoilt comes back to it; that is no fault of the client.
    ca.violations.clear()


@pytest.mark.parametrize("body", BODIES.values(), ids=BODIES.keys())
@pytest.mark.parametrize("name", hostile.REQUESTS)
def test_body(host, ca, name, body):
    hostile.tell(ca, name, Reply(hostile.GOOD_STATUS.get(name, 200), body))
    result = hostile.run(host, ca)
    # Some bodies are not looked at, and what follows a JSON document is not either.
    if name not in ("newNonce", "newAccount", "challenge") and (
            body is not BODIES["two documents"]):
        assert result.status != 0


SOME = ["empty", "html", "array", "null", "empty object", "nested arrays", "formats",
        "lone surrogates", "2 MB", "2 MB of escapes", "10 MB"]


@pytest.mark.parametrize("body", SOME)
@pytest.mark.parametrize("name, status", [
    ("newAccount", 400), ("newAccount", 429), ("newOrder", 400), ("newOrder", 429),
    ("authz", 400), ("challenge", 400), ("finalize", 400), ("finalize", 403), ("order", 400),
    ("certificate", 400)])
def test_body_of_an_error(host, ca, name, status, body):
    hostile.tell(ca, name, Reply(status, BODIES[body]))
    assert hostile.run(host, ca).status != 0


def test_2_mb_detail_at_level_2(host, ca):
    hostile.tell(ca, "newAccount", Reply(400, BODIES["2 MB"]))
    result = host.new_cert(ca.directory, [hostile.NAME], "-vv")
    assert result.status == 105
    assert result.document["msg"] == "x" * 511


def test_more_than_2_mib_is_a_failed_transfer(host, ca):
    hostile.tell(ca, "newAccount", Reply(400, BODIES["10 MB"]))
    result = hostile.run(host, ca)
    assert (result.status, result.document["msg"]) == (100, "Server is not reachable.")


def test_the_bound_on_memory_has_something_to_look_at(host):
    """Every run of lib/host.py is held against it."""
    assert 1 < host.run("add-cronjob").peak
