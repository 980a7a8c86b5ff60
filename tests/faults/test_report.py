"""What a sweep says of its results, and how it holds them against the points that may break."""

import json

import pytest
from faultlib.report import Allowed, describe, merge, table

BROKEN = {"scenario": "renew", "point": 7, "error": None, "call": "rename", "program": "p",
          "paths": ["/a/INFO.temp", "/a/INFO"], "flaws": ["left behind: /a/INFO.temp"]}
ENTRY = {"scenario": "renew", "error": None, "call": "rename", "path": "INFO$",
         "flaw": "left behind: /a/", "reason": "the interface fixes it"}


@pytest.fixture
def allowed(tmp_path):
    def make(*entries):
        path = tmp_path / "allowed.json"
        path.write_text(json.dumps(entries))
        return Allowed(path)
    return make


def test_point_with_an_entry_is_allowed(allowed):
    known = allowed(ENTRY)
    assert known.covers(BROKEN)
    assert known.unmet(["renew"], errors=False) == []


@pytest.mark.parametrize("change", [
    {"scenario": "revoke"}, {"error": "EIO"}, {"call": "unlink"}, {"paths": ["/a/DEFAULT"]},
    {"flaws": ["left behind: /b/x"]}, {"flaws": [*BROKEN["flaws"], "service: /s lacks cert.pem"]}])
def test_anything_else_is_not(allowed, change):
    assert not allowed(ENTRY).covers({**BROKEN, **change})


def test_failing_calls_have_entries_of_their_own(allowed):
    failing = {**BROKEN, "error": "EIO"}
    assert allowed({**ENTRY, "error": "EIO"}).covers(failing)
    assert allowed({**ENTRY, "error": "*"}).covers(failing)
    assert not allowed({**ENTRY, "error": "ENOSPC"}).covers(failing)
    assert not allowed({**ENTRY, "error": "*"}).covers(BROKEN)


def test_entry_that_nothing_breaks_is_told(allowed):
    known = allowed(ENTRY, {**ENTRY, "error": "*"})
    assert known.unmet(["renew"], errors=False) == [ENTRY]
    assert known.unmet(["renew"], errors=True) == [{**ENTRY, "error": "*"}]
    assert known.unmet(["revoke"], errors=False) == []


def test_shards_are_added_up():
    other = {**BROKEN, "point": 3}
    merged = merge([{"renew": {"calls": 9, "tried": 5, "broken": [BROKEN]}},
                    {"renew": {"calls": 9, "tried": 4, "broken": [other]}}])
    assert merged == {"renew": {"calls": 9, "tried": 9, "broken": [other, BROKEN]}}
    assert table(merged).splitlines()[1].split() == ["renew", "9", "9", "7", "2"]
    assert table(merged).splitlines()[-1].split() == ["all", "9", "7", "2"]


def test_broken_point_is_described():
    assert describe(BROKEN) == ("renew 7 killed before rename (p) /a/INFO.temp /a/INFO\n"
                                "    left behind: /a/INFO.temp")
    assert describe({**BROKEN, "error": "EIO"}).startswith("renew 7 EIO before rename")
