"""renew-all: what it makes of the index and the settings, and which certificates it renews."""

import json
import os
import subprocess

import pytest
from lib import paths
from lib.renewal import (INDEX, deployed, folder_of, quiet, record, reported,
                         service, service_folder)

TAG = "kova-letsencrypt:# "
NOT_TRUSTED = "certificate is not issued by Let's encrypt. [%s]"


# -- the index -------------------------------------------------------------------------------------


def test_missing_index(host, reloads):
    result = host.run("renew-all")
    reported(result)
    assert result.errors == [f"{TAG}File not exist. [No such file or directory][{INDEX}]"]
    assert reloads.lines == []


@pytest.mark.parametrize("text, reason", [
    *((text, "Success") for text in ("", "{", '{"a":', "[" * 100000)),
    *((text, "not an object") for text in ("[]", "null", "7", '"x"'))])
def test_index_that_is_no_json_object(host, reloads, text, reason):
    host.write(INDEX, text)
    result = host.run("renew-all")
    reported(result)
    assert result.errors == [f"{TAG}Read json file failed. [{reason}][{INDEX}]"]


def test_index_that_cannot_be_read(host):
    os.makedirs(INDEX)
    result = host.run("renew-all")
    reported(result)
    assert result.errors == [f"{TAG}Read json file failed. [Is a directory][{INDEX}]"]


def test_index_is_read_before_the_settings(host):
    os.unlink(paths.SETTINGS)
    result = host.run("renew-all")
    reported(result)
    assert result.errors == [
        f"{TAG}File not exist. [No such file or directory][{INDEX}]",
        f"{TAG}File not exist. [No such file or directory]: [{paths.SETTINGS}]"]


def test_empty_index(host):
    host.write(INDEX, "{}")
    quiet(host.run("renew-all"))


def test_missing_folder_is_passed_over(host, ca, account, archive, reloads):
    archive.enter("gone", {"services": [service()]})
    archive.add("here", service(), record=record(ca.directory, account))
    result = host.run("renew-all")
    reported(result)
    assert result.errors == [
        f"{TAG}Folder not exist. [No such file or directory][{folder_of('gone')}]"]
    assert deployed(folder_of("here")) == ca.certificates[-1].serial_number


def test_file_in_the_place_of_a_folder_is_passed_over(host, archive):
    host.write(folder_of("file"), "x")
    archive.enter("file", {"services": []})
    result = host.run("renew-all")
    reported(result)
    assert result.errors == [f"{TAG}Folder not exist. [Not a directory][{folder_of('file')}]"]


def test_folder_that_is_not_in_the_index_is_left_alone(host, ca, account, archive):
    archive.add("unlisted", record=record(ca.directory, account))
    host.write(INDEX, "{}")
    quiet(host.run("renew-all"))
    assert ca.requests == []


def test_certificates_are_renewed_in_the_order_of_their_ids(host, ca, account, archive):
    for identity in ("b", "C", "a", "10", "9"):
        archive.add(identity, record=record(ca.directory, account, f"{identity}.example"))
    quiet(host.run("renew-all"))
    assert [order["identifiers"][0]["value"] for order in ca.payloads("newOrder")] == [
        "10.example", "9.example", "C.example", "a.example", "b.example"]


# -- which are due ---------------------------------------------------------------------------------


def lead_time(host, archive, days, settings):
    """Whether a certificate with so many days left is due under these settings."""
    archive.add("due", service(), days=days)
    if settings is None:
        os.unlink(paths.SETTINGS)
    else:
        host.write_settings(settings if isinstance(settings, str) else json.dumps(settings))
    result = host.run("renew-all", "-v")
    assert (result.status, result.stderr) == (0, "")
    due = "cert is not expired. [%s]" % folder_of("due") not in result.debug
    assert due == os.path.isdir(service_folder())
    return due, [error for error in result.errors if "can not find renew.json" not in error]


@pytest.mark.parametrize("days, lead, due", [
    (60, 90, True), (60, 30, False), (60, 60.0, True), (29.9, 30, True), (30.1, 30, False),
    (0.1, 0, False), (-0.02, 0, True), (0.1, 1, True), (60, 36500, True), (60, -1, False),
    (-0.02, -1, False),
    (60, 2147483647, False)])  # no calendar has that day
def test_lead_time_of_the_settings(host, archive, days, lead, due):
    assert lead_time(host, archive, days, {"renew_before_expire_days": lead}) == (due, [])


@pytest.mark.parametrize("value", ["90", "10", 90.5, True, None, [90], {"days": 90}, 2**40])
@pytest.mark.parametrize("days, due", [(20, True), (60, False)])
def test_lead_time_of_another_type_is_the_default(host, archive, value, days, due):
    assert lead_time(host, archive, days, {"renew_before_expire_days": value}) == (due, [])


