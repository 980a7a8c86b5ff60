"""kova-archive obtain: new-cert, add, default and bind in one."""

import datetime
import fcntl
import glob
import json
import os
import re
import signal
import threading
import time

import pytest
from cryptography import x509
from lib import expect, paths
from lib.acme_ca import AcmeCa
from lib.archive_cli import DEFAULT, INDEX, LOCK, PROGRAM, ArchiveCli, done
from lib.http_script import Reply, edited_json
from lib.interruption import SIGNALS, asks_for_lock, ended, tell, telling, while_validating
from lib.obtain import BIND, MAIL, NAMES, certificate, nothing_left, obtain
from lib.renewal import deployed, serial

JOB = re.compile(r"# kova-letsencrypt - renew\n(\d+) (\d+) ")


@pytest.fixture(autouse=True)
def http_alone(host):
    host.settings(skipdns01=True, orderattempts=1)


def record(folder):
    return json.loads(expect.read(folder + "/renew.json"))


def leaf_of(folder):
    return x509.load_pem_x509_certificate(expect.read(folder + "/cert.pem").encode())


def day(moment):
    return moment.strftime("%Y-%m-%d")


def clock():
    """When the job runs, as its file says."""
    minute, hour = JOB.match(expect.read(paths.CRON_JOB)).groups()
    return f"{int(hour):02}:{int(minute):02}"


# -- what it does ----------------------------------------------------------------------------------


def test_four_lines_say_what_was_done_and_what_is_next(host, ca):
    cli = ArchiveCli(host)
    cli.reloads.script()
    host.settings(renewlifetime=True, cronperiod="daily")
    result = obtain(host, ca, *BIND, "--desc", "The site")
    folder = certificate(host)
    identity, leaf = os.path.basename(folder), leaf_of(folder)
    done(result)
    where, what, who, when = result.stdout.splitlines()
    assert where == f"{identity} is in {folder}."
    assert re.fullmatch(rf"It is for www\.host\.example, host\.example, issued by Let's Encrypt and "
                        rf"valid until {day(leaf.not_valid_after)} \((89|90) days left\)\.", what)
    assert who == "nginx/web uses it, from /usr/kova/etc/certificate/nginx/web."
    third = (leaf.not_valid_after - leaf.not_valid_before) / 3
    assert when == (f"It is renewed from {day(leaf.not_valid_after - third)} on: {paths.CRON_JOB} "
                    f"starts renew-all daily at {clock()}, but nothing on this host does so now: see "
                    "kova-archive check --host.")
    assert cli.index() == {identity: {"desc": "The site", "services": [
        {"display_name": "Web server", "isPkg": False, "owner": "root", "service": "web",
         "subscriber": "nginx"}]}}
    assert deployed(folder) == leaf.serial_number
    assert cli.reloads.lines == ["nginx web"]
    assert not os.path.exists(DEFAULT)
    assert result.errors == []


def test_requests_are_those_of_new_cert(host, ca):
    obtain(host, ca)
    as_obtained = [(request.endpoint, sorted(request.jws.payload or {}) if request.jws else None)
                   for request in ca.requests]
    ca.requests.clear()
    for account in host.accounts():
        for name in os.listdir(account):
            os.unlink(f"{account}/{name}")
    host.new_cert(ca.directory, NAMES)
    assert as_obtained == [(request.endpoint, sorted(request.jws.payload or {}) if request.jws else None)
                           for request in ca.requests]
    assert ca.accounts[list(ca.accounts)[0]]["payload"]["contact"] == ["mailto:" + MAIL]


def test_folder_and_record_are_those_of_new_cert(host, ca, account):
    obtain(host, ca)
    folder = certificate(host)
    assert record(folder) == {"version": 2, "server": ca.directory, "account": account,
                              "domains": "www.host.example;host.example"}
    assert expect.mode(folder) == 0o700 and expect.mode(INDEX) == 0o600
    assert expect.certificate_names(leaf_of(folder)) == NAMES


