"""The internet as the newcomer's server sees it: the two public authorities that the README names,
under their own names and on their own port, in a network namespace of its own.

    this sandbox 203.0.113.2 -- 203.0.113.1 "internet": nginx on port 443, pebble behind it
"""

import json
import re
import subprocess

from cryptography.hazmat.primitives.asymmetric import rsa

from lib.issuer import Issuer, pem

PRODUCTION, STAGING = "acme-v02.api.letsencrypt.org", "acme-staging-v02.api.letsencrypt.org"
SERVER, AUTHORITY = "203.0.113.2", "203.0.113.1"

FRONT = """
daemon off;
pid {folder}/nginx.pid;
error_log {folder}/nginx.error;
events {{ }}
http {{
  log_format asked "$host $request_method $uri";
  access_log {folder}/asked asked;
  client_body_temp_path {folder}/body;
  proxy_temp_path {folder}/proxy;
  fastcgi_temp_path {folder}/fastcgi;
  uwsgi_temp_path {folder}/uwsgi;
  scgi_temp_path {folder}/scgi;
  server {{
    listen {authority}:443 ssl;
    ssl_certificate {folder}/cert.pem;
    ssl_certificate_key {folder}/key.pem;
    proxy_set_header Host $host;
    location = /directory {{ proxy_pass https://127.0.0.1:14000/dir; }}
    location / {{ proxy_pass https://127.0.0.1:14000; }}
  }}
}}
"""


class Internet:
    def __init__(self, servers):
        self._servers = servers
        self._folder = servers.workspace + "/internet"
        self._connect()
        self._certify()
        servers.spawn(_inside("pebble-challtestsrv", "-dns01", "127.0.0.1:8053", "-management",
                              "127.0.0.1:8055", "-defaultIPv4", SERVER, "-defaultIPv6", "",
                              "-http01", "", "-https01", "", "-tlsalpn01", ""),
                      ready=lambda: _listens(8055))
        self._servers.write(self._folder + "/pebble.json", json.dumps({"pebble": {
            "listenAddress": "127.0.0.1:14000", "managementListenAddress": "127.0.0.1:15000",
            "certificate": self._folder + "/cert.pem", "privateKey": self._folder + "/key.pem",
            "httpPort": 80, "tlsPort": 443, "ocspResponderURL": "",
            "externalAccountBindingRequired": False}}))
        servers.spawn(_inside("pebble", "-config", self._folder + "/pebble.json",
                              "-dnsserver", "127.0.0.1:8053"),
                      env={"PEBBLE_VA_NOSLEEP": "1", "PEBBLE_WFE_NONCEREJECT": "0",
                           "PEBBLE_AUTHZREUSE": "0"}, ready=lambda: _listens(14000))
        self._servers.write(self._folder + "/nginx.conf",
                            FRONT.format(folder=self._folder, authority=AUTHORITY))
        servers.spawn(_inside("nginx", "-c", self._folder + "/nginx.conf"),
                      ready=lambda: _listens(443))

    def orders(self):
        """The authorities that were asked for a certificate, in the order of the requests."""
        with open(self._folder + "/asked", encoding="utf-8") as log:
            return re.findall(r"^(\S+) POST /order-plz$", log.read(), re.MULTILINE)

    @staticmethod
    def close():
        subprocess.run(["ip", "netns", "del", "internet"], check=False)

    @staticmethod
    def _connect():
        for command in ("netns add internet", "-n internet link set lo up",
                        "link add home type veth peer name eth0 netns internet",
                        f"addr add {SERVER}/24 dev home", "link set home up",
                        f"-n internet addr add {AUTHORITY}/24 dev eth0",
                        "-n internet link set eth0 up"):
            subprocess.run(["ip", *command.split()], check=True)

    def _certify(self):
        """Whoever certifies the web's servers does so for the authorities, too."""
        issuer = Issuer("Web PKI of the test", intermediates=0)
        key = rsa.generate_private_key(65537, 2048)
        self.web_root = pem(issuer.root)
        self._servers.write(self._folder + "/cert.pem",
                            pem(issuer.issue([PRODUCTION, STAGING], key.public_key())))
        self._servers.write(self._folder + "/key.pem", pem(key), 0o600)


def _inside(*argv):
    return ["/usr/bin/nsenter", "--net=/run/netns/internet", *argv]


def _listens(port):
    shown = subprocess.run(_inside("ss", "-Hltn", f"sport = :{port}"), text=True, check=True,
                           stdout=subprocess.PIPE).stdout
    return shown != ""
