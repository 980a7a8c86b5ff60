"""The settings file: debug output, default server, challenge types; and files that are broken."""

import json
import os

import pytest
from lib import expect, paths
from lib.renewal import Archive, record, tolerate_padding

NAME = "www.host.example"
BROKEN = ["", "{", "[]", "7", "null", '"text"', "[{}]", '{"server": ', "\0\0", "[" * 100000,
          '{"a":' * 100000]


def test_v_is_level_1_and_vv_level_2(host, ca, account):
    quiet = host.new_cert(ca.directory, [NAME])
    steps = host.new_cert(ca.directory, [NAME], "-v")
    details = host.new_cert(ca.directory, [NAME], "-vv")
    assert "DEBUG" not in quiet.stdout
    assert "DEBUG: GET Request: " in steps.stdout and "Curl Reply" not in steps.stdout
    assert "DEBUG: Curl Reply: [200]" in details.stdout


def test_the_last_v_wins(host, ca, account):
    result = host.new_cert(ca.directory, [NAME], "-vv", "-v")
    assert "DEBUG: GET Request: " in result.stdout and "Curl Reply" not in result.stdout
    result = host.new_cert(ca.directory, [NAME], "-v", "-vx")
    assert "DEBUG: Curl Reply: [200]" in result.stdout


@pytest.mark.parametrize("level", [[], ["-v"]])
def test_debuglog_sends_level_2_to_the_system_log(host, ca, account, level):
    host.settings(debuglog=1)
    result = host.new_cert(ca.directory, [NAME], *level)
    expect.issued(result, [NAME])
    assert "DEBUG" not in result.stdout
    texts = [line.text for line in result.syslog]
    assert f"GET Request: {ca.directory}" in texts
    assert any(text.startswith("Curl Reply: [200] Header: [HTTP/1.1 200") for text in texts)
    steps = [line for line in result.syslog if "GET Request" in line.text]
    assert {(line.priority, line.facility, line.identity) for line in steps} == {
        (3, 1, "kova-letsencrypt")}


@pytest.fixture(params=["renew", "renew-all", "revoke"])
def other_command(request, host, ca, account):
    """The arguments of a command that asks the CA for something."""
    archive = Archive(host)
    archive.add("AbC123", record=record(ca.directory, account))
    tolerate_padding(ca)
    return [request.param] + ([] if request.param == "renew-all" else ["-c", "AbC123"])


def test_debuglog_counts_for_every_command(host, ca, other_command):
    host.settings(debuglog=1)
    result = host.run(*other_command)
    assert "DEBUG" not in result.stdout
    steps = [line for line in result.syslog if line.text == f"GET Request: {ca.directory}"]
    assert [(line.priority, line.identity) for line in steps] == [(3, "kova-letsencrypt")]
    assert any(line.text.startswith("Curl Reply: [200]") for line in result.syslog)


def test_v_counts_for_every_command(host, ca, other_command):
    result = host.run(*other_command, "-v")
    assert f"GET Request: {ca.directory}" in result.debug and "Curl Reply" not in result.stdout


def test_vv_counts_for_every_command(host, ca, other_command):
    result = host.run(*other_command, "-vv")
    assert "DEBUG: Curl Reply: [200]" in result.stdout


def test_add_cronjob_has_no_debug_output(host):
    host.settings(debuglog=1)
    host.write(paths.ARCHIVE + "/AbC123/renew.json", "{}")
    host.write(paths.ARCHIVE + "/INFO", '{"AbC123": {}}')
    result = host.run("add-cronjob", "-vv")
    assert (result.status, result.stdout, result.syslog) == (0, "", [])
    assert os.path.exists(paths.CRON_JOB)


@pytest.mark.parametrize("value", [0, "1", True, 1.5, None, [], {}])
def test_debuglog_of_zero_or_another_type_is_off(host, ca, account, value):
    host.write_settings(json.dumps({"debuglog": value}))
    result = host.new_cert(ca.directory, [NAME], "-v")
    expect.issued(result)
    assert f"DEBUG: GET Request: {ca.directory}" in result.stdout
    assert "Curl Reply" not in result.stdout
    assert not any("GET Request" in line.text for line in result.syslog)


def test_server_of_the_settings_is_used_without_s(host, ca, account):
    host.settings(server=ca.directory)
    expect.issued(host.run("new-cert", "-d", NAME, "-m", "admin@host.example"), [NAME])


def test_s_overrides_the_server_of_the_settings(host, ca, account):
    host.settings(server="http://127.0.0.1:1/")
    expect.issued(host.new_cert(ca.directory, [NAME]), [NAME])


@pytest.mark.parametrize("value", [None, 7, [], {}, True])
def test_without_a_server_the_production_directory_is_asked(host, value):
    host.settings(server=value)
    result = host.run("new-cert", "-d", NAME, "-m", "admin@host.example", "-v")
    assert result.debug[1] == "Server: " + paths.PRODUCTION_DIRECTORY
    # There is no way out of the sandbox.
    last = result.stdout.splitlines()[-1]
    assert last == expect.failure_text(100, "Server is not reachable.", "client_network").strip()
    assert result.status == 100


@pytest.mark.parametrize("text", BROKEN)
def test_broken_file_means_the_defaults(host, ca, account, text):
    host.write_settings(text)
    result = host.new_cert(ca.directory, [NAME], "-v")
    expect.issued(result, [NAME])
    assert f"Failed to read from {paths.SETTINGS} [0]" in result.debug
    assert "dns-01 is not support for www.host.example" in result.debug


def test_missing_file_means_the_defaults(host, ca, account):
    os.unlink(paths.SETTINGS)
    result = host.new_cert(ca.directory, [NAME], "-v")
    expect.issued(result, [NAME])
    assert f"Failed to read from {paths.SETTINGS} [2]" in result.debug


def test_skipdns01_leaves_dns01_out(host, ca, account):
    host.settings(skipdns01=True)
    result = host.new_cert(ca.directory, [NAME], "-v")
    expect.issued(result)
    assert "Skip dns challenge is enabled" in result.debug
    assert not any("dns-01" in line for line in result.debug)


@pytest.mark.parametrize("value", [False, "true", 1, None, [], {}])
def test_skipdns01_of_another_type_is_off(host, ca, account, value):
    host.write_settings(json.dumps({"skipdns01": value}))
    result = host.new_cert(ca.directory, [NAME], "-v")
    expect.issued(result)
    assert "Skip dns challenge is enabled" not in result.debug
    assert "dns-01 is not support for www.host.example" in result.debug


@pytest.mark.parametrize("arguments", [["add-cronjob"], ["renew", "-c", "none"], ["renew-all"],
                                       ["revoke", "-c", "none"], ["new-cert", "-d", "a.example", "-m",
                                        "a@b.example", "-s", "http://127.0.0.1:9/"]])
@pytest.mark.parametrize("value", ["true", True])
def test_a_value_of_a_wrong_type_is_told_once_by_every_command(host, arguments, value):
    host.settings(noncerefill=value)
    told = [text for text in host.run(*arguments).errors if "Ignored key" in text]
    assert told == expect.ignored_key("noncerefill", value)


def test_the_oldest_keys_are_ignored_in_silence(host):
    host.bare_settings(debuglog="1", server=1, renew_before_expire_days="1", skipdns01=1, kovaddns=1)
    assert not any("Ignored key" in text for text in host.run("renew-all").errors)
