"""kova-archive obtain, and what it left."""

import os

from . import expect, paths
from .archive_cli import PROGRAM

NAMES = ["www.host.example", "host.example"]
MAIL = "admin@host.example"
BIND = ("--bind", "nginx/web", "--owner", "root", "--display-name", "Web server")


def obtain(host, ca, *more, names=NAMES, mail=MAIL, **options):
    """At that CA, for the names (a list, or the text of -d)."""
    text = names if isinstance(names, str) else ",".join(names)
    server = () if ca is None else ("--server", ca.directory)
    return host.run("obtain", "-d", text, "-m", mail, *server, *more, program=PROGRAM, **options)


def certificate(host):
    """The folder of the one certificate that there is, whose content is checked."""
    folder, = host.certificates()
    expect.certificate_folder(folder)
    return folder


def nothing_left(host):
    """No certificate, no unfinished folder, no token, no renewal job."""
    left = [name for name in os.listdir(paths.ARCHIVE) if name != "INFO"]
    assert left == [] and not os.path.exists(paths.CRON_JOB)
    assert not os.path.isdir(paths.TOKENS) or os.listdir(paths.TOKENS) == []
