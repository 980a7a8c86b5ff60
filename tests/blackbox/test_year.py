"""A year of daily runs: certificates of 90, 45 and 6 days from a CA that issues them by a moved clock,
and an outage of three days in the middle. Every run is compared with what the rules give."""

import datetime
import json
import os

import pytest
from cryptography import x509
from lib import expect, paths
from lib.dated_ca import DAY, DAYS, HOUR, RENEWAL, DatedCa, DatedRuns
from lib.renewal_info import HISTORY


class Rules:
    """What the documentation says of one certificate, kept beside the program."""

    def __init__(self, obtained, days):
        self.days, self.failures, self.attempt, self.notice = days, 0, None, None
        self.renewals, self.notices, self.past_end = [], [], []
        self.renewed(obtained)

    def renewed(self, now):
        self.begin, self.failures = now - HOUR, 0
        self.end = self.begin + self.days * DAY
        self.renewals.append(now)

    def is_due(self, now):
        left, life = self.end - now, self.end - self.begin
        if now >= self.end:
            self.past_end.append(now)
        if left * (2 if life < 10 * DAY else 3) >= life:
            return False
        held_back = self.failures >= 3 and now - self.attempt < 23 * HOUR
        return not held_back or left * 10 < life

    def failed(self, now):
        self.failures, self.attempt = self.failures + 1, now
        if self.notice is None or now - self.notice >= 23 * HOUR:
            self.notice = now
            self.notices.append(now)


class Year(DatedRuns):
    def __init__(self, host, ca):
        super().__init__(host, ca)
        self.begin = ca.moment
        self.told = host.workspace + "/told"
        host.hook("notify", f'echo "$1 $2" >> {self.told}\n')
        self.rules = {self.obtain(name): Rules(ca.moment, days) for name, days in DAYS.items()}
        self.runs = self.idle_runs = self.requests = self.requests_in_vain = 0

    def at(self, moment, outage):
        """One renew-all at that moment: exactly what is due is renewed, and asked for."""
        self.ca.moment = moment
        self.ca.outage(outage)
        del self.ca.requests[:]
        due = [identity for identity in sorted(self.rules) if self.rules[identity].is_due(moment)]
        before = len(self.ca.certificates)
        result = self.run("renew-all")
        assert result.status == 0 and result.stderr == ""
        wanted = (["directory"] if outage else RENEWAL) * len(due)
        assert self.ca.trace == wanted, (moment - self.begin) / DAY
        assert len(self.ca.certificates) - before == (0 if outage else len(due))
        for identity in due:
            rules = self.rules[identity]
            (rules.failed if outage else rules.renewed)(moment)
            self.look_at(identity, moment)
        assert (result.stdout, result.errors) == ("", []) or outage and due
        self.runs += 1
        self.idle_runs += not due
        self.requests += len(wanted)
        self.requests_in_vain += len(due) if outage else 0

    def look_at(self, identity, moment):
        """The certificate in the archive and its history are those of the rules."""
        rules = self.rules[identity]
        leaf = x509.load_pem_x509_certificate(
            expect.read(f"{paths.ARCHIVE}/{identity}/cert.pem").encode())
        assert leaf.not_valid_after.replace(tzinfo=datetime.timezone.utc).timestamp() == rules.end
        history = json.loads(expect.read(f"{HISTORY}/{identity}.json"))
        assert history["failures"] == rules.failures
        assert history["last_attempt"] == datetime.datetime.utcfromtimestamp(moment).strftime(
            "%Y-%m-%dT%H:%M:%SZ")

    def notifications(self):
        return expect.read(self.told).splitlines() if os.path.exists(self.told) else []

    def of(self, days):
        return next(rules for rules in self.rules.values() if rules.days == days)

    def day(self, moment):
        return (moment - self.begin) / DAY

    def tell(self, title):
        print(f"{title}: {self.runs} runs, {self.idle_runs} of them without anything due and without "
              f"a request; {self.requests} requests, {self.requests_in_vain} of them in vain; "
              f"{len(self.notifications())} notifications")
        for rules in sorted(self.rules.values(), key=lambda each: each.days):
            between = [(b - a) / DAY for a, b in zip(rules.renewals, rules.renewals[1:])]
            print(f"  {rules.days} days: {len(between)} renewals, {min(between):g} to "
                  f"{max(between):g} days apart; past its end at {len(rules.past_end)} runs")


@pytest.fixture
def ca():
    dated = DatedCa()
    yield dated
    dated.close()
    assert dated.violations == []


@pytest.fixture
def year(host, ca):
    host.settings(renewanyissuer=True, renewlifetime=True, renewfailures=True, cronperiod="daily")
    return Year(host, ca)


def live_through(year, outage_begins, hours_in_outage=(0,)):
    """Daily runs; on the three days of the outage also at further hours."""
    for day in range(1, 366):
        outage = outage_begins <= day < outage_begins + 3
        for hour in hours_in_outage if outage else (0,):
            year.at(year.begin + day * DAY + hour * HOUR, outage)


def renewals(year, days):
    """The days on which it was renewed, the first issuance left out."""
    return [year.day(moment) for moment in year.of(days).renewals[1:]]


def test_year_with_an_outage_ends_no_certificate(year):
    # All three are due on the second day of the outage, the one of six days for the first time.
    live_through(year, 179)
    year.tell("outage from day 179")
    assert [year.of(days).past_end for days in (90, 45, 6)] == [[], [], []]
    assert renewals(year, 90) == [60, 120, 182, 242, 302, 362]
    assert renewals(year, 45) == [30, 60, 90, 120, 150, 182, 212, 242, 272, 302, 332, 362]
    assert renewals(year, 6) == [*range(3, 178, 3), *range(182, 366, 3)]
    # Each failed on two days, once a day, and was told once a day.
    assert year.requests_in_vain == 6 and len(year.notifications()) == 6
    assert year.requests == 6 + 8 * (6 + 12 + 59 + 62)


def test_year_whose_outage_begins_when_six_days_are_half_over(year):
    # The certificate of six days has three left, less the hour that it is dated back: it ends an
    # hour before the first run after the outage, and no rule can keep it.
    live_through(year, 180, (0, 4, 8, 12, 16, 20))
    year.tell("outage from day 180, six runs a day in it")
    assert [year.day(moment) for moment in year.of(6).past_end] == [183]
    assert year.of(90).past_end == year.of(45).past_end == []
    assert renewals(year, 6) == [*range(3, 178, 3), *range(183, 366, 3)]
    # What failed at eight o'clock is left alone until the next day's run has passed that hour.
    assert renewals(year, 90) == [60, 120, 184, 244, 304, 364]
    assert renewals(year, 45) == [30, 60, 90, 120, 150, 184, 214, 244, 274, 304, 334, 364]
    # Three attempts and then one a day: at 0, 4 and 8 o'clock, and at 8 on the next two days. The
    # one of six days is tried at every run again when less than a tenth is left, from 12 o'clock of
    # the last day on.
    assert year.requests_in_vain == 5 + 5 + (5 + 3)
    assert year.requests == year.requests_in_vain + 8 * (6 + 12 + 59 + 61)
    for days in DAYS.values():
        assert [year.day(moment) for moment in year.of(days).notices] == [
            180, 181 + 8 / 24, 182 + 8 / 24]
    assert len(year.notifications()) == 9
