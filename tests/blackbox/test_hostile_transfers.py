"""Connections that break, replies that are no HTTP, redirects, nonces and URLs of a hostile CA."""

import pytest
from lib import expect, hostile
from lib.http_script import Reply, edited, edited_json


@pytest.fixture(autouse=True)
def one_attempt(host, ca, account):
    hostile.prepare(host, ca)
    yield
    # What the CA itself spoilt comes back to it; that is no fault of the client.
    ca.violations.clear()


TRANSFERS = {
    "dropped connection": Reply(drop=True),
    "cut off body": edited(cut=1),
    "cut off header": Reply(raw=b"HTTP/1.1 200 OK\r\nContent-Le"),
    "no HTTP": Reply(raw=b"SSH-2.0-OpenSSH_9.2\r\n"),
    "no header": Reply(raw=b"HTTP/1.1 200 OK\r\n\r\n"),
    "wrong length": Reply(raw=b"HTTP/1.1 200 OK\r\nContent-Length: 99999999999\r\n\r\n{}"),
    "bad chunks": Reply(raw=b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzzz\r\n{}"),
    "redirect loop": lambda request, _normal: Reply(302, "", {"Location": request.target}),
    "redirect to a file": Reply(302, "", {"Location": "file:///etc/passwd"}),
    "redirect to nowhere": Reply(302, "", {"Location": "http://127.0.0.1:1/"}),
    "redirect without a target": Reply(302, ""),
    "endless header": Reply(raw=b"HTTP/1.1 200 OK\r\n" + b"X: " + b"x" * 2_000_000 + b"\r\n\r\n"),
    "many headers": Reply(raw=b"HTTP/1.1 200 OK\r\n" + b"X: y\r\n" * 400_000 + b"\r\n{}"),
}


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
