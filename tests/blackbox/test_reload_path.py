"""What the program starts finds its tools wherever the program itself was started from."""

import time

import pytest
from lib import expect
from lib.archive_cli import ArchiveCli
from lib.nginx import Nginx

CRON = {"PATH": "/usr/bin:/bin"}  # cron's own, as the renewal job gets it


def workers(master):
    with open(f"/proc/{master}/task/{master}/children", encoding="ascii") as children:
        return set(children.read().split())


def wait_until(condition):
    deadline = time.monotonic() + 10
    while not condition():
        assert time.monotonic() < deadline
        time.sleep(0.05)


@pytest.mark.parametrize("path", [CRON, {"PATH": ""}, {}])
def test_nginx_is_reloaded_by_its_plain_name(host, path):
    Nginx(host).start()
    master = expect.read(host.workspace + "/nginx.pid").strip()
    wait_until(lambda: workers(master))
    before = workers(master)
    cli = ArchiveCli(host)
    cli.certificate("aaa")
    cli.reloads.script(then=f"exec nginx -c {host.workspace}/nginx.conf -s reload")
    result = cli.bind("aaa", env=path)
    assert (result.status, result.errors) == (0, [])
    wait_until(lambda: workers(master) and not workers(master) & before)


def test_hook_finds_the_sbin_folders(host):
    cli = ArchiveCli(host)
    cli.certificate("aaa")
    log = host.workspace + "/path"
    host.hook("service-running", "exit 0\n")
    host.hook("service-reload", f'echo "$PATH" > {log}; command -v nginx >> {log}\n')
    cli.bind("aaa", env=CRON)
    cli.run("deploy", "aaa", env=CRON)
    assert expect.read(log).splitlines() == [
        "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "/usr/sbin/nginx"]
