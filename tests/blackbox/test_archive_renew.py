"""kova-archive renew: what renew-all does, to one certificate."""

import fcntl
import json
import os
import re
import signal
import threading
import time

import pytest
from cryptography import x509
from lib import expect, paths
from lib.archive_cli import PROGRAM, done, failed, refused
from lib.interruption import ended, telling, while_validating
from lib.renewal import deployed, folder_of, record, serial, service
from lib.signed_server import problem

HISTORY = "/usr/kova/etc/letsencrypt/renewal/aaa.json"
SLOW = ("certificate [aaa] is not renewed: www.host.example: slow down [104]. Wait as long as the "
        "authority asks, and use its staging directory for trials.")


def renew(host, *more, identity="aaa", **options):
    return host.run("renew", identity, *more, program=PROGRAM, **options)


def end_of(folder):
    leaf = x509.load_pem_x509_certificate(expect.read(folder + "/cert.pem").encode())
    return leaf.not_valid_after.strftime("%Y-%m-%d"), leaf.not_valid_after.strftime(
        "%Y-%m-%dT%H:%M:%SZ")


def test_due_one_is_renewed_and_reaches_its_services(host, ca, account, archive, reloads):
    folder = archive.add("aaa", service(), record=record(ca.directory, account))
    other = archive.add("bbb", service("nginx", "b"), record=record(ca.directory, account))
    before = expect.tree(other)
    result = renew(host)
    day, _ = end_of(folder)
    done(result)
    first, second = result.stdout.splitlines()
    assert first.startswith(f"aaa is renewed: it is for www.host.example, and valid until {day} (")
    assert second == "nginx/web has its files."
    assert deployed(folder) == ca.certificates[-1].serial_number
    assert reloads.lines == ["nginx web"]
    assert expect.tree(other) == before and len(ca.orders) == 1
    assert os.listdir(folder) and not os.path.exists(folder + "/noted_move")


def test_one_that_was_self_signed_is_so_no_longer(host, ca, account, archive, reloads):
    """Also where other files of the default set stay."""
    def flags():
        listed = host.run("list", "--json", program=PROGRAM)
        return json.loads(listed.stdout)["certificates"][0]["flags"]

    folder = archive.add("aaa", service(), record=record(ca.directory, account))
    done(host.run("self-signed", folder, program=PROGRAM))
    assert flags() == ["acme", "self-signed"]
    done(renew(host, "--force"))
    assert os.path.exists(folder + "/is_default_cert")
    assert flags() == ["acme"]


def test_result_for_programs(host, ca, account, archive, reloads):
    folder = archive.add("aaa", service(), record=record(ca.directory, account))
    result = renew(host, "--json", identity=folder)  # as new-cert prints it
    done(result)
    assert json.loads(result.stdout) == {
        "error": 0, "id": "aaa", "result": "renewed", "names": ["www.host.example"],
        "not_after": end_of(folder)[1], "services": ["nginx/web"]}


def test_one_that_is_not_due_is_left_alone(host, ca, account, archive, reloads):
    folder = archive.add("aaa", service(), days=60, record=record(ca.directory, account))
    before = expect.tree(folder)
    result = renew(host)
    done(result)
    assert re.fullmatch(rf"aaa is not due: it is valid until {end_of(folder)[0]} \((59|60) days left\)\. "
                        r"With --force it is renewed all the same\.\n", result.stdout)
    assert (ca.requests, reloads.lines, expect.tree(folder)) == ([], [], before)
    assert json.loads(renew(host, "--json").stdout)["result"] == "not-due"


def test_force_renews_what_is_not_due(host, ca, account, archive, reloads):
    folder = archive.add("aaa", service(), days=60, record=record(ca.directory, account))
    done(renew(host, "--force"))
    assert deployed(folder) == ca.certificates[-1].serial_number
    assert reloads.lines == ["nginx web"]


def test_due_by_its_lifetime(host, ca, account, archive):
    """The settings decide as they do for renew-all."""
    archive.add("aaa", days=25, record=record(ca.directory, account))
    host.settings(renewlifetime=True, renew_before_expire_days=5)
    done(renew(host))
    assert ca.orders == []
    host.settings(renew_before_expire_days=26)
    done(renew(host))
    assert len(ca.orders) == 1


