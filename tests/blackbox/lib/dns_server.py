"""A name server on 127.0.0.1:53, UDP and TCP, with settable TXT records."""

import socketserver
import struct
import threading
from dataclasses import dataclass

from dnslib import QTYPE, RCODE, RR, TXT, DNSRecord


@dataclass(frozen=True)
class Query:
    name: str       # without the final dot, case as asked
    type: str       # "TXT"
    transport: str  # "udp" or "tcp"


class DnsServer:
    def __init__(self, address="127.0.0.1", port=53):
        self.queries = []
        self.truncate = False       # answer over UDP with nothing but "ask over TCP"
        self.rcode = None           # e.g. "SERVFAIL": every answer is this failure
        self.answer = None          # callable (request DNSRecord) -> bytes or None: takes over
        self.stream = None          # callable (connection, reply): takes over what TCP carries
        self._records = {}          # name -> list of texts (each a list of strings)
        self._hidden = {}           # name -> queries for which its records do not show yet
        self._lock = threading.RLock()
        self._servers = []
        for base, handler in ((socketserver.ThreadingUDPServer, _Datagram),
                              (socketserver.ThreadingTCPServer, _Stream)):
            server = type("Server", (base,), {"allow_reuse_address": True, "daemon_threads": True,
                                              "owner": self})((address, port), handler)
            thread = threading.Thread(target=server.serve_forever, args=(0.02,), daemon=True)
            thread.start()
            self._servers.append((server, thread))

    # -- records ---------------------------------------------------------------------------------

    def set_txt(self, name, *strings):
        """Adds one TXT record made of these character strings."""
        with self._lock:
            self._records.setdefault(name.lower(), []).append(list(strings))

    def clear_txt(self, name):
        with self._lock:
            self._records.pop(name.lower(), None)

    def texts(self, name):
        """The TXT records of a name, each as one text."""
        with self._lock:
            return ["".join(strings) for strings in self._records.get(name.lower(), [])]

    def delay(self, name, queries):
        """The next so many queries for the name find nothing."""
        self._hidden[name.lower()] = queries

    # -- service ---------------------------------------------------------------------------------

    def reply_to(self, packet, transport):
        request = DNSRecord.parse(packet)
        name = str(request.q.qname).rstrip(".")
        with self._lock:
            self.queries.append(Query(name, QTYPE[request.q.qtype], transport))
            if self.answer is not None:
                return self.answer(request)
            reply = request.reply()
            if self.rcode is not None:
                reply.header.rcode = getattr(RCODE, self.rcode)
            elif self.truncate and transport == "udp":
                reply.header.tc = 1
            elif self._hidden.get(name.lower(), 0) > 0:
                self._hidden[name.lower()] -= 1
                reply.header.rcode = RCODE.NXDOMAIN
            elif name.lower() not in self._records:
                reply.header.rcode = RCODE.NXDOMAIN
            else:
                for strings in self._records[name.lower()]:
                    reply.add_answer(RR(request.q.qname, QTYPE.TXT, ttl=1, rdata=TXT(strings)))
            return reply.pack()

    def close(self):
        for server, thread in self._servers:
            server.shutdown()
            server.server_close()
            thread.join()

    def report(self):
        return "".join(f"{query}\n" for query in self.queries)


class _Datagram(socketserver.BaseRequestHandler):
    def handle(self):
        packet, socket = self.request
        reply = self.server.owner.reply_to(packet, "udp")
        if reply is not None:
            socket.sendto(reply, self.client_address)


class _Stream(socketserver.StreamRequestHandler):
    def handle(self):
        length = struct.unpack("!H", self.rfile.read(2))[0]
        reply = self.server.owner.reply_to(self.rfile.read(length), "tcp")
        if self.server.owner.stream is not None:
            self.server.owner.stream(self.connection, reply)
            return
        self.wfile.write(struct.pack("!H", len(reply)) + reply)
