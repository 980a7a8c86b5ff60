"""Whatever body an authority of the early protocol sends, on whichever request, new-cert -p 1 ends
by itself, with one failure document, a code of ours, and nothing left behind."""

import pytest
from lib.hostile_replies import BODIES, TOO_LONG
from lib.http_script import Reply
from lib.v1ca.fixtures import early_account_fixture, early_ca_fixture, new_cert
from lib.v1ca.hostile import ENDPOINTS, GOOD_STATUS, NAME, prepared_fixture, run, spoil_fixture


@pytest.mark.parametrize("body", BODIES.keys())
@pytest.mark.parametrize("name", ENDPOINTS)
def test_body(host, early_ca, spoil, name, body):
    spoil(Reply(GOOD_STATUS.get(name, 200), BODIES[body]))
    result = run(host, early_ca)
    # An issuer that is no certificate leaves an empty chain; what follows a document is not read.
    good = name == "issuer" and body not in TOO_LONG or (name, body) == ("authz", "two documents")
    assert (result.status == 0) == good


@pytest.mark.parametrize("body", sorted(BODIES.keys() - TOO_LONG))
@pytest.mark.parametrize("name", ["reg", "challenge"])
def test_body_that_is_not_read(host, early_ca, spoil, name, body):
    def answer(_request, normal):
        reply = normal()
        reply.body = BODIES[body]
        return reply
    spoil(answer)
    assert run(host, early_ca).status == 0


@pytest.mark.parametrize("body", ["html", "null", "array", "number", "nested arrays", "formats",
                                  "2 MB", "lone surrogates", "invalid UTF-8"])
@pytest.mark.parametrize("name, status, code", [
    ("new-reg", 400, 105), ("new-reg", 429, 103), ("new-cert", 429, 104)])
def test_body_of_an_error(host, early_ca, spoil, name, status, code, body):
    spoil(Reply(status, BODIES[body]))
    assert run(host, early_ca).status in (code, 200)


@pytest.mark.parametrize("name", ["new-authz"])
def test_formats_at_the_second_debug_level(host, early_ca, spoil, name):
    spoil(Reply(201, BODIES["formats"]))
    result = new_cert(host, early_ca.directory, [NAME], "-vv")
    assert result.status == 200
    assert "%s%n%n%s" in result.stdout
