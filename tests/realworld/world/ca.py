"""Debian's pebble as the certificate authority, with a server certificate that the appliance
trusts."""

import json

from cryptography.hazmat.primitives.asymmetric import rsa

from lib.issuer import Issuer, pem
from lib.trust_store import trust

from .name_server import CA_NAME
from .network import INTERNET, inside

DIRECTORY = f"https://{CA_NAME}:14000/dir"


class Pebble:
    def __init__(self, host, network):
        issuer = Issuer("Web PKI of the test", intermediates=0)
        key = rsa.generate_private_key(65537, 2048)
        folder = host.workspace + "/pebble"
        host.write(folder + "/cert.pem", pem(issuer.issue([CA_NAME], key.public_key())))
        host.write(folder + "/key.pem", pem(key), 0o600)
        host.write(folder + "/config.json", json.dumps({"pebble": {
            "listenAddress": f"{INTERNET}:14000", "managementListenAddress": f"{INTERNET}:15000",
            "certificate": folder + "/cert.pem", "privateKey": folder + "/key.pem",
            "httpPort": 80, "tlsPort": 443, "ocspResponderURL": "",
            "externalAccountBindingRequired": False}}))
        trust(pem(issuer.root))
        self._network = network
        self.process = host.spawn(
            inside("internet", "pebble", "-config", folder + "/config.json",
                   "-dnsserver", f"{INTERNET}:53"),
            env={"PEBBLE_VA_NOSLEEP": "1", "PEBBLE_WFE_NONCEREJECT": "0",
                 "PEBBLE_AUTHZREUSE": "0"},
            ready=lambda: network.fetch("internet", DIRECTORY, quiet=True) is not None)

    def root(self):
        """The PEM of the root that its certificates lead to."""
        return self._network.fetch("internet", f"https://{CA_NAME}:15000/roots/0")
