"""A year of daily runs in which the CA says when it would like each certificate to be renewed, with an
outage of three days in the middle."""

import json
import os

import pytest
from lib import expect, paths
from lib.dated_ca import DAY, DAYS, HOUR, RENEWAL, DatedRuns, InformingCa
from lib.renewal_info import HISTORY, identifier, seconds_of


@pytest.fixture
def ca():
    informing = InformingCa()
    yield informing
    informing.close()
    assert informing.violations == []


class AdvisedYear(DatedRuns):
    """Before each run the kept advice says which certificates may be renewed in it, after it which
    had to be."""

    def __init__(self, host, ca):
        super().__init__(host, ca)
        self.days = {self.obtain(name): days for name, days in DAYS.items()}
        self.renewals = {identity: [ca.moment] for identity in self.days}
        self.requests = self.idle_runs = 0

    def known_as(self, identity):
        return identifier(f"{paths.ARCHIVE}/{identity}/cert.pem")

    def run_on(self, day, begin, outage):
        self.ca.moment = begin + day * DAY
        self.ca.outage(outage)
        del self.ca.requests[:]
        before = {identity: self.known_as(identity) for identity in self.days}
        kept = {identity: self.moment_of(identity) for identity in self.days}
        old = {identity for identity in self.days if self.is_old(identity)}
        result = self.run("renew-all")
        assert result.status == 0 and result.stderr == ""
        if outage:
            # The directory is asked for once, and once for each that is due: by the kept advice, or
            # by its age, when nothing is kept yet.
            due = [identity for identity, moment in kept.items() if identity in old
                   or moment is not None and moment < self.next_run()]
            assert self.ca.trace == ["directory"] * ((len(old) < len(self.days)) + len(due))
        else:
            self.look_at_run(before, kept, old)
        self.requests += len(self.ca.requests)

    def look_at_run(self, before, kept, old):
        renewed = [identity for identity in sorted(self.days)
                   if self.known_as(identity) != before[identity]]
        # Of one that is due in any case nobody asks.
        asked = ["renewalInfo"] * (len(self.days) - len(old))
        assert self.ca.trace == ["directory"] * bool(asked) + asked + RENEWAL * len(renewed)
        assert old <= set(renewed)
        assert [payload.get("replaces") for payload in self.ca.payloads("newOrder")] == [
            before[identity] for identity in renewed]
        for identity in self.days:
            # What was drawn before the run or, where nothing was, during it.
            moment = kept[identity] or self.moment_of(identity)
            if identity in renewed:
                assert identity in old or moment is None or moment < self.next_run()
                self.renewals[identity].append(self.ca.moment)
            else:
                start, end = self.ca.windows[before[identity]]
                assert max(start, self.next_run()) <= moment <= end
                assert moment == self.moment_of(identity), "drawn once"
        self.idle_runs += not renewed

    def moment_of(self, identity):
        """What is kept of the certificate that stands in the archive; None: nothing."""
        path = f"{HISTORY}/{identity}.json"
        kept = json.loads(expect.read(path)) if os.path.exists(path) else {}
        if kept.get("ari", {}).get("certificate") != self.known_as(identity):
            return None
        return seconds_of(kept["ari"]["moment"])

    def is_old(self, identity):
        days = self.days[identity]
        age = self.ca.moment - (self.renewals[identity][-1] - HOUR)
        return age > days * DAY * (1 / 2 if days < 10 else 2 / 3)

    def next_run(self):
        return self.ca.moment + DAY

    def apart(self, days):
        identity = next(each for each in self.days if self.days[each] == days)
        moments = self.renewals[identity]
        return [(b - a) / DAY for a, b in zip(moments, moments[1:])]


def test_year_of_advice_ends_no_certificate(host, ca):
    host.settings(renewanyissuer=True, renewlifetime=True, renewfailures=True, cronperiod="daily",
                  renewalinfo=True)
    year = AdvisedYear(host, ca)
    begin = ca.moment
    for day in range(1, 366):
        year.run_on(day, begin, outage=179 <= day < 182)
    for days in sorted(DAYS.values()):
        apart = year.apart(days)
        print(f"{days} days: {len(apart)} renewals, {min(apart):g} to {max(apart):g} days apart")
        # The window is from three to four tenths of its life, less the hour that it is dated back;
        # the run before a moment renews, and the outage may have held it up.
        assert all(int(days * 0.3) - 1 <= each <= days * 0.4 + 3 for each in apart)
        assert max(apart) < days - 1 / 24, "it was past its end"
        assert 365 / (days * 0.4 + 3) - 1 <= len(apart) <= 365 / max(1, days * 0.3 - 1)
    print(f"{year.requests} requests, {year.idle_runs} runs with nothing due")
