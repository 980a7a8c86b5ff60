"""The router's UPnP daemon: Debian's miniupnpd, filling the chains of world/network.py."""

import os
import re
from dataclasses import dataclass

from .network import APPLIANCE, GATEWAY, inside

# The daemon refuses to serve behind a private address, and documentation ones count as such. This
# is only what it tells its clients; nothing is ever sent there.
PUBLIC_LABEL = "11.22.33.44"

FAKE_TIME = "/usr/lib/x86_64-linux-gnu/faketime/libfaketime.so.1"

DOOR_KEEPER = os.path.join(os.path.dirname(__file__), "..", "permanent_leases.py")

ALLOW_ALL = ["allow 0-65535 0.0.0.0/0 0-65535"]
_DENY_REST = ["deny 0-65535 0.0.0.0/0 0-65535"]


def allow_only(*ports):
    return [f"allow {port} 0.0.0.0/0 {port}" for port in ports] + _DENY_REST


@dataclass(frozen=True)
class Mapping:
    port: int          # on the router
    client: str
    inner_port: int
    description: str
    lease: int         # seconds left; 0: for ever


class UpnpRouter:
    """Its clock can be put forward, which is how a test waits for the end of a lease."""

    def __init__(self, host, network, rules=ALLOW_ALL):
        self._network = network
        self._clock = host.workspace + "/router-clock"
        self.pass_time(0)
        config = host.workspace + "/miniupnpd.conf"
        host.write(config, "\n".join([
            "ext_ifname=wan", f"ext_ip={PUBLIC_LABEL}", "listening_ip=home",
            "http_port=5000", "enable_upnp=yes", "enable_natpmp=no", "secure_mode=no",
            "upnp_forward_chain=miniupnpd", "upnp_nat_chain=prerouting_miniupnpd",
            "upnp_nat_postrouting_chain=postrouting_miniupnpd",
            "uuid=73a9c4c8-6d4e-4a4f-9d2c-0c0a2b6f3d11", *rules, ""]))
        self._host = host
        self._process = host.spawn(
            inside("router", "miniupnpd", "-d", "-f", config,
                   "-P", host.workspace + "/miniupnpd.pid"),
            env={"LD_PRELOAD": FAKE_TIME, "FAKETIME_TIMESTAMP_FILE": self._clock,
                 "FAKETIME_NO_CACHE": "1"},
            ready=self._answers)

    def _answers(self):
        page = f"http://{GATEWAY}:5000/rootDesc.xml"
        return self._network.fetch("appliance", page, quiet=True) is not None

    def only_permanent_leases(self):
        """From now on a mapping with an end is answered with error 725. Debian has no such router
        to install, so a door-keeper stands before the daemon."""
        self._door = self._host.spawn(
            inside("router", "/usr/bin/python3", "-B", DOOR_KEEPER, "5001", GATEWAY, "5000"),
            ready=lambda: self._network.fetch("router", f"http://{GATEWAY}:5001/rootDesc.xml",
                                              quiet=True) is not None)
        self._network.run("router", "nft", "insert", "rule", "inet", "filter", "prerouting",
                          "iifname", "home", "tcp", "dport", "5000", "redirect", "to", ":5001")

    def refused_leases(self):
        """The leases, in seconds, that were answered with error 725."""
        return [int(lease) for lease in
                re.findall(r"725 to a lease of (\d+)", self._host.output(self._door))]

    def pass_time(self, seconds):
        with open(self._clock, "w", encoding="ascii") as clock:
            clock.write(f"+{seconds}\n")

    def mappings(self):
        """What a client of the router is told, e.g. by its menu."""
        listed = self._network.run("neighbour", "upnpc", "-l", status=None)
        assert "Found valid IGD" in listed, listed
        found = re.findall(r"^ *\d+ TCP +(\d+)->([\d.]+):(\d+) +'(.*?)' '.*?' (\d+)$", listed,
                           re.MULTILINE)
        return [Mapping(int(port), client, int(inner), text, int(lease))
                for port, client, inner, text, lease in found]

    def asked(self):
        """Every mapping that was asked for and taken away, in order: ("add", port, client, lease),
        ("delete", port)."""
        events = []
        for line in self._host.output(self._process).splitlines():
            if match := re.search(r"AddPortMapping: ext port (\d+) to ([\d.]+):\d+ protocol TCP "
                                  r"for: .* leaseduration=(\d+)", line):
                events.append(("add", int(match[1]), match[2], int(match[3])))
            elif match := re.search(r"DeletePortMapping: external port: (\d+)", line):
                events.append(("delete", int(match[1])))
        return events


OPENED = [("add", 80, APPLIANCE, 3600), ("add", 443, APPLIANCE, 3600)]
CLOSED = [("delete", 80), ("delete", 443)]
