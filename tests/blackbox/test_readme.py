"""The README's command blocks, run as they stand: documentation that is followed cannot rot. Only the
address of the authority is replaced, by that of a local one; every name leads to this host."""

import os
import re
import ssl
import subprocess

import pytest
from cryptography import x509
from lib import paths
from lib.nginx import accepts
from lib.real_ca import RealCa

PROJECT = os.path.realpath(os.path.join(os.path.dirname(__file__), "..", ".."))
STAGING = "https://acme-staging-v02.api.letsencrypt.org/directory"
SITE = "/etc/nginx/sites-enabled/default"
NAME = "www.example.org"


def read(name):
    with open(os.path.join(PROJECT, name), encoding="utf-8") as file:
        return file.read()


def blocks(text):
    """(language, content) of the fenced blocks, in order."""
    return re.findall(r"^```(\w+)\n(.*?)^```$", text, re.MULTILINE | re.DOTALL)


def section(title):
    return re.search(rf"^## {title}\n(.*?)(?=^## )", read("README.md"),
                     re.MULTILINE | re.DOTALL).group(1)


class Reader:
    """A person at the shell who does what the README says."""

    def __init__(self, host):
        self._host = host
        self._shell = []  # what was typed so far; variables live on

    def type(self, commands):
        """Runs the block after the variables of those before. Returns its output."""
        variables = [line for text in self._shell for line in text.splitlines()
                     if re.match(r"\w+=", line)]
        script = "\n".join(["set -euo pipefail", *variables, commands])
        done = subprocess.run(["/bin/bash", "-c", script], cwd=PROJECT, text=True, timeout=500,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, check=False,
                              env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LANG": "C.UTF-8",
                                   "HOME": "/run/home"})
        assert done.returncode == 0, f"{commands}\n{done.stdout}"
        self._shell.append(commands)
        return done.stdout

    def write_site(self, *configurations):
        with open(SITE, "w", encoding="utf-8") as site:
            site.write("\n".join(configurations))


@pytest.fixture
def nginx(host):
    """Debian's, with its own configuration."""
    return host.spawn(["/usr/sbin/nginx", "-g", "daemon off;"], ready=lambda: accepts(80))


def served_certificate():
    return x509.load_pem_x509_certificate(ssl.get_server_certificate(("127.0.0.1", 443)).encode())


def names_of(certificate):
    return certificate.extensions.get_extension_for_class(
        x509.SubjectAlternativeName).value.get_values_for_type(x509.DNSName)


def test_quick_start_leads_to_a_served_certificate(host, nginx):
    found = blocks(section("Quick start on a Debian server"))
    assert [language for language, _ in found] == ["sh", "nginx", "sh", "json", "sh", "nginx", "sh"]
    build, http, issue, _, bind, https, finish = (content for _, content in found)
    assert STAGING in issue
    ca = RealCa(host)
    reader = Reader(host)

    reader.type(build)
    reader.write_site(http)
    result = reader.type(issue.replace(STAGING, ca.directory))
    assert re.search(rf'"cert_path" : "{paths.ARCHIVE}/\w{{6}}"', result)
    assert '"error" : 0' in result
    listing = reader.type(bind)
    assert NAME in listing and "nginx/web" in listing
    reader.write_site(http, https)
    job = reader.type(finish)
    assert "/usr/kova/sbin/kova-letsencrypt renew-all" in job
    served = wait_for_https()
    assert names_of(served) == [NAME]
    assert "Pebble" in served.issuer.rfc4514_string()


def wait_for_https():
    """nginx takes up a new configuration in its own time."""
    for _ in range(100):
        if accepts(443):
            return served_certificate()
        subprocess.run(["/bin/sleep", "0.1"], check=True)
    raise AssertionError("nothing listens on port 443")


def test_the_two_commands_are_what_ci_runs():
    (language, content), = blocks(section("Try it"))
    commands = [line.split("#")[0].strip() for line in content.splitlines()]
    assert (language, commands) == ("sh", ["scripts/demo.sh", "scripts/test.sh"])
    for command in commands:
        assert os.access(os.path.join(PROJECT, command), os.X_OK)
        assert f"\n{command}\n" in read(".ci/run")


def test_no_other_block_is_left_unrun():
    shells = [content for language, content in blocks(read("README.md")) if language == "sh"]
    run = [content for title in ("Try it", "Quick start on a Debian server")
           for language, content in blocks(section(title)) if language == "sh"]
    assert shells == run
