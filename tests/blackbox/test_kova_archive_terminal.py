"""kova-archive list on a terminal: width and colours."""

import fcntl
import os
import pty
import struct
import subprocess
import termios

import pytest

from lib import memcheck
from lib.archive_cli import PROGRAM, ArchiveCli, remove
from lib.renewal import folder_of, service

RED, YELLOW, BOLD, PLAIN = "\x1b[31m", "\x1b[33m", "\x1b[1m", "\x1b[0m"


@pytest.fixture
def cli(host):
    return ArchiveCli(host)


def on_terminal(columns, **environment):
    """What a terminal of that width receives from `kova-archive list`."""
    controller, terminal = pty.openpty()
    fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
    environment = memcheck.environment({"TERM": "xterm", "LANG": "C", **environment})
    process = subprocess.Popen(memcheck.command([PROGRAM, "list"]), stdin=subprocess.DEVNULL,
                               stdout=terminal, stderr=subprocess.PIPE, env=environment)
    os.close(terminal)
    received = b""
    try:
        while chunk := os.read(controller, 65536):
            received += chunk
    except OSError:
        pass  # the other end is closed
    os.close(controller)
    assert process.wait(20) == 0 and process.stderr.read() == b""
    process.stderr.close()
    return received.decode().replace("\r\n", "\n")


@pytest.fixture
def archive(cli):
    cli.certificate("due", service(), days=10.5)
    cli.certificate("exp", days=-0.02)
    cli.certificate("long", *(service("nginx", f"web{n}") for n in range(20)), days=60.5,
                    names=[f"host{n}.example" for n in range(30)], organisation="Ångström & Söhne")
    return cli


def test_marks_are_coloured(archive):
    cert_info = folder_of("long") + "/cert_info"
    archive.host.write(cert_info, '{"is_broken": true}')
    shown = on_terminal(200)
    assert f"{YELLOW}due{PLAIN}" in shown and f"{YELLOW}10{PLAIN}" in shown
    assert f"{RED}expired{PLAIN}" in shown
    assert f"{RED}broken{PLAIN}" in shown
    assert f"{BOLD}ID{PLAIN}" in shown
    remove(cert_info)


@pytest.mark.parametrize("environment", [{"NO_COLOR": "1"}, {"NO_COLOR": "0"}, {"TERM": "dumb"}])
def test_no_colours_where_they_are_not_wanted(archive, environment):
    assert "\x1b" not in on_terminal(200, **environment)


def test_no_colours_in_a_file(archive):
    assert "\x1b" not in archive.run("list", env={"TERM": "xterm"}).stdout


@pytest.mark.parametrize("columns", [80, 100, 132])
def test_rows_fit_the_terminal(archive, columns):
    lines = on_terminal(columns, NO_COLOR="1").splitlines()
    assert len(lines) == 4
    assert max(map(len, lines)) == columns  # the widest columns are cut just enough
    assert "…" in lines[3] and "Ångström" in lines[3] or columns == 80
    # Still aligned, by characters.
    at = lines[0].index("STATE")
    assert [line[at:].split()[0] for line in lines[1:]] == ["due", "expired", "valid"]


def test_rows_are_never_cut_in_a_file(archive):
    result = archive.run("list", env={"COLUMNS": "80"})
    assert "host29.example" in result.stdout and "nginx/web19" in result.stdout
