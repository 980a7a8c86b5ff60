"""An Internet Gateway Device that does its work, and that tests make say anything else: to the
search, as its description, and as its answer to each action."""

import os
import re
import select
import socket
import struct
import threading
from dataclasses import dataclass

PORT = 5000
CONNECTION = "urn:schemas-upnp-org:service:WANIPConnection:1"
DEVICE = "urn:schemas-upnp-org:device:InternetGatewayDevice:1"
_GROUP = "239.255.255.250"


@dataclass(frozen=True)
class Asked:
    address: str  # that was connected to
    method: str
    target: str
    action: str   # "" for a page

    def __str__(self):
        return f"{self.method} http://{self.address}{self.target} {self.action}"


# -- pages -----------------------------------------------------------------------------------------


def element(name, value):
    return f"<{name}>{value}</{name}>"


def _service(kind, control):
    return element("service", element("serviceType", kind) + element("serviceId", "urn:x:1") +
                   element("SCPDURL", "/scpd.xml") + element("controlURL", control) +
                   element("eventSubURL", "/evt"))


def _device(kind, services="", devices=""):
    return element("device", element("deviceType", "urn:schemas-upnp-org:device:" + kind) +
                   element("serviceList", services) + element("deviceList", devices))


def description(control="/ctl", base="", connection=CONNECTION, more="",
                common="urn:schemas-upnp-org:service:WANCommonInterfaceConfig:1"):
    """The description of a gateway; `more` is put before its first device."""
    wan = _device("WANDevice:1", _service(common, control),
                  _device("WANConnectionDevice:1", _service(connection, control)))
    return ('<?xml version="1.0"?><root xmlns="urn:schemas-upnp-org:device-1-0">' +
            (element("URLBase", base) if base else "") + more +
            _device("InternetGatewayDevice:1", "", wan) + "</root>")


def page(body, status="200 OK", headers=None):
    """As a whole answer."""
    body = body.encode() if isinstance(body, str) else body
    told = {"Content-Type": "text/xml", "Connection": "close", "Content-Length": len(body),
            **(headers or {})}
    lines = [f"HTTP/1.1 {status}"] + [f"{k}: {v}" for k, v in told.items() if v is not None]
    return ("\r\n".join(lines) + "\r\n\r\n").encode("latin-1") + body


def envelope(inner):
    return ('<?xml version="1.0"?><s:Envelope xmlns:s="http://schemas.xmlsoap.org/soap/envelope/">'
            f"<s:Body>{inner}</s:Body></s:Envelope>")


def refusal(code):
    """The answer to an action: refused with that error."""
    fault = element("faultcode", "s:Client") + element("detail", element(
        "UPnPError", element("errorCode", code)))
    return page(envelope(f"<s:Fault>{fault}</s:Fault>"), "500 Internal Server Error")


def granted(action, **arguments):
    """The answer to an action: done, with these results. One that is None is left out."""
    inner = "".join(element(k, v) for k, v in arguments.items() if v is not None)
    return page(envelope(f'<u:{action}Response xmlns:u="{CONNECTION}">{inner}'
                         f"</u:{action}Response>"))


# -- answers that are no whole ones: functions of the connection, until the client has had enough --

# Nothing bounds the memory of a build with sanitizers: there what never ends comes slowly.
_NO_PAUSE = 0.02 if os.environ.get("KOVA_SANITIZED") == "1" else 0
_HEAD = b"HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\n\r\n<?xml "


def until_left(connection, chunk, pause):
    try:
        while not select.select([connection], [], [], pause)[0]:
            connection.sendall(chunk)
    except OSError:
        pass


def silence(connection):
    until_left(connection, b"", 3600)


def drip(connection):
    """A byte a second."""
    connection.sendall(_HEAD)
    until_left(connection, b"x", 1)


def endless(connection):
    connection.sendall(_HEAD)
    until_left(connection, b"<a>" * 20000, _NO_PAUSE)


def endless_header(connection):
    connection.sendall(b"HTTP/1.1 200 OK\r\n")
    until_left(connection, b"X: yyyyyyyyyyyyyyyy\r\n" * 3000, _NO_PAUSE)


