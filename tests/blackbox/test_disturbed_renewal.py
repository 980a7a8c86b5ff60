"""Renewals that were cut short, and several commands at one certificate: what the next run makes of
them. A run that was killed between two files is laid out as it leaves the disk."""

import base64
import json
import os
import shutil
import threading

import pytest
from cryptography import x509
from cryptography.hazmat.primitives.serialization import load_pem_private_key
from lib import expect, paths
from lib.http_script import Reply
from lib.issuer import Issuer
from lib.renewal import (NAME, Reloads, deployed, folder_of, put_certificate, quiet, record,
                         serial, service)

ID = "AbC123"
FOLDER = folder_of(ID)
FRESH = folder_of("FrEsH1")
NOTE = FOLDER + "/noted_move"
FILES = ["cert.pem", "chain.pem", "fullchain.pem", "privkey.pem", "renew.json"]


@pytest.fixture
def reloads(host):
    reloads = Reloads(host)
    reloads.script("nginx")
    return reloads


def cut_short(host, ca, account, archive, moved, services=None):
    """A renewal that was killed after so many of its five files. Returns the serial number of the
    certificate that it had obtained."""
    archive.add(ID, *([service()] if services is None else services), record=record(ca.directory, account), days=10)
    renewed = put_certificate(host, FRESH, Issuer("Let's Encrypt"), days=90)
    host.write(FRESH + "/renew.json", json.dumps(record(ca.directory, account)), 0o400)
    host.write(NOTE, json.dumps({"files": FILES, "from": FRESH, "to": ID,
                                 "inode": str(os.stat(FRESH).st_ino)}), 0o600)
    for name in FILES[:moved]:
        os.rename(f"{FRESH}/{name}", f"{FOLDER}/{name}")
    if moved == len(FILES):
        os.rmdir(FRESH)
    return renewed


def whole(renewed):
    """The folder holds the renewed set and nothing is left of the move."""
    assert sorted(os.listdir(FOLDER)) == FILES
    assert serial(FOLDER + "/cert.pem") == serial(FOLDER + "/fullchain.pem") == renewed
    key = load_pem_private_key(expect.read(FOLDER + "/privkey.pem").encode(), None)
    leaf = x509.load_pem_x509_certificate(expect.read(FOLDER + "/cert.pem").encode())
    assert key.public_key().public_numbers() == leaf.public_key().public_numbers()
    assert not os.path.exists(FRESH)


@pytest.mark.parametrize("moved", range(6))
def test_renew_all_finishes_and_deploys_it(host, ca, account, archive, reloads, moved):
    renewed = cut_short(host, ca, account, archive, moved)
    quiet(host.run("renew-all"))
    whole(renewed)
    assert deployed(FOLDER) == renewed
    assert reloads.lines == ["nginx web"]
    assert ca.requests == []  # it is no longer due
    quiet(host.run("renew-all"))
    assert reloads.lines == ["nginx web"]


def test_what_is_due_all_the_same_is_renewed_from_the_finished_set(host, ca, account, archive,
                                                                  reloads):
    cut_short(host, ca, account, archive, 2)
    host.settings(renew_before_expire_days=365)
    quiet(host.run("renew-all"))
    whole(ca.certificates[-1].serial_number)
    assert deployed(FOLDER) == ca.certificates[-1].serial_number
    assert len(ca.certificates) == 1


def test_renew_finishes_it_and_leaves_the_deployment_to_renew_all(host, ca, account, archive,
                                                                 reloads):
    cut_short(host, ca, account, archive, 2)
    assert host.run("renew", "-c", ID).status == 0
    assert os.path.exists(NOTE) and not os.path.exists(FRESH)
    quiet(host.run("renew-all"))
    whole(ca.certificates[-1].serial_number)
    assert deployed(FOLDER) == ca.certificates[-1].serial_number


def test_renew_of_a_certificate_that_nothing_uses_leaves_no_note(host, ca, account, archive):
    cut_short(host, ca, account, archive, 2, services=[])
    assert host.run("renew", "-c", ID).status == 0
    whole(ca.certificates[-1].serial_number)


def test_revoke_revokes_the_renewed_certificate(host, ca, account, archive):
    renewed = cut_short(host, ca, account, archive, 0)
    ca.always("revokeCert", Reply(200))
    assert host.run("revoke", "-c", ID).status == 0
    assert serial(FOLDER + "/cert.pem") == renewed
    sent = ca.payloads("revokeCert")[0]["certificate"]
    der = base64.urlsafe_b64decode(sent.rstrip("=") + "=" * (-len(sent.rstrip("=")) % 4))
    assert x509.load_der_x509_certificate(der).serial_number == renewed
    assert not os.path.exists(FRESH) and not os.path.exists(FOLDER + "/renew.json")


