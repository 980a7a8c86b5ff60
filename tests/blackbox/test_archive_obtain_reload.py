"""kova-archive obtain --reload: the service gets the example of a reload script along with its
certificate, as with bind."""

import os

import pytest
from lib import expect
from lib.archive_cli import ArchiveCli, refused
from lib.obtain import BIND, certificate, nothing_left, obtain

EXAMPLE = "/usr/kova/share/doc/kova-letsencrypt/examples/reload/nginx"
SCRIPT = "/usr/libexec/certificate.d/nginx"


@pytest.fixture(autouse=True)
def http_alone(host):
    host.settings(skipdns01=True, orderattempts=1)


def test_the_script_is_put_in_place_and_runs_with_the_deployment(host, ca):
    log = host.workspace + "/reloaded"
    host.write(EXAMPLE, f'#!/bin/sh\necho "$0" "$@" >> {log}\n')
    result = obtain(host, ca, *BIND, "--reload", "nginx")
    assert (result.status, result.stderr) == (0, "")
    assert result.stdout.splitlines()[4:] == [f"Its reload script is {SCRIPT} now."]
    assert expect.read(SCRIPT) == expect.read(EXAMPLE) and expect.mode(SCRIPT) == 0o755
    assert expect.read(log) == f"{SCRIPT} web\n"


def test_a_script_that_is_there_is_left_as_it_is(host, ca):
    cli = ArchiveCli(host)
    before = expect.read(cli.reloads.script())
    document = obtain(host, ca, *BIND, "--reload", "nginx", "--json").document
    assert (document["reload_script"], document["reload_script_made"]) == (SCRIPT, False)
    assert expect.read(SCRIPT) == before and cli.reloads.lines == ["nginx web"]


def test_without_the_option_nothing_is_put_in_place(host, ca):
    result = obtain(host, ca, *BIND)
    assert len(result.stdout.splitlines()) == 4 and not os.path.exists(SCRIPT)


def test_a_script_that_fails_is_a_line_on_standard_error(host, ca):
    ArchiveCli(host).reloads.script(then="exit 5")
    result = obtain(host, ca, *BIND)
    assert result.status == 0
    assert result.stderr == ("kova-archive: obtain: the reload script of nginx/web ended with "
                             "status 5\n")


@pytest.mark.parametrize("options, message", [
    (["--reload", "nginx"], "--reload is for --bind"),
    ([*BIND, "--reload", "lighttpd"],
     "--reload knows no server [lighttpd], but apache2, dovecot, haproxy, nginx, postfix")])
def test_what_cannot_be_is_refused_before_the_authority_is_asked(host, ca, options, message):
    refused(obtain(host, ca, *options), message, "obtain")
    assert ca.requests == [] and not os.path.exists(SCRIPT)
    nothing_left(host)


def test_what_is_left_to_do_names_the_script(host, ca):
    host.mount("/usr/libexec/certificate.d", size="4k")
    host.write("/usr/libexec/certificate.d/full", b"x" * 4096)
    result = obtain(host, ca, *BIND, "--reload", "nginx")
    identity = os.path.basename(certificate(host))
    assert result.status == 1
    assert f"cannot write {SCRIPT}: No space left on device" in result.stderr
    assert f"To go on: kova-archive bind {identity} --subscriber 'nginx'" in result.stderr
    assert result.stderr.endswith(" --reload nginx\n")
