"""What makes a router one that knows permanent leases only: stands before its UPnP daemon, answers
error 725 to a mapping with an end, and hands everything else through.

usage: permanent_leases.py LISTEN_PORT DAEMON_ADDRESS DAEMON_PORT
"""

import http.client
import http.server
import re
import sys

FAULT = """<?xml version="1.0"?>
<s:Envelope xmlns:s="http://schemas.xmlsoap.org/soap/envelope/"
 s:encodingStyle="http://schemas.xmlsoap.org/soap/encoding/"><s:Body><s:Fault>
<faultcode>s:Client</faultcode><faultstring>UPnPError</faultstring><detail>
<UPnPError xmlns="urn:schemas-upnp-org:control-1-0"><errorCode>725</errorCode>
<errorDescription>OnlyPermanentLeasesSupported</errorDescription></UPnPError>
</detail></s:Fault></s:Body></s:Envelope>
""".encode()


class Handler(http.server.BaseHTTPRequestHandler):
    daemon = None

    def do_GET(self):  # pylint: disable=invalid-name
        self._hand_through(b"")

    def do_POST(self):  # pylint: disable=invalid-name
        body = self.rfile.read(int(self.headers["Content-Length"]))
        lease = re.search(rb"<NewLeaseDuration>(\d+)</NewLeaseDuration>", body)
        if b"AddPortMapping" in body and lease and int(lease[1]) != 0:
            print("725 to a lease of", int(lease[1]), flush=True)
            self._answer(500, {"Content-Type": "text/xml"}, FAULT)
        else:
            self._hand_through(body)

    def _hand_through(self, body):
        connection = http.client.HTTPConnection(*self.daemon, timeout=10)
        connection.request(self.command, self.path, body or None, dict(self.headers))
        reply = connection.getresponse()
        self._answer(reply.status, dict(reply.getheaders()), reply.read())
        connection.close()

    def _answer(self, status, headers, body):
        self.send_response(status)
        for name, value in headers.items():
            if name.lower() not in ("content-length", "connection", "server", "date"):
                self.send_header(name, value)
        self.send_header("Content-Length", str(len(body)))
        self.send_header("Connection", "close")
        self.end_headers()
        self.wfile.write(body)


if __name__ == "__main__":
    Handler.daemon = (sys.argv[2], int(sys.argv[3]))
    http.server.ThreadingHTTPServer(("0.0.0.0", int(sys.argv[1])), Handler).serve_forever()
