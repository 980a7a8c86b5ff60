"""renew: one certificate of the archive is issued afresh in place."""

import json
import os

import pytest
from lib import expect, paths
from lib.http_script import Reply
from lib.renewal import INDEX, NAME, Archive, Reloads, folder_of, record, serial, service
from lib.signed_server import problem

ID = "AbC123"
FOLDER = folder_of(ID)
TAG = "kova-letsencrypt:# "


@pytest.fixture
def archive(host):
    return Archive(host)


def certificate_for(archive, ca, account, domains=NAME, **more):
    archive.add(ID, record=record(ca.directory, account, domains), **more)
    return expect.tree(FOLDER)


def renew(host, *more, **options):
    return host.run("renew", "-c", ID, *more, **options)


def renewed(result, names=(NAME,)):
    assert result.stdout == '{\n   "error" : 0,\n   "id" : "AbC123"\n}\n'
    assert (result.status, result.stderr, result.errors) == (0, "", [])
    expect.certificate_folder(FOLDER, names)


def refused(result, code, message, file="client_v2"):
    """A failure document and, whatever the code, exit status 1."""
    assert result.stdout == expect.failure_text(code, message, file)
    assert (result.status, result.stderr) == (1, "")


# -- the renewal -----------------------------------------------------------------------------------


def test_new_files_take_the_place_of_the_old(host, ca, account, archive):
    before = certificate_for(archive, ca, account)
    renewed(renew(host))
    after = expect.tree(FOLDER)
    assert set(after) == set(before)
    for name in ("cert.pem", "privkey.pem", "chain.pem", "fullchain.pem"):
        assert after[f"{FOLDER}/{name}"] != before[f"{FOLDER}/{name}"], name
    assert serial(FOLDER + "/cert.pem") == ca.certificates[-1].serial_number
    assert json.loads(expect.read(FOLDER + "/renew.json")) == record(ca.directory, account)


def test_the_recorded_account_is_used_in_protocol_order(host, ca, account, archive):
    certificate_for(archive, ca, account, "a.example;b.example")
    renewed(renew(host), ["a.example", "b.example"])
    assert ca.trace == ["directory", "newNonce", "newOrder", *["authz", "challenge", "authz"] * 2,
                        "finalize", "certificate"]
    assert [entry["value"] for entry in ca.payloads("newOrder")[0]["identifiers"]] == [
        "a.example", "b.example"]


def test_domains_are_trimmed(host, ca, account, archive):
    certificate_for(archive, ca, account, " a.example ;;\tb.example; ")
    renewed(renew(host), ["a.example", "b.example"])
    assert json.loads(expect.read(FOLDER + "/renew.json"))["domains"] == "a.example;b.example"


def test_the_fresh_folder_is_gone_afterwards(host, ca, account, archive):
    certificate_for(archive, ca, account)
    renewed(renew(host))
    assert host.certificates() == [FOLDER]


def test_other_files_of_the_folder_stay(host, ca, account, archive):
    certificate_for(archive, ca, account)
    host.write(FOLDER + "/cert_info", '{"is_broken": true}', 0o600)
    assert renew(host).status == 0
    assert expect.read(FOLDER + "/cert_info") == '{"is_broken": true}'


def test_nothing_is_deployed_reloaded_or_indexed(host, ca, account, archive):
    reloads = Reloads(host)
    reloads.web_frontend()
    reloads.script("system")
    certificate_for(archive, ca, account)
    archive.enter(ID, {"services": [service("system", "default")]})
    index = expect.read(INDEX)
    renewed(renew(host))
    assert reloads.lines == []
    assert os.listdir("/usr/kova/etc/certificate") == ["_archive"]
    assert expect.read(INDEX) == index
    assert os.listdir("/etc/cron.d") == []


def test_neither_index_nor_issuer_nor_expiry_matter(host, ca, account, archive):
    certificate_for(archive, ca, account, organisation=None, days=300)
    os.unlink(INDEX)
    renewed(renew(host))


