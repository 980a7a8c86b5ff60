"""A bad line between the program and a real CA while the archive's certificates are renewed and
revoked: requests and replies are lost, cut, reset, late or doubled, one in each run. The old set stays
whole until a new one is, and the next run succeeds."""

import os
import shutil
import signal

import pytest
from lib import expect, paths
from lib.archive_cli import PROGRAM, done
from lib.bad_line import NAME, SHORT_WAITS, STEP, BadLine, nothing_left_over
from lib.faulty_proxy import FAULTS, HARMLESS
from lib.renewal import INDEX, Archive, Reloads, deployed, quiet, reported, serial, service

UNREACHABLE = (100, "Server is not reachable.", "client_network")


@pytest.fixture
def line(host):
    # All are due, always; and what libcurl asks again by itself has its tests at new-cert.
    host.settings(renewanyissuer=True, renew_before_expire_days=36500, keepconnections=None)
    line = BadLine(host)
    Reloads(host).script("nginx")
    yield line
    line.close()


def run(host, *arguments):
    return host.run(*arguments, env=SHORT_WAITS)


def issue(host, line):
    """A certificate that is entered with a service. Returns its folder."""
    line.strike(None, 0)
    folder = expect.issued(host.new_cert(line.directory, [NAME], env=SHORT_WAITS), [NAME])
    Archive(host).enter(os.path.basename(folder), {"services": [service()]})
    return folder


def faults(requests):
    """(fault, number of the request) of those that are tried."""
    return [(fault, number) for fault in FAULTS for number in range(1, requests + 1)][::STEP]


class OldSet:
    """What the archive holds before a run."""

    def __init__(self, folder):
        self._folder = folder
        self._files, self._index = expect.tree(folder), expect.read(INDEX)

    def stands(self):
        assert expect.tree(self._folder) == self._files
        assert expect.read(INDEX) == self._index

    def gave_way(self):
        files = expect.tree(self._folder)
        assert set(files) == set(self._files) and expect.read(INDEX) == self._index
        record = self._folder + "/renew.json"
        assert all((files[path] != self._files[path]) == (path != record) for path in files
                   if os.path.basename(path) != "chain.pem")


def undisturbed(line, command):
    """The number of its requests. Seldom the CA reuses an authorization, and there are fewer."""
    requests = []
    for _ in range(3):
        line.strike(None, 0)
        command()
        requests.append(line.requests)
    return max(requests)


def struck(line, folder, command, fault, number):
    """What the archive held before the run that the fault befell, and that run."""
    for _ in range(3):
        old = OldSet(folder)
        line.strike(fault, number)
        result = command(fault in HARMLESS)
        if line.requests >= number:
            return old, result
        assert result.status == 0  # and the CA reused an authorization
    pytest.fail(f"{fault} did not come about at {number}")


def try_each(host, line, folder, command, failed):
    """`command` is run with one fault after the other, and once more after each that it noticed;
    `failed` looks at the run that noticed one."""
    requests = undisturbed(line, command)
    assert requests >= 8
    for fault, number in faults(requests):
        old, result = struck(line, folder, command, fault, number)
        told = f"{fault} at {number} of {requests}"
        nothing_left_over(host)
        assert host.certificates() == [folder], told
        if fault in HARMLESS:
            old.gave_way()
            continue
        failed(result)
        assert result.errors != [], told
        old.stands()
        line.strike(None, 0)
        command()
        old.gave_way()
        nothing_left_over(host)


def test_renew(host, line):
    folder = issue(host, line)
    identity = os.path.basename(folder)

    def renew(succeeds=True):
        result = run(host, "renew", "-c", identity)
        if succeeds:
            assert (result.status, result.document) == (0, {"error": 0, "id": identity})
        return result

    def failed(result):
        assert (result.status, result.stderr) == (1, "")
        assert result.stdout == expect.failure_text(*UNREACHABLE)
    try_each(host, line, folder, renew, failed)


def test_renew_all(host, line):
    folder = issue(host, line)

    def renew_all(succeeds=True):
        result = run(host, "renew-all")
        if succeeds:
            quiet(result)
        assert deployed(folder) == serial(folder + "/cert.pem")  # the old set or the new one
        return result
    try_each(host, line, folder, renew_all, lambda result: reported(result, UNREACHABLE))


# -- revocation ------------------------------------------------------------------------------------

BEFORE = "400  Certificate has already been revoked."


def revoke(host, folder):
    return run(host, "revoke", "-c", os.path.basename(folder))


def revoked(result, folder):
    assert (result.status, result.document) == (0, {"error": 0, "cert_path": folder})
    assert not os.path.exists(folder + "/renew.json")
    assert not os.path.exists(paths.CRON_JOB)


def died(result, folder, reason):
    """It ends abnormally; the record and the job are as they were."""
    assert (result.status, result.stdout) == (-signal.SIGABRT, "")
    assert result.errors == [f"kova-letsencrypt:# revoke failed. [{folder}][{reason}]"]
    assert os.path.exists(paths.CRON_JOB)


def test_revoke(host, line):
    """A reply that is lost after the CA has revoked is the one thing that no next run of this command
    can make good here: this CA refuses to revoke twice, and only the status 409 counts as done before.
    kova-archive believes it."""
    lost = 0
    for fault, number in sorted({*faults(3), ("drop_reply", 3), ("drop_request", 3)}):
        folder = issue(host, line)
        certificate, old = serial(folder + "/cert.pem"), OldSet(folder)
        line.strike(fault, number)
        result = revoke(host, folder)
        assert line.requests >= number
        if fault in HARMLESS:
            revoked(result, folder)
        else:
            died(result, folder, UNREACHABLE[1])
            old.stands()
            nothing_left_over(host)
            at_ca = line.ca.status(certificate)
            line.strike(None, 0)
            if at_ca == "Valid":
                revoked(revoke(host, folder), folder)
            else:
                died(revoke(host, folder), folder, "Revoke failed - " + BEFORE)
                old.stands()
                done(host.run("revoke", os.path.basename(folder), program=PROGRAM))
                assert not os.path.exists(folder + "/renew.json")
                lost += 1
                assert (fault.endswith("_reply"), number) == (True, 3)
        assert line.ca.status(certificate) == "Revoked"
        for path in host.certificates():
            shutil.rmtree(path)
    assert lost > 0