def test_one_of_another_issuer(host, ca, account, archive):
    archive.add("aaa", organisation="Somebody", record=record(ca.directory, account))
    done(renew(host), "aaa is none that renew-all renews: it was not issued by Let's Encrypt, and "
                      "the setting renewanyissuer is off. With --force it is renewed all the same.\n")
    assert ca.requests == []
    host.settings(renewanyissuer=True)
    assert renew(host).stdout.startswith("aaa is renewed")


def test_certificate_without_services(host, ca, account, archive, reloads):
    archive.add("aaa", record=record(ca.directory, account))
    result = renew(host)
    done(result)
    assert result.stdout.endswith("\nNo service uses it.\n")
    assert reloads.lines == []


def test_web_frontend_is_restarted_for_the_system(host, ca, account, archive, reloads):
    archive.add("aaa", service("system", "default"), record=record(ca.directory, account))
    done(renew(host))
    assert reloads.lines == ["system default", "web-restart"]


def test_web_frontend_that_does_not_restart(host, ca, account, archive, reloads):
    archive.add("aaa", service("system", "default"), record=record(ca.directory, account))
    reloads.web_frontend(1)
    result = renew(host)
    assert (result.status, result.stderr) == (
        1, "kova-archive: renew: the web front-end could not be restarted with certificate [aaa] "
           "and goes on with the old one; see the system log\n")
    assert result.stdout.startswith("aaa is renewed")