def test_progress_messages(host, ca, account, archive):
    certificate_for(archive, ca, account)
    result = renew(host, "-v")
    assert result.debug[0] == f"start to renew [{FOLDER}]."
    assert result.debug[-1] == f"renew success. [{FOLDER}]."
    assert result.stdout.endswith('{\n   "error" : 0,\n   "id" : "AbC123"\n}\n')


@pytest.mark.parametrize("domains", ["", ";", " ; \t;; "])
def test_record_without_a_domain_counts_as_renewed(host, ca, account, archive, domains):
    before = certificate_for(archive, ca, account, domains)
    result = renew(host)
    assert result.stdout == '{\n   "error" : 0,\n   "id" : "AbC123"\n}\n'
    assert (result.status, result.errors) == (0, [])
    assert ca.requests == []
    assert expect.tree(FOLDER) == before


# -- the record ------------------------------------------------------------------------------------


def test_missing_record(host, archive):
    archive.add(ID)
    result = renew(host)
    assert (result.status, result.stdout, result.stderr) == (1, "", "")
    assert result.errors == [
        f"{TAG}can not find renew.json. [No such file or directory][{FOLDER}/renew.json]"]


@pytest.mark.parametrize("args, folder", [
    (["-c", "gone"], folder_of("gone")), (["-c", ""], folder_of("")), ([], folder_of(""))])
def test_missing_folder_or_id_is_a_missing_record(host, args, folder):
    result = host.run("renew", *args)
    assert (result.status, result.stdout, result.stderr) == (1, "", "")
    assert result.errors == [
        f"{TAG}can not find renew.json. [No such file or directory][{folder}/renew.json]"]


@pytest.mark.parametrize("text", ["", "{", "7", "null", "[]", '"x"', '{"version": 2',
                                  "[" * 100000, b"\xff\xfe\0"])
def test_record_that_is_no_json_object(host, archive, text):
    archive.add(ID, record=text)
    result = renew(host)
    assert (result.status, result.stdout, result.stderr) == (1, "", "")
    assert result.errors == [f"{TAG}renew info is not json. [{FOLDER}]"]


@pytest.mark.parametrize("version", [1, 2])
@pytest.mark.parametrize("name", ["server", "domains", "account", "version"])
def test_record_that_lacks_a_member(host, ca, account, archive, name, version):
    content = record(ca.directory, account, version=version)
    del content[name]
    archive.add(ID, record=content)
    result = renew(host)
    assert (result.status, result.stdout, result.stderr) == (1, "", "")
    assert result.errors == [f"{TAG}renew info contain info not enoungh. [{FOLDER}]"]
    assert ca.requests == []


NO_TEXT = [None, 7, ["a.example"], {}]


@pytest.mark.parametrize("value", NO_TEXT)
def test_domains_that_are_no_text_count_as_empty(host, ca, account, archive, value):
    certificate_for(archive, ca, account, value)
    result = renew(host)
    assert (result.status, result.errors, ca.requests) == (0, [], [])


@pytest.mark.parametrize("value", NO_TEXT)
def test_server_that_is_no_text_counts_as_empty(host, ca, account, archive, value):
    archive.add(ID, record=record(value, account))
    result = renew(host)
    refused(result, 100, "Server is not reachable.", "client_network")
    assert (result.errors, ca.requests) == ([], [])


@pytest.mark.parametrize("value", NO_TEXT)
def test_account_that_is_no_text_counts_as_empty(host, ca, archive, value):
    archive.add(ID, record=record(ca.directory, value))
    result = renew(host)
    refused(result, 201, "failed to load User Info: /info.json")
    assert ca.trace == ["directory"]


@pytest.mark.parametrize("version", ["2", "1", 0, 3, -1, 2.5, True, None, [2], 2**31, 2**32 + 2])
def test_wrong_version(host, ca, account, archive, version):
    archive.add(ID, record=record(ca.directory, account, version=version))
    result = renew(host)
    assert (result.status, result.stdout, result.stderr) == (1, "", "")
    assert result.errors == [f"{TAG}renew version seems to be wrong. [{FOLDER}]"]
    assert ca.requests == []


