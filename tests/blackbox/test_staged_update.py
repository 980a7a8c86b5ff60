"""new-cert with an id: the certificate's old set stays until the new one is whole."""

import json
import os

import pytest
from lib import expect, paths
from lib.http_script import Reply
from lib.issuer import Issuer
from lib.renewal import NAME, Archive, folder_of, put_certificate, quiet, record, serial

ID = "AbC123"
FOLDER = folder_of(ID)
FRESH = folder_of("FrEsH1")
NOTE = FOLDER + "/noted_move"
NOT_SAVED = (202, "Failed to save pems", "kova-letsencrypt")
FILES = ["cert.pem", "chain.pem", "fullchain.pem", "privkey.pem", "renew.json"]


@pytest.fixture
def old(host, ca, account):
    """A whole set that is in use. Its value is its content."""
    Archive(host).add(ID, record=record(ca.directory, account), days=80)
    return expect.tree(FOLDER)


def obtain(host, ca, *more):
    return host.new_cert(ca.directory, [NAME], "-c", ID, *more)


def as_it_was(host, old):
    """The old set and nothing beside it, in its folder and in the archive."""
    assert expect.tree(FOLDER) == old
    assert sorted(os.listdir(paths.ARCHIVE)) == [ID, "INFO"]


def half_moved(host):
    """A renewal that was killed after two of its files, as it leaves the disk."""
    put_certificate(host, FRESH, Issuer("Let's Encrypt"), days=90)
    host.write(FRESH + "/renew.json", "{}", 0o400)
    host.write(NOTE, json.dumps({"files": FILES, "from": FRESH, "to": ID,
                                 "inode": str(os.stat(FRESH).st_ino)}), 0o600)
    for name in FILES[:2]:
        os.rename(f"{FRESH}/{name}", f"{FOLDER}/{name}")


def test_new_set_takes_the_place_of_the_old_one(host, ca, account, old):
    host.write(FOLDER + "/extra", "mine")
    result = obtain(host, ca)
    assert result.document == {"error": 0, "cert_path": FOLDER}
    assert (result.status, result.stderr, result.errors) == (0, "", [])
    assert expect.read(FOLDER + "/extra") == "mine"
    os.unlink(FOLDER + "/extra")
    expect.certificate_folder(FOLDER, [NAME])
    assert serial(FOLDER + "/cert.pem") == ca.certificates[-1].serial_number
    assert sorted(os.listdir(paths.ARCHIVE)) == [ID, "INFO"]
    assert os.path.exists(paths.CRON_JOB)


def test_requests_and_waits_are_those_without_the_setting(host, ca, account, old):
    def seen(value):
        host.settings(stagedupdate=value, skipdns01=True)
        before = len(ca.trace)
        result = obtain(host, ca)
        assert result.status == 0
        return ca.trace[before:], result.sleeps, result.stdout, result.errors

    assert seen(True) == seen(None)


def test_chain_of_one_certificate_leaves_the_old_set(host, ca, account, once, old):
    ca.issuer.intermediates.clear()
    expect.gave_up(obtain(host, ca), 202, "Failed to save pems", attempts=1)
    as_it_was(host, old)


@pytest.mark.parametrize("room", range(4))
def test_full_disk_leaves_the_old_set(host, ca, account, once, room):
    host.mount(paths.ARCHIVE, 0o700, size=4096 * (7 + room))
    Archive(host).add(ID, record=record(ca.directory, account), days=80)
    old = expect.tree(FOLDER)
    with open(paths.ARCHIVE + "/INFO", encoding="ascii") as index:
        entered = index.read()
    full = os.statvfs(paths.ARCHIVE)
    assert full.f_bavail == room + 1
    expect.gave_up(obtain(host, ca), 202, "Failed to save pems", attempts=1)
    as_it_was(host, old)
    assert expect.read(paths.ARCHIVE + "/INFO") == entered


