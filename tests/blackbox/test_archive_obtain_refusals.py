"""kova-archive obtain: what is refused before a CA is asked, what fails there, and what is left."""

import fcntl
import json
import os
import socket
import threading

import pytest
from lib import expect, paths
from lib.archive_cli import INDEX, LOCK, PROGRAM, ArchiveCli, done, failed, refused
from lib.http_script import Reply
from lib.obtain import BIND, MAIL, NAMES, certificate, nothing_left, obtain
from lib.renewal import service
from lib.signed_server import problem

TYPES = "rsa2048, rsa3072, rsa4096, ec256, ec384"


@pytest.fixture(autouse=True)
def http_alone(host):
    host.settings(skipdns01=True, orderattempts=1)


def untouched(host, ca):
    """Nobody was asked, and nothing was put anywhere."""
    assert ca.requests == []
    assert host.accounts() == []
    nothing_left(host)


# -- usage -----------------------------------------------------------------------------------------


@pytest.mark.parametrize("more, message", [
    (["--staging"], "--server and --staging exclude each other"),
    (["--key-type", "rsa1024"], f"there is no key type [rsa1024], only {TYPES}"),
    (["--key-type", ""], f"there is no key type [], only {TYPES}"),
    (["--key-type", "EC256"], f"there is no key type [EC256], only {TYPES}"),
    (["--owner", "root"], "--owner is for --bind"),
    (["--display-name", "x"], "--display-name is for --bind"),
    (["--bind", "nginx/web"], "--bind needs --owner"),
    (["--bind", "nginx/web", "--owner", "root"], "--bind needs --display-name"),
    (["--bind", "nginx", "--owner", "root", "--display-name", "x"],
     "--bind takes SUBSCRIBER/SERVICE, not [nginx]"),
    (["--package"], "unknown option --package"),
    (["-c", "abc"], "unknown option -c"),
    (["extra"], "too many arguments"),
    (["--profile"], "missing value of --profile")])
def test_usage_errors(host, ca, more, message):
    refused(obtain(host, ca, *more), message, "obtain")
    untouched(host, ca)


@pytest.mark.parametrize("words, message", [
    ([], "missing --domain NAME[,NAME...]"), (["-d", "a.example"], "missing --mail MAIL"),
    (["-m", MAIL], "missing --domain NAME[,NAME...]"), (["-d"], "missing value of -d")])
def test_names_and_mail_are_required(host, words, message):
    refused(host.run("obtain", *words, program=PROGRAM), message, "obtain")


# -- what is refused before the CA is asked --------------------------------------------------------

ODD = "it holds a character that no host name has"
PART = "it has an empty part between two dots, or at an end"
DASH = 'a part of it begins or ends with "-"'
STAR = 'a "*" stands alone at the beginning, before a dot'


@pytest.mark.parametrize("name, why", [
    ("a b.example", ODD), ("a_b.example", ODD), ("https://a.example", ODD), ("a.example:443", ODD),
    ("a\x1b[2J.example", ODD), ("b\u00fccher.example", "it is to be given in its ASCII form (xn--...)"),
    ("a.example;b.example", "names are separated by commas"), ("a..example", PART), (".a", PART),
    ("a.example.", PART), ("*.", PART), ("-a.example", DASH), ("a-.example", DASH),
    ("*", STAR), ("*a.example", STAR), ("a.*.example", STAR), ("*.*.example", STAR),
    ("x" * 64 + ".example", "a part of it has more than 63 characters"),
    (".".join(["x" * 50] * 5), "it has more than 253 characters"),
    ("192.0.2.1", "it is an address, and certificates are for names"),
    ("2001:db8::1", "it is an address, and certificates are for names")])
def test_names_that_are_none(host, ca, name, why):
    for names in (name, "a.example," + name):
        result = obtain(host, ca, names=names)
        shown = name.replace("\x1b", "?")
        failed(result, f"obtain: [{shown}] is no host name: {why}")
    untouched(host, ca)


@pytest.mark.parametrize("names", ["", ",", " , ,"])
def test_no_name_at_all(host, ca, names):
    failed(obtain(host, ca, names=names), "obtain: no host name is given")
    untouched(host, ca)


def test_first_name_has_to_fit_into_the_subject(host, ca, account):
    long = "x" * 57 + ".example"  # 65 characters
    failed(obtain(host, ca, names=[long, "a.example"]),
           "obtain: the first name has more than 64 characters, for which a certificate's subject "
           "has no room: name a shorter one first")
    assert ca.requests == []
    done(obtain(host, ca, names=["a.example", long]))