def test_result_for_programs(host, ca, account):
    host.settings(cronperiod="weekly")
    result = obtain(host, ca, *BIND, "--default", "--json")
    folder = certificate(host)
    identity, leaf = os.path.basename(folder), leaf_of(folder)
    done(result)
    document = json.loads(result.stdout)
    moment = document["renewal"].pop("moment")
    due = leaf.not_valid_after - datetime.timedelta(days=30)
    assert re.fullmatch(r"[A-Z][a-z]+day " + clock(), moment)
    assert document == {
        "error": 0, "id": identity, "folder": folder, "server": ca.directory, "default": True,
        "top_issuer": "Test Root", "names": NAMES, "issuer": "Let's Encrypt",
        "not_after": leaf.not_valid_after.strftime("%Y-%m-%dT%H:%M:%SZ"), "service": "nginx/web",
        "service_folder": "/usr/kova/etc/certificate/nginx/web", "moved_from": None,
        "renewal": {"due_from": due.strftime("%Y-%m-%dT%H:%M:%SZ"),
                    "is_started": False, "starter": paths.CRON_JOB, "period": "weekly"}}


def test_default_one(host, ca, account):
    result = obtain(host, ca, "--default")
    folder = certificate(host)
    identity = os.path.basename(folder)
    done(result)
    assert result.stdout.startswith(f"{identity} is the default certificate now, in {folder}.\n")
    assert expect.read(DEFAULT) == identity + "\n"


def test_without_a_service(host, ca, account):
    result = obtain(host, ca)
    identity = os.path.basename(certificate(host))
    done(result)
    assert result.stdout.splitlines()[2] == (
        f"No service uses it yet: kova-archive bind {identity} gives it to one.")
    assert ArchiveCli.index() == {identity: {"services": []}}
    document = json.loads(obtain(host, ca, "--json").stdout)
    assert (document["service"], document["service_folder"], document["default"]) == (None, None, False)


def test_service_is_moved_from_the_certificate_that_had_it(host, ca, account):
    cli = ArchiveCli(host)
    cli.reloads.script()
    cli.certificate("old")
    done(cli.bind("old"))
    result = obtain(host, ca, *BIND)
    done(result)
    identity, = set(cli.index()) - {"old"}
    assert result.stdout.splitlines()[2] == (
        "nginx/web uses it, from /usr/kova/etc/certificate/nginx/web, in the place of old.")
    assert (cli.services("old"), cli.services(identity)) == ([], ["nginx/web"])
    assert deployed(f"{paths.ARCHIVE}/{identity}") == ca.certificates[-1].serial_number
    assert cli.reloads.lines == ["nginx web", "nginx web"]
    assert json.loads(obtain(host, ca, *BIND, "--json").stdout)["moved_from"] == identity


@pytest.mark.parametrize("more, wanted", [
    (["-d", "b.example"], ["a.example", "b.example"]),
    (["-d", "b.example,c.example", "--domain", "d.example"],
     ["a.example", "b.example", "c.example", "d.example"]),
    (["-d", " B.example ,A.EXAMPLE,", "--domain=b.example"], ["a.example", "b.example"])])
def test_names_add_up(host, ca, account, more, wanted):
    done(obtain(host, ca, *more, names="a.example"))
    sent, = ca.payloads("newOrder")
    assert [each["value"] for each in sent["identifiers"]] == wanted
    assert record(certificate(host))["domains"] == ";".join(wanted)


def test_settings_server_is_the_default(host, ca, account):
    host.settings(server=ca.directory)
    done(obtain(host, None))
    assert record(certificate(host))["server"] == ca.directory


def test_long_options_do_as_well(host, ca, account):
    done(host.run("obtain", "--domain", "a.example", "--mail", MAIL, "--server", ca.directory,
                  program=PROGRAM))
    assert len(ca.orders) == 1


def test_wildcard_through_the_hook(host, ca, account):
    host.settings(skipdns01=None)
    host.hook("dns-txt", "exit 0\n")
    done(obtain(host, ca, names="*.a.example,a.example"))
    assert sorted(expect.certificate_names(leaf_of(certificate(host)))) == ["*.a.example", "a.example"]


@pytest.mark.parametrize("period, words", [
    ("daily", r"daily at \d\d:\d\d"), ("weekly", r"every [A-Z][a-z]+day \d\d:\d\d"),
    ("monthly", r"every month, on the 1st \d\d:\d\d")])
