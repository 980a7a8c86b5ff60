"""scripts/install-deps.sh: services that come along with packages are started neither now nor at the
next boot. apt is played; what enables and starts services is the system's own."""

import glob
import os
import pathlib
import signal
import subprocess
import time

import pytest

SCRIPT = pathlib.Path(__file__).parents[2] / "scripts/install-deps.sh"
POLICY = pathlib.Path("/usr/sbin/policy-rc.d")
STARTED = pathlib.Path("/run/tested.started")
INIT_SCRIPT = """#!/bin/sh
### BEGIN INIT INFO
# Provides:          {name}
# Required-Start:
# Required-Stop:
# Default-Start:     2 3 4 5
# Default-Stop:      0 1 6
### END INIT INFO
[ "$1" != start ] || echo {name} >> /run/tested.started
"""
UNIT = "[Service]\nExecStart=/bin/true\n[Install]\nWantedBy=multi-user.target\n"
TIMER = "[Timer]\nOnCalendar=daily\n[Install]\nWantedBy=timers.target\n"
# What a package does when it is installed.
APT = """#!/bin/bash
[[ " $* " == *" install "* ]] || exit 0
{before}
update-rc.d tested defaults
mkdir -p /etc/systemd/system/multi-user.target.wants /etc/systemd/system/timers.target.wants
ln -s /lib/systemd/system/tested.service /etc/systemd/system/multi-user.target.wants/
ln -s /lib/systemd/system/tested.timer /etc/systemd/system/timers.target.wants/
invoke-rc.d tested start
exit {status}
"""


def write(path, text, mode=0o755):
    path = pathlib.Path(path)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.unlink(missing_ok=True)  # it may be a link to a program that does more
    path.write_text(text, encoding="ascii")
    path.chmod(mode)


def enabled(name="tested"):
    return sorted(glob.glob(f"/etc/rc[2-5].d/S??{name}") +
                  glob.glob(f"/etc/systemd/system/*.wants/{name}.*"))


class Machine:
    def __init__(self, tools):
        self._tools = tools
        write(tools / "dpkg-query", "#!/bin/sh\nexit 1\n")  # nothing is installed
        self.apt()

    def apt(self, before="", status=0):
        write(self._tools / "apt-get", APT.format(before=before, status=status))

    def start(self):
        environment = dict(os.environ, PATH=f"{self._tools}:/usr/sbin:/usr/bin:/sbin:/bin")
        # Of a test that runs in the background a shell may have it ignore this signal.
        return subprocess.Popen(["env", "--default-signal=INT", SCRIPT, "--build-only"],
                                env=environment, text=True,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, start_new_session=True)

    def install(self, status=0):
        process = self.start()
        said = process.communicate(timeout=60)[0]
        assert process.returncode == status, said
        return said


@pytest.fixture(name="machine")
def fixture_machine(tmp_path):
    """One that has no policy, and packages with a service and a timer to install."""
    POLICY.unlink(missing_ok=True)
    STARTED.unlink(missing_ok=True)
    for link in glob.glob("/etc/rc?.d/*tested*") + glob.glob("/etc/systemd/system/*.wants/tested*"):
        os.unlink(link)
    for name in ("tested", "tested-before"):
        write(f"/etc/init.d/{name}", INIT_SCRIPT.format(name=name))
        write(f"/lib/systemd/system/{name}.service", UNIT, 0o644)
    write("/lib/systemd/system/tested.timer", TIMER, 0o644)
    write("/usr/sbin/runlevel", "#!/bin/sh\necho N 2\n")  # as once booted
    if not os.path.exists("/usr/sbin/init"):
        write("/usr/sbin/init", "#!/bin/sh\n")
    yield Machine(tmp_path)
    POLICY.unlink(missing_ok=True)


def await_that(condition):
    deadline = time.monotonic() + 20
    while not condition():
        assert time.monotonic() < deadline
        time.sleep(0.05)


def test_such_a_package_would_start_and_stay(machine, tmp_path):
    assert machine is not None
    subprocess.run([tmp_path / "apt-get", "install"], check=True)
    assert STARTED.read_text(encoding="ascii") == "tested\n"
    assert len(enabled()) == 6


@pytest.mark.parametrize("systemctl", [True, False])
def test_what_comes_along_is_neither_started_nor_enabled(machine, systemctl):
    if not systemctl:
        os.rename("/usr/bin/systemctl", "/usr/bin/systemctl.kept")
    said = machine.install()
    if not systemctl:
        os.rename("/usr/bin/systemctl.kept", "/usr/bin/systemctl")
    assert "\nNot enabled: tested tested.timer\n" in said, said
    assert not STARTED.exists()
    assert enabled() == [], said
    # An upgrade of the package finds that it is disabled, and leaves it.
    assert len(glob.glob("/etc/rc[2-5].d/K??tested")) == 4
    assert not POLICY.exists() and not os.path.exists(f"{POLICY}.new")


def test_what_was_there_before_stays_as_it_was(machine):
    subprocess.run(["update-rc.d", "tested-before", "defaults"], check=True)
    before = enabled("tested-before")
    machine.install()
    assert before and enabled("tested-before") == before
    assert enabled() == [], said


def test_a_failed_installation_leaves_nothing_either(machine):
    machine.apt(status=100)
    machine.install(status=100)
    assert (enabled(), POLICY.exists(), STARTED.exists()) == ([], False, False)


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGHUP, signal.SIGINT])
def test_an_interrupted_installation_leaves_nothing_either(machine, number):
    machine.apt(before="touch /run/tested.apt; sleep 2")
    process = machine.start()
    await_that(lambda: os.path.exists("/run/tested.apt"))
    assert POLICY.exists()
    process.send_signal(number)
    said = process.communicate(timeout=60)[0]
    os.unlink("/run/tested.apt")
    assert process.returncode == 128 + number, said
    assert (enabled(), POLICY.exists(), STARTED.exists()) == ([], False, False)


def test_what_a_killed_installation_leaves_forbids_nothing_and_goes_with_the_next(machine):
    machine.apt(before="touch /run/tested.apt; exec sleep 60")
    process = machine.start()
    await_that(lambda: os.path.exists("/run/tested.apt"))
    assert subprocess.run([POLICY], check=False).returncode == 101
    os.killpg(process.pid, signal.SIGKILL)
    process.communicate()
    os.unlink("/run/tested.apt")
    assert subprocess.run([POLICY], check=False).returncode == 0
    machine.apt()
    machine.install()
    assert (enabled(), POLICY.exists(), STARTED.exists()) == ([], False, False)


def test_a_policy_of_the_administrator_stands(machine):
    write(POLICY, "#!/bin/sh\nexit 101 # mine\n")
    machine.install()
    assert POLICY.read_text(encoding="ascii") == "#!/bin/sh\nexit 101 # mine\n"
    assert enabled() == [], said
