"""dns-01 through the dynamic-DNS service: update requests, the readiness probe, deletion."""

import struct

import pytest
from dnslib import QTYPE, RR, TXT
from lib import expect, jws, validators
from lib.ddns import ACCOUNT, HOSTNAME, SERIAL

NAME = "www." + HOSTNAME
RECORD = "_acme-challenge." + NAME


@pytest.fixture(autouse=True)
def only_dns01(host, ca, ddns, dns):
    host.settings(kovaddns=ddns.endpoint, orderattempts=1)
    ca.challenge_types = ["dns-01"]
    ca.validators["dns-01"] = validators.txt_records(dns)


def proof(ca, index=0):
    challenge = ca.challenges[index]
    jwk = next(iter(ca.accounts.values()))["jwk"]
    return validators.txt_value(challenge.token + "." + jws.thumbprint(jwk))


def target(action, txt, name=NAME):
    return (f"/main.php?_=letsencrypt%2F{action}&hostname={name}&tolu_id={ACCOUNT['id']}"
            f"&auth_key={ACCOUNT['auth_key']}&serial={SERIAL}&txt={txt}")


def test_record_is_created_probed_validated_and_deleted(host, ca, ddns, dns, account):
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result, [NAME])
    assert [request.target for request in ddns.requests] == [
        target("create", proof(ca)), target("delete", proof(ca))]
    assert [request.method for request in ddns.requests] == ["GET", "GET"]
    [query] = dns.queries
    assert (query.name, query.type) == (RECORD, "TXT")
    assert result.sleeps == []
    # Created before the CA is told to look, deleted after it has looked.
    told = ca.calls("challenge")[0].when
    assert ddns.requests[0].when < told < ddns.requests[1].when
    assert dns.texts(RECORD) == []


def test_wildcard_and_its_base_name(host, ca, ddns, account):
    names = [HOSTNAME, "*." + HOSTNAME]
    folder = expect.issued(host.new_cert(ca.directory, names), names)
    assert '"domains" : "%s"' % ";".join(names) in expect.read(folder + "/renew.json")
    assert [(update.action, update.hostname) for update in ddns.updates] == [
        ("create", HOSTNAME), ("delete", HOSTNAME)] * 2
    # One after the other, each with its own value.
    assert [update.txt for update in ddns.updates] == [
        proof(ca, 0), proof(ca, 0), proof(ca, 1), proof(ca, 1)]


def test_progress_messages(host, ca, ddns, account):
    result = host.new_cert(ca.directory, [NAME], "-vv")
    expect.issued(result)
    lines = [line for line in result.debug
             if line.startswith(("Setup DDNS", "DDNS", "Dns01", "Vaild", "DNS"))]
    txt = proof(ca)
    create, delete = (ddns.url + target(action, txt) for action in ("create", "delete"))
    assert lines == [
        f"Setup DDNS: TXT [_acme-challenge.{NAME}][{txt}]",
        f"DDNS Curl: [{create}]",
        'Dns01 challenge: Setup [{"code": "good"}].',
        f"Vaild DNS Ready: {txt}",
        f'DNS Anser: {RECORD}.  1S IN TXT  "{txt}"',
        f"DNS get ready {txt}",
        f"DDNS Curl: [{delete}]",
        'Dns01 challenge: Teardown [{"code": "good"}].']


def test_answers_are_shown_at_level_2_only(host, ca, account):
    result = host.new_cert(ca.directory, [NAME], "-v")
    assert not any(line.startswith("DNS Anser") for line in result.debug)
    assert any(line.startswith("DNS get ready ") for line in result.debug)


@pytest.mark.parametrize("misses", [1, 3, 6])
def test_record_that_takes_a_while(host, ca, dns, account, misses):
    dns.delay(RECORD, misses)
    result = host.new_cert(ca.directory, [NAME], "-v")
    expect.issued(result)
    assert len(dns.queries) == misses + 1
    assert result.sleeps == [1] * misses
    assert sum(line.startswith(f"failed to query TXT dns {RECORD}:-1 ")
               for line in result.debug) == misses


def test_record_that_never_shows_costs_seven_queries_and_goes_on(host, ca, dns, ddns, account):
    dns.delay(RECORD, 1000)
    result = host.new_cert(ca.directory, [NAME], "-v")
    expect.issued(result)
    assert len(dns.queries) == 7
    assert result.sleeps == [1] * 6
    assert "DNS may not ready, but still try" in result.debug
    assert [update.action for update in ddns.updates] == ["create", "delete"]


