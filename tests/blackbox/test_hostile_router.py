"""Routers that are none: any host of the home network may answer the search for one, and say what it
likes of itself. Each run tries one thing, in a home of its own."""

import time

from lib import igd
from lib.homes import INTERNET, NEIGHBOUR, NOWHERE, ROUTER, at_homes
from lib.router_runs import (NOT_FOUND, OPENED, controlled, described, flooded, found, honest)

GOOD = igd.description()
EITHER = (OPENED, NOT_FOUND)  # as the library sees it


def test_honest_router(account_key):
    at_homes(account_key, {"honest": honest})


# -- answers to the search -------------------------------------------------------------------------


def thousands(at):
    return lambda router, kind: (router.answer(kind, f"{at}/{n}.xml", f"uuid:{n}")
                                 for n in range(3000))


def without_end(router, kind):
    end = time.monotonic() + 8
    number = 0
    while time.monotonic() < end:
        number += 1
        yield router.answer(kind, f"http://{NOWHERE}:5000/{number}.xml", f"uuid:{number}")
        if number % 100 == 0:
            time.sleep(0.01)


ANSWERS = {
    "thousands of a host that never answers": flooded(thousands(f"http://{NOWHERE}:5000")),
    "thousands of pages that are not there": flooded(thousands(f"http://{ROUTER}:5000")),
    "without end": flooded(without_end),
    "a host that never answers": found(f"http://{NOWHERE}:5000/root.xml"),
    "the host's loopback": found("http://127.0.0.1:5000/root.xml"),
    "the host by name": found("http://localhost:5000/root.xml"),
    "the internet": found(f"http://{INTERNET}:5000/root.xml"),
    "a name": found("http://router.example:5000/root.xml"),
    "a file": found("file:///etc/passwd"),
    "another protocol": found(f"ftp://{ROUTER}/root.xml"),
    "port 0": found(f"http://{ROUTER}:0/root.xml"),
    "no place": found(""),
    "long": found(f"http://{ROUTER}:5000/" + "x" * 50_000),
    "control characters": found(f"http://{ROUTER}:5000/\x01\x7f\xff\x00 x"),
    "formats": found("%s%n%n%s"),
    "no answer": found(b"", b"\0" * 1400, b"\xff" * 60_000, b"HTTP/1.1 200 OK\r\n\r\n"),
}


def test_answer_to_the_search(account_key):
    at_homes(account_key, ANSWERS)


# -- the description -------------------------------------------------------------------------------


def told(**headers):
    return igd.page(GOOD, headers={name.replace("_", "-"): value for name, value in headers.items()})


def moved(to):
    return igd.page("", "302 Found", {"Location": to})


def chunked(size):
    return b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + size + b"\r\n<root>\r\n"


ENTITIES = '<!DOCTYPE r [<!ENTITY a "' + "x" * 1000 + '">' + "".join(
    f'<!ENTITY {name} "{f"&{before};" * 100}">' for before, name in zip("abcdefg", "bcdefgh")) + "]>"

DESCRIPTIONS = {
    "drips": described(igd.drip),
    "never ends": described(igd.endless),
    "header that never ends": described(igd.endless_header),
    "chunks that never end": described(igd.endless_chunks),
    "says nothing": described(igd.silence),
    "reset": described(igd.reset),
    "empty": described(""),
    "cut": described(GOOD[:len(GOOD) // 2]),
    "no HTTP": described(b"SSH-2.0-OpenSSH_9.2\r\n"),
    "nothing at all": described(b""),
    "moved to the host's loopback": described(moved("http://127.0.0.1:5000/root.xml")),
    "moved to the internet": described(moved(f"http://{INTERNET}:5000/root.xml")),
    "moved to itself": described(moved("/root.xml")),
    "moved to a file": described(moved("file:///etc/passwd")),
    "no XML": described("<html><body>Sign in to the hotel network"),
    "NUL bytes": described("\0" * 100_000),
    "not UTF-8": described(igd.page(b"\xff\xfe\xc0\x80" * 1000)),
    "nested deep": described("<a>" * 1_000_000),
    "long attribute": described('<root a="' + "x" * 1_000_000 + '">'),
    "open tag": described("<root " + "x" * 1_000_000),
    "another device": described(igd.description(connection="urn:x:y:Printer:1")),
    "another common service": described(igd.description(common="urn:x:y:Printer:1")),
    "2 MB": described(igd.description(more="<!--" + "x" * 2_000_000 + "-->"), OPENED),
    "gateway behind deep nesting": described(GOOD.replace("<root", "<a>" * 100_000 + "<root", 1),
                                             *EITHER),
    "entities": described(ENTITIES + GOOD.replace("/ctl", "&h;"), *EITHER),
    "not there": described(igd.page(GOOD, "404 Not Found"), *EITHER),
    "broken inside": described(igd.page(GOOD, "500 Internal Server Error"), *EITHER),
    "wrong length": described(told(Content_Length=10 ** 18), *EITHER),
    "negative length": described(told(Content_Length=-5), *EITHER),
    "length beyond all types": described(told(Content_Length="9" * 40), *EITHER),
    "chunk beyond all types": described(chunked(b"ffffffffffffffff1")),
    "negative chunk": described(chunked(b"-1")),
}


def test_description(account_key):
    at_homes(account_key, DESCRIPTIONS)


# -- where it sends the host -----------------------------------------------------------------------

CONTROLS = {
    "on the host's loopback": controlled("http://127.0.0.1:5000/ctl"),
    "on the host's other loopback": controlled("http://127.8.8.8:5000/ctl"),
    "on the host's IPv6 loopback": controlled("http://[::1]:5000/ctl"),
    "at the host": controlled("http://0.0.0.0:5000/ctl"),
    "at the host by name": controlled("http://localhost:5000/ctl"),
    "as a number": controlled("http://2130706433:5000/ctl"),
    "base on the host's loopback": controlled("/ctl", base="http://127.0.0.1:5000"),
    "in the internet": controlled(f"http://{INTERNET}:5000/ctl"),
    "base in the internet": controlled("/ctl", base=f"http://{INTERNET}:5000"),
    "at a neighbour": controlled(f"http://{NEIGHBOUR}:5000/ctl", OPENED),
    "at a host that never answers": controlled(f"http://{NOWHERE}:5000/ctl"),
    "by name": controlled("http://elsewhere.example:5000/ctl"),
    "by another protocol": controlled("ftp://127.0.0.1:5000/ctl", *EITHER),
    "a file": controlled("file:///etc/passwd", *EITHER),
    "without a protocol": controlled("//127.0.0.1:5000/ctl", *EITHER),
    "base by another protocol": controlled("/ctl", base=f"ftp://{ROUTER}:5000"),
    "port 0": controlled(f"http://{ROUTER}:0/ctl"),
    "port 99999": controlled(f"http://{ROUTER}:99999/ctl"),
    "negative port": controlled(f"http://{ROUTER}:-1/ctl"),
    "port of letters": controlled(f"http://{ROUTER}:http/ctl"),
    "empty": controlled("", *EITHER),
    "long": controlled("/" + "x" * 100_000, *EITHER),
    "long base": controlled("/ctl", *EITHER, base=f"http://{ROUTER}:5000/" + "x" * 100_000),
    "line breaks": controlled("/ctl HTTP/1.0\r\nX: y\r\n\r\n"),
    "control characters": controlled("/\x01\x02\x7f\xff"),
    "blanks": controlled("/c t l"),
    "formats": controlled("/%s%n%n%s", *EITHER),
}


def test_control_url(account_key):
    at_homes(account_key, CONTROLS)
