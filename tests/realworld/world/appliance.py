"""The program, run on the appliance of the home network."""

import time

from lib import paths

from .ca import DIRECTORY
from .network import inside

MAIL = "admin@home.example"


def command(*arguments, installed=paths.PROGRAM):
    return inside("appliance", installed, *arguments)


def run(host, *arguments, installed=paths.PROGRAM, **options):
    """Runs one of the installed programs to its end; returns a Result."""
    program, *rest = command(*arguments, installed=installed)
    return host.run(*rest, program=program, **options)


def new_cert(host, *names, directory=DIRECTORY, **options):
    return run(host, "new-cert", "-s", directory, "-d", ";".join(names), "-m", MAIL, **options)


def wait_until(condition, seconds=20):
    deadline = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < deadline, "it never came true"
        time.sleep(0.2)
