"""http-01: the file that the web server publishes, and tokens that are no file names."""

import os

import pytest
from lib import expect, jws, paths, validators
from lib.http_script import edited_json
from lib.nginx import Nginx

NAME = "www.host.example"


@pytest.fixture(autouse=True)
def only_http01(host, ca):
    host.settings(skipdns01=True, orderattempts=1)
    ca.challenge_types = ["http-01"]


class Witness:
    """Looks at the web root while the CA validates."""

    def __init__(self, ca):
        self.seen = []
        ca.validators["http-01"] = self

    def __call__(self, name, token, proof):
        path = f"{paths.TOKENS}/{token}"
        self.seen.append({
            "files": os.listdir(paths.TOKENS), "content": expect.read(path), "proof": proof,
            "modes": [expect.mode(p) for p in (paths.WEBROOT, paths.WEBROOT + "/.well-known",
                                               paths.TOKENS, path)]})
        return validators.webroot(name, token, proof)


def test_file_holds_the_key_authorization_alone(host, ca):
    witness = Witness(ca)
    expect.issued(host.new_cert(ca.directory, [NAME]))
    [seen] = witness.seen
    token = ca.challenges[0].token
    jwk = ca.calls("newAccount")[0].jws.header["jwk"]
    assert seen["content"] == token + "." + jws.thumbprint(jwk) == seen["proof"]
    assert seen["files"] == [token]


@pytest.mark.parametrize("umask", [0, 0o022, 0o077])
def test_web_server_can_read_it_and_nobody_else_write_it(host, ca, umask):
    witness = Witness(ca)
    expect.issued(host.new_cert(ca.directory, [NAME], umask=umask))
    assert witness.seen[0]["modes"] == [0o755, 0o755, 0o755, 0o644]


def test_folders_stay_and_the_file_goes(host, ca, account):
    expect.issued(host.new_cert(ca.directory, [NAME]))
    assert os.listdir(paths.TOKENS) == []


def test_existing_file_is_replaced_and_others_stay(host, ca, account):
    ca.tokens.append("known-token")
    host.write(paths.TOKENS + "/known-token", "an old and much longer content " * 50, 0o600)
    host.write(paths.TOKENS + "/neighbour", "mine")
    witness = Witness(ca)
    expect.issued(host.new_cert(ca.directory, [NAME]))
    assert witness.seen[0]["content"] == witness.seen[0]["proof"]
    assert os.listdir(paths.TOKENS) == ["neighbour"]


def test_file_goes_when_validation_fails(host, ca, account):
    ca.refusals.append(("unauthorized", "no"))
    expect.gave_up(host.new_cert(ca.directory, [NAME]), 110, "no", attempts=1)
    assert os.listdir(paths.TOKENS) == []


def test_nginx_serves_it_to_the_ca(host, ca, account):
    Nginx(host).start()
    ca.validators["http-01"] = validators.web_server(80)
    names = ["a.host.example", "b.host.example"]
    expect.issued(host.new_cert(ca.directory, names, umask=0o077), names)


def test_without_a_web_server_the_ca_cannot_connect(host, ca, account):
    ca.validators["http-01"] = validators.web_server(80)
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 101)
    assert "cannot fetch" in expect.retries(result)[0]


SETUP_FAILED = "Failed to setup challegne for www.host.example of http-01"

HOSTILE = ["../../etc/cron.d/x", "../../../../../etc/cron.d/x", "a/b", "", ".", "..", "a.b", "a b",
           "a\nb", "a\0b", "tok%73n", "%s%n", "-x/../y", "tokén", "a+b=", "/etc/cron.d/x",
           "a\\b", "token\0"]


@pytest.mark.parametrize("token", HOSTILE)
def test_hostile_token_is_refused_and_nothing_is_removed(host, ca, account, token):
    host.write("/etc/cron.d/x", "mine")
    host.write(paths.TOKENS + "/a/b", "mine")
    host.write(paths.TOKENS + "/a.b", "mine")
    before = expect.tree("/etc/cron.d") | expect.tree(paths.WEBROOT)
    ca.tokens.append(token)
    result = host.new_cert(ca.directory, [NAME], "-v")
    assert (result.status, result.document["msg"]) == (202, "Failed to new certificate.")
    assert expect.retries(result) == [expect.retry_line(202, SETUP_FAILED)]
    assert "Failed to setup challenge for www.host.example with type http-01." in result.debug
    assert expect.tree("/etc/cron.d") | expect.tree(paths.WEBROOT) == before
    assert os.path.isdir(paths.TOKENS)
    # The CA was never asked to validate.
    assert "challenge" not in ca.trace


@pytest.mark.parametrize("length", [243, 249, 254, 255])
def test_token_as_long_as_a_file_name_is_published(host, ca, account, length):
    """Also in the place of a file that a neighbour left there."""
    token = "t" * length
    ca.tokens.append(token)
    host.write(f"{paths.TOKENS}/{token}", "an old one", 0o600)
    witness = Witness(ca)
    expect.issued(host.new_cert(ca.directory, [NAME]))
    [seen] = witness.seen
    assert seen["content"] == seen["proof"] and seen["files"] == [token]
    assert os.listdir(paths.TOKENS) == []


def test_token_longer_than_a_file_name_is_refused(host, ca, account):
    ca.tokens.append("t" * 256)
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 202, "Failed to chmod.", "utils", attempts=1)
    assert os.listdir(paths.TOKENS) == []


def test_overlong_token_is_refused(host, ca, account):
    ca.tokens.append("a" * 5000)
    result = host.new_cert(ca.directory, [NAME])
    assert result.status == 202
    assert os.listdir(paths.TOKENS) == []


@pytest.mark.parametrize("token", [None, 7, True, [], {}, ["x"]])
def test_token_of_another_type(host, ca, account, token):
    def edit(body):
        body["challenges"][0]["token"] = token
    ca.answer("authz", edited_json(edit))
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 200, "unexpect json response.", attempts=1)
    assert not os.path.exists(paths.TOKENS) or os.listdir(paths.TOKENS) == []


@pytest.mark.parametrize("place", ["", "/.well-known"])
def test_folder_that_cannot_be_made(host, ca, account, place):
    # A file of that name counts as there; what is below it cannot be made.
    host.write(paths.WEBROOT + place, "in the way")
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 202, SETUP_FAILED, attempts=1)
    assert expect.read(paths.WEBROOT + place) == "in the way"


def test_token_file_that_cannot_be_written(host, ca, account):
    ca.tokens.append("token")
    os.makedirs(paths.TOKENS + "/token/full")
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 202, "Failed to chmod.", "utils", attempts=1)
    assert os.path.isdir(paths.TOKENS + "/token/full")


def test_web_root_on_a_full_disk(host, ca, account):
    host.mount(paths.WEBROOT, size=4096 * 2)
    host.write(paths.TOKENS + "/neighbour", b"x" * 4096 * 2)
    result = host.new_cert(ca.directory, [NAME])
    token = ca.challenges[0].token
    expect.gave_up(result, 202, f"Failed to write {paths.TOKENS}/{token}: "
                   "No space left on device", "utils", attempts=1)
    assert os.listdir(paths.TOKENS) == ["neighbour"]


def test_order_is_not_repeated_for_ever_when_the_challenge_cannot_be_set_up(host, ca, account):
    host.settings(skipdns01=True, orderattempts=3)
    ca.tokens.extend(["a/b"] * 10)
    result = host.new_cert(ca.directory, [NAME])
    expect.gave_up(result, 202, SETUP_FAILED, attempts=3)
    assert result.sleeps == [2, 2]
