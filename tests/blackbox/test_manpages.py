"""The manual pages as installed: found by a stock man, rendered without a complaint, and naming
what the program really has."""

import glob
import gzip
import os
import re
import subprocess

import pytest

from lib import paths

PAGES = {"kova-letsencrypt": 8, "kova-archive": 8, "kova-device.json": 5}
# Pages of the system that ours refer to.
NEIGHBOURS = {"cron": "8", "openssl": "1ssl", "syslog": "3", "systemctl": "1"}
STAGED = os.environ["KOVA_STAGE"] + "/usr/share/man"


@pytest.fixture(autouse=True)
def installed_pages():
    """The staged pages where a stock man looks for them."""
    subprocess.run(["/bin/cp", "-a", STAGED + "/.", "/usr/share/man"], check=True)


def run(*argv):
    done = subprocess.run(argv, text=True, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, check=False,
                          env={"PATH": "/usr/bin:/bin", "LANG": "C.UTF-8", "MANWIDTH": "100"})
    assert (done.returncode, done.stderr) == (0, ""), (argv, done)
    return done.stdout


def rendered(name):
    return run("man", str(PAGES[name]), name)


def words(text):
    return set(re.findall(r"[\w.-]+", text))


def test_these_are_all_the_pages():
    found = sorted(os.path.basename(page) for page in glob.glob(STAGED + "/man*/*"))
    assert found == sorted(f"{name}.{section}.gz" for name, section in PAGES.items())


@pytest.mark.parametrize("name", PAGES)
def test_a_page_is_clean(name):
    page = f"{STAGED}/man{PAGES[name]}/{name}.{PAGES[name]}.gz"
    assert run("man", "--warnings", "-E", "UTF-8", "-l", page) != ""
    plain = f"/tmp/{name}.{PAGES[name]}"
    with gzip.open(page) as packed, open(plain, "wb") as out:
        out.write(packed.read())
    done = subprocess.run(["mandoc", "-T", "lint", plain], text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL, check=False)
    # Whether the pages referred to are known is a matter of the host's index.
    complaints = [line for line in done.stdout.splitlines() if "manual not found" not in line]
    assert complaints == []


@pytest.mark.parametrize("name", PAGES)
def test_references_point_at_pages_that_exist(name):
    known = {**{page: str(section) for page, section in PAGES.items()}, **NEIGHBOURS}
    references = re.findall(r"([\w.-]+)\((\d\w*)\)", rendered(name))
    assert references
    for target, section in references:
        assert known.get(target.lower()) == section, target


def test_every_installed_setting_is_explained():
    with open(os.environ["KOVA_STAGE"] + paths.SETTINGS, encoding="utf-8") as settings:
        keys = re.findall(r'"(\w+)":', settings.read())
    assert keys and set(keys) <= words(rendered("kova-letsencrypt"))


def test_every_command_and_option_of_the_usage_is_explained(host):
    usage = host.run().stdout
    named = set(re.findall(r"^ +(-\w+|[a-z]+-?[a-z]+)\b", usage, re.MULTILINE))
    assert {"new-cert", "renew-all", "revoke", "-d", "-m", "-s", "-c", "-p", "-v"} <= named
    assert named <= words(rendered("kova-letsencrypt"))


def test_every_command_and_option_of_the_archive_is_explained(host):
    page = words(rendered("kova-archive"))
    commands = re.findall(r"^  ([a-z-]+) ", archive_help(host), re.MULTILINE)
    assert len(commands) == 9 and set(commands) <= page
    for command in commands:
        options = re.findall(r"^  (--[a-z-]+)", archive_help(host, command), re.MULTILINE)
        assert "--json" in options and set(options) <= page


def archive_help(host, *command):
    return host.run(*command, "--help", program="/usr/kova/sbin/kova-archive").stdout


def test_paths_are_the_ones_in_use():
    page = rendered("kova-letsencrypt")
    for path in (paths.SETTINGS, paths.DEVICE_RECORD, paths.ARCHIVE, paths.ACCOUNTS, paths.HOOKS,
                 paths.WEBROOT, paths.CRON_JOB):
        assert path in page
