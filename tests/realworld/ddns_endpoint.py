"""A small dynamic-DNS service: takes the appliance's update requests, checks who asks, and changes
the zone with signed updates (RFC 2136). It serves HTTP on 203.0.113.1:8080.

usage: ddns_endpoint.py KEY_SECRET DELAY
  KEY_SECRET  of the zone's key, base64
  DELAY       seconds from the answer to the update of the zone
"""

import http.server
import json
import sys
import threading
from urllib.parse import parse_qs, urlsplit

import dns.query
import dns.rcode
import dns.tsigkeyring
import dns.update

from world.name_server import HOST_NAME, KEY_NAME, VENDOR_ZONE
from world.network import INTERNET

PORT = 8080
CUSTOMER = {"tolu_id": "customer-7", "auth_key": "s3cret", "serial": "KV0001"}


class Endpoint(http.server.BaseHTTPRequestHandler):
    keyring = None
    delay = 0.0

    def do_GET(self):  # pylint: disable=invalid-name
        asked = {name: values[0] for name, values in parse_qs(urlsplit(self.path).query).items()}
        code = self._handle(asked)
        print("endpoint:", asked.get("_"), asked.get("hostname"), code, flush=True)
        body = json.dumps({"code": code}).encode()
        self.send_response(200)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def _handle(self, asked):
        if any(asked.get(name) != value for name, value in CUSTOMER.items()):
            return "badauth"
        if asked.get("hostname") != HOST_NAME:
            return "nohost"
        create = {"letsencrypt/create": True, "letsencrypt/delete": False}.get(asked.get("_"))
        if create is None:
            return "badagent"
        if self.delay:
            threading.Timer(self.delay, self._update, (create, asked["txt"])).start()
            return "good"
        return self._update(create, asked["txt"])

    def _update(self, create, text):
        update = dns.update.Update(VENDOR_ZONE, keyring=self.keyring, keyname=KEY_NAME,
                                   keyalgorithm="hmac-sha256")
        owner = "_acme-challenge." + HOST_NAME.removesuffix("." + VENDOR_ZONE)
        if create:
            update.add(owner, 1, "TXT", text)
        else:
            update.delete(owner, "TXT", text)
        try:
            rcode = dns.query.tcp(update, INTERNET, timeout=2).rcode()
        except Exception as failure:  # pylint: disable=broad-except
            print("update failed:", repr(failure), flush=True)
            return "911"
        print("update:", "add" if create else "delete", owner, dns.rcode.to_text(rcode),
              flush=True)
        return "good" if rcode == dns.rcode.NOERROR else "911"


if __name__ == "__main__":
    Endpoint.keyring = dns.tsigkeyring.from_text({KEY_NAME: sys.argv[1]})
    Endpoint.delay = float(sys.argv[2])
    http.server.ThreadingHTTPServer((INTERNET, PORT), Endpoint).serve_forever()