def test_period_of_the_job_is_told(host, ca, account, period, words):
    host.settings(cronperiod=period)
    line = obtain(host, ca).stdout.splitlines()[3]
    assert re.search(f"on: {paths.CRON_JOB} starts renew-all {words}, but nothing", line)
    assert clock() in line


def test_edited_job_is_named_without_its_moment(host, ca, account):
    host.write(paths.CRON_JOB, "7 3 * * * root /usr/kova/sbin/kova-letsencrypt renew-all\n", 0o644)
    line = obtain(host, ca).stdout.splitlines()[3]
    assert f"on: {paths.CRON_JOB} starts renew-all, but nothing" in line
    renewal = json.loads(obtain(host, ca, "--json").stdout)["renewal"]
    assert (renewal["period"], renewal["moment"]) == (None, None)


def test_job_that_a_cron_daemon_starts(host, ca, account):
    host.settings(cronperiod="daily")
    if os.path.exists("/run/crond.pid"):
        os.unlink("/run/crond.pid")
    host.spawn(["/usr/sbin/cron", "-f"], ready=lambda: os.path.exists("/run/crond.pid"))
    line = obtain(host, ca).stdout.splitlines()[3]
    assert line.endswith(f" on: {paths.CRON_JOB} starts renew-all daily at {clock()}.")
    assert json.loads(obtain(host, ca, "--json").stdout)["renewal"]["is_started"] is True


def test_timer_that_systemd_starts(host, ca, account):
    host.mount("/etc/systemd/system")
    os.makedirs("/etc/systemd/system/timers.target.wants")
    os.symlink("/nowhere", "/etc/systemd/system/timers.target.wants/kova-letsencrypt.timer")
    os.makedirs("/run/systemd/system")
    try:
        line = obtain(host, ca).stdout.splitlines()[3]
        renewal = json.loads(obtain(host, ca, "--json").stdout)["renewal"]
    finally:
        os.rmdir("/run/systemd/system")
    assert line.endswith(" on: kova-letsencrypt.timer starts renew-all.")
    del renewal["due_from"]
    assert renewal == {"is_started": True, "starter": "kova-letsencrypt.timer", "period": None,
                       "moment": None}


def test_job_that_cannot_be_put_in_place(host, ca, account):
    host.mount("/etc/cron.d", size=4096)
    with open("/etc/cron.d/filler", "wb", buffering=0) as filler:
        filler.write(b"x" * 4096)
    result = obtain(host, ca)
    assert (result.status, result.stderr) == (0, "")
    assert re.fullmatch(r"It is renewed from \d{4}-\d\d-\d\d on, but nothing on this host does so now: "
                        r"see kova-archive check --host\.", result.stdout.splitlines()[3])
    assert any("Failed to add the renewal job" in line for line in result.errors)


def test_one_that_renew_all_would_not_take(host, account_key):
    with_ca = AcmeCa(organisation="Somebody")
    try:
        result = obtain(host, with_ca)
        done(result)
        assert result.stdout.splitlines()[3] == (
            "renew-all does not renew it: it is not from Let's Encrypt, and the setting "
            "renewanyissuer is off.")
        assert json.loads(obtain(host, with_ca, "--json").stdout)["renewal"]["due_from"] is None
        host.settings(renewanyissuer=True)
        assert obtain(host, with_ca).stdout.splitlines()[3].startswith("It is renewed from ")
    finally:
        with_ca.close()


def test_nothing_in_a_certificate_steers_the_terminal(host):
    with_ca = AcmeCa(organisation="Let's Encrypt\x1b[2J")
    try:
        result = obtain(host, with_ca)
        assert "\x1b" not in result.stdout
        assert ", issued by Let's Encrypt?[2J and valid until" in result.stdout.splitlines()[1]
        assert len(result.stdout.splitlines()) == 4
    finally:
        with_ca.close()


# -- choices ---------------------------------------------------------------------------------------


