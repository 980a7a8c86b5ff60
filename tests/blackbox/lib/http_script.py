"""A loopback HTTP server that behaves by default and can be told, per endpoint and call, to answer
something else. Every request is recorded in order; every reply closes its connection unless the
test lets connections stay (see ScriptedServer.keep)."""

import collections
import http.server
import json
import select
import socketserver
import threading
import time
from dataclasses import dataclass, field, replace
from http.client import responses
from urllib.parse import urlsplit


@dataclass
class Reply:
    status: int = 200
    body: object = b""        # bytes, text, or anything else as JSON
    headers: dict = field(default_factory=dict)  # a list as value repeats the header
    nonce: object = True      # ACME replies: True a fresh nonce, None without one, or that text
    lower_case: bool = False  # header names in lower case
    cut: int = None           # send only that many bytes of the body, then close
    drop: bool = False        # close the connection without any answer
    delay: float = 0          # seconds before the answer
    drip: bool = False        # a byte a minute
    raw: bytes = None         # exactly these bytes instead of everything above

    def content(self):
        if isinstance(self.body, bytes):
            return self.body
        return (self.body if isinstance(self.body, str) else json.dumps(self.body)).encode()

    def encode(self, stays=False):
        closing = {} if stays else {"Connection": "close"}
        if self.raw is not None:
            return self.raw
        content = self.content()
        lines = [f"HTTP/1.1 {self.status} {responses.get(self.status, 'Status')}"]
        headers = {"Content-Length": str(len(content)), **closing, **self.headers}
        for name, values in headers.items():
            name = name.lower() if self.lower_case else name
            for value in values if isinstance(values, list) else [values]:
                lines.append(f"{name}: {value}")
        return ("\r\n".join(lines) + "\r\n\r\n").encode() + content[:self.cut]


@dataclass
class Request:
    method: str
    target: str               # as in the request line, query included
    version: str              # "HTTP/1.1"
    headers: list             # (name, value) as received
    body: bytes
    endpoint: str = ""
    when: float = 0.0         # time.monotonic()
    jws: object = None        # ACME: the verified message (lib/jws.py)
    violation: str = None     # ACME: the rule that it broke
    reply: Reply = None       # what was answered
    connection: int = 0       # the number of the connection that it came over, from 1

    @property
    def path(self):
        return urlsplit(self.target).path

    def header(self, name):
        return next((v for n, v in self.headers if n.lower() == name.lower()), None)

    @property
    def reply_nonce(self):
        """The nonce that went back with the answer."""
        return self.reply.headers.get("Replay-Nonce")

    def __str__(self):
        status = "dropped" if self.reply is None or self.reply.drop else self.reply.status
        return f"{self.method} {self.target} [{self.endpoint}] -> {status}"


def NORMAL(_request, normal):
    """As an answer: the correct behaviour, for this call."""
    return normal()


def edited(**changes):
    """As an answer: the correct behaviour with fields of its Reply changed."""
    return lambda _request, normal: replace(normal(), **changes)


def edited_json(edit):
    """As an answer: the correct behaviour with `edit` applied to its JSON body."""
    def answer(_request, normal):
        reply = normal()
        body = json.loads(reply.content())
        changed = edit(body)
        return replace(reply, body=body if changed is None else changed)
    return answer


class ScriptedServer:
    """Subclasses say what an endpoint is (`endpoint_of`) and how it behaves (`behave`)."""

    def __init__(self, port=0):
        self.requests = []
        self.connections = 0
        self.kept, self.drops = 0, False
        self._queues = collections.defaultdict(collections.deque)
        self._always = {}
        self._lock = threading.RLock()
        self._server = _Listener(("127.0.0.1", port), _Handler)
        self._server.owner = self
        self.port = self._server.server_address[1]
        self.url = f"http://127.0.0.1:{self.port}"
        self._thread = threading.Thread(target=self._server.serve_forever, args=(0.02,),
                                        daemon=True)
        self._thread.start()

    # -- script ----------------------------------------------------------------------------------

    def answer(self, endpoint, *answers):
        """The next calls of `endpoint` get these answers, one each: a Reply, or a callable
        (request, normal) that returns one. After them the endpoint behaves again."""
        self._queues[endpoint].extend(answers)

    def always(self, endpoint, answer):
        """Every call of `endpoint` that has no queued answer gets this one; None ends that."""
        self._always[endpoint] = answer

    def keep(self, replies=None, drop=False):
        """From now on connections stay open: for ever, or for so many replies. Then they are closed
        without a word: at once, or, with `drop`, when the next request has come."""
        self.kept, self.drops = replies or float("inf"), drop

    # -- record ----------------------------------------------------------------------------------

    def calls(self, endpoint):
        return [request for request in self.requests if request.endpoint == endpoint]

    @property
    def trace(self):
        """Endpoint names of all requests, in order."""
        return [request.endpoint for request in self.requests]

    def report(self):
        return "".join(f"{request}\n" for request in self.requests)

    # -- behaviour -------------------------------------------------------------------------------

    def endpoint_of(self, request):
        return request.path

    def behave(self, request):
        return Reply(404)

    def prepare(self, request):
        """Before any answer, scripted or not."""

    def finish(self, request, reply):
        """The last word on every reply that is not raw."""
        return reply

    def serve(self, request):
        with self._lock:
            request.when = time.monotonic()
            request.endpoint = self.endpoint_of(request)
            self.requests.append(request)
            self.prepare(request)
            queue = self._queues[request.endpoint]
            answer = queue.popleft() if queue else self._always.get(request.endpoint) or NORMAL
            reply = answer if isinstance(answer, Reply) else answer(
                request, lambda: self.behave(request))
            request.reply = reply if reply.drop or reply.raw is not None else self.finish(
                request, reply)
            return request.reply

    def close(self):
        self._server.shutdown()
        self._server.server_close()
        self._thread.join()


class _Listener(socketserver.ThreadingTCPServer):
    allow_reuse_address = True
    daemon_threads = True
    request_queue_size = 64


class _Handler(http.server.BaseHTTPRequestHandler):
    replies = 0

    def setup(self):
        super().setup()
        self.owner = self.server.owner
        self.owner.connections += 1
        self.number = self.owner.connections

    def _serve(self):
        body = self.rfile.read(int(self.headers.get("Content-Length") or 0))
        self.close_connection = True
        if self.owner.drops and self.replies >= self.owner.kept:
            return
        reply = self.owner.serve(Request(self.command, self.path, self.request_version,
                                         list(self.headers.items()), body,
                                         connection=self.number))
        self.replies += 1
        if reply.drop:
            return
        time.sleep(reply.delay)
        kept = self.owner.kept
        self.close_connection = self.replies > kept if self.owner.drops else self.replies >= kept
        try:
            self._send(reply, reply.encode(stays=kept > 0))
        except OSError:
            self.close_connection = True  # the client had enough

    def _send(self, reply, content):
        if not reply.drip:
            self.wfile.write(content)
            return
        self.close_connection = True
        for byte in content:
            self.wfile.write(bytes([byte]))
            # Readable: the client hung up.
            if select.select([self.connection], [], [], 60)[0]:
                return

    do_GET = do_POST = do_HEAD = _serve

    def log_message(self, *_args):
        pass
