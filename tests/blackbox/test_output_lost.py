"""Standard output that cannot be written: what the document says is in the system log."""

import json

import pytest
from lib import archive_cli, paths
from lib.renewal import NAME, Archive, folder_of, record, tolerate_padding

LOST = "%s:# Failed to write to standard output. [%s]: [%s]"
FULL = ("> /dev/full", "No space left on device")
CLOSED = ("closed", "Broken pipe")


def run_into(host, output, *words, tool=paths.PROGRAM):
    """The program with an output that is full, or whose reader has gone."""
    command = " ".join(f"'{word}'" for word in (tool, *words))
    if output == "closed":
        return host.run(
            "-c", "import os,sys\nread, write = os.pipe()\nos.close(read)\nos.dup2(write, 1)\n"
            "os.execv(sys.argv[1], sys.argv[1:])", tool, *words,
            program="/usr/bin/python3")
    return host.run("-c", f"exec {command} {output}", program="/bin/sh")


def lost(result, reason, document, tag="kova-letsencrypt"):
    assert result.stdout == ""
    assert [line for line in result.errors if "standard output" in line] == [
        LOST % (tag, reason, document)]


@pytest.mark.parametrize("output, reason", [FULL, CLOSED])
def test_new_cert(host, ca, output, reason):
    result = run_into(host, output, "new-cert", "-s", ca.directory, "-d", NAME,
                      "-m", "me@host.example")
    [folder] = host.certificates()
    assert result.status == 0
    lost(result, reason, '{    "cert_path" : "%s",    "error" : 0 }' % folder)


@pytest.mark.parametrize("output, reason", [FULL, CLOSED])
def test_failed_new_cert(host, output, reason):
    result = run_into(host, output, "new-cert", "-s", "http://x/", "-d", ";",
                      "-m", "me@host.example")
    assert result.status == 106
    lost(result, reason, '{"error":106,"file":"kova-letsencrypt","msg":"no valid domain name"}')


@pytest.mark.parametrize("output, reason", [FULL, CLOSED])
def test_renew(host, ca, account, output, reason):
    Archive(host).add("id", record=record(ca.directory, account))
    result = run_into(host, output, "renew", "-c", "id")
    assert result.status == 0
    lost(result, reason, '{    "error" : 0,    "id" : "id" }')


@pytest.mark.parametrize("output, reason", [FULL, CLOSED])
def test_failed_renewal(host, account, output, reason):
    Archive(host).add("id", record=record("http://127.0.0.1:9/directory", account))
    document = '{"error":100,"file":"client_network","msg":"Server is not reachable."}'
    result = run_into(host, output, "renew", "-c", "id")
    assert result.status == 1
    lost(result, reason, document)
    result = run_into(host, output, "renew-all")
    assert result.status == 0
    lost(result, reason, document)


@pytest.mark.parametrize("output, reason", [FULL, CLOSED])
def test_revoke(host, ca, account, output, reason):
    tolerate_padding(ca)
    Archive(host).add("id", record=record(ca.directory, account))
    assert host.run("renew", "-c", "id").status == 0
    result = run_into(host, output, "revoke", "-c", "id")
    assert result.status == 0
    lost(result, reason, '{    "cert_path" : "%s",    "error" : 0 }' % folder_of("id"))


@pytest.mark.parametrize("output, reason", [FULL, CLOSED])
def test_kova_archive(host, output, reason):
    Archive(host).add("id")
    result = run_into(host, output, "default", "id", "--json", tool=archive_cli.PROGRAM)
    assert result.status == 1
    assert result.stderr == f"kova-archive: cannot write the result: {reason}\n"
    lost(result, reason, '{    "default" : "id",    "error" : 0 }', "kova-archive")


@pytest.mark.parametrize("output, reason", [FULL, CLOSED])
def test_failed_kova_archive(host, output, reason):
    result = run_into(host, output, "default", "none", "--json", tool=archive_cli.PROGRAM)
    assert result.status == 1
    told = result.stderr.removeprefix("kova-archive: default: ").rstrip("\n")
    lost(result, reason, '{    "error" : 1,    "msg" : %s }' % json.dumps(told), "kova-archive")
