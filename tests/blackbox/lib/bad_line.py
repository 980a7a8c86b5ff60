"""A bad line between the program and a real CA, and what has to hold after each run over it."""

import glob
import os

from . import expect, paths
from .faulty_proxy import FaultyProxy
from .nginx import Nginx
from .real_ca import ACME, RealCa

NAME = "line.example"
# So many requests and replies are passed over from one fault to the next; KOVA_LINE_STEP=1: none.
STEP = int(os.environ.get("KOVA_LINE_STEP", "7"))
# The CA works in its own time; a part of each wait is enough for it.
SHORT_WAITS = {"KOVA_WAIT_DIVISOR": "20"}


class BadLine(FaultyProxy):
    """`ca` is at its other end, a web server for the proofs beside it."""

    def __init__(self, host):
        # Small keys, one attempt and one type: what is looked at is the line. Failures are to be
        # logged.
        host.settings(keytype="ec256", orderattempts=1, skipdns01=True, renewfailures=True)
        Nginx(host).start()
        self.ca = RealCa(host)
        super().__init__(ACME, self.ca.web_certificate, self.ca.web_key, self.ca.web_root)


def nothing_left_over(host):
    """No token, no half-made folder, no file that is still being written."""
    assert glob.glob(paths.TOKENS + "/*") == []
    for folder in host.certificates():
        expect.certificate_folder(folder, [NAME])
    for folder in host.accounts():
        assert {"info.json"} <= set(os.listdir(folder)), folder
    for root in ("/usr/kova/etc", paths.WEBROOT):
        hidden = [path for path in expect.tree(root) if os.path.basename(path).startswith(".")
                  and path.endswith(".kova")]
        assert hidden == []