def ready_at_once(result, dns):
    return len(dns.queries) == 1 and result.sleeps == []


def test_expected_value_among_other_text_is_ready(host, ca, dns, account):
    def answer(request):
        reply = request.reply()
        reply.add_answer(RR(request.q.qname, QTYPE.TXT, ttl=1, rdata=TXT([
            "before " + dns.texts(RECORD)[0] + " after"])))
        return reply.pack()
    dns.answer = answer
    result = host.new_cert(ca.directory, [NAME])
    assert ready_at_once(result, dns)


def test_second_record_may_be_the_expected_one(host, ca, dns, account):
    dns.set_txt(RECORD, "another")
    result = host.new_cert(ca.directory, [NAME])
    assert ready_at_once(result, dns)


@pytest.mark.parametrize("owner", ["other.example", RECORD.upper(), HOSTNAME])
def test_record_of_another_owner_is_not_ready(host, ca, dns, account, owner):
    def answer(request):
        reply = request.reply()
        reply.add_answer(RR(owner, QTYPE.TXT, ttl=1, rdata=TXT(dns.texts(RECORD))))
        return reply.pack()
    dns.answer = answer
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result)
    assert len(dns.queries) == 7


def test_long_answers_come_over_tcp(host, ca, dns, account):
    dns.truncate = True
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result)
    assert [query.transport for query in dns.queries] == ["udp", "tcp"]


def test_many_records(host, ca, dns, account):
    for number in range(200):
        dns.set_txt(RECORD, f"{number:03}" + "x" * 250)
    dns.truncate = True
    result = host.new_cert(ca.directory, [NAME], "-v")
    # 200 long records do not fit the buffer, where the expected one is the last; the run goes on.
    expect.issued(result)
    assert [query.transport for query in dns.queries] == ["udp", "tcp"] * 7
    assert result.sleeps == [1] * 6
    assert "DNS may not ready, but still try" in result.debug
    assert not any(line.startswith("DNS get ready") for line in result.debug)


def lying_counts(request):
    packet = bytearray(request.reply().pack())
    packet[6:8] = struct.pack("!H", 9999)
    return bytes(packet)


def looping_name(request):
    packet = bytearray(request.reply().pack())
    packet[6:8] = struct.pack("!H", 1)
    offset = len(packet)
    return bytes(packet) + struct.pack("!H", 0xc000 | offset) + b"\0\x10\0\1\0\0\0\1\0\4\3abc"


@pytest.mark.parametrize("answer", [lying_counts, looping_name])
def test_broken_answers_are_no_record(host, ca, dns, account, answer):
    dns.answer = answer
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result)
    assert result.sleeps == [1] * 6


@pytest.mark.parametrize("rcode", ["NXDOMAIN", "REFUSED"])
def test_failing_name_server(host, ca, dns, account, rcode):
    dns.rcode = rcode
    result = host.new_cert(ca.directory, [NAME], "-v")
    expect.issued(result)
    assert sum(line.startswith(f"failed to query TXT dns {RECORD}:-1 ")
               for line in result.debug) == 7


def test_name_server_that_cannot_be_found(host, ca, ddns, account):
    host.device(**ddns.device_record(ddns_name_server="no.such.host.invalid"))
    result = host.new_cert(ca.directory, [NAME], "-v")
    expect.issued(result)
    assert result.debug.count("failed to query dns ip no.such.host.invalid") == 7
    assert result.sleeps == [1] * 6


def test_built_in_name_server(host, ca, ddns, account):
    record = ddns.device_record()
    del record["ddns_name_server"]
    host.device(**record)
    result = host.new_cert(ca.directory, [NAME], "-v")
    assert result.debug.count("failed to query dns ip ns1.ddns.kova.example") == 7


def test_name_server_given_by_name(host, ca, dns, ddns, account):
    host.write("/etc/hosts", "127.0.0.1 localhost ns.ddns.example\n")
    host.device(**ddns.device_record(ddns_name_server="ns.ddns.example"))
    expect.issued(host.new_cert(ca.directory, [NAME]))
    assert len(dns.queries) == 1
