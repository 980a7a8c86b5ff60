"""Members of another type than the early protocol's, in every reply that is read."""

import pytest
from lib.http_script import edited_json
from lib.v1ca.fixtures import early_account_fixture, early_ca_fixture
from lib.v1ca.hostile import prepared_fixture, run, spoil_fixture

WRONG = [None, 7, True, 1.5, [], {}, [[]], {"a": 1}, "", "\x00", "x" * 100_000]


@pytest.mark.parametrize("value", WRONG)
@pytest.mark.parametrize("name, member", [
    ("directory", "new-authz"), ("directory", "new-cert"), ("new-authz", "identifier"),
    ("new-authz", "challenges"), ("authz", "status")])
def test_member_of_another_type(host, early_ca, spoil, member, value):
    spoil(edited_json(lambda body: {**body, member: value}))
    assert run(host, early_ca).status != 0


@pytest.mark.parametrize("value", WRONG)
@pytest.mark.parametrize("name, member", [("directory", "new-reg"), ("directory", "revoke-cert")])
def test_resource_that_is_not_used(host, early_ca, spoil, member, value):
    """It has to be there, and to be a text."""
    spoil(edited_json(lambda body: {**body, member: value}))
    assert (run(host, early_ca).status == 0) == isinstance(value, str)


@pytest.mark.parametrize("value", WRONG)
@pytest.mark.parametrize("member", ["type", "uri", "token", "status"])
@pytest.mark.parametrize("name", ["new-authz"])
def test_member_of_a_challenge(host, early_ca, spoil, member, value):
    def edit(body):
        body["challenges"][0][member] = value
    spoil(edited_json(edit))
    assert (run(host, early_ca).status == 0) == (member == "status")  # which has to be there alone


@pytest.mark.parametrize("value", WRONG)
@pytest.mark.parametrize("member", ["type", "detail"])
@pytest.mark.parametrize("name", ["authz"])
def test_member_of_an_error(host, early_ca, spoil, member, value):
    def edit(body):
        error = {"type": "urn:acme:error:unauthorized", "detail": "d", member: value}
        body["status"] = "invalid"
        body["challenges"][0]["error"] = error
    spoil(edited_json(edit))
    assert run(host, early_ca).status == (200 if member == "type" else 102)


@pytest.mark.parametrize("value", WRONG)
@pytest.mark.parametrize("name", ["authz"])
def test_error_of_another_type(host, early_ca, spoil, value):
    def edit(body):
        body["status"] = "invalid"
        body["challenges"][0]["error"] = value
    spoil(edited_json(edit))
    assert run(host, early_ca).document == {"error": 200, "file": "client_v1", "msg": ""}
