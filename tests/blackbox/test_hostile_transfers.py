"""Connections that break, replies that are no HTTP, redirects, nonces and URLs of a hostile CA."""

import pytest
from lib import expect, hostile
from lib.hostile_replies import TRANSFERS
from lib.http_script import Reply, edited, edited_json


@pytest.fixture(autouse=True)
def one_attempt(host, ca, account):
    hostile.prepare(host, ca)
    yield
    # What the CA itself spoilt comes back to it; that is no fault of the client.
    ca.violations.clear()


@pytest.mark.parametrize("reply", TRANSFERS.values(), ids=TRANSFERS.keys())
@pytest.mark.parametrize("name", hostile.REQUESTS)
def test_transfer(host, ca, name, reply):
    hostile.tell(ca, name, reply)
    hostile.run(host, ca)


@pytest.mark.parametrize("nonce", ["", " ", "a" * 100_000, "%s%n", '"\\', "\xe9"])
@pytest.mark.parametrize("name", ["newNonce", "newOrder", "authz", "finalize"])
def test_odd_nonce(host, ca, name, nonce):
    ca.answer(name, edited(nonce=nonce))
    hostile.run(host, ca)


@pytest.mark.parametrize("url", ["", " ", "file:///etc/passwd", "gopher://127.0.0.1/", "//x",
                                 "http://", "-o/etc/passwd", "http://[::1", "\x00",
                                 "http://127.0.0.1:99999/", "x" * 100_000,
                                 "ftp://127.0.0.1/", "dict://127.0.0.1/"])
@pytest.mark.parametrize("member", ["newNonce", "newOrder"])
def test_odd_url_in_the_directory(host, ca, member, url):
    ca.always("directory", edited_json(lambda body: {**body, member: url}))
    assert hostile.run(host, ca).status == 100


@pytest.mark.parametrize("url", ["", "file:///etc/passwd", "gopher://127.0.0.1/", "x" * 100_000])
@pytest.mark.parametrize("name, member", [
    ("newOrder", "authorizations"), ("newOrder", "finalize"), ("finalize", "certificate")])
def test_odd_url_of_an_order(host, ca, name, member, url):
    value = [url] if member == "authorizations" else url
    ca.answer(name, edited_json(lambda body: {**body, member: value}))
    assert hostile.run(host, ca).status == 100


def test_two_hundred_authorizations_are_taken_one_by_one(host, ca):
    ca.reuse = True
    ca.answer("newOrder", edited_json(
        lambda body: {**body, "authorizations": body["authorizations"] * 200}))
    result = hostile.run(host, ca)
    assert result.status == 0
    assert len(ca.calls("authz")) == 200


def test_order_without_authorizations_goes_straight_to_finalize(host, ca):
    ca.reuse = True
    ca.answer("newOrder", edited_json(lambda body: {**body, "authorizations": []}))
    assert hostile.run(host, ca).status == 0
    assert ca.calls("authz") == []


def test_file_that_the_ca_points_to_is_never_sent_or_stored(host, ca):
    ca.always("finalize", edited_json(lambda body: {**body,
                                                    "certificate": "file:///etc/passwd"}))
    hostile.run(host, ca)
    assert not any(b"root:" in content for content in expect.tree("/usr/kova/etc").values())
