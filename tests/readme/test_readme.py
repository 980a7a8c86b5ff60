"""The README's command blocks, run as they stand: documentation that is followed cannot rot. Every name
leads to this host, but those of the authorities: an internet of the test's own has them."""

import datetime
import os
import re
import ssl
import time
import urllib.request

from cryptography import x509
from cryptography.hazmat.primitives.asymmetric import rsa
from document import PROJECT, blocks, read, section
from internet import PRODUCTION, STAGING
from lib import paths
from lib.issuer import Issuer, pem

NAME = "www.example.org"
SHOWN_ID = "aB3xYz"
QUICK_START = "Quick start on a Debian server"


def test_quick_start_leads_to_a_page_that_cron_keeps_certified(newcomer, internet):
    found = blocks(section(QUICK_START))
    assert [language for language, _ in found] == ["sh", "nginx", "sh", "text", "sh", "nginx", "sh"]
    build, http, trial, shown, obtain, https, finish = (content for _, content in found)

    newcomer.type(build)
    newcomer.boot()
    newcomer.write_site(http)
    said = newcomer.type(trial)
    staging_id = re.search(rf"^(\w{{6}}) is in {paths.ARCHIVE}/\1\.$", said, re.MULTILINE)[1]
    assert re.search(pattern_of(shown, staging_id), said), said
    for address in ("127.0.0.1", "[::1]"):
        assert "Welcome to nginx" in page(f"http://{address}/")
    said = newcomer.type(obtain.replace(SHOWN_ID, staging_id))
    identity = re.search(rf"^(\w{{6}}) is in {paths.ARCHIVE}/\1\.$", said, re.MULTILINE)[1]
    newcomer.write_site(http, https)
    ending = newcomer.type(finish)
    assert internet.orders() == [STAGING, PRODUCTION]
    assert staging_id not in ending
    row = next(line for line in ending.splitlines() if line.startswith(identity))
    assert NAME in row and "nginx/web" in row and "valid" in row
    findings = [line.split()[0] for line in ending.splitlines()
                if re.match("(ok|warning|failure) ", line)]
    assert "failure" not in findings and findings.count("ok") >= 7, ending
    wait_until_served(lambda leaf: names_of(leaf) == [NAME] and is_pebbles(leaf))
    for address in ("127.0.0.1", "[::1]"):
        assert "Welcome to nginx" in page(f"https://{address}/")

    grow_old(newcomer, identity)
    every_minute(newcomer)
    wait_until_served(is_pebbles, seconds=180)
    assert internet.orders() == [STAGING, PRODUCTION, PRODUCTION]


def pattern_of(shown, identity):
    """The answer that the README shows, with this system's id, dates and CA."""
    pattern = re.escape(shown.replace(SHOWN_ID, identity))
    pattern = re.sub(r"\\\(STAGING\\\)\\ Let's\\ Encrypt", ".*", pattern)
    return re.sub(r"\d+", r"\\d+", pattern.replace(identity, "\0")).replace("\0", identity)


def is_pebbles(leaf):
    return "Pebble" in leaf.issuer.rfc4514_string()


def grow_old(newcomer, identity):
    """The certificate that is served becomes one that Let's Encrypt issued long ago, so to speak."""
    issuer = Issuer("Let's Encrypt")
    issuer.now = lambda: datetime.datetime.utcnow() - datetime.timedelta(days=85)
    key = rsa.generate_private_key(65537, 2048)
    leaf, *chain = map(pem, issuer.chain(issuer.issue([NAME], key.public_key(), days=90)))
    for name, content in (("cert.pem", leaf), ("chain.pem", b"".join(chain)),
                          ("fullchain.pem", leaf + b"".join(chain)), ("privkey.pem", pem(key))):
        newcomer.root.write(f"{paths.ARCHIVE}/{identity}/{name}", content.decode(), 0o400)
    newcomer.type(f"kova-archive deploy {identity}")
    wait_until_served(lambda leaf: not is_pebbles(leaf))


def every_minute(newcomer):
    """The renewal job's time has come; the rest of it stays."""
    job, changed = re.subn(r"^\d+ \d+ \* \* \*(?=\s+root\s)", "* * * * *",
                           newcomer.root.read(paths.CRON_JOB), flags=re.MULTILINE)
    assert changed == 1
    newcomer.root.write(paths.CRON_JOB, job)


def page(url):
    trusting = ssl.create_default_context()
    trusting.check_hostname, trusting.verify_mode = False, ssl.CERT_NONE
    with urllib.request.urlopen(url, timeout=10, context=trusting) as reply:
        assert reply.status == 200
        return reply.read().decode()


def names_of(certificate):
    return certificate.extensions.get_extension_for_class(
        x509.SubjectAlternativeName).value.get_values_for_type(x509.DNSName)


def wait_until_served(fits, seconds=20):
    """nginx takes up a new configuration in its own time, and its old processes answer for a while
    yet: a certificate counts once it was seen ten times in a row."""
    deadline = time.monotonic() + seconds
    while not all(leaf is not None and fits(leaf) for leaf in (served() for _ in range(10))):
        assert time.monotonic() < deadline
        time.sleep(0.2)


def served():
    """The certificate on port 443; None while nobody listens there."""
    try:
        shown = ssl.get_server_certificate(("127.0.0.1", 443))
    except OSError:
        return None
    return x509.load_pem_x509_certificate(shown.encode())


def test_the_two_commands_are_what_ci_runs():
    (language, content), = blocks(section("Try it"))
    commands = [line.split("#")[0].strip() for line in content.splitlines()]
    assert (language, commands) == ("sh", ["scripts/demo.sh", "scripts/test.sh"])
    for command in commands:
        assert os.access(os.path.join(PROJECT, command), os.X_OK)
        assert re.search(rf'^{re.escape(command)}( "\$@")?$', read(".ci/run"), re.MULTILINE)


def test_no_other_block_is_left_unrun():
    shells = [content for language, content in blocks(read("README.md")) if language == "sh"]
    run = [content for title in ("Try it", QUICK_START)
           for language, content in blocks(section(title)) if language == "sh"]
    # These need an account or a zone of one's own: other tests try the same against real servers.
    elsewhere = [content for title in ("Another authority", "A wildcard")
                 for language, content in blocks(section(title)) if language == "sh"]
    assert shells == run + elsewhere
