"""The error replies of the protocol: application/problem+json with urn:acme:error types."""

from ..http_script import Reply
from ..signed_server import problem

ERROR = "urn:acme:error:"


class Refusal(Exception):
    """A request that the rules refuse."""

    def __init__(self, status: int, kind: str, detail: str, headers: dict | None = None):
        super().__init__(f"{status} {kind}: {detail}")
        self.status = status
        self.kind = kind
        self.detail = detail
        self.headers = headers or {}

    @property
    def is_violation(self) -> bool:
        """A conflict is no one's fault: the key is registered, the certificate revoked already."""
        return self.status != 409

    def reply(self) -> Reply:
        return problem(self.kind, self.detail, self.status, ERROR, self.headers)


def malformed(detail: str, status: int = 400) -> Refusal:
    return Refusal(status, "malformed", detail)


def unauthorized(detail: str) -> Refusal:
    return Refusal(403, "unauthorized", detail)


def bad_nonce(detail: str) -> Refusal:
    return Refusal(400, "badNonce", detail)