def test_first_file_that_cannot_be_moved_leaves_the_old_set(host, ca, account, once, old):
    os.unlink(FOLDER + "/cert.pem")
    host.write(FOLDER + "/cert.pem/in-the-way", "x")
    before = expect.tree(FOLDER)
    result = obtain(host, ca)
    expect.failed(result, *NOT_SAVED)
    [line] = [text for text in result.errors if "Rename file failed." in text]
    assert line.startswith(f"kova-letsencrypt:# Rename file failed. {paths.ARCHIVE}/")
    assert line.endswith(f"/cert.pem => {FOLDER}/cert.pem [21]")
    assert expect.tree(FOLDER) == before
    assert sorted(os.listdir(paths.ARCHIVE)) == [ID, "INFO"]


def test_rest_of_a_move_is_made_up_by_the_next_command(host, ca, account, once, old):
    os.unlink(FOLDER + "/chain.pem")
    host.write(FOLDER + "/chain.pem/in-the-way", "x")
    expect.failed(obtain(host, ca), *NOT_SAVED)
    assert os.path.exists(NOTE)
    os.unlink(FOLDER + "/chain.pem/in-the-way")
    os.rmdir(FOLDER + "/chain.pem")
    host.settings(renewanyissuer=True)
    quiet(host.run("renew-all"))
    expect.certificate_folder(FOLDER, [NAME])
    assert serial(FOLDER + "/cert.pem") == ca.certificates[-1].serial_number
    assert len(ca.certificates) == 1
    assert sorted(os.listdir(paths.ARCHIVE)) == [ID, "INFO"]


@pytest.mark.parametrize("value", [True, None])
def test_rest_of_an_earlier_move_does_not_come_over_the_new_set(host, ca, account, old, value):
    host.settings(stagedupdate=value)
    half_moved(host)
    assert obtain(host, ca).status == 0
    host.run("renew-all")
    assert serial(FOLDER + "/cert.pem") == ca.certificates[-1].serial_number
    expect.certificate_folder(FOLDER, [NAME])
    assert not os.path.exists(FRESH)


@pytest.mark.parametrize("version", ["1", "2"])
@pytest.mark.parametrize("place", ["nothing", "file"])
def test_folder_that_does_not_exist_fails_before_the_authority_is_asked(host, ca, account, version,
                                                                      place):
    if place == "file":
        host.write(FOLDER, "no folder")
    result = obtain(host, ca, "-p", version)
    expect.failed(result, *NOT_SAVED)
    assert result.errors[0] == f"kova-letsencrypt:# Folder not exist. [{FOLDER}]"
    assert ca.requests == []


def test_wrong_version_is_told_first(host, ca, account):
    expect.failed(obtain(host, ca, "-p", "3"), 202, "Incorrect version specify [3]",
                  "kova-letsencrypt")


def test_folder_below_another_one(host, ca, account):
    """An id that is more than a name has neither lock nor note."""
    folder = paths.ARCHIVE + "/site/one"
    put_certificate(host, folder, ca.issuer)
    result = host.new_cert(ca.directory, [NAME], "-c", "site/one")
    assert result.document == {"error": 0, "cert_path": folder}
    expect.certificate_folder(folder, [NAME])
    assert os.listdir(paths.ARCHIVE) == ["site"]


@pytest.mark.parametrize("value", [None, False, 1, "true", [True]])
def test_without_the_setting_the_files_are_written_in_place(host, ca, account, old, value):
    host.settings(stagedupdate=value, orderattempts=1, skipdns01=True)
    inode = os.stat(FOLDER).st_ino
    assert obtain(host, ca).status == 0
    expect.certificate_folder(FOLDER, [NAME])
    assert os.stat(FOLDER).st_ino == inode
    ca.always("certificate", Reply(200, ""))
    host.settings(stagedupdate=value, orderattempts=1, skipdns01=True, checkissued=None)
    expect.gave_up(obtain(host, ca), 202, "Failed to save pems", attempts=1)
    assert not os.path.exists(FOLDER)
    expect.gave_up(obtain(host, ca), 202, "Failed to save pems", attempts=1)
    assert ca.trace.count("certificate") == 3
