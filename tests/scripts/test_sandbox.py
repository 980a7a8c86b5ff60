"""tests/sandbox/sandbox: what it supplies where the machine lacks it. A sandbox in a sandbox, so that
the machine can be made to lack something."""

import os
import pathlib
import subprocess

import pytest

SANDBOX = pathlib.Path(__file__).parents[1] / "sandbox/sandbox"


def inside(command):
    done = subprocess.run([SANDBOX, "/bin/bash", "-c", command], text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, check=False)
    return done.returncode, done.stdout


@pytest.fixture(name="without")
def fixture_without():
    """Takes a file of the machine away, or leaves another text in its place, for one test."""
    kept = []

    def without(path, text=None):
        if os.path.lexists(path):
            os.rename(path, path + ".kept")
        kept.append(path)
        if text is not None:
            pathlib.Path(path).write_text(text, encoding="ascii")
    yield without
    for path in kept:
        if os.path.lexists(path):
            os.unlink(path)
        if os.path.lexists(path + ".kept"):
            os.rename(path + ".kept", path)


@pytest.mark.parametrize("text", [None, ""])
def test_a_machine_without_an_id_gets_one(without, text):
    without("/etc/machine-id", text)
    assert inside("cat /etc/machine-id") == (0, "0123456789abcdef0123456789abcdef\n")


def test_an_id_stays(without):
    without("/etc/machine-id", "fedcba98765432100123456789abcdef\n")
    assert inside("cat /etc/machine-id") == (0, "fedcba98765432100123456789abcdef\n")


def test_a_machine_without_an_init_system_gets_its_tool(without):
    without("/usr/bin/systemctl")
    assert inside("systemctl is-active cron") == (1, "systemd does not run here\n")
    assert not os.path.exists("/usr/bin/systemctl")


def test_the_tool_of_the_init_system_stays(without):
    without("/usr/bin/systemctl", "mine")
    assert inside("cat /usr/bin/systemctl") == (0, "mine")


@pytest.mark.parametrize("text, hosts", [(None, "127.0.0.1 localhost\n"),
                                         ("192.0.2.1 a\n", "192.0.2.1 a\n127.0.0.1 localhost\n"),
                                         ("127.0.0.1 localhost b\n", "127.0.0.1 localhost b\n")])
def test_the_host_knows_itself(without, text, hosts):
    without("/etc/hosts", text)
    assert inside("cat /etc/hosts") == (0, hosts)


def test_the_command_s_status_is_the_sandbox_s():
    assert inside("exit 7") == (7, "")
