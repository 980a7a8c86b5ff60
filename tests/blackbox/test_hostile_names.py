"""A name server of the vendor's zone that lies or says nothing when it is asked whether a proof is
there. That is asked for the sake of the CA alone: the CA looks for itself, so the issuance goes on."""

import struct

import pytest
from dnslib import CLASS, CNAME, QTYPE, RCODE, RR, TXT, DNSLabel
from lib import expect, igd, validators
from lib.ddns import HOSTNAME

NAME = "www." + HOSTNAME
RECORD = "_acme-challenge." + NAME
TRIES = 7
PATIENCE = 15  # seconds, for one question
NOT_SEEN = "DNS may not ready, but still try"
# What waits for an answer that does not come is not waited for here.
AT_ONCE = {"KOVA_HANGING_POLL": "300"}


@pytest.fixture(autouse=True)
def only_dns01(host, ca, ddns, dns, account):
    host.settings(kovaddns=ddns.endpoint, orderattempts=1, keytype="ec256")
    ca.challenge_types = ["dns-01"]
    ca.validators["dns-01"] = validators.txt_records(dns)
    # One question, without another one to the same server.
    host.write("/etc/resolv.conf", "nameserver 127.0.0.1\noptions timeout:1 attempts:1\n")


def not_seen(host, ca, ddns, dns, slept=None):
    """Issued although the proof was not seen, and nothing of it is left."""
    result = host.new_cert(ca.directory, [NAME], "-v", env=AT_ONCE)
    expect.issued(result, [NAME])
    assert result.debug.count(NOT_SEEN) == 1
    assert result.errors == []
    assert result.sleeps.count(1) == TRIES - 1
    assert slept is None or result.sleeps.count(PATIENCE) == slept
    assert [update.action for update in ddns.updates] == ["create", "delete"]
    assert dns.texts(RECORD) == []
    return result


# -- over UDP --------------------------------------------------------------------------------------


def records(*made):
    """An answer with the records that these make of the question's name."""
    def answer(request):
        reply = request.reply()
        for make in made:
            reply.add_answer(make(request.q.qname))
        return reply.pack()
    return answer


def text(*strings, owner=None, **more):
    return lambda name: RR(owner or name, QTYPE.TXT, rdata=TXT(list(strings)), **more)


def failure(code):
    def answer(request):
        reply = request.reply()
        reply.header.rcode = getattr(RCODE, code)
        return reply.pack()
    return answer


def of_another_question(request):
    request.header.id ^= 1
    return request.reply().pack()


def counts(questions, answers):
    """No more than a header, which says so much of what follows it."""
    return lambda request: struct.pack("!6H", request.header.id, 0x8180, questions, answers, 0, 0)


def points_to_itself(request):
    """An owner that is a loop."""
    packed = request.reply().pack()
    header = packed[:6] + struct.pack("!H", 1) + packed[8:]
    return header + struct.pack("!HHHIH", 0xC000 | len(packed), 16, 1, 1, 2) + b"\1x"


ANSWERS = {
    "empty": lambda _request: b"",
    "one byte": lambda _request: b"x",
    "zeros": lambda _request: bytes(512),
    "no DNS": lambda _request: b"\xff" * 4000,
    "60 kB": lambda request: request.reply().pack() + bytes(60_000),
    "of another question": of_another_question,
    "without its question": counts(0, 65535),
    "nothing but counts": counts(65535, 65535),
    "owner that points to itself": points_to_itself,
    "no record": records(),
    "another text": records(text("another")),
    "empty text": records(text("")),
    "long text": records(text(*["x" * 255] * 12)),
    "many texts": records(*[text(f"text {number}") for number in range(100)]),
    "not UTF-8": records(text(b"\xff\xfe\xc0\x80\0")),
    "formats": records(text("%s%n%n%s")),
    "another owner": records(text("x", owner=DNSLabel("elsewhere.example"))),
    "another class": records(text("x", rclass=CLASS.CH)),
    "a loop of names": records(lambda name: RR(name, QTYPE.CNAME, rdata=CNAME(name))),
    **{code: failure(code) for code in ("FORMERR", "SERVFAIL", "NXDOMAIN", "NOTIMP", "REFUSED")},
}


@pytest.mark.parametrize("answer", ANSWERS.values(), ids=ANSWERS.keys())
def test_answer(host, ca, ddns, dns, answer):
    dns.answer = answer
    not_seen(host, ca, ddns, dns)
    assert len(dns.queries) >= TRIES


def test_silence(host, ca, ddns, dns):
    dns.answer = lambda _request: None
    not_seen(host, ca, ddns, dns, slept=TRIES)


# -- over TCP --------------------------------------------------------------------------------------


STREAMS = {
    "says nothing": lambda connection, _reply: igd.silence(connection),
    "drips": lambda connection, _reply: igd.until_left(connection, b"\0", 1),
    "never ends": lambda connection, _reply: igd.until_left(connection, b"\xff" * 65536, 0),
    "never sends what it announced": lambda connection, reply: (
        connection.sendall(b"\xff\xff" + reply), igd.silence(connection)),
}
SHORT_STREAMS = {
    "hangs up": lambda _connection, _reply: None,
    "reset": lambda connection, _reply: igd.reset(connection),
    "no length": lambda connection, _reply: connection.sendall(b"\0\0"),
    "cut": lambda connection, reply: connection.sendall(struct.pack("!H", len(reply)) + reply[:20]),
}


@pytest.mark.parametrize("stream", STREAMS.values(), ids=STREAMS.keys())
def test_stream_that_never_ends(host, ca, ddns, dns, stream):
    dns.truncate, dns.stream = True, stream
    not_seen(host, ca, ddns, dns, slept=TRIES)


@pytest.mark.parametrize("stream", SHORT_STREAMS.values(), ids=SHORT_STREAMS.keys())
def test_stream_that_ends_early(host, ca, ddns, dns, stream):
    dns.truncate, dns.stream = True, stream
    not_seen(host, ca, ddns, dns)
