"""A CA with a clock that a test moves, whose certificates live as long as their name says."""

import datetime
import os
import time

from . import expect
from .acme_ca import AcmeCa
from .http_script import Reply
from .renewal_info import identifier_of

DAY, HOUR = 86400, 3600
# What a renewal asks for; an attempt during an outage gets as far as the first.
RENEWAL = ["directory", "newNonce", "newOrder", "authz", "challenge", "authz", "finalize",
           "certificate"]
DAYS = {"ninety.host.example": 90, "fortyfive.host.example": 45, "six.host.example": 6}


class DatedCa(AcmeCa):
    """Issues at the moment of its clock, dated an hour back; each name has a lifetime of its own."""

    def __init__(self):
        super().__init__()
        self.moment = int(time.time())
        self.issuer.now = lambda: datetime.datetime.utcfromtimestamp(self.moment)

    def _issue(self, order, csr):
        self.issuer.days = DAYS[order.names[0]] - HOUR / DAY
        super()._issue(order, csr)

    def outage(self, lasts):
        for endpoint in [*self.links, "directory", "authz", "challenge", "order", "finalize",
                         "certificate"]:
            self.always(endpoint, Reply(drop=True) if lasts else None)


class InformingCa(DatedCa):
    """Gives renewal information as well: a window from three to four tenths of each life."""

    def __init__(self):
        super().__init__()
        self.renewal_info = {}
        self.windows = {}  # by identifier, in seconds since the epoch

    def _issue(self, order, csr):
        super()._issue(order, csr)
        life = DAYS[order.names[0]] * DAY
        begin = self.moment - HOUR
        self.windows[identifier_of(self.certificates[-1])] = (begin + life * 3 // 10,
                                                              begin + life * 4 // 10)

    def _renewalInfo(self, request):
        start, end = map(_text, self.windows[request.path.rsplit("/", 1)[1]])
        return Reply(200, {"suggestedWindow": {"start": start, "end": end}}, nonce=None)


class DatedRuns:
    """Runs of the program at the moment of the CA's clock."""

    def __init__(self, host, ca):
        self.host, self.ca = host, ca

    def run(self, *args, **options):
        return self.host.run(*args, env={"KOVA_WALL_CLOCK": str(self.ca.moment)}, **options)

    def obtain(self, name):
        """Issues a certificate and enters it in the index; its id."""
        result = self.run("new-cert", "-s", self.ca.directory, "-d", name, "-m", "a@host.example")
        identity = os.path.basename(expect.issued(result, [name]))
        assert self.run("add", identity, program="/usr/kova/sbin/kova-archive").status == 0
        return identity


def _text(moment):
    return time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(moment))
