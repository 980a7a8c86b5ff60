"""A proxy before a CA that does to one request what bad lines and middleboxes do to it."""

import http.client
import socket
import ssl
import struct
import threading
import time

PORT = 14443
DELAY = 0.3  # seconds


def _reset(connection):
    """Ends it so that the other side sees a reset, not an end."""
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


class _Exchange:
    """One request and what can become of it; each fault is a method of its name."""

    def __init__(self, client, request, forward):
        self._client, self._request, self._forward = client, request, forward

    def none(self):
        self._client.sendall(self._forward(self._request))

    def drop_request(self):
        self._client.close()

    def reset_request(self):
        _reset(self._client)

    def cut_request(self):
        self._forward(self._request[:len(self._request) // 2], whole=False)
        self._client.close()

    def delay_request(self):
        time.sleep(DELAY)
        self.none()

    def double_request(self):
        """The CA sees it twice; its first answer is handed on."""
        reply = self._forward(self._request)
        self._forward(self._request)
        self._client.sendall(reply)

    def drop_reply(self):
        self._forward(self._request)
        self._client.close()

    def reset_reply(self):
        self._forward(self._request)
        _reset(self._client)

    def cut_reply(self):
        """An answer without a body loses all but the beginning of its header."""
        head, blank, body = self._forward(self._request).partition(b"\r\n\r\n")
        self._client.sendall(head + blank + body[:len(body) // 2] if body else head[:5])
        self._client.close()

    def delay_reply(self):
        reply = self._forward(self._request)
        time.sleep(DELAY)
        self._client.sendall(reply)

    def double_reply(self):
        reply = self._forward(self._request)
        self._client.sendall(reply + reply)


FAULTS = [name for name in vars(_Exchange) if not name.startswith("_") and name != "none"]
# What a client cannot notice.
HARMLESS = {"delay_request", "delay_reply", "double_request", "double_reply"}
# What looks as if a kept connection had ended while nothing was asked: libcurl asks once more.
UNANSWERED = {"drop_request", "reset_request", "cut_request", "drop_reply", "reset_reply"}


class FaultyProxy:
    """Speaks TLS on localhost with the CA's own certificate. `strike(fault, number)` arms it: from
    then on requests are counted anew, and that fault befalls the one of that number, from 1 on."""

    directory = f"https://localhost:{PORT}/dir"

    def __init__(self, ca_port, certificate, key, root):
        self._ca_port = ca_port
        self._to_ca = ssl.create_default_context(cadata=root.decode())
        self._from_client = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self._from_client.load_cert_chain(certificate, key)
        self._lock = threading.Lock()
        self.strike(None, 0)
        self._listener = socket.create_server(("127.0.0.1", PORT), backlog=64)
        threading.Thread(target=self._accept, daemon=True).start()

    def strike(self, fault, number):
        with self._lock:
            self._fault, self._number, self.requests = fault, number, 0

    def close(self):
        self._listener.shutdown(socket.SHUT_RDWR)  # wakes the thread that accepts
        self._listener.close()

    def _accept(self):
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:  # closed
                return
            threading.Thread(target=self._serve, args=(connection,), daemon=True).start()

    def _serve(self, connection):
        try:
            with self._from_client.wrap_socket(connection, server_side=True) as client:
                while request := self._read_request(client):
                    getattr(_Exchange(client, request, self._forward), self._fault_now())()
        except OSError:  # the client hung up, or we did
            pass

    def _fault_now(self):
        with self._lock:
            self.requests += 1
            return self._fault if self._fault and self.requests == self._number else "none"

    @staticmethod
    def _read_request(client):
        """The bytes of a whole request; none when the client has hung up."""
        data = b""
        while b"\r\n\r\n" not in data:
            more = client.recv(65536)
            if not more:
                return b""
            data += more
        head, _, body = data.partition(b"\r\n\r\n")
        fields = dict(line.split(b": ", 1) for line in head.split(b"\r\n")[1:])
        length = int(fields.get(b"Content-Length", 0))
        while len(body) < length:
            more = client.recv(65536)
            body += more
            data += more
        return data

    def _forward(self, request, whole=True):
        """What the CA answers to it; a part of a request is not answered."""
        with socket.create_connection(("127.0.0.1", self._ca_port), timeout=10) as plain, \
                self._to_ca.wrap_socket(plain, server_hostname="localhost") as ca:
            ca.sendall(request)
            if not whole:
                return b""
            response = http.client.HTTPResponse(ca, method=request.split(b" ", 1)[0].decode())
            response.begin()
            head = f"HTTP/1.1 {response.status} {response.reason}\r\n" + "".join(
                f"{name}: {value}\r\n" for name, value in response.getheaders()
                if name.lower() not in ("transfer-encoding", "content-length"))
            body = response.read()
            return f"{head}Content-Length: {len(body)}\r\n\r\n".encode("latin-1") + body