@pytest.mark.parametrize("mail, why", [
    ("", "it is not of the form NAME@HOST"), ("admin", "it is not of the form NAME@HOST"),
    ("@a.example", "it is not of the form NAME@HOST"),
    ("mailto:a@a.example", "its first part holds a character that is not taken"),
    ("a b@a.example", "its first part holds a character that is not taken"),
    ("a@b@a.example", "its first part holds a character that is not taken"),
    ("a@", "its host is none: " + PART), ("a@b c", "its host is none: " + ODD),
    ("a@192.0.2.1", "its host is none: it is an address, and certificates are for names"),
    ("a@*.example", "its host is none"), ("a@b.example,c@d.example",
                                          "its first part holds a character that is not taken")])
def test_mail_that_is_none(host, ca, mail, why):
    failed(obtain(host, ca, mail=mail), f"obtain: [{mail}] is no e-mail address: {why}")
    untouched(host, ca)


@pytest.mark.parametrize("url, why", [
    ("acme.example", "it does not begin with https:// and a host"),
    ("https://", "it does not begin with https:// and a host"),
    ("file:///etc/passwd", "it does not begin with https:// and a host"),
    ("https://a b", "it holds a blank, a control character or one that is not ASCII")])
def test_server_that_is_none(host, ca, url, why):
    failed(host.run("obtain", "-d", "a.example", "-m", MAIL, "--server", url, program=PROGRAM),
           f"obtain: [{url}] is no directory URL: {why}")
    untouched(host, ca)


def test_staging_of_a_ca_that_has_none_is_refused(host, ca):
    host.settings(server=ca.directory)
    failed(obtain(host, None, "--staging"), f"obtain: no staging directory of [{ca.directory}] is "
                                            "known: name it with --server")
    untouched(host, ca)


@pytest.mark.parametrize("more, message", [
    (["--profile", ""], "the profile is empty"),
    (["--profile", "a\tb"],
     "the profile [a?b] holds a control character or bytes that are no UTF-8"),
    (["--preferred-chain", ""], "the preferred chain is empty"),
    (["--preferred-chain", b"\xff"],
     "the preferred chain [?] holds a control character or bytes that are no UTF-8"),
    (["--desc", "a\nb"], "the description holds a control character or bytes that are no UTF-8")])
def test_texts_that_cannot_be_kept(host, ca, more, message):
    more = [os.fsdecode(word) if isinstance(word, bytes) else word for word in more]
    failed(obtain(host, ca, *more), "obtain: " + message)
    untouched(host, ca)


@pytest.mark.parametrize("title, owner, name, message", [
    ("nginx/web", "nobody-here", "x", "there is no user [nobody-here]"),
    ("nginx/web", "root", "", "the display name is empty"),
    ("/web", "root", "x", "the subscriber [] is not a plain name"),
    ("nginx/", "root", "x", "the service [] is not a plain name"),
    ("nginx/a/b", "root", "x", "the service [a/b] is not a plain name"),
    ("../web", "root", "x", "the subscriber [..] is not a plain name"),
    ("_archive/x", "root", "x", "the subscriber [_archive] is the certificate archive itself"),
    ("nginx/web.bak", "root", "x", "the service [web.bak] cannot stand beside [web]: their folders "
                                   "would destroy each other")])
def test_service_that_could_not_be_bound(host, ca, title, owner, name, message):
    cli = ArchiveCli(host)
    cli.certificate("other", service())
    failed(obtain(host, ca, "--bind", title, "--owner", owner, "--display-name", name),
           "obtain: " + message)
    assert ca.requests == [] and host.accounts() == []


def test_index_that_cannot_be_read(host, ca):
    ArchiveCli(host).write_index("[]")
    result = obtain(host, ca)
    assert (result.status, result.stdout) == (1, "")
    assert result.stderr.startswith("kova-archive: obtain: ") and INDEX in result.stderr
    untouched(host, ca)


def test_missing_index_is_made(host, ca, account):
    if os.path.exists(INDEX):
        os.unlink(INDEX)
    done(obtain(host, ca))
    assert list(ArchiveCli.index()) == [os.path.basename(certificate(host))]


def test_only_root_can_do_it(host, ca):
    failed(host.run("--reuid=65534", "--regid=65534", "--clear-groups", PROGRAM, "obtain", "-d",
                    "a.example", "-m", MAIL, "--server", ca.directory, program="/usr/bin/setpriv"),
           "obtain: only root can do this")
    untouched(host, ca)


