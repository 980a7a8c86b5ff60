"""The README's command blocks, run as they stand: documentation that is followed cannot rot. Only the
address of the authority is replaced, by that of a local one; every name leads to this host."""

import os
import re
import ssl
import time

from cryptography import x509
from document import PROJECT, blocks, read, section
from lib import paths
from lib.nginx import accepts

STAGING = "https://acme-staging-v02.api.letsencrypt.org/directory"
NAME = "www.example.org"


def test_quick_start_leads_to_a_served_certificate(newcomer, ca):
    found = blocks(section("Quick start on a Debian server"))
    assert [language for language, _ in found] == ["sh", "nginx", "sh", "json", "sh", "nginx", "sh"]
    build, http, issue, document, bind, https, finish = (content for _, content in found)
    assert STAGING in issue

    newcomer.type(build)
    newcomer.boot_web_server()
    newcomer.boot_cron()
    newcomer.write_site(http)
    result = newcomer.type(issue.replace(STAGING, ca.directory))
    found = re.search(rf'^{{\n   "cert_path" : "{paths.ARCHIVE}/(\w{{6}})",\n   "error" : 0\n}}$',
                      result, re.MULTILINE)
    assert found, result
    assert document.replace("aB3xYz", found[1]) == found[0] + "\n"
    listing = newcomer.type(bind)
    assert NAME in listing and "nginx/web" in listing
    newcomer.write_site(http, https)
    ending = newcomer.type(finish)
    assert "/usr/kova/sbin/kova-letsencrypt renew-all" in ending
    findings = [line.split()[0] for line in ending.splitlines()
                if re.match("(ok|warning|failure) ", line)]
    assert "failure" not in findings and findings.count("ok") >= 7, ending
    served = wait_for_https()
    assert names_of(served) == [NAME]
    assert "Pebble" in served.issuer.rfc4514_string()


def names_of(certificate):
    return certificate.extensions.get_extension_for_class(
        x509.SubjectAlternativeName).value.get_values_for_type(x509.DNSName)


def wait_for_https():
    """nginx takes up a new configuration in its own time."""
    for _ in range(100):
        if accepts(443):
            return x509.load_pem_x509_certificate(
                ssl.get_server_certificate(("127.0.0.1", 443)).encode())
        time.sleep(0.1)
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
    # These need an account or a zone of one's own: other tests try the same against real servers.
    elsewhere = [content for title in ("Another authority", "A wildcard")
                 for language, content in blocks(section(title)) if language == "sh"]
    assert shells == run + elsewhere
