"""Keys and certificates: never readable by others, never cut, never left half written.

The preload kills the program in the middle of a write and tells what the file was like at that very
moment.
"""

import json
import os
import signal
import stat

import pytest
from lib import expect, paths
from lib.http_script import Reply
from lib.issuer import pem

NAME = "www.host.example"


def everything_below(folder):
    found = []
    for parent, folders, files in os.walk(folder):
        found += [os.path.join(parent, name) for name in folders + files]
    return found


def assert_private(*roots):
    for root in roots:
        for path in [root, *everything_below(root)]:
            assert stat.S_IMODE(os.lstat(path).st_mode) & 0o077 == 0, path


TORN = "/run/torn-write"


def torn_at(size):
    return {"KOVA_TORN_WRITE": str(size), "KOVA_TORN_REPORT": TORN}


def torn_file():
    """Mode, number of names and content of the file that was being written."""
    head, _, content = open(TORN, "rb").read().partition(b"\n")
    mode, links = head.split()
    return int(mode, 8), int(links), content


@pytest.mark.parametrize("umask", [0, 0o022, 0o777])
def test_modes_of_a_whole_run(host, ca, umask):
    folder = expect.issued(host.new_cert(ca.directory, [NAME], umask=umask))
    assert expect.mode(folder) == 0o700
    [account] = host.accounts()
    for name in ("info.json", "private_key.json"):
        assert expect.mode(f"{account}/{name}") == 0o600
    assert_private(folder, paths.ACCOUNTS)


@pytest.mark.parametrize("umask", [0, 0o777])
def test_account_key_is_private_while_it_is_written(host, ca, umask):
    # The store is there, so that nothing but the files of the account is written.
    os.makedirs(paths.ACCOUNTS, 0o700)
    result = host.new_cert(ca.directory, [NAME], umask=umask, env=torn_at(700))
    assert result.status == -signal.SIGKILL
    mode, names, content = torn_file()
    assert (mode, names) == (0o600, 0)  # no name: the half file is gone with the program
    assert b'"d" : "' in content
    assert_private(*host.accounts())
    assert not any(b'"d" : "' in open(path, "rb").read()
                   for path in everything_below(paths.ACCOUNTS) if os.path.isfile(path))


@pytest.mark.parametrize("umask", [0, 0o777])
def test_certificate_key_is_private_while_it_is_written(host, ca, account, umask):
    # The chain is shorter than the key, so that the first longer write is that of the key.
    certificate = pem(ca.issuer.root).decode()
    host.settings(checkissued=None, skipdns01=True)
    ca.answer("certificate", Reply(200, certificate * 2))
    limit = len(certificate) * 2 + 100
    result = host.new_cert(ca.directory, [NAME], umask=umask, env=torn_at(limit))
    assert result.status == -signal.SIGKILL
    mode, links, content = torn_file()
    assert (mode, links) == (0o400, 0)  # no name: the half file is gone with the program
    assert b"PRIVATE KEY" in content
    [folder] = host.certificates()
    assert_private(folder)
    # The files are written one after the other, the key as the fourth.
    names = [name for name in paths.CERTIFICATE_FILES if os.path.exists(f"{folder}/{name}")]
    assert names == paths.CERTIFICATE_FILES[:3]
    assert {expect.mode(f"{folder}/{name}") for name in names} == {0o400}


def test_file_size_limit_is_a_failed_write_and_leaves_nothing_behind(host, ca, account):
    host.settings(orderattempts=1, skipdns01=True)
    result = host.new_cert(ca.directory, [NAME], limits={"FSIZE": 1024})
    expect.gave_up(result, 202, "Failed to save pems", attempts=1)
    assert host.certificates() == []


# -- a full disk --------------------------------------------------------------------------------


@pytest.mark.parametrize("free", range(0, 7))
def test_archive_on_a_full_disk(host, ca, account, free):
    host.settings(orderattempts=1, skipdns01=True)
    fill(host, paths.ARCHIVE, free)
    result = host.new_cert(ca.directory, [NAME])
    if free >= len(paths.CERTIFICATE_FILES):  # each of them takes one page
        expect.issued(result, [NAME])
        return
    expect.gave_up(result, 202)
    assert expect.retries(result)[0] in (
        expect.retry_line(202, "Failed to save pems"),
        expect.retry_line(202, "Failed to create folder for account item."))
    assert os.listdir(paths.ARCHIVE) == ["filler"]