def test_wildcard_without_a_hook(host, ca):
    result = obtain(host, ca, names="a.example,*.a.example")
    failed(result, "obtain: a.example, *.a.example: *.a.example is not Kova ddns [108]. A wildcard "
                   "needs a dns-txt hook, or a name of the vendor's dynamic DNS.")
    untouched(host, ca)


# -- which CA --------------------------------------------------------------------------------------


@pytest.fixture
def proxy():
    """Writes down what it is asked to connect to, and refuses."""
    asked = []
    with socket.create_server(("127.0.0.1", 0)) as listener:
        def serve():
            try:
                while True:
                    connection, _ = listener.accept()
                    with connection:
                        asked.append(connection.recv(4096).split(b"\r\n")[0].decode())
                        connection.sendall(b"HTTP/1.1 403 no\r\nContent-Length: 0\r\n\r\n")
            except OSError:
                return
        threading.Thread(target=serve, daemon=True).start()
        yield {"https_proxy": f"http://127.0.0.1:{listener.getsockname()[1]}"}, asked


@pytest.mark.parametrize("settings, more, wanted", [
    ({}, (), "acme-v02.api.letsencrypt.org"),
    ({}, ("--staging",), "acme-staging-v02.api.letsencrypt.org"),
    ({"server": "https://acme-staging-v02.api.letsencrypt.org/directory"}, ("--staging",),
     "acme-staging-v02.api.letsencrypt.org"),
    ({}, ("--server", "https://ca.example/dir"), "ca.example")])
def test_staging_is_the_same_ca(host, proxy, settings, more, wanted):
    host.settings(**settings)
    environment, asked = proxy
    result = obtain(host, None, *more, env=environment)
    assert asked == [f"CONNECT {wanted}:443 HTTP/1.1"]
    failed(result, "obtain: www.host.example, host.example: Server is not reachable [100]. Check the "
                   "server's URL, the network and its name servers, this host's clock and its trust "
                   "store (ca-certificates).")


# -- what the CA refuses ---------------------------------------------------------------------------


@pytest.mark.parametrize("endpoint, answer, code, name, detail", [
    ("newOrder", problem("rateLimited", "slow\tdown\x1b[2J", 429), 104, "www.host.example, host.example",
     r"slow\tdown\x1b[2J"),
    ("newOrder", problem("rejectedIdentifier", "policy forbids it", 400), 102,
     "www.host.example, host.example", "policy forbids it"),
    ("newAccount", problem("invalidContact", "no such domain", 400), 105,
     "www.host.example, host.example", "no such domain"),
    ("newAccount", problem("rateLimited", "too many", 429), 103, "www.host.example, host.example",
     "too many"),
    ("finalize", problem("badCSR", "weak key", 400), 200, "www.host.example, host.example", "weak key"),
    ("directory", Reply(200, "<html>"), 200, "www.host.example, host.example", "body is not json")])
def test_refusals_of_the_ca(host, ca, endpoint, answer, code, name, detail):
    ca.answer(endpoint, answer)
    result = obtain(host, ca, *BIND)
    assert (result.status, result.stdout) == (1, "")
    start = f"kova-archive: obtain: {name}: {detail} [{code}]. "
    assert result.stderr.startswith(start) and result.stderr.count("\n") == 1
    nothing_left(host)
    ca.answer(endpoint, answer)
    result = obtain(host, ca, *BIND, "--json")
    document = json.loads(result.stdout)
    advice = document.pop("advice")
    assert result.status == 1 and advice
    assert document == {"error": 1, "code": code, "name": name, "detail": detail,
                        "msg": f"{name}: {detail} [{code}]. {advice}"}
    assert result.stderr == f"kova-archive: obtain: {document['msg']}\n"


@pytest.mark.parametrize("kind, code, advice", [
    ("connection", 101, "Make sure that port 80"), ("dns", 109, "Check what the public DNS"),
    ("unauthorized", 110, "Make sure that /.well-known")])
def test_name_that_could_not_be_proved_is_told_alone(host, ca, account, kind, code, advice):
    verdicts = iter([None, (kind, "nothing there")])
    ca.validators["http-01"] = lambda *_: next(verdicts)
    result = obtain(host, ca)
    assert result.stderr.startswith(f"kova-archive: obtain: host.example: nothing there [{code}]. {advice}")
    nothing_left(host)


