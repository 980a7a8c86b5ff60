"""Debian's knot as the name server of the internet: the zone of the CA and of the home, the vendor's
zone, which takes signed updates, and a zone of the owner's, which takes some from the appliance."""

import re
import subprocess

from .network import ENVIRONMENT, INTERNET, ROUTER, inside

# Of lengths that need no "=" at the end of a request's base64 text: unlike public CAs, pebble
# refuses that.
HOME_NAME = "blog.home.example"
HOST_NAME = "nas1.ddns.example"      # the appliance at the vendor's dynamic-DNS service

CA_NAME = "acme.ca.example"
VENDOR_ZONE = "ddns.example"
VENDOR_SERVER = "ns1.ddns.example"

OWN_ZONE = "garden.example"          # the owner's; the appliance may change proofs in it
OWN_KEY_NAME = "appliance-key"
OWN_KEY = "YW5vdGhlciBzZWNyZXQsIG9mIHRoZSBvd25lcidzIHpvbmU="  # base64, hmac-sha256

KEY_NAME = "endpoint-key"
KEY = "c2lnbmVkIHVwZGF0ZXMgb2YgdGhlIHZlbmRvcidzIHpvbmU="  # base64, hmac-sha256

_ZONES = {
    "example": f"""
@ SOA ns.example. hostmaster.example. 1 3600 600 86400 1
@ NS ns.example.
ns A {INTERNET}
acme.ca A {INTERNET}
update.ddns-service A {INTERNET}
blog.home A {ROUTER}
ddns NS ns1.ddns.example.
ns1.ddns A {INTERNET}
garden NS ns.garden.example.
ns.garden A {INTERNET}
""",
    VENDOR_ZONE: f"""
@ SOA ns1.ddns.example. hostmaster.ddns.example. 1 3600 600 86400 1
@ NS ns1.ddns.example.
ns1 A {INTERNET}
nas1 A {ROUTER}
""",
    OWN_ZONE: f"""
@ SOA ns.garden.example. hostmaster.garden.example. 1 3600 600 86400 1
@ NS ns.garden.example.
@ A {ROUTER}
ns A {INTERNET}
_acme-challenge.alias CNAME alias.proofs.garden.example.
""",
}


class NameServer:
    def __init__(self, host):
        self._host = host
        self._folder = host.workspace + "/knot"
        for zone, records in _ZONES.items():
            host.write(f"{self._folder}/{zone}.zone", f"$ORIGIN {zone}.\n$TTL 1\n{records}")
        self._config = self._folder + "/knot.conf"
        host.write(self._config, f"""
server:
    rundir: "{self._folder}"
    listen: {INTERNET}@53
log:
  - target: stderr
    any: info
database:
    storage: "{self._folder}"
key:
  - id: {KEY_NAME}
    algorithm: hmac-sha256
    secret: {KEY}
  - id: {OWN_KEY_NAME}
    algorithm: hmac-sha256
    secret: {OWN_KEY}
acl:
  - id: endpoint
    key: {KEY_NAME}
    action: update
  - id: appliance
    key: {OWN_KEY_NAME}
    action: update
    update-type: TXT
template:
  - id: default
    storage: "{self._folder}"
    zonefile-sync: -1
    journal-content: all
zone:
  - domain: example
    file: example.zone
  - domain: {VENDOR_ZONE}
    file: {VENDOR_ZONE}.zone
    acl: endpoint
  - domain: {OWN_ZONE}
    file: {OWN_ZONE}.zone
    acl: appliance
""")
        # Everybody in these networks asks this server.
        host.write("/etc/resolv.conf", f"nameserver {INTERNET}\noptions timeout:1 attempts:2\n")
        self.start()

    def start(self):
        self._process = self._host.spawn(inside("internet", "knotd", "-c", self._config),
                                         ready=lambda: self.ask("ns.example", "A") == [INTERNET])

    def stop(self):
        self._host.end(self._process)

    def ask(self, name, kind="TXT"):
        """The answers to a question from the internet, as kdig prints them."""
        done = subprocess.run(inside("internet", "kdig", f"@{INTERNET}", "+short", "+retry=0",
                                     "+timeout=1", name, kind), text=True, env=ENVIRONMENT,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=False)
        return [line.strip('"') for line in done.stdout.splitlines() if not line.startswith(";")]

    def history(self, zone=VENDOR_ZONE):
        """The TXT records that came into the zone and left it, in order, from the server's own
        journal: ("+", name, text) and ("-", name, text)."""
        done = subprocess.run(["kjournalprint", "-c", self._config, zone], text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=True)
        plain = re.sub(r"\x1b\[[\d;]*m", "", done.stdout)
        events, sign = [], None
        for line in plain.splitlines():
            if match := re.match(r"-{2,}|\+{2,}|;; ?(Removed|Added)", line):
                sign = "-" if line[0] == "-" or match[1] == "Removed" else "+"
            elif match := re.match(r'(\S+?)\.\s+\d+\s+(?:IN\s+)?TXT\s+"(.*)"', line):
                events.append((sign, match[1], match[2]))
        return events