def fill(host, folder, free):
    """A disk of its own for the folder, with so many pages left."""
    host.mount(folder, mode=0o700, size=64 * 4096)
    host.write(folder + "/filler", b"x" * 4096 * (64 - free))


def test_files_of_a_renewed_folder_go_when_the_disk_is_full(host, ca, account):
    # Without stagedupdate the folder's five files are replaced one by one; a failure removes all of
    # them, which its callers know, and keeps what is not theirs.
    host.settings(orderattempts=1, skipdns01=True, stagedupdate=None)
    host.mount(paths.ARCHIVE, mode=0o700, size=64 * 4096)
    folder = paths.ARCHIVE + "/AbC123"
    for name in paths.CERTIFICATE_FILES:
        host.write(f"{folder}/{name}", "old")
    host.write(folder + "/mine", b"x" * 4096 * (64 - 5))
    result = host.new_cert(ca.directory, [NAME], "-c", "AbC123")
    expect.gave_up(result, 202, "Failed to save pems", attempts=1)
    assert os.listdir(folder) == ["mine"]


@pytest.mark.parametrize("free", range(0, 3))
def test_account_store_on_a_full_disk(host, ca, free):
    fill(host, paths.ACCOUNTS, free)
    result = host.new_cert(ca.directory, [NAME])
    if free == 2:
        expect.issued(result)
        return
    assert result.status == 202
    assert result.document["file"] in ("utils", "client_v2")
    message = result.document["msg"]
    assert message == "Failed to create folder for account item." or (
        message.startswith(f"Failed to write {paths.ACCOUNTS}/")
        and message.endswith(": No space left on device"))
    # Nothing that a later run could take for an account, and no part of the key.
    assert [p for p in everything_below(paths.ACCOUNTS) if p.endswith(".json")] == []
    assert "newOrder" not in ca.trace


def test_run_after_a_full_disk_succeeds(host, ca):
    fill(host, paths.ACCOUNTS, 1)
    assert host.new_cert(ca.directory, [NAME]).status == 202
    os.unlink(paths.ACCOUNTS + "/filler")
    expect.issued(host.new_cert(ca.directory, [NAME]), [NAME])


# -- what reaches logs and output ---------------------------------------------------------------


def everything_said(result):
    return result.stdout + result.stderr + "".join(line.text for line in result.syslog)


def account_secrets(host):
    key = json.loads(expect.read(host.accounts()[0] + "/private_key.json"))
    return [key[name] for name in ("d", "p", "q", "dp", "dq", "qi")]


def test_private_keys_reach_no_log_below_level_2(host, ca):
    host.settings(debuglog=0)
    result = host.new_cert(ca.directory, [NAME], "-v")
    folder = expect.issued(result)
    secrets = [line for line in expect.read(folder + "/privkey.pem").splitlines() if len(line) > 40]
    secrets += account_secrets(host)
    assert len(secrets) > 20
    assert [secret for secret in secrets if secret in everything_said(result)] == []


@pytest.mark.parametrize("debuglog", [None, 0, 1])
def test_account_key_reaches_no_log_at_all(host, ca, debuglog):
    host.settings(debuglog=debuglog)
    result = host.new_cert(ca.directory, [NAME], "-vv")
    assert result.status == 0
    details = [result.stdout, "".join(line.text for line in result.syslog)][debuglog == 1]
    assert "Post value: " in details
    assert [secret for secret in account_secrets(host) if secret in everything_said(result)] == []


def test_no_temporary_file_is_left(host, ca, tmp_path):
    folders = ["/run", "/var/tmp", "/dev/shm"]
    before = [sorted(os.listdir(folder)) for folder in folders]
    empty = tmp_path / "empty"
    empty.mkdir()
    expect.issued(host.new_cert(ca.directory, [NAME], cwd=empty))
    assert [sorted(os.listdir(folder)) for folder in folders] == before
    assert os.listdir(empty) == []
    assert [path for path in everything_below("/usr/kova/etc")
            if os.path.isfile(path) and os.path.basename(path) not in (
                *paths.CERTIFICATE_FILES, "info.json", "private_key.json", "device.json")] == []