@pytest.fixture
def long_ca(host):
    """Offers a profile, and another chain, which ends below "Test Intermediate 1"."""
    with_ca = AcmeCa(intermediates=2)
    with_ca.always("directory", edited_json(
        lambda body: body["meta"].update(profiles={"short": "six days", "long": "90 days"})))

    def certificate_answer(request, normal):
        reply = normal()
        if "alternate" in request.target:
            end = "-----END CERTIFICATE-----\n"
            return Reply(200, end.join(reply.content().decode().split(end)[:2]) + end, reply.headers)
        url = f"{with_ca.url}{request.target}?alternate"
        return Reply(200, reply.body, {**reply.headers, "Link": f'<{url}>;rel="alternate"'})

    with_ca.always("certificate", certificate_answer)
    yield with_ca
    with_ca.close()
    assert with_ca.violations == []


CHOICES = ("--key-type", "ec384", "--profile", "short", "--preferred-chain", "Test Intermediate 1")
OTHERS = {"keytype": "rsa3072", "profile": "long", "preferredchain": "Test Root"}


def chosen(folder, ca):
    """Key, profile of the last order, certificates of the chain."""
    return (expect.key_type(folder), ca.payloads("newOrder")[-1].get("profile"),
            expect.read(folder + "/fullchain.pem").count("BEGIN CERTIFICATE"))


@pytest.mark.parametrize("settings", [{}, OTHERS])
def test_choices_hold_for_every_kind_of_renewal(host, long_ca, settings):
    host.settings(**settings)
    done(obtain(host, long_ca, *CHOICES))
    folder = certificate(host)
    identity = os.path.basename(folder)
    kept = record(folder)
    assert {name: kept[name] for name in ("key_type", "profile", "preferred_chain")} == {
        "key_type": "ec384", "profile": "short", "preferred_chain": "Test Intermediate 1"}
    assert chosen(folder, long_ca) == ("ec384", "short", 2)
    numbers = {serial(folder + "/cert.pem")}
    host.settings(renew_before_expire_days=3650)
    for words, program in (["renew", "-c", identity], paths.PROGRAM), (["renew-all"], paths.PROGRAM), (
            ["renew", identity], PROGRAM):
        assert host.run(*words, program=program).status == 0
        assert chosen(folder, long_ca) == ("ec384", "short", 2)
        assert record(folder) == kept
        numbers.add(serial(folder + "/cert.pem"))
    assert len(numbers) == 4


def test_chain_that_the_ca_does_not_have_is_told(host, long_ca):
    result = obtain(host, long_ca, "--preferred-chain", "Else\u00fc")
    done(result)
    assert result.stdout.splitlines()[1].endswith(
        " days left). Its chain ends at Test Root: the CA offers none that ends at Else\u00fc.")
    assert json.loads(obtain(host, long_ca, "--preferred-chain", "Test Intermediate 1",
                             "--json").stdout)["top_issuer"] == "Test Intermediate 1"


@pytest.mark.parametrize("profiles, said", [
    ({"short": "six days", "l\x1bng": 1}, r", only l\x1bng, short"), ({}, ""), (None, ""), ([1], "")])
def test_profile_that_the_ca_does_not_have_is_refused(host, ca, profiles, said):
    ca.always("directory", edited_json(lambda body: body["meta"].update(profiles=profiles)))
    result = obtain(host, ca, "--profile", "other", "--json")
    assert result.status == 1 and ca.trace == ["directory"]
    assert result.document["detail"] == f"The CA has no profile [other]{said}"
    assert result.stderr.endswith("[102]. Choose one that the authority offers, or none.\n")
    nothing_left(host)


def test_renewal_goes_without_a_profile_that_is_gone(host, long_ca):
    done(obtain(host, long_ca, "--profile", "short"))
    folder = certificate(host)
    long_ca.always("directory", None)
    result = host.run("renew", os.path.basename(folder), "--force", program=PROGRAM)
    done(result)
    assert chosen(folder, long_ca)[1] is None and record(folder)["profile"] == "short"
    assert "client_v2:# The CA has no profile [short]." in result.errors


def test_without_choices_the_settings_hold_and_nothing_is_kept(host, long_ca):
    host.settings(**OTHERS)
    done(obtain(host, long_ca))
    folder = certificate(host)
    assert set(record(folder)) == {"account", "domains", "server", "version"}
    assert chosen(folder, long_ca) == ("rsa3072", "long", 3)
    host.settings(keytype=None, profile=None, preferredchain=None)
    host.run("renew", os.path.basename(folder), "--force", program=PROGRAM)
    assert chosen(folder, long_ca) == ("rsa2048", None, 3)


