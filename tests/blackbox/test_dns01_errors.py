"""dns-01 that cannot be set up, and names that it does not serve."""

import os

import pytest
from lib import expect, jws, validators
from lib.ddns import ACCOUNT, HOSTNAME, SERIAL
from lib.http_script import Reply, edited_json

NAME = "www." + HOSTNAME
SETUP_FAILED = f"Failed to setup challegne for {NAME} of dns-01"


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


def setup_failed(result, message=None):
    assert expect.retries(result) == [expect.retry_line(202, SETUP_FAILED)]
    assert result.status == 202
    if message is not None:
        assert message in result.debug
    assert f"Failed to setup challenge for {NAME} with type dns-01." in result.debug


def test_without_an_account_record(host, ca, ddns, account):
    record = ddns.device_record()
    for broken in (None, "text", {"id": "x"}, {"id": 7, "auth_key": "x"}, [], {}):
        host.device(**{**record, "account": broken})
        setup_failed(host.new_cert(ca.directory, [NAME], "-v"), "Failed to get Tolu Account.")
    assert ddns.requests == []


def test_serial_number_that_is_too_long(host, ca, ddns, account):
    host.device(**ddns.device_record(serial_number="x" * 36))
    setup_failed(host.new_cert(ca.directory, [NAME], "-v"), "Failed to get serial number.")
    assert ddns.requests == []


def test_longest_serial_number(host, ca, ddns, account):
    host.device(**ddns.device_record(serial_number="x" * 35))
    expect.issued(host.new_cert(ca.directory, [NAME]))
    assert ddns.updates[0].values["serial"] == "x" * 35


def test_without_a_serial_number(host, ca, ddns, account):
    if os.path.isdir("/sys/class/dmi/id"):
        host.mount("/sys/class/dmi/id")  # the machine's own number must not help out
    host.device(**ddns.device_record(serial_number=None))
    setup_failed(host.new_cert(ca.directory, [NAME], "-v"), "Failed to get serial number.")


@pytest.mark.parametrize("status", [201, 204, 400, 403, 404, 500])
def test_service_refuses(host, ca, ddns, account, status):
    ddns.answer("create", Reply(status, '{"code": "good"}'))
    setup_failed(host.new_cert(ca.directory, [NAME], "-v"),
                 f"Failed to setup challenge by dns01 with [{status}]")
    assert [update.action for update in ddns.updates] == ["create"]


@pytest.mark.parametrize("body", ['{}', '{"code":"bad"}', '{"code":"Good"}', '{"code":"good "}',
                                  '{"code":7}', '{"code":null}', '{"code":["good"]}', '[]',
                                  'null', '"good"', '{"code":{"good":1}}', '{"code":"badauth"}'])
def test_answer_that_is_not_good(host, ca, ddns, account, body):
    ddns.answer("create", Reply(200, body))
    result = host.new_cert(ca.directory, [NAME], "-v")
    setup_failed(result, f"Dns01 challenge: Setup [{body}].")
    # Nothing was set up, so nothing is deleted.
    assert [update.action for update in ddns.updates] == ["create"]


@pytest.mark.parametrize("body", ["", "<html>", "{", "[" * 100000])
def test_answer_that_is_not_json(host, ca, ddns, account, body):
    ddns.answer("create", Reply(200, body))
    expect.gave_up(host.new_cert(ca.directory, [NAME]), 200, "body is not json.",
                   "client_network", attempts=1)


def test_service_out_of_reach(host, ca, ddns, account):
    host.settings(kovaddns="http://127.0.0.1:1/main.php", orderattempts=1)
    expect.gave_up(host.new_cert(ca.directory, [NAME]), 100, "Server is not reachable.",
                   "client_network", attempts=1)


@pytest.mark.parametrize("reply", [Reply(500), Reply(200, "<html>"), Reply(drop=True),
                                   Reply(200, '{"code":"bad"}')])
def test_deletion_that_fails_is_not_reported(host, ca, ddns, account, reply):
    ddns.answer("delete", reply)
    result = host.new_cert(ca.directory, [NAME])
    expect.issued(result)
    assert result.errors == []


def test_record_is_deleted_when_validation_fails(host, ca, ddns, account):
    ca.refusals.append(("dns", "not there"))
    result = host.new_cert(ca.directory, [NAME])
    assert expect.retries(result)[0] == expect.retry_line(109, "not there")
    assert [update.action for update in ddns.updates][:2] == ["create", "delete"]
    assert ddns.updates[0].txt == ddns.updates[1].txt


@pytest.mark.parametrize("value", [7, None, [], {}, True])
def test_endpoint_of_another_type_means_the_built_in_one(host, ca, account, value):
    host.settings(kovaddns=value, orderattempts=1)
    result = host.new_cert(ca.directory, [NAME], "-v")
    assert f"DDNS Curl: [https://ddns.kova.example{target('create', proof(ca))}]" in result.debug
    assert expect.retries(result)[0] == expect.retry_line(100, "Server is not reachable.",
                                                          "client_network")


def test_settings_that_turn_unusable_make_the_setup_fail_silently(host, ca, ddns, account):
    def spoil(request, normal):
        host.write_settings("{")
        return normal()
    ca.answer("authz", spoil)
    result = host.new_cert(ca.directory, [NAME], "-v")
    setup_failed(result)
    assert not any("DDNS Curl" in line for line in result.debug)
    assert ddns.requests == []


def test_name_outside_the_zone_is_not_tried(host, ca, ddns, account):
    ca.challenge_types = ["dns-01", "http-01"]
    result = host.new_cert(ca.directory, ["www.other.example"], "-v")
    expect.issued(result)
    assert "dns-01 is not support for www.other.example" in result.debug
    assert ddns.requests == []


def test_unsupported_type_is_not_tried_for_later_names_either(host, ca, ddns, account):
    ca.challenge_types = ["dns-01", "http-01"]
    names = ["www.other.example", NAME]
    result = host.new_cert(ca.directory, names, "-v")
    expect.issued(result, names)
    assert ddns.requests == []
    assert result.debug.count("dns-01 is not support for www.other.example") == 1


def test_name_is_compared_without_case(host, ca, ddns, account):
    host.device(**ddns.device_record(ddns_hostname=HOSTNAME.upper()))
    expect.issued(host.new_cert(ca.directory, [NAME]))
    assert len(ddns.requests) == 2


@pytest.mark.parametrize("name", ["www.box.ddns.example&hostname=x", "a b.box.ddns.example",
                                  "x/../box.ddns.example", "box.ddns.example#", "\nbox.ddns.example"])
def test_name_from_the_ca_that_is_no_host_name(host, ca, ddns, account, name):
    def edit(body):
        body["identifier"]["value"] = name
    ca.answer("authz", edited_json(edit))
    result = host.new_cert(ca.directory, [NAME])
    assert result.status == 202
    assert ddns.requests == []
