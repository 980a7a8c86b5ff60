"""What the tests with a hostile authority of the early protocol share; a test file imports the
fixtures it uses."""

import os

import pytest

from .. import paths
from ..validators import webroot
from .fixtures import new_cert

NAME = "www.host.example"
CODES = {100, 101, 102, 103, 104, 105, 200, 201, 202, 203, 204}
GOOD_STATUS = {"new-reg": 201, "reg": 202, "new-authz": 201, "challenge": 202, "new-cert": 201}
REGISTRATION = ["new-reg", "reg"]
ENDPOINTS = [*REGISTRATION, "directory", "new-authz", "challenge", "authz", "new-cert", "issuer"]


@pytest.fixture(name="prepared", autouse=True)
def prepared_fixture(host, early_ca):
    """One attempt by http-01."""
    host.settings(skipdns01=True)
    early_ca.validators["http-01"] = webroot
    yield
    # What the authority itself spoilt comes back to it; that is no fault of the client.
    early_ca.violations.clear()


@pytest.fixture(name="spoil")
def spoil_fixture(request, early_ca, name):
    """Tells the endpoint `name`, a parameter of the test, what to answer from now on. There is an
    account, unless the test is about its registration."""
    if name not in REGISTRATION:
        request.getfixturevalue("early_account")
    return lambda answer: early_ca.always(name, answer)


def run(host, ca, *args):
    """A run that must end in order: by itself, within 2 GiB, with one document and a code of ours,
    and with nothing left behind when it failed. Returns its result."""
    result = new_cert(host, ca.directory, [NAME], *args, limits={"AS": 2 << 30})
    assert result.status >= 0, "ended by a signal"
    assert result.stderr == ""
    document = result.document
    if result.status == 0:
        assert sorted(os.listdir(document["cert_path"])) == sorted(paths.CERTIFICATE_FILES)
        return result
    assert set(document) == {"error", "file", "msg"}
    assert isinstance(document["msg"], str)
    assert result.status == document["error"] and result.status in CODES
    assert host.certificates() == []
    assert not os.path.exists(paths.TOKENS) or os.listdir(paths.TOKENS) == []
    assert os.listdir("/etc/cron.d") == []
    return result
