"""Debian's pebble as the CA: a real server that validates over the loopback, with a web PKI of its
own that the host is made to trust."""

import json
import ssl
import urllib.error
import urllib.request

from cryptography.hazmat.primitives.asymmetric import rsa

from .ddns import ChallTestSrv
from .issuer import Issuer, pem
from .nginx import accepts
from .trust_store import trust

ACME, MANAGEMENT, NAMES, NAMES_MANAGEMENT = 14000, 15000, 8053, 8055


class RealCa:
    """Validates http-01 on port 80 of 127.0.0.1, where every name resolves to, and dns-01 against
    the records of `zone`, which is asked on 127.0.0.1 at `names_port`. `chaos` are pebble's own
    switches for what is otherwise left to chance, e.g. PEBBLE_WFE_NONCEREJECT="15". With `bindings`,
    key names to keys, accounts have to be bound to one of them."""

    directory = f"https://localhost:{ACME}/dir"

    def __init__(self, host, names_port=NAMES, strict=False, bindings=None, **chaos):
        self._host = host
        self.zone = ChallTestSrv(f"http://127.0.0.1:{NAMES_MANAGEMENT}")
        self._folder = host.workspace + "/pebble"
        self._configure(bindings)
        host.spawn(["/usr/bin/pebble-challtestsrv", "-dns01", f"127.0.0.1:{names_port}",
                    "-management", f"127.0.0.1:{NAMES_MANAGEMENT}", "-defaultIPv6", "",
                    "-http01", "", "-https01", "", "-tlsalpn01", ""],
                   ready=lambda: accepts(NAMES_MANAGEMENT))
        self._process = host.spawn(
            ["/usr/bin/pebble", *(["-strict"] if strict else []), "-config", self._folder + "/config.json",
             "-dnsserver", f"127.0.0.1:{names_port}"],
            # Nothing left to chance.
            env={"PEBBLE_VA_NOSLEEP": "1", "PEBBLE_WFE_NONCEREJECT": "0",
                 "PEBBLE_AUTHZREUSE": "0", **chaos},
            ready=lambda: accepts(ACME) and accepts(MANAGEMENT))

    def _configure(self, bindings):
        issuer = Issuer("Web PKI of the test", intermediates=0)
        key = rsa.generate_private_key(65537, 2048)
        # Of its own web server.
        self.web_certificate = self._folder + "/cert.pem"
        self.web_key = self._folder + "/key.pem"
        self._host.write(self.web_certificate,
                         pem(issuer.issue(["localhost"], key.public_key())))
        self._host.write(self.web_key, pem(key), 0o600)
        self._host.write(self._folder + "/config.json", json.dumps({"pebble": {
            "listenAddress": f"127.0.0.1:{ACME}",
            "managementListenAddress": f"127.0.0.1:{MANAGEMENT}",
            "certificate": self.web_certificate, "privateKey": self.web_key,
            "httpPort": 80, "tlsPort": 443, "ocspResponderURL": "",
            "externalAccountBindingRequired": bindings is not None,
            "externalAccountMACKeys": bindings or {}}}))
        self.web_root = pem(issuer.root)  # who speaks to it must trust this
        trust(self.web_root)
        self._trust = ssl.create_default_context(cadata=self.web_root.decode())

    def stop(self):
        """From now on the CA is down."""
        self._host.end(self._process)

    def request_count(self):
        """How many requests it has seen."""
        return self._host.output(self._process).count("-> calling handler()")

    def root(self, number=0):
        """The PEM of the root that its certificates lead to, or of an alternate."""
        return self._manage(f"/roots/{number}").decode()

    def status(self, serial):
        """"Valid" or "Revoked", as its responder would say; None for a certificate not its own."""
        try:
            return self.revocation(serial)["Status"]
        except urllib.error.HTTPError as error:
            assert error.code == 404
            return None

    def revocation(self, serial):
        """All that it knows of a certificate of its own: "Status", of a revoked one "Reason" too."""
        return json.loads(self._manage(f"/cert-status-by-serial/{serial:x}"))

    def _manage(self, path):
        with urllib.request.urlopen(f"https://localhost:{MANAGEMENT}{path}", timeout=10,
                                    context=self._trust) as reply:
            return reply.read()