@pytest.mark.parametrize("member, wrong", [("key_type", 7), ("profile", ["short"]),
                                           ("preferred_chain", {"a": 1})])
def test_choice_of_a_wrong_type_is_none(host, long_ca, member, wrong):
    host.settings(**OTHERS)
    done(obtain(host, long_ca, *CHOICES))
    folder = certificate(host)
    text = json.dumps({**record(folder), member: wrong})
    os.unlink(folder + "/renew.json")
    host.write(folder + "/renew.json", text, 0o400)
    done(host.run("renew", os.path.basename(folder), "--force", program=PROGRAM))
    expected = {"key_type": ("rsa3072", "short", 2), "profile": ("ec384", "long", 2),
                "preferred_chain": ("ec384", "short", 3)}[member]
    assert chosen(folder, long_ca) == expected
    assert member not in record(folder)


# -- on a terminal, and disturbed ------------------------------------------------------------------


def test_progress_is_a_line_on_a_terminal(host, ca):
    result = obtain(host, ca, *BIND, tty=True)
    assert result.status == 0 and len(result.stdout.splitlines()) == 4
    shown = result.stderr.split("\r\x1b[K")[1:]
    assert "\n" not in result.stderr and shown[-1] == ""
    wanted = ["contacting", "registering", "placing the order", "www.host.example: setting up http-01",
              "generating", "storing", "entering", "handing it to nginx/web"]
    found = [word for text in shown for word in wanted if word in text]
    assert list(dict.fromkeys(found)) == wanted


def test_off_a_terminal_there_is_nothing_but_the_result(host, ca):
    ca.states_before_valid = ["pending"] * 2
    result = obtain(host, ca)
    assert (result.stderr, len(result.stdout.splitlines())) == ("", 4)


@pytest.mark.parametrize("number", SIGNALS)
def test_signal_takes_the_token_back(host, ca, account, number):
    seen = []
    while_validating(ca, telling(number, lambda: seen.append(len(os.listdir(paths.TOKENS))),
                                 program=PROGRAM))
    ended(obtain(host, ca, *BIND), number, "kova-archive")
    assert seen == [1]
    nothing_left(host)


def test_certificate_that_was_issued_is_entered_in_spite_of_a_signal(host, ca, account):
    """The signal comes while somebody else holds the index."""
    def interfere():
        while not glob.glob(paths.ARCHIVE + "/*/renew.json"):
            time.sleep(0.01)
        while glob.glob(paths.ARCHIVE + "/.*.unfinished"):
            time.sleep(0.01)
        asked.append(asks_for_lock(LOCK, PROGRAM))
        tell(signal.SIGINT, PROGRAM)
        time.sleep(0.3)
        fcntl.flock(lock, fcntl.LOCK_UN)

    asked = []
    with open(LOCK, "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        thread = threading.Thread(target=interfere)
        thread.start()
        result = obtain(host, ca, *BIND, env={"LD_PRELOAD": ""})  # its waits are real
        thread.join()
    assert asked == [True]
    ended(result, signal.SIGINT, "kova-archive")
    assert ArchiveCli.index() == {os.path.basename(certificate(host)): {"services": []}}


def test_job_that_was_removed_before_the_certificate_is_entered_is_there_again(host, ca, account):
    """As by a revocation beside it, which finds no certificate in the index any more."""
    def interfere():
        while not os.path.exists(paths.CRON_JOB):
            time.sleep(0.01)
        os.unlink(paths.CRON_JOB)
        removed.append(not os.path.exists(paths.ARCHIVE + "/INFO"))
        fcntl.flock(lock, fcntl.LOCK_UN)

    removed = []
    with open(LOCK, "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        thread = threading.Thread(target=interfere)
        thread.start()
        result = obtain(host, ca, env={"LD_PRELOAD": ""})  # its waits are real
        thread.join()
    done(result)
    assert removed == [True]
    assert JOB.match(expect.read(paths.CRON_JOB))


def test_signal_on_a_terminal_wipes_the_line(host, ca, account):
    while_validating(ca, telling(signal.SIGINT, program=PROGRAM))
    result = obtain(host, ca, tty=True)
    assert result.status == -signal.SIGINT and result.stderr.endswith("\r\x1b[K")