@pytest.mark.parametrize("remembers", [True, None])
def test_failure_is_one_line_in_the_log(host, ca, account, remembers):
    host.settings(renewfailures=remembers)
    ca.answer("newOrder", problem("rateLimited", "slow down", 429))
    lines = [line for line in obtain(host, ca).errors if "obtain failed" in line]
    assert lines == (["kova-letsencrypt:# obtain failed. [www.host.example, host.example][104]"
                      "[Failed to new certificate.]"] if remembers else [])


# -- what fails when the certificate is there ------------------------------------------------------


def left(host):
    folder = certificate(host)
    assert os.path.exists(paths.CRON_JOB)
    return folder, os.path.basename(folder)


def test_index_that_cannot_be_written(host, ca, account):
    """It holds bytes that a rewrite would not keep."""
    host.write(INDEX, b'{"x": {"desc": "\xff"}}', 0o600)
    result = obtain(host, ca, *BIND, "--default", "--desc", "It's mine")
    folder, identity = left(host)
    assert (result.status, result.stdout) == (1, "")
    start, rest = result.stderr.split(". To go on: ")
    assert start.startswith(f"kova-archive: obtain: the certificate is there, in {folder}, but it could "
                            "not be entered in the index: ") and INDEX in start
    assert rest == (f"kova-archive add {identity} --desc 'It'\\''s mine' && kova-archive default "
                    f"{identity} && kova-archive bind {identity} --subscriber 'nginx' --service 'web' "
                    "--owner 'root' --display-name 'Web server'\n")


def test_the_way_to_go_on_leads_there(host, ca, account):
    cli = ArchiveCli(host)
    host.write(INDEX, b'{"x": {"desc": "\xff"}}', 0o600)
    result = obtain(host, ca, *BIND, "--default", "--desc", "It's mine; $(rm)")
    _, identity = left(host)
    cli.write_index({})
    words = result.stderr.split(". To go on: ")[1]
    shell = host.run("-c", words, program="/bin/sh", env={"PATH": "/usr/kova/sbin:/usr/bin:/bin"})
    assert shell.status == 0, shell
    assert cli.services(identity) == ["nginx/web"]
    assert cli.index()[identity]["desc"] == "It's mine; $(rm)"
    assert cli.run("default").stdout == identity + "\n"


def test_default_that_cannot_be_set(host, ca, account):
    os.mkdir(paths.ARCHIVE + "/DEFAULT")
    os.mkdir(paths.ARCHIVE + "/DEFAULT/x")
    result = obtain(host, ca, "--default", *BIND)
    identity = next(iter(ArchiveCli.index()))
    folder = f"{paths.ARCHIVE}/{identity}"
    assert (result.status, result.stdout) == (1, "")
    assert result.stderr.startswith(
        f"kova-archive: obtain: the certificate is there, in {folder}, but it could not be made the "
        "default one: ")
    assert f". To go on: kova-archive default {identity} && kova-archive bind {identity} " in result.stderr


def test_service_that_cannot_be_served(host, ca, account):
    host.write("/usr/kova/etc/certificate/nginx", "a file where the folder is to be")
    result = obtain(host, ca, *BIND)
    folder, identity = left(host)
    assert (result.status, result.stdout) == (1, "")
    start, rest = result.stderr.split(". To go on: ")
    assert start.startswith(f"kova-archive: obtain: the certificate is there, in {folder}, but it could "
                            "not be given to nginx/web: nginx/web could not be served with")
    assert rest == (f"kova-archive bind {identity} --subscriber 'nginx' --service 'web' --owner 'root' "
                    "--display-name 'Web server'\n")


def test_the_rest_for_programs(host, ca, account):
    host.write("/usr/kova/etc/certificate/nginx", "a file where the folder is to be")
    result = obtain(host, ca, *BIND, "--default", "--json")
    folder, identity = left(host)
    document = json.loads(result.stdout)
    assert result.status == 1 and document.pop("msg").startswith("the certificate is there")
    assert document == {"error": 1, "id": identity, "folder": folder, "server": ca.directory,
                        "default": True, "service": None, "service_folder": None, "moved_from": None}


def test_busy_index_is_told(host, ca, account):
    """Somebody holds the lock of the index for longer than a command waits."""
    with open(LOCK, "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        result = obtain(host, ca)
    assert result.status == 1 and "but it could not be entered in the index: " in result.stderr
    left(host)
