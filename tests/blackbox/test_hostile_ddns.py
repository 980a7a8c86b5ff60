"""A dynamic-DNS service that lies, says too much or nothing: to the request that publishes a proof, and
to the one that takes it back."""

import pytest
from lib import expect, hostile, validators
from lib.ddns import HOSTNAME
from lib.hostile_replies import BODIES, TOO_LONG, TRANSFERS
from lib.http_script import Reply

NAME = "www." + HOSTNAME
RECORD = "_acme-challenge." + NAME
SETUP_FAILED = (202, f"Failed to setup challegne for {NAME} of dns-01", "client_v2")
NOT_JSON = (200, "body is not json.", "client_network")
UNREACHABLE = (100, "Server is not reachable.", "client_network")


@pytest.fixture(autouse=True)
def only_dns01(host, ca, ddns, dns, account):
    host.settings(kovaddns=ddns.endpoint, orderattempts=1, transfertimeout=1, keytype="ec256")
    ca.challenge_types = ["dns-01"]
    ca.validators["dns-01"] = validators.txt_records(dns)


def refused(host, ca, ddns, *failures):
    """One clear line of one of these failures, and nothing stored."""
    result = host.new_cert(ca.directory, [NAME], limits={"AS": 2 << 30})
    assert (result.status, result.stderr) == (result.document["error"], "")
    assert expect.retries(result) == result.errors
    assert result.errors in [[expect.retry_line(*failure)] for failure in failures]
    assert result.status in [failure[0] for failure in failures]
    assert host.certificates() == []
    # Nothing was accepted, so nothing is taken back.
    assert {update.action for update in ddns.updates} == {"create"}
    assert ca.calls("challenge") == []


def well_again(host, ca, ddns):
    """The run after one that failed."""
    ddns.always("create", None)
    expect.issued(host.new_cert(ca.directory, [NAME]), [NAME])


def issued(host, ca, ddns):
    result = host.new_cert(ca.directory, [NAME], limits={"AS": 2 << 30})
    expect.issued(result, [NAME])
    assert result.errors == []
    assert {update.action for update in ddns.updates} == {"create", "delete"}


# -- the request that publishes --------------------------------------------------------------------


@pytest.mark.parametrize("name", BODIES)
def test_body(host, ca, ddns, name):
    ddns.always("create", Reply(200, BODIES[name]))
    failures = [UNREACHABLE] if name in TOO_LONG else [SETUP_FAILED, NOT_JSON]
    refused(host, ca, ddns, *failures)


CODES = ["7", "-1", "1.5", "1e999999", "true", "false", "null", "[]", "{}", '["good"]',
         '{"good":"good"}', '""', '"good\\u0000"', '"GOOD"', '" good"', '"%s%n"',
         '"' + "good" * 100_000 + '"', "[" * 500 + "]" * 500, '"g\\u006fo\\u0064 "', "99999999999999999999"]


@pytest.mark.parametrize("code", CODES)
def test_code(host, ca, ddns, code):
    ddns.always("create", Reply(200, '{"code":' + code + "}"))
    refused(host, ca, ddns, SETUP_FAILED, NOT_JSON)


@pytest.mark.parametrize("body", ['{"code":"good","msg":"' + "x" * 1_000_000 + '"}',
                                  '{"msg":null,"code":"good","more":[{}]}', ' {"code" : "good" }\n',
                                  '{"code":"g\\u006fod"}', b'{"code":"good","msg":"\xff\xfe"}'])
def test_code_beside_something_else(host, ca, ddns, dns, body):
    def answer(request, normal):
        normal()
        return Reply(200, body)
    ddns.always("create", answer)
    issued(host, ca, ddns)
    assert dns.texts(RECORD) == []


@pytest.mark.parametrize("status", [199, 202, 206, 300, 304, 305, 401, 407, 418, 429, 502, 599, 999])
def test_status(host, ca, ddns, status):
    ddns.always("create", Reply(status, {"code": "good"}))
    refused(host, ca, ddns, SETUP_FAILED, UNREACHABLE)


@pytest.mark.parametrize("name", TRANSFERS)
def test_transfer(host, ca, ddns, name):
    ddns.always("create", TRANSFERS[name])
    refused(host, ca, ddns, UNREACHABLE, NOT_JSON, SETUP_FAILED)
    well_again(host, ca, ddns)


def test_slow_answer_is_not_waited_for(host, ca, ddns):
    ddns.always("create", Reply(200, {"code": "good"}, delay=4))
    refused(host, ca, ddns, UNREACHABLE)
    assert host.runs[0].seconds < 3.5
    well_again(host, ca, ddns)


def test_answer_that_drips_is_not_waited_for(host, ca, ddns):
    ddns.always("create", Reply(200, {"code": "good"}, drip=True))
    refused(host, ca, ddns, UNREACHABLE)
    assert host.runs[0].seconds < 10


# -- the request that takes back -------------------------------------------------------------------


@pytest.mark.parametrize("name", BODIES)
def test_body_after_taking_back(host, ca, ddns, name):
    ddns.always("delete", Reply(200, BODIES[name]))
    issued(host, ca, ddns)


@pytest.mark.parametrize("name", TRANSFERS)
def test_transfer_while_taking_back(host, ca, ddns, name):
    ddns.always("delete", TRANSFERS[name])
    issued(host, ca, ddns)


@pytest.mark.parametrize("reply", [Reply(200, {"code": "good"}, drip=True),
                                   Reply(200, {"code": "good"}, delay=4)])
def test_taking_back_is_not_waited_for(host, ca, ddns, reply):
    ddns.always("delete", reply)
    issued(host, ca, ddns)
    assert host.runs[0].seconds < 10


# -- both, when the proof itself fails -------------------------------------------------------------


@pytest.mark.parametrize("name", ["dropped connection", "no HTTP", "redirect loop"])
def test_proof_that_fails_tells_of_itself_alone(host, ca, ddns, name):
    ca.refusals.append(("dns", "not there"))
    ddns.always("delete", TRANSFERS[name])
    result = host.new_cert(ca.directory, [NAME])
    assert expect.retries(result)[0] == expect.retry_line(109, "not there")
    assert result.status in hostile.CODES
    assert [update.action for update in ddns.updates][:2] == ["create", "delete"]
