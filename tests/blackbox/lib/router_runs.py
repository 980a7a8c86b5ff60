"""Issuances with a router that is none. Whatever it says, the certificate is issued: another way to
the host may be open."""

import os

from . import expect, igd, memcheck, paths
from .homes import NEIGHBOUR, ROUTER
from .host import MOST_MEMORY
from .memory import Watched

NAME = "www.host.example"

# After every fourth run another one finds an honest router in that place; KOVA_ROUTER_STEP=1: after
# all.
_STEP = int(os.environ.get("KOVA_ROUTER_STEP", "4"))

# What the log tells of the router.
_FAILED = "failed to open port 80."
OPENED = []
NOT_FOUND = ["Failed to port map router detect. [-1]", _FAILED]
NOT_SET = ["Failed to set port map rules. [-1]", _FAILED]
REFUSED = ["Incorrect port map rules result", _FAILED]

# Seconds that a run may take for the detection and for a set of rules, and what the issuance itself
# takes, here with much beside it.
DETECTION, RULE_SET = 5, 20
_ISSUANCE = 8


def told(result):
    return [text for text in result.errors if "port map" in text or text == _FAILED
            or text.startswith(("portmap:", "confined:"))]


def issue(home, within):
    """The certificate in time, no more memory than any run may have, and nothing left over."""
    with Watched() as memory:
        result = home.host.new_cert(home.ca.directory, [NAME])
    expect.issued(result, [NAME])
    assert result.seconds < memcheck.patience(within + _ISSUANCE)
    if os.environ.get("KOVA_SANITIZED") != "1" and not memcheck.FOLDER:
        assert 0 < memory.together <= MOST_MEMORY, "together"
        assert 0 < memory.single <= MOST_MEMORY, "one of them"
    home.note(f"{result.seconds:.1f} s, {memory.together:.1f} MiB together, "
              f"{memory.single:.1f} MiB the one that had most")
    record = paths.PORT_RECORD
    assert not os.path.exists(record) or expect.read(record).strip() in ("", "{}")
    assert os.listdir(paths.TOKENS) == []
    return result


def nobody_else_was_asked(home):
    """Neither what listens on the host for itself, nor the internet."""
    assert home.own.asked == []
    assert {each.address for each in home.router.asked} <= {ROUTER, NEIGHBOUR}


def honest(home):
    """Puts an honest router in its place: the next run is as if nothing had been."""
    home.router.honest()
    assert told(issue(home, DETECTION)) == OPENED
    assert len(home.router.asked_for("AddPortMapping")) == 2
    assert home.router.mappings == {}


def run(prepare, *expected, within=DETECTION):
    """`prepare` is given the router; one of `expected` is to be told."""
    def work(home):
        prepare(home.router)
        assert told(issue(home, within)) in expected
        nobody_else_was_asked(home)
        if home.number % _STEP == 0:
            honest(home)
    return work


def described(answer, *expected):
    """That answer where the description is asked for; a text is that of a page."""
    whole = igd.page(answer) if isinstance(answer, str) else answer
    return run(lambda router: router.pages.update({"/root.xml": whole}), *(expected or [NOT_FOUND]))


def controlled(control, *expected, base=""):
    """A description with that control URL."""
    return described(igd.description(control, base), *expected)


def found(*answers):
    """These datagrams answer each search; a text is where the description is said to be."""
    def prepare(router):
        router.found = lambda kind: [router.answer(kind, answer) if isinstance(answer, str) else
                                     answer for answer in answers]
    return run(prepare, NOT_FOUND)


def flooded(answers):
    """`answers` is given the router and what it is searched for and yields datagrams."""
    def prepare(router):
        router.found = lambda kind: answers(router, kind)
    return run(prepare, NOT_FOUND)


def answered(action, answer, *expected, within=DETECTION):
    """That answer to one action."""
    return run(lambda router: router.actions.update({action: answer}), *expected, within=within)