@pytest.mark.parametrize("days, due", [(29.9, True), (30.1, False)])
def test_lead_time_defaults_to_30_days(host, archive, days, due):
    assert lead_time(host, archive, days, {}) == (due, [])


@pytest.mark.parametrize("days, due", [(29.9, True), (30.1, False)])
def test_missing_settings_file_is_logged(host, archive, days, due):
    assert lead_time(host, archive, days, None) == (
        due, [f"{TAG}File not exist. [No such file or directory]: [{paths.SETTINGS}]"])


@pytest.mark.parametrize("text", ["", "{", '{"renew_before_expire_days": 90', "[" * 100000])
@pytest.mark.parametrize("days, due", [(29.9, True), (60, False)])
def test_broken_settings_file_is_logged(host, archive, text, days, due):
    assert lead_time(host, archive, days, text) == (
        due, [f"{TAG}Read json file failed. [Success]: [{paths.SETTINGS}]"])


@pytest.mark.parametrize("text", ["[]", "7", "null", '"text"', '[{"renew_before_expire_days": 90}]'])
def test_settings_that_are_no_object_are_logged_as_such(host, archive, text):
    assert lead_time(host, archive, 29.9, text) == (
        True, [f"{TAG}Read json file failed. [not an object]: [{paths.SETTINGS}]"])


@pytest.mark.parametrize("organisation", [
    "Kova Inc.", "let's encrypt", "LET'S ENCRYPT", "Lets Encrypt", "Let’s Encrypt", "Let's", " "])
def test_other_issuers_are_left_alone(host, archive, reloads, organisation):
    folder = archive.add("other", service(), organisation=organisation, record="{")
    result = host.run("renew-all", "-v")
    assert (result.status, result.errors) == (0, [])
    assert result.debug == [
        f"Issuer name of certificate. [{organisation}]->[{folder}/cert.pem]",
        NOT_TRUSTED % f"{folder}/cert.pem"]
    assert not os.path.exists(service_folder())
    assert reloads.lines == []


@pytest.mark.parametrize("organisation", [
    "Let's Encrypt", "(STAGING) Let's Encrypt", "XLet's EncryptX"])
def test_issuer_organisation_contains_the_name(host, ca, account, archive, organisation):
    archive.add("due", service(), organisation=organisation, record=record(ca.directory, account))
    quiet(host.run("renew-all"))
    assert len(ca.certificates) == 1


def test_issuer_without_an_organisation_is_passed_over(host, archive):
    folder = archive.add("plain", service(), organisation=None)
    result = host.run("renew-all", "-v")
    assert (result.status, result.stdout) == (0, "")
    assert result.errors == [
        f"utils:# get x509 issuer entry failed. [{folder}/cert.pem]: []"]
    assert not os.path.exists(service_folder())


def test_only_the_first_organisation_counts(host, archive):
    folder = archive.add("two", service())
    os.unlink(folder + "/cert.pem")
    subprocess.run(["/usr/bin/openssl", "req", "-x509", "-newkey", "ed25519", "-nodes",
                    "-days", "5", "-subj", "/CN=x/O=First Inc./O=Let's Encrypt",
                    "-keyout", "/dev/null", "-out", folder + "/cert.pem"],
                   check=True, capture_output=True)
    result = host.run("renew-all", "-v")
    assert result.debug[0] == f"Issuer name of certificate. [First Inc.]->[{folder}/cert.pem]"
    assert result.debug[1] == NOT_TRUSTED % f"{folder}/cert.pem"


def test_missing_certificate_file(host, archive):
    folder = archive.add("lost", service())
    os.unlink(folder + "/cert.pem")
    result = host.run("renew-all")
    reported(result)
    assert result.errors == [
        f"utils:# fopen failed. [No such file or directory][{folder}/cert.pem]"]


@pytest.mark.parametrize("text", ["", "x", "-----BEGIN CERTIFICATE-----\n", "\0" * 100])
def test_certificate_file_that_holds_none(host, archive, text):
    folder = archive.add("bad", service())
    os.unlink(folder + "/cert.pem")
    host.write(folder + "/cert.pem", text)
    result = host.run("renew-all")
    reported(result)
    assert len(result.errors) == 1
    assert result.errors[0].startswith(f"utils:# read x509 failed. [{folder}/cert.pem]: [")
    assert "PEM routines" in result.errors[0]
    assert not os.path.exists(service_folder())


def test_selection_is_told_step_by_step(host, archive):
    folder = archive.add("fresh", days=60)
    assert host.run("renew-all", "-v").debug == [
        f"Issuer name of certificate. [Let's Encrypt]->[{folder}/cert.pem]",
        f"cert is not expired. [{folder}]"]
