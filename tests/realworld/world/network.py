"""A home network and the internet: three network namespaces and a neighbour in the home.

    appliance 192.168.77.10 --+
                              +-- 192.168.77.1 router 203.0.113.2 -- 203.0.113.1 internet
    neighbour 192.168.77.20 --+

The router forwards from the home to the internet with address translation, and nothing the other
way but what its rules say.
"""

import shlex
import subprocess

APPLIANCE, NEIGHBOUR, GATEWAY = "192.168.77.10", "192.168.77.20", "192.168.77.1"
ROUTER, INTERNET = "203.0.113.2", "203.0.113.1"
ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LANG": "C.UTF-8", "HOME": "/run/home"}

# The chains that the UPnP daemon fills, and where a router's own rules call them.
ROUTER_RULES = """
table inet filter {
  chain input {
    type filter hook input priority 0
    iifname "wan" ct state established,related accept
    iifname "wan" meta l4proto icmp accept
    iifname "wan" reject with tcp reset
  }
  chain forward {
    type filter hook forward priority 0; policy drop
    ct state established,related accept
    iifname "home" accept
    jump miniupnpd
    jump static_forward
  }
  chain prerouting {
    type nat hook prerouting priority -100
    jump prerouting_miniupnpd
    jump static_prerouting
  }
  chain postrouting {
    type nat hook postrouting priority 100
    jump postrouting_miniupnpd
    oifname "wan" masquerade
  }
  chain miniupnpd { }
  chain prerouting_miniupnpd { }
  chain postrouting_miniupnpd { }
  chain static_forward { }
  chain static_prerouting { }
}
"""


class Network:
    NAMESPACES = ("appliance", "neighbour", "router", "internet")

    def __init__(self):
        self.log = []

    def start(self):
        for name in self.NAMESPACES:
            self._ip("netns", "add", name)
            self._ip("-n", name, "link", "set", "lo", "up")
        self._link("appliance", "eth0", "router", "port1")
        self._link("neighbour", "eth0", "router", "port2")
        self._link("internet", "eth0", "router", "wan")
        self._ip("-n", "router", "link", "add", "home", "type", "bridge", "mcast_snooping", "0")
        for port in ("port1", "port2"):
            self._ip("-n", "router", "link", "set", port, "master", "home")
        for name, device, address in (("router", "home", GATEWAY), ("router", "wan", ROUTER),
                                      ("appliance", "eth0", APPLIANCE),
                                      ("neighbour", "eth0", NEIGHBOUR),
                                      ("internet", "eth0", INTERNET)):
            self._ip("-n", name, "addr", "add", address + "/24", "dev", device)
            self._ip("-n", name, "link", "set", device, "up")
        self._ip("-n", "router", "route", "add", "default", "via", INTERNET)
        for name in ("appliance", "neighbour"):
            self._ip("-n", name, "route", "add", "default", "via", GATEWAY)
            self._ip("-n", name, "route", "add", "224.0.0.0/4", "dev", "eth0")
        self.run("router", "sysctl", "-qw", "net.ipv4.ip_forward=1")
        self.run("router", "nft", "-f", "-", stdin=ROUTER_RULES)

    def stop(self):
        for name in self.NAMESPACES:
            subprocess.run(["ip", "netns", "del", name], check=False)

    def run(self, name, *argv, stdin="", status=0, timeout=60, quiet=False):
        """Runs a program in a namespace; returns its output. `status` None: any will do; `quiet`:
        not worth telling."""
        done = subprocess.run(inside(name, *argv), input=stdin, text=True, env=ENVIRONMENT,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=timeout,
                              check=False)
        told = f"{name}$ {shlex.join(argv)}\n{done.stdout}status {done.returncode}"
        if not quiet:
            self.log.append(told)
        assert status is None or done.returncode == status, told
        return done.stdout

    # -- what the user of a browser or of a router's menu does ------------------------------------

    def fetch(self, name, url, *options, quiet=False):
        """The page at that URL as seen from there, or None when nothing answers."""
        output = self.run(name, "curl", "-sS", "--max-time", "5", *options, url, status=None,
                          quiet=quiet)
        return None if output.startswith("curl: (") else output

    def is_open(self, port):
        """Whether somebody in the internet can connect to that port of the router."""
        return "connected" in self.run("internet", "timeout", "3", "bash", "-c",
                                       f"exec 3<>/dev/tcp/{ROUTER}/{port} && echo connected",
                                       status=None)

    def forward(self, port, to):
        """A rule that the owner of the router made by hand."""
        self.run("router", "nft", "add", "rule", "inet", "filter", "static_prerouting",
                 "iifname", "wan", "tcp", "dport", str(port), "dnat", "ip", "to", f"{to}:{port}")
        self.run("router", "nft", "add", "rule", "inet", "filter", "static_forward",
                 "iifname", "wan", "ip", "daddr", to, "tcp", "dport", str(port), "accept")

    def drop_from_internet(self, port):
        """Packets of the internet to that port of the router vanish, so that whoever connects
        waits. Returns a function that ends it."""
        self.run("internet", "nft", "-f", "-", stdin=f"""
table inet lost {{
  chain output {{
    type filter hook output priority 0
    ip daddr {ROUTER} tcp dport {port} drop
  }}
}}
""")
        return lambda: self.run("internet", "nft", "delete", "table", "inet", "lost")

    def report(self):
        rules = subprocess.run(inside("router", "nft", "list", "ruleset"), text=True,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        return "\n".join(self.log) + "\n--- the router's rules\n" + rules.stdout

    # -- inner -------------------------------------------------------------------------------------

    def _ip(self, *arguments):
        done = subprocess.run(["ip", *arguments], text=True, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, check=False)
        assert done.returncode == 0, (arguments, done.stdout)

    def _link(self, name, device, other, other_device):
        self._ip("link", "add", device, "netns", name, "type", "veth",
                 "peer", "name", other_device, "netns", other)
        self._ip("-n", other, "link", "set", other_device, "up")


def inside(name, *argv):
    """The command line that runs a program in a namespace, with the same files."""
    return ["/usr/bin/nsenter", f"--net=/run/netns/{name}", *argv]