# -- failures --------------------------------------------------------------------------------------


def test_server_that_is_down(host, ca, account, archive):
    before = certificate_for(archive, ca, account)
    archive.record(ID, record("http://127.0.0.1:9/directory", account))
    refused(renew(host), 100, "Server is not reachable.", "client_network")
    before[FOLDER + "/renew.json"] = expect.tree(FOLDER)[FOLDER + "/renew.json"]
    assert expect.tree(FOLDER) == before


def test_refused_order_is_not_tried_again(host, ca, account, archive):
    before = certificate_for(archive, ca, account)
    ca.answer("newOrder", problem("rateLimited", "slow down", 429))
    refused(renew(host), 104, "slow down")
    assert ca.trace == ["directory", "newNonce", "newOrder"]
    assert expect.tree(FOLDER) == before
    assert host.certificates() == [FOLDER]


def test_failed_challenge_is_not_followed_by_another_type(host, ca, ddns, account, archive):
    name = "www.box.ddns.example"
    certificate_for(archive, ca, account, name)
    ca.refusals.append(("dns", "no record"))
    refused(renew(host), 109, "no record")
    assert [challenge.type for challenge in ca.challenges if challenge.status != "pending"] == [
        "dns-01"]
    assert len(ca.orders) == 1


def test_missing_account(host, ca, account, archive):
    gone = paths.ACCOUNTS + "/gone"
    certificate_for(archive, ca, gone)
    refused(renew(host), 201, f"failed to load User Info: {gone}/info.json")


def test_failed_download_leaves_the_old_certificate(host, ca, account, archive):
    before = certificate_for(archive, ca, account)
    ca.answer("certificate", Reply(500))
    refused(renew(host), 200, "new-cert: Unexpect httpcode. (download cert)")
    assert expect.tree(FOLDER) == before
    assert host.certificates() == [FOLDER]


def test_account_that_cannot_be_loaded_costs_no_nonce(host, ca, archive):
    archive.add(ID, record=record(ca.directory, "/nowhere"))
    refused(renew(host), 201, "failed to load User Info: /nowhere/info.json")
    assert ca.trace == ["directory"]


def test_success_is_told_after_the_move(host, ca, account, archive):
    certificate_for(archive, ca, account)
    os.unlink(FOLDER + "/fullchain.pem")
    host.write(FOLDER + "/fullchain.pem/in-the-way", "x")
    result = renew(host, "-v")
    assert result.status == 1
    assert [line for line in result.debug if "renew success" in line] == []


def test_file_that_cannot_be_moved_keeps_the_rest_in_the_fresh_folder(host, ca, account, archive):
    certificate_for(archive, ca, account)
    old_key = expect.read(FOLDER + "/privkey.pem")
    os.unlink(FOLDER + "/fullchain.pem")
    host.write(FOLDER + "/fullchain.pem/in-the-way", "x")
    result = renew(host)
    fresh = next(folder for folder in host.certificates() if folder != FOLDER)
    refused(result, 202, f"Rename file failed. {fresh}/fullchain.pem => {FOLDER}/fullchain.pem "
                         "[21]", "utils")
    assert sorted(os.listdir(fresh)) == ["fullchain.pem", "privkey.pem", "renew.json"]
    assert serial(FOLDER + "/cert.pem") == serial(fresh + "/fullchain.pem")
    assert expect.read(FOLDER + "/privkey.pem") == old_key


def test_folder_on_another_file_system_keeps_its_certificate(host, ca, account, archive):
    host.mount(FOLDER)
    before = certificate_for(archive, ca, account)
    result = renew(host)
    fresh = next(folder for folder in host.certificates() if folder != FOLDER)
    refused(result, 202, f"Rename file failed. {fresh}/cert.pem => {FOLDER}/cert.pem [18]", "utils")
    assert expect.tree(FOLDER) == before
    expect.certificate_folder(fresh, [NAME])
