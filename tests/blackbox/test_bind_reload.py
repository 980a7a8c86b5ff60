"""kova-archive bind --reload: the example of a reload script becomes the subscriber's."""

import glob
import os

import pytest

from lib import expect
from lib.archive_cli import ArchiveCli, failed, refused
from lib.renewal import deployed, folder_of

EXAMPLES = "/usr/kova/share/doc/kova-letsencrypt/examples/reload"
OF_PACKAGE = "/usr/share/doc/kova-letsencrypt/examples/reload"
SERVERS = ["apache2", "dovecot", "haproxy", "nginx", "postfix"]
SCRIPT = "/usr/libexec/certificate.d/nginx"


@pytest.fixture
def cli(host):
    cli = ArchiveCli(host)
    cli.certificate("abc")
    return cli


@pytest.fixture
def stub(host):
    """An example that tells what it was run with, in the place of nginx's."""
    log = host.workspace + "/reloaded"
    host.write(EXAMPLES + "/nginx", f'#!/bin/sh\necho "$0" "$@" >> {log}\n', 0o644)
    return lambda: expect.read(log) if os.path.exists(log) else ""


def test_the_examples_are_those_that_it_knows():
    assert sorted(os.path.basename(name) for name in glob.glob(
        os.environ["KOVA_STAGE"] + EXAMPLES + "/*")) == SERVERS


@pytest.mark.parametrize("server", SERVERS)
def test_each_server_has_its_own(cli, server):
    result = cli.bind("abc", "--reload", server, subscriber=server)
    script = f"/usr/libexec/certificate.d/{server}"
    assert (result.status, result.stderr) == (0, "")
    assert result.stdout == (f"{server}/web uses abc now.\n"
                             f"Its reload script is {script} now.\n")
    assert expect.read(script) == expect.read(f"{EXAMPLES}/{server}")
    status = os.stat(script)
    assert (expect.mode(script), status.st_uid, status.st_gid) == (0o755, 0, 0)
    assert os.listdir(os.path.dirname(script)) == [server]


def test_it_runs_with_the_deployment_that_it_comes_with(cli, stub):
    result = cli.bind("abc", "--reload", "nginx", "--json")
    assert result.status == 0
    assert result.document == {"error": 0, "id": "abc", "subscriber": "nginx", "service": "web",
                               "moved_from": None, "reload_script": SCRIPT,
                               "reload_script_made": True}
    assert stub() == f"{SCRIPT} web\n"


def test_a_subscriber_of_another_name_gets_it_under_its_own(cli, stub):
    cli.bind("abc", "--reload", "nginx", subscriber="front")
    assert stub() == "/usr/libexec/certificate.d/front web\n"


def test_a_packages_script_lies_below_usr_local(cli, stub):
    assert not os.path.exists("/usr/local/libexec/certificate.d")
    cli.bind("abc", "--package", "--reload", "nginx", subscriber="tool")
    script = "/usr/local/libexec/certificate.d/tool"
    assert stub() == script + " web\n"
    assert expect.mode(os.path.dirname(script)) == 0o755


def test_a_script_that_is_there_is_left_as_it_is(cli):
    script = cli.reloads.script()
    before = (expect.read(script), os.stat(script).st_mtime_ns)
    result = cli.bind("abc", "--reload", "nginx")
    assert (result.status, result.stderr) == (0, "")
    assert result.stdout == ("nginx/web uses abc now.\n"
                             f"Its reload script {SCRIPT} was there and is left as it is.\n")
    assert (expect.read(script), os.stat(script).st_mtime_ns) == before
    assert cli.reloads.lines == ["nginx web"]
    again = cli.bind("abc", "--reload", "nginx", "--json").document
    assert (again["reload_script"], again["reload_script_made"]) == (SCRIPT, False)


def test_a_link_that_leads_nowhere_is_left_as_it_is(cli):
    os.symlink("/run/planted", SCRIPT)
    result = cli.bind("abc", "--reload", "nginx")
    assert result.status == 0 and "is left as it is" in result.stdout
    assert os.readlink(SCRIPT) == "/run/planted" and not os.path.exists("/run/planted")


def test_without_the_option_nothing_is_put_in_place(cli):
    result = cli.bind("abc")
    assert result.stdout == "nginx/web uses abc now.\n"
    assert not os.path.exists(SCRIPT)


@pytest.mark.parametrize("name", ["lighttpd", "", "../nginx", "NGINX"])
def test_another_server_is_a_usage_error_that_names_those_there_are(cli, name):
    refused(cli.bind("abc", "--reload", name),
            f"--reload knows no server [{name}], but apache2, dovecot, haproxy, nginx, postfix",
            "bind")
    assert cli.services("abc") == [] and not os.path.exists(SCRIPT)


def test_a_bind_that_is_refused_puts_nothing_in_place(cli):
    failed(cli.bind("def", "--reload", "nginx"), "bind: certificate [def] is not in the index")
    assert not os.path.exists(SCRIPT)


@pytest.fixture
def no_examples(cli):
    os.rename(EXAMPLES, EXAMPLES + ".away")


def test_the_examples_of_the_package_are_found_as_well(cli, host, no_examples):
    host.mount("/usr/share/doc")
    host.write(OF_PACKAGE + "/nginx", "#!/bin/sh\n# the package's\n")
    assert cli.bind("abc", "--reload", "nginx").status == 0
    assert expect.read(SCRIPT) == "#!/bin/sh\n# the package's\n"


def test_examples_that_are_not_installed_fail_before_anything_is_touched(cli, host, no_examples):
    host.mount("/usr/share/doc")
    failed(cli.bind("abc", "--reload", "nginx"),
           "bind: the example of a reload script for nginx is not installed")
    assert cli.services("abc") == []


def test_a_script_that_cannot_be_written_is_a_failure(cli, host):
    host.mount("/usr/libexec/certificate.d", size="4k")
    host.write("/usr/libexec/certificate.d/full", b"x" * 4096)
    failed(cli.bind("abc", "--reload", "nginx"),
           f"bind: cannot write {SCRIPT}: No space left on device")
    assert os.listdir("/usr/libexec/certificate.d") == ["full"]
    assert cli.services("abc") == []


def test_what_it_binds_is_deployed(cli, stub):
    cli.bind("abc", "--reload", "nginx")
    deployed(folder_of("abc"))