def test_another_run_is_waited_for(host, ca, account, archive):
    folder = archive.add("aaa", record=record(ca.directory, account))
    seen = []

    def other():
        time.sleep(0.7)
        seen.append(len(ca.requests))
        fcntl.flock(lock, fcntl.LOCK_UN)

    with open("/run/kova-renew-all.lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        thread = threading.Thread(target=other)
        thread.start()
        result = renew(host, env={"LD_PRELOAD": ""})  # its waits are real
        thread.join()
    done(result)
    assert seen == [0] and serial(folder + "/cert.pem") == ca.certificates[-1].serial_number


# -- failures --------------------------------------------------------------------------------------


def test_failed_renewal_is_redeployed_all_the_same(host, ca, account, archive, reloads):
    folder = archive.add("aaa", service(), record=record(ca.directory, account))
    old = serial(folder + "/cert.pem")
    ca.answer("newOrder", problem("rateLimited", "slow down", 429))
    failed(renew(host), "renew: " + SLOW)
    assert deployed(folder) == old
    assert reloads.lines == ["nginx web"]


def test_failure_for_programs(host, ca, account, archive):
    folder = archive.add("aaa", record=record(ca.directory, account))
    ca.answer("newOrder", problem("rateLimited", "slow\x1b[2J\ndown", 429))
    result = renew(host, "--json")
    assert result.status == 1
    document = json.loads(result.stdout)
    assert document.pop("advice").startswith("Wait as long as")
    assert document.pop("msg") == SLOW.replace("slow down", r"slow\x1b[2J\ndown")
    assert document == {"error": 1, "id": "aaa", "result": "failed", "code": 104,
                        "name": "www.host.example", "detail": r"slow\x1b[2J\ndown",
                        "names": ["www.host.example"], "not_after": end_of(folder)[1],
                        "services": []}


def test_name_that_could_not_be_proved_is_told(host, ca, account, archive):
    archive.add("aaa", record=record(ca.directory, account, "a.example;b.example"))
    host.settings(skipdns01=True)
    refusals = iter([None, ("connection", "nobody there")])
    ca.validators["http-01"] = lambda *_: next(refusals)
    result = renew(host)
    assert result.stderr.startswith("kova-archive: renew: certificate [aaa] is not renewed: "
                                    "b.example: nobody there [101]. Make sure that port 80")


def test_history_is_kept_and_holds_it_back(host, ca, account, archive):
    host.settings(renewfailures=True)
    archive.add("aaa", days=25, record=record(ca.directory, account))
    ca.always("newOrder", problem("rateLimited", "slow down", 429))
    for _ in range(3):
        failed(renew(host), "renew: " + SLOW)
    history = json.loads(expect.read(HISTORY))
    assert (history["failures"], history["error"]) == (3, 104)
    orders = ca.trace.count("newOrder")
    failed(renew(host), "renew: certificate [aaa] is due, but failed 3 times in a row, the last time "
           f"at {history['last_attempt']}, and is tried once a day; --force tries it now")
    assert json.loads(renew(host, "--json").stdout)["result"] == "held-back"
    assert ca.trace.count("newOrder") == orders
    ca.always("newOrder", None)
    assert renew(host, "--force").stdout.startswith("aaa is renewed")
    assert json.loads(expect.read(HISTORY))["failures"] == 0


def test_failed_deployment(host, ca, account, archive, reloads):
    folder = archive.add("aaa", service(owner="nobody-here"), record=record(ca.directory, account))
    result = renew(host)
    assert (result.status, result.stdout) == (1, "")
    assert result.stderr.startswith(
        "kova-archive: renew: certificate [aaa] is renewed, but not handed on: nginx/web: ")
    assert "[201]. See the system log" in result.stderr and result.stderr.count("\n") == 1
    assert serial(folder + "/cert.pem") == ca.certificates[-1].serial_number
    assert os.path.exists(folder + "/noted_move")  # the next run of renew-all tries again


def test_what_an_earlier_run_left_is_handed_on(host, ca, account, archive, reloads):
    folder = archive.add("aaa", service(owner="nobody-here"), record=record(ca.directory, account))
    renew(host)
    archive.enter("aaa", {"services": [service()]})
    result = renew(host)
    done(result)
    assert result.stdout.startswith("aaa is not due")
    assert result.stdout.endswith("An earlier renewal is handed on: nginx/web has its files.\n")
    assert deployed(folder) == ca.certificates[-1].serial_number and len(ca.orders) == 1


@pytest.mark.parametrize("content, why", [
    (None, "it has no renewal record"), ("{", "its renewal record is no JSON object"),
    ("{}", "its renewal record is not complete"),
    (record("http://127.0.0.1:9", "/x", version="2"), "its renewal record is of an unknown version"),
    (record("http://127.0.0.1:9", "/x", ""), "its renewal record names no host")])
def test_record_that_cannot_be_used(host, archive, reloads, content, why):
    folder = archive.add("aaa", service(), record=content)
    for more in ((), ("--force",)):
        failed(renew(host, *more),
               f"renew: certificate [aaa] cannot be renewed: {why} [{folder}/renew.json]")
    assert reloads.lines == []


@pytest.mark.parametrize("identity, message", [
    ("nope", f"[{paths.ARCHIVE}/nope] is not a folder of the archive"),
    ("../x", "the id [../x] is not a plain name"), ("", "the id [] is not a plain name"),
    ("out", "certificate [out] is not in the index")])
def test_wrong_ids(host, archive, identity, message):
    archive.add("aaa")
    os.makedirs(folder_of("out"))
    failed(renew(host, identity=identity), "renew: " + message)


def test_usage(host):
    refused(host.run("renew", program=PROGRAM), "missing ID", "renew")
    refused(renew(host, "--soon"), "unknown option --soon", "renew")


def test_without_root_nothing_is_begun(host, ca, account, archive):
    archive.add("aaa", record=record(ca.directory, account))
    result = host.run("--reuid=65534", "--regid=65534", "--clear-groups", PROGRAM, "renew", "aaa",
                      program="/usr/bin/setpriv")
    failed(result, "renew: only root can do this")
    assert ca.requests == []


# -- disturbed -------------------------------------------------------------------------------------


def test_progress_is_a_line_on_a_terminal(host, ca, account, archive):
    archive.add("aaa", record=record(ca.directory, account))
    result = renew(host, tty=True)
    assert result.status == 0 and result.stdout.startswith("aaa is renewed")
    shown = result.stderr.split("\r\x1b[K")[1:]
    assert "\n" not in result.stderr and shown[-1] == ""
    assert any("placing the order" in text for text in shown)


def test_signal_takes_the_token_back(host, ca, account, archive):
    archive.add("aaa", record=record(ca.directory, account))
    host.settings(skipdns01=True)
    seen = []
    while_validating(ca, telling(signal.SIGINT, lambda: seen.append(os.listdir(paths.TOKENS)),
                                 program=PROGRAM))
    before = expect.tree(paths.ARCHIVE)
    ended(renew(host), signal.SIGINT, "kova-archive")
    assert len(seen[0]) == 1 and os.listdir(paths.TOKENS) == []
    assert expect.tree(paths.ARCHIVE) == before


def test_kept_choices_hold(host, ca, account, archive):
    for keytype in (None, "rsa3072"):
        host.settings(keytype=keytype)
        folder = archive.add("aaa", record={**record(ca.directory, account), "key_type": "ec384"})
        done(renew(host, "--force"))
        assert expect.key_type(folder) == "ec384"
        assert json.loads(expect.read(folder + "/renew.json"))["key_type"] == "ec384"
        os.unlink(folder + "/renew.json")
