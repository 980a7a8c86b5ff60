"""What a sweep says of its results, and how it holds them against the points that may break."""

import json

import pytest
from faultlib.report import Allowed, describe, merge, table

BROKEN = {"scenario": "renew", "point": 7, "fault": "kill", "call": "rename", "program": "p",
          "paths": ["/a/INFO.temp", "/a/INFO"], "flaws": ["left behind: /a/INFO.temp"]}
ENTRY = {"scenario": "renew", "fault": "kill", "call": "rename", "path": "INFO$",
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
    assert known.unmet(["renew"], "kill") == []


@pytest.mark.parametrize("change", [
    {"scenario": "revoke"}, {"fault": "EIO"}, {"call": "unlink"}, {"paths": ["/a/DEFAULT"]},
    {"flaws": ["left behind: /b/x"]}, {"flaws": [*BROKEN["flaws"], "service: /s lacks cert.pem"]}])
def test_anything_else_is_not(allowed, change):
    assert not allowed(ENTRY).covers({**BROKEN, **change})


def test_failing_calls_have_entries_of_their_own(allowed):
    failing = {**BROKEN, "fault": "EIO"}
    assert allowed({**ENTRY, "fault": "EIO"}).covers(failing)
    assert allowed({**ENTRY, "fault": "error"}).covers(failing)
    assert not allowed({**ENTRY, "fault": "ENOSPC"}).covers(failing)
    assert not allowed({**ENTRY, "fault": "error"}).covers(BROKEN)


def test_entry_that_nothing_breaks_is_told(allowed):
    known = allowed(ENTRY, {**ENTRY, "fault": "error"})
    assert known.unmet(["renew"], "kill") == [ENTRY]
    assert known.unmet(["renew"], "error") == [{**ENTRY, "fault": "error"}]
    assert known.unmet(["revoke"], "kill") == []


def test_faults_of_entries_are_known_before_they_are_tried(allowed):
    point = {"point": 7, "call": "rename", "program": "p", "paths": ["/a/INFO"]}
    known = allowed(ENTRY)
    assert known.may_break("renew", point, "kill")
    assert not known.may_break("renew", point, "EIO")
    assert not known.may_break("renew", {**point, "paths": ["/a/DEFAULT"]}, "kill")


def test_shards_are_added_up():
    other = {**BROKEN, "point": 3}
    merged = merge([{"renew": {"calls": 9, "tried": 5, "broken": [BROKEN]}},
                    {"renew": {"calls": 9, "tried": 4, "broken": [other]}}])
    assert merged == {"renew": {"calls": 9, "tried": 9, "broken": [other, BROKEN]}}
    assert table(merged).splitlines()[1].split() == ["renew", "9", "9", "7", "2"]
    assert table(merged).splitlines()[-1].split() == ["all", "9", "7", "2"]


def test_broken_point_is_described():
    assert describe(BROKEN) == ("renew 7 kill at rename (p) /a/INFO.temp /a/INFO\n"
                                "    left behind: /a/INFO.temp")
    assert describe({**BROKEN, "fault": "EIO"}).startswith("renew 7 EIO at rename")
