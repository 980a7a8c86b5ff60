"""What every scripted ACME CA has: single-use nonces, a record of protocol violations, and error
replies. Protocol versions differ in `check`."""

import secrets
from dataclasses import replace

from .http_script import Reply, ScriptedServer
from .jws import Violation


def problem(kind, detail="", status=400, urn="urn:ietf:params:acme:error:", headers=None, **reply):
    """An error reply as RFC 7807 has it; `kind` without the URN's prefix."""
    headers = {"Content-Type": "application/problem+json", **(headers or {})}
    return Reply(status, {"type": urn + kind, "detail": detail, "status": status}, headers, **reply)


def bad_nonce():
    """Refuses a nonce that was good; the reply brings a fresh one."""
    return problem("badNonce", "JWS has an invalid anti-replay nonce")


class SignedServer(ScriptedServer):
    def __init__(self, port=0):
        self.violations = []  # rules that the client broke; the fixture fails the test for any
        self._nonces = set()
        super().__init__(port)

    def check(self, request):
        """Raises Violation when the request breaks a rule; sets request.jws."""

    def prepare(self, request):
        try:
            self.check(request)
        except Violation as violation:
            request.violation = str(violation)
            self.violations.append(f"{request.method} {request.target}: {violation}")

    def nonce(self):
        value = secrets.token_urlsafe(12)
        self._nonces.add(value)
        return value

    def use_nonce(self, value):
        """Whether the nonce was one of ours that had not been used."""
        known = value in self._nonces
        self._nonces.discard(value)
        return known

    def finish(self, request, reply):
        headers = dict(reply.headers)
        if reply.nonce is not None:
            headers["Replay-Nonce"] = self.nonce() if reply.nonce is True else reply.nonce
        if not isinstance(reply.body, (str, bytes)):
            headers.setdefault("Content-Type", "application/json")
        return replace(reply, headers=headers)

    def report(self):
        return super().report() + "".join(f"violation: {text}\n" for text in self.violations)
