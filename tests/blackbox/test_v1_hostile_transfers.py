"""Connections that break, replies that are no HTTP, redirects, nonces and URLs of a hostile
authority of the early protocol."""

import pytest
from lib.hostile_replies import TRANSFERS
from lib.v1ca.fixtures import early_account_fixture, early_ca_fixture
from lib.v1ca.hostile import ENDPOINTS, prepared_fixture, run, spoil_fixture


@pytest.mark.parametrize("reply", TRANSFERS.values(), ids=TRANSFERS.keys())
@pytest.mark.parametrize("name", ENDPOINTS)
def test_transfer(host, early_ca, spoil, name, reply):
    spoil(reply)
    result = run(host, early_ca)
    # The issuer may be anything that came with status 200.
    assert result.status != 0 or name == "issuer"


VALUES = ["x" * 100_000, "", " ", "\x01\x02", "http://127.0.0.1:1/", "file:///etc/passwd",
          "%s%n%s%n", "gopher://127.0.0.1:1/", "<>", "\xff\xfe", "-o/etc/passwd", "http://[::1"]


@pytest.mark.parametrize("value", VALUES)
@pytest.mark.parametrize("name, header, form", [
    ("new-reg", "Location", "{}"), ("new-reg", "Link", '<{}>;rel="terms-of-service"'),
    ("challenge", "Link", '<{}>;rel="up"'), ("new-cert", "Link", '<{}>;rel="up"')])
def test_url_of_a_header(host, early_ca, spoil, name, header, form, value):
    def answer(_request, normal):
        reply = normal()
        reply.headers[header] = form.format(value)
        return reply
    spoil(answer)
    # No other terms than the authority's own can be agreed to.
    assert run(host, early_ca).status != 0


@pytest.mark.parametrize("value", VALUES)
@pytest.mark.parametrize("name", ["directory", "new-authz"])
def test_nonce(host, early_ca, spoil, name, value):
    def answer(_request, normal):
        reply = normal()
        reply.nonce = value
        return reply
    spoil(answer)
    assert run(host, early_ca).status != 0