def endless_chunks(connection):
    connection.sendall(b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n")
    until_left(connection, b"1000\r\n" + b"x" * 0x1000 + b"\r\n", _NO_PAUSE)


def reset(connection):
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


# -- the device ------------------------------------------------------------------------------------


class Igd:
    """Knobs: `found` (a function of the search that yields the datagrams that answer it),
    `pages` (target to answer) and `actions` (name of an action to answer); an answer is bytes, or a
    function of the connection. Records: `asked`, `mappings` by port, `searches`."""

    def __init__(self, address, search=False):
        self.url = f"http://{address}:{PORT}"
        self.honest()
        self._server = socket.create_server(("", PORT), backlog=128)
        threading.Thread(target=self._accept, daemon=True).start()
        if search:
            self._search = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            self._search.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            self._search.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 4 << 20)
            self._search.bind(("", 1900))
            self._search.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP,
                                    socket.inet_aton(_GROUP) + socket.inet_aton(address))
            threading.Thread(target=self._answer_searches, daemon=True).start()

    def honest(self):
        """As it is at first, with no memory of what was."""
        self.found = lambda kind: [self.answer(kind)]
        self.pages = {"/root.xml": page(description())}
        self.actions = {}
        self.asked, self.mappings, self.searches = [], {}, 0

    def answer(self, kind=DEVICE, location=None, usn="uuid:1"):
        """The datagram that says where the description is."""
        location = self.url + "/root.xml" if location is None else location
        return (f"HTTP/1.1 200 OK\r\nCACHE-CONTROL: max-age=120\r\nST: {kind}\r\n"
                f"USN: {usn}::{kind}\r\nEXT:\r\nSERVER: x\r\nLOCATION: {location}\r\n\r\n"
                ).encode("latin-1")

    def asked_for(self, action):
        return [each for each in self.asked if each.action == action]

    def report(self):
        return "".join(f"{each}\n" for each in self.asked[:200])

    def _answer_searches(self):
        while True:
            data, sender = self._search.recvfrom(2048)
            match = re.search(rb"\r\nST: ?(\S+)\r\n", data)
            if not data.startswith(b"M-SEARCH ") or match is None:
                continue
            self.searches += 1
            for datagram in self.found(match[1].decode()):
                try:
                    self._search.sendto(datagram, sender)
                except OSError:  # it has gone
                    break

    def _accept(self):
        while True:
            connection, _ = self._server.accept()
            threading.Thread(target=self._serve, args=(connection,), daemon=True).start()

    def _serve(self, connection):
        with connection:
            try:
                connection.settimeout(30)
                answer = self._answer_to(self._receive(connection), connection.getsockname()[0])
                if callable(answer):
                    answer(connection)
                else:
                    connection.sendall(answer)
                    connection.shutdown(socket.SHUT_WR)
                    connection.recv(1)  # until it has read all
            except OSError:
                pass  # the client had enough

    @staticmethod
    def _receive(connection):
        data = b""
        while b"\r\n\r\n" not in data:
            data += (more := connection.recv(65536))
            if not more:
                raise OSError("hung up")
        length = re.search(rb"\r\nContent-Length: (\d+)\r\n", data, re.IGNORECASE)
        whole = data.index(b"\r\n\r\n") + 4 + (int(length[1]) if length else 0)
        while len(data) < whole:
            data += (more := connection.recv(65536))
            if not more:
                raise OSError("hung up")
        return data.decode("latin-1")

    def _answer_to(self, request, address):
        method, target = request.split(" ", 2)[:2]
        match = re.search(r'\r\nSOAPAction: "[^"#]*#(\w+)"', request, re.IGNORECASE)
        action = match[1] if match else ""
        self.asked.append(Asked(address, method, target, action))
        if not action:
            return self.pages.get(target, page("", "404 Not Found"))
        if action in self.actions:
            return self.actions[action]
        return self._perform(action, dict(re.findall(r"<(New\w+)>([^<]*)</", request)))

    def _perform(self, action, given):
        if action == "GetStatusInfo":
            return granted(action, NewConnectionStatus="Connected", NewLastConnectionError="",
                           NewUptime="7")
        if action == "GetExternalIPAddress":
            return granted(action, NewExternalIPAddress="11.22.33.44")
        if action == "AddPortMapping":
            self.mappings[given["NewExternalPort"]] = given
            return granted(action)
        if action == "DeletePortMapping":
            gone = self.mappings.pop(given["NewExternalPort"], None)
            return granted(action) if gone else refusal(714)
        if action == "GetGenericPortMappingEntry":
            entries, index = list(self.mappings.values()), int(given["NewPortMappingIndex"])
            return granted(action, **entries[index]) if index < len(entries) else refusal(713)
        if action == "GetSpecificPortMappingEntry":
            entry = self.mappings.get(given["NewExternalPort"])
            return granted(action, **entry) if entry else refusal(714)
        return refusal(401)
