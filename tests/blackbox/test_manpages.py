"""The manual pages as installed: found by a stock man, rendered without a complaint, and naming
what the program really has."""

import glob
import gzip
import os
import re
import subprocess
import time

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
    # Whether the pages referred to are known is a matter of the host's index. Pages of the system
    # itself leave its name to the renderer; ours are of another one.
    complaints = [line for line in done.stdout.splitlines()
                  if "manual not found" not in line and "operating system explicitly" not in line]
    assert complaints == []


@pytest.mark.parametrize("name", PAGES)
def test_head_and_foot_of_a_page_are_ours(host, name):
    version = archive_run(host, "--version").split()[1]
    first, *_, last = rendered(name).strip().splitlines()
    title = f"{name.upper()}({PAGES[name]})"
    volume = {5: "File Formats", 8: "System Manager's"}[PAGES[name]]
    assert " ".join(first.split()) == f"{title} Kova {volume} Manual {title}"
    ours = f"kova-letsencrypt {version}"
    date = re.fullmatch(rf"{ours} +(\w+ \d+, \d{{4}}) +{ours}", last)[1]
    assert time.strptime(date, "%B %d, %Y")


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


def archive_run(host, *arguments):
    return host.run(*arguments, program="/usr/kova/sbin/kova-archive").stdout


def archive_commands(host):
    return re.findall(r"^  ([a-z-]+) ", archive_run(host, "--help"), re.MULTILINE)


def archive_options(host, command):
    """Those of its own: all commands have --json and --help."""
    told = re.findall(r"^  (--?[a-zA-Z-]+)", archive_run(host, command, "--help"), re.MULTILINE)
    assert {"--json", "--help"} <= set(told)
    return set(told) - {"--json", "--help"}


def archive_source():
    with gzip.open(STAGED + "/man8/kova-archive.8.gz", "rt", encoding="utf-8") as page:
        return page.read()


def options_in(source):
    return {"-" + name.replace("\\-", "-")
            for name in re.findall(r"\bFl ([a-zA-Z-][\w-]*)", source)} - {"--json", "--help"}


def test_the_synopsis_of_the_archive_is_that_of_its_help(host):
    synopsis = re.search(r"^\.Sh SYNOPSIS\n(.*?)^\.Sh", archive_source(), re.DOTALL | re.MULTILINE)[1]
    shown = {}
    for block in synopsis.split(".Nm\n")[1:]:
        command = re.match(r"\.Cm ([a-z-]+)", block)
        if command:
            shown.setdefault(command[1], set()).update(options_in(block))
    assert shown == {command: archive_options(host, command) for command in archive_commands(host)}


def test_every_command_and_option_of_the_archive_is_explained(host):
    described = re.search(r"^The commands are:\n(.*?)^Every command", archive_source(),
                          re.DOTALL | re.MULTILINE)[1]
    paragraphs = {}
    for block in re.split(r"^\.It Cm ", described, flags=re.MULTILINE)[1:]:
        command = re.match("[a-z-]+", block)[0]
        paragraphs[command] = paragraphs.get(command, "") + block
    assert list(paragraphs) == archive_commands(host)
    for command, text in paragraphs.items():
        assert archive_options(host, command) <= options_in(text), command


def test_paths_are_the_ones_in_use():
    page = rendered("kova-letsencrypt")
    for path in (paths.SETTINGS, paths.DEVICE_RECORD, paths.ARCHIVE, paths.ACCOUNTS, paths.HOOKS,
                 paths.WEBROOT, paths.CRON_JOB):
        assert path in page