def test_undisturbed_runs_leave_no_note(host, ca, account, archive, reloads):
    archive.add(ID, service(), record=record(ca.directory, account))
    quiet(host.run("renew-all"))
    expect.certificate_folder(FOLDER, [NAME])
    assert host.run("renew", "-c", ID).status == 0
    expect.certificate_folder(FOLDER, [NAME])
    assert host.certificates() == [FOLDER]


def test_note_stands_before_the_first_file_moves(host, ca, account, archive):
    archive.add(ID, record=record(ca.directory, account))
    os.unlink(FOLDER + "/chain.pem")
    host.write(FOLDER + "/chain.pem/in-the-way", "x")
    assert host.run("renew", "-c", ID).status == 1
    [fresh] = [folder for folder in host.certificates() if folder != FOLDER]
    note = json.loads(expect.read(NOTE))
    assert (note["from"], note["to"], note["files"]) == (fresh, ID, FILES)
    assert expect.mode(NOTE) == 0o600
    shutil.rmtree(FOLDER + "/chain.pem")
    quiet(host.run("renew-all"))
    expect.certificate_folder(FOLDER, [NAME])
    assert host.certificates() == [FOLDER]


def test_deployment_that_failed_is_tried_again_by_the_next_run(host, ca, account, archive, reloads):
    archive.add(ID, service(), record=record(ca.directory, account))
    host.write("/usr/kova/etc/certificate/nginx", "in the way")
    failed = host.run("renew-all")
    assert failed.stdout == expect.failure_text(201, f"service depoly failed: {ID}",
                                                "kova-letsencrypt")
    os.unlink("/usr/kova/etc/certificate/nginx")
    quiet(host.run("renew-all"))
    assert deployed(FOLDER) == ca.certificates[-1].serial_number
    assert len(ca.certificates) == 1  # it is no longer due
    assert reloads.lines == ["nginx web"]
    expect.certificate_folder(FOLDER, [NAME])


def test_renewal_of_which_no_file_could_be_moved_is_removed_by_the_next_run(host, ca, account,
                                                                          archive):
    archive.add(ID, record=record(ca.directory, account))
    os.unlink(FOLDER + "/cert.pem")
    host.write(FOLDER + "/cert.pem/in-the-way", "x")
    assert host.run("renew", "-c", ID).status == 1
    assert not os.path.exists(NOTE)
    assert len(host.certificates()) == 2  # the renewed set is not removed by this run
    shutil.rmtree(FOLDER + "/cert.pem")
    assert host.run("renew", "-c", ID).status == 0
    assert sorted(os.listdir(paths.ARCHIVE)) == [ID, "INFO"]
    expect.certificate_folder(FOLDER, [NAME])


def test_second_run_waits_and_decides_anew(host, ca, account, archive, reloads):
    archive.add(ID, service(), record=record(ca.directory, account))
    asked, go_on = threading.Event(), threading.Event()

    def held(_request, normal):
        asked.set()
        assert go_on.wait(30)
        return normal()

    ca.answer("newOrder", held)
    results = []
    first = threading.Thread(target=lambda: results.append(host.run("renew-all")))
    second = threading.Thread(target=lambda: results.append(host.run("renew-all")))
    first.start()
    assert asked.wait(30)
    second.start()
    second.join(1.5)
    assert second.is_alive()  # it waits for the first
    go_on.set()
    first.join(30)
    second.join(30)
    assert [(result.status, result.stdout) for result in results] == [(0, ""), (0, "")]
    assert len(ca.certificates) == 1
    assert reloads.lines == ["nginx web"]


def test_certificate_renewed_while_it_was_revoked_keeps_its_record(host, ca, account, archive):
    archive.add(ID, record=record(ca.directory, account))
    assert host.run("renew", "-c", ID).status == 0

    def renewed_meanwhile(_request, _normal):
        put_certificate(host, FOLDER, Issuer("Let's Encrypt"), days=90)
        return Reply(200)

    ca.always("revokeCert", renewed_meanwhile)
    result = host.run("revoke", "-c", ID)
    assert result.status == 0
    assert os.path.exists(FOLDER + "/renew.json")
    assert result.errors == [f"kova-letsencrypt:# renewed while it was revoked. [{FOLDER}]"]
