"""A router that is found and then lies: to each question, in each way. Each run tries one thing, in a
home of its own."""

import time

from lib import igd
from lib.homes import HOST, at_homes
from lib.router_runs import (DETECTION, NOT_FOUND, NOT_SET, OPENED, REFUSED, RULE_SET, answered, run)

LIST, FIND = "GetGenericPortMappingEntry", "GetSpecificPortMappingEntry"
ADD, DELETE = "AddPortMapping", "DeletePortMapping"
STATUS, ADDRESS = "GetStatusInfo", "GetExternalIPAddress"

# Of each member, None where it is left out.
ODD = {"missing": None, "empty": "", "long": "x" * 100_000, "many digits": "9" * 100_000,
       "negative": "-1", "letters": "letters", "beyond all types": "99999999999999999999",
       "markup": "<a><b/></a>", "formats": "%s%n%n%s", "control characters": "\x01\x7f\x00\xff\n"}
# Bodies of an answer.
NONE = {"empty": igd.page(""), "nested deep": igd.page("<a>" * 1_000_000),
        "not there": igd.page("", "404 Not Found"), "not UTF-8": igd.page(b"\xff\xfe\xc0\x80" * 1000),
        "2 MB": igd.page("x" * 2_000_000), "no HTTP": b"SSH-2.0-OpenSSH_9.2\r\n", "nothing": b"",
        "moved to the host's loopback": igd.page("", "307 Temporary Redirect",
                                                 {"Location": "http://127.0.0.1:5000/ctl"})}
ENDLESS = {"never ends": igd.endless, "header that never ends": igd.endless_header,
           "drips": igd.drip, "says nothing": igd.silence}


def whether_it_is_connected():
    for action, member in ((STATUS, "NewConnectionStatus"), (ADDRESS, "NewExternalIPAddress")):
        for name, value in ODD.items():
            yield f"{member} {name}", igd.granted(action, **{member: value}), action
        for name, answer in {**NONE, **ENDLESS}.items():
            yield f"{action} {name}", answer, action
    for address in ("192.168.1.1", "127.0.0.1", "0.0.0.0", "255.255.255.255", "1.2.3", "1.2.3.4.5"):
        yield address, igd.granted(ADDRESS, NewExternalIPAddress=address), ADDRESS


def test_whether_it_is_connected(account_key):
    at_homes(account_key, {name: answered(action, answer, NOT_FOUND)
                           for name, answer, action in whether_it_is_connected()})


# -- the mappings that it says it has --------------------------------------------------------------

ENTRY = {"NewRemoteHost": "", "NewExternalPort": "8080", "NewProtocol": "TCP",
         "NewInternalPort": "8080", "NewInternalClient": HOST, "NewEnabled": "1",
         "NewPortMappingDescription": "Letsencrypt", "NewLeaseDuration": "3600"}


def listing(value):
    """A list in which one entry after the other has that value, each in another member."""
    entries = [{**ENTRY, member: value} for member in ENTRY] + [dict.fromkeys(ENTRY, value)]

    def prepare(router):
        router.mappings = {str(number): entry for number, entry in enumerate(entries)}
    return run(prepare, OPENED)


def finding(value):
    """Where a mapping is asked for, one that has that value in every member."""
    return answered(FIND, igd.granted(FIND, **dict.fromkeys(ENTRY, value)), OPENED, REFUSED)


def slow_list(router):
    """A list without an end, each entry in good time."""
    def answer(connection):
        time.sleep(0.3)
        connection.sendall(igd.granted(LIST, **{**ENTRY, "NewPortMappingDescription": "x"}))
    router.actions[LIST] = answer


# Not all of them tell the program that its own rule was refused.
WHATEVER = (OPENED, REFUSED, NOT_SET)


def lists():
    yield "slow list without end", run(slow_list, NOT_SET, within=DETECTION + RULE_SET)
    yield "list without end", answered(LIST, igd.granted(LIST, **ENTRY), OPENED, NOT_SET,
                                       within=DETECTION + 2 * RULE_SET)  # opening and closing
    for name, value in ODD.items():
        yield f"list with {name}", listing(value)
        yield f"found with {name}", finding(value)
    for action in (LIST, FIND):
        for name, answer in NONE.items():
            yield f"{action} {name}", answered(action, answer, *WHATEVER)


# -- what it does and what it refuses --------------------------------------------------------------

CODES = ["-1", "1", "501", "606", "718", "725", "99999999999999999999", "letters", "", "%s%n",
         "x" * 100_000]


def changes():
    for name, answer in NONE.items():
        yield f"adding {name}", answered(ADD, answer, *WHATEVER)
        yield f"deleting {name}", answered(DELETE, answer, OPENED)
    for code in CODES:
        yield f"adding refused with {code[:20]}", answered(ADD, igd.refusal(code), REFUSED)
        yield f"deleting refused with {code[:20]}", answered(DELETE, igd.refusal(code), OPENED)


def answers_that_never_come():
    """The whole time of a set of rules, once in a run."""
    for action in (LIST, FIND, ADD):
        for name, answer in ENDLESS.items():
            yield f"{action} {name}", answered(action, answer, NOT_SET,
                                               within=DETECTION + RULE_SET)
    for name, answer in ENDLESS.items():
        yield f"{DELETE} {name}", answered(DELETE, answer, OPENED, within=DETECTION + RULE_SET)


def test_rules(account_key):
    """The long ones first, so that they wait beside each other."""
    at_homes(account_key, dict([*answers_that_never_come(), *lists(), *changes()]))
