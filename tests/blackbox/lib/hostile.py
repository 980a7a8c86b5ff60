"""What the tests with a hostile CA share: telling it what to send, and how a run must end."""

import os
import shutil

from . import expect, paths
from .http_script import NORMAL

NAME = "www.host.example"
CODES = {100, 101, 102, 103, 104, 105, 109, 110, 200, 201, 202, 204, 205}
# Every request of an issuance; "poll" is the second fetch of an authorization.
REQUESTS = ["directory", "newNonce", "newAccount", "newOrder", "authz", "challenge", "poll",
            "finalize", "order", "certificate"]
GOOD_STATUS = {"newAccount": 201, "newOrder": 201, "newNonce": 204}


def prepare(host, ca):
    """One attempt by http-01."""
    host.settings(orderattempts=1, skipdns01=True)


def tell(ca, name, answer):
    """That answer for the request of that name, as often as it is made."""
    if name == "newAccount":
        shutil.rmtree(paths.ACCOUNTS)  # or there would be no registration
    if name == "poll":
        ca.answer("authz", NORMAL)
    if name == "order":
        ca.states_after_finalize = ["processing"] * 100
    ca.always("authz" if name == "poll" else name, answer)


def run(host, ca, *args):
    """A run that must end in order: by itself, within 2 GiB, with one document and a code of
    ours, and with nothing left behind when it failed. Returns its result."""
    result = host.new_cert(ca.directory, [NAME], *args, limits={"AS": 2 << 30})
    assert result.status >= 0, "ended by a signal"
    assert result.stderr == ""
    if result.status == 0:
        expect.certificate_folder(result.document["cert_path"])
        return result
    document = result.document
    assert set(document) == {"error", "file", "msg"}
    assert isinstance(document["msg"], str)
    assert result.status == document["error"] and result.status in CODES
    assert host.certificates() == []
    assert not os.path.exists(paths.TOKENS) or os.listdir(paths.TOKENS) == []
    return result
