"""SIGTERM, SIGINT and SIGHUP in the middle of a run: what it published is taken back, and it ends by
that signal with one line in the system log and nothing on standard output."""

import json
import os
import signal

import pytest
from lib import expect, paths
from lib.archive_cli import ArchiveCli
from lib.interruption import NEVER, SIGNALS, ended, tell, telling, while_validating
from lib.renewal import Archive, record
from lib.router import CLOSED, OPENED

NAME = "www.host.example"
RECORD = "/usr/kova/etc/portmap.json"


@pytest.fixture(autouse=True)
def http_alone(host, ca):
    host.settings(skipdns01=True)


@pytest.mark.parametrize("number", SIGNALS)
def test_token_and_ports_are_taken_back(host, ca, router, account, number):
    seen = []
    while_validating(ca, telling(number, lambda: seen.append(
        (len(os.listdir(paths.TOKENS)), router.calls))))
    result = host.new_cert(ca.directory, [NAME])
    assert seen == [(1, ["detect", OPENED])]
    ended(result, number)
    assert len(result.errors) == 1
    assert os.listdir(paths.TOKENS) == []
    assert router.calls == ["detect", OPENED, CLOSED]
    assert json.loads(expect.read(RECORD)) == {}
    assert host.certificates() == [] and not os.path.exists(paths.CRON_JOB)


def test_txt_record_is_taken_back(host, ca, dns, ddns, account):
    host.settings(skipdns01=None, kovaddns=ddns.endpoint)
    while_validating(ca, telling(signal.SIGTERM))
    ended(host.new_cert(ca.directory, ["box.ddns.example"]), signal.SIGTERM)
    assert [update.action for update in ddns.updates] == ["create", "delete"]
    assert ddns.updates[0].txt == ddns.updates[1].txt


def test_txt_record_that_may_have_been_made_is_taken_back(host, ca, dns, ddns, account):
    host.settings(skipdns01=None, kovaddns=ddns.endpoint)
    ddns.answer("create", telling(signal.SIGINT))
    ended(host.new_cert(ca.directory, ["box.ddns.example"]), signal.SIGINT)
    assert [update.action for update in ddns.updates] == ["create", "delete"]


@pytest.mark.parametrize("number", SIGNALS)
def test_silent_name_server_is_not_waited_for(host, ca, dns, ddns, account, number):
    host.settings(skipdns01=None, kovaddns=ddns.endpoint)

    def silent(request):
        if not asked:
            tell(number)
        asked.append(True)
        request.header.id ^= 1  # an answer that nobody asked for
        return request.reply().pack()

    asked = []
    dns.answer = silent
    ended(host.new_cert(ca.directory, ["box.ddns.example"]), number)
    assert [update.action for update in ddns.updates] == ["create", "delete"]


def test_second_signal_ends_the_taking_back(host, ca, dns, ddns, account):
    host.settings(skipdns01=None, kovaddns=ddns.endpoint)
    while_validating(ca, telling(signal.SIGTERM))
    ddns.answer("delete", telling(signal.SIGHUP))
    result = host.new_cert(ca.directory, ["box.ddns.example"])
    assert (result.status, result.stdout) == (-signal.SIGHUP, "")
    assert result.seconds < NEVER - 2


@pytest.mark.parametrize("endpoint", ["directory", "newOrder", "finalize", "certificate"])
def test_any_request_is_cut_short(host, ca, router, account, endpoint):
    ca.answer(endpoint, telling(signal.SIGTERM))
    ended(host.new_cert(ca.directory, [NAME]), signal.SIGTERM)
    assert host.certificates() == []


def test_hook_is_cut_short_and_the_ports_are_closed(host, ca, router, account):
    marker = host.workspace + "/survived"
    host.hook("router-detect",
              f"kill -TERM $PPID; tail -f /dev/null --pid=$PPID; sleep 1; touch {marker}\n")
    ended(host.new_cert(ca.directory, [NAME]), signal.SIGTERM)
    assert router.calls == [CLOSED]
    assert not os.path.exists(marker)


def test_renewal_of_many_ends_with_the_one_at_hand(host, ca, router, account):
    archive = Archive(host)
    for identity in ("aaa", "bbb"):
        archive.add(identity, record=record(ca.directory, account))
    ca.answer("newOrder", telling(signal.SIGTERM))
    before = expect.tree(paths.ARCHIVE)
    ended(host.run("renew-all"), signal.SIGTERM)
    assert ca.trace.count("newOrder") == 1
    assert expect.tree(paths.ARCHIVE) == before


def test_reload_script_is_not_waited_for(host):
    cli = ArchiveCli(host)
    cli.certificate("aaa")
    # Not before the program has begun to wait.
    script = cli.reloads.script(then="timeout 0.5 tail -f /dev/null; kill -TERM $PPID; exec 2>&-; "
                                     "tail -f /dev/null --pid=$PPID")
    result = cli.bind("aaa")
    ended(result, signal.SIGTERM, "kova-archive")
    assert cli.reloads.lines and os.path.exists(script)
    assert cli.services("aaa") == ["nginx/web"]


def test_nohup_goes_on(host, ca, router, account):
    while_validating(ca, lambda _request, normal: (tell(signal.SIGHUP), normal())[1])
    expect.issued(host.run(paths.PROGRAM, "new-cert", "-s", ca.directory, "-d", NAME, "-m",
                           "admin@host.example", program="/usr/bin/nohup"))
