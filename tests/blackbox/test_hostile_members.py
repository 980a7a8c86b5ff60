"""Members of replies that have another type than the protocol gives them."""

import pytest
from lib import hostile
from lib.http_script import NORMAL, Reply, edited_json


@pytest.fixture(autouse=True)
def one_attempt(host, ca, account):
    hostile.prepare(host, ca)
    yield
    # What the CA itself spoilt comes back to it; that is no fault of the client.
    ca.violations.clear()


WRONG = [None, 7, -1, 1.5, True, False, [], {}, [[]], "", "\x00", "x" * 100_000]


@pytest.mark.parametrize("value", WRONG)
@pytest.mark.parametrize("name, member", [
    ("directory", "newNonce"), ("directory", "newOrder"), ("newOrder", "authorizations"),
    ("newOrder", "finalize"), ("authz", "identifier"), ("authz", "challenges"),
    ("poll", "status"), ("poll", "challenges"), ("finalize", "certificate"), ("order", "status"),
    ("order", "certificate")])
def test_member(host, ca, name, member, value):
    if (name, member) == ("poll", "challenges"):
        ca.refusals.append(("dns", "no"))  # or nobody would look
    hostile.tell(ca, name, edited_json(lambda body: {**body, member: value}))
    assert hostile.run(host, ca).status != 0


@pytest.mark.parametrize("value", WRONG)
@pytest.mark.parametrize("name, member", [
    ("directory", "revokeCert"), ("directory", "newAccount"), ("directory", "meta"),
    ("directory", "keyChange"), ("directory", "renewalInfo"), ("newAccount", "status"),
    ("newAccount", "contact"), ("newOrder", "status"), ("newOrder", "identifiers"),
    ("authz", "status"), ("authz", "wildcard"), ("challenge", "status"), ("challenge", "error"),
    ("finalize", "status"), ("finalize", "authorizations"), ("order", "error")])
def test_member_that_may_not_matter(host, ca, name, member, value):
    hostile.tell(ca, name, edited_json(lambda body: {**body, member: value}))
    hostile.run(host, ca)


@pytest.mark.parametrize("value", WRONG)
@pytest.mark.parametrize("member", ["type", "url", "token", "error"])
def test_member_of_a_challenge_of_another_type(host, ca, member, value):
    ca.refusals.append(("dns", "no"))

    def edit(body):
        for challenge in body["challenges"]:
            challenge[member] = value
    ca.always("authz", edited_json(edit))
    assert hostile.run(host, ca).status != 0


@pytest.mark.parametrize("value", WRONG)
@pytest.mark.parametrize("member", ["type", "detail"])
def test_member_of_an_error_of_another_type(host, ca, member, value):
    ca.refusals.append(("dns", "no"))

    def edit(body):
        for challenge in body["challenges"]:
            challenge.get("error", {})[member] = value
    ca.answer("authz", NORMAL, edited_json(edit))
    assert hostile.run(host, ca).status in (109, 200)


@pytest.mark.parametrize("value", WRONG)
@pytest.mark.parametrize("name, status, member", [
    ("newAccount", 400, "type"), ("newAccount", 400, "detail"), ("newAccount", 429, "detail"),
    ("newOrder", 400, "type"), ("newOrder", 429, "detail"), ("finalize", 400, "type"),
    ("finalize", 403, "type")])
def test_member_of_a_problem_of_another_type(host, ca, name, status, member, value):
    problem = {"type": "urn:ietf:params:acme:error:malformed", "detail": "d", member: value}
    hostile.tell(ca, name, Reply(status, problem))
    assert hostile.run(host, ca).status != 0
