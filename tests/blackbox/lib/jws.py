"""Verifies the signed requests of ACME: structure, then signature. A message that breaks a rule
raises Violation with the rule in words."""

import base64
import hashlib
import json
from dataclasses import dataclass

from cryptography.exceptions import InvalidSignature
from cryptography.hazmat.primitives import hashes
from cryptography.hazmat.primitives.asymmetric import padding, rsa


class Violation(Exception):
    pass


def encode(data):
    """base64url without padding."""
    return base64.urlsafe_b64encode(data).rstrip(b"=").decode()


def decode(text):
    """Strict base64url without padding."""
    if not isinstance(text, str) or any(
            not (c.isascii() and (c.isalnum() or c in "-_")) for c in text):
        raise Violation(f"not base64url without padding: {text!r}")
    return base64.urlsafe_b64decode(text + "=" * (-len(text) % 4))


def require(condition, rule):
    if not condition:
        raise Violation(rule)


def thumbprint(jwk):
    """RFC 7638."""
    members = {name: jwk[name] for name in ("e", "kty", "n")}
    text = json.dumps(members, sort_keys=True, separators=(",", ":"))
    return encode(hashlib.sha256(text.encode()).digest())


def public_key(jwk):
    require(isinstance(jwk, dict) and set(jwk) == {"kty", "n", "e"}, "a public JWK has kty, n, e")
    require(jwk["kty"] == "RSA", "the key is RSA")
    for name in ("n", "e"):
        require(not decode(jwk[name]).startswith(b"\0"), f"no leading zero in {name}")
    n = int.from_bytes(decode(jwk["n"]), "big")
    require(n.bit_length() == 2048, "the account key has 2048 bits")
    return rsa.RSAPublicNumbers(int.from_bytes(decode(jwk["e"]), "big"), n).public_key()


def key_to_jwk(key):
    """The private JSON form of an account key, as the account store keeps it."""
    numbers = key.private_numbers()
    values = {"n": numbers.public_numbers.n, "e": numbers.public_numbers.e, "d": numbers.d,
              "p": numbers.p, "q": numbers.q, "dp": numbers.dmp1, "dq": numbers.dmq1,
              "qi": numbers.iqmp}
    jwk = {name: encode(value.to_bytes((value.bit_length() + 7) // 8, "big"))
           for name, value in values.items()}
    return {**jwk, "kty": "RSA"}


@dataclass
class Message:
    header: dict     # the protected header
    payload: object  # parsed, or None for POST-as-GET
    text: bytes      # the payload as sent
    raw: dict        # the body of the request


def parse(body):
    """The message of a request body, not yet verified."""
    try:
        raw = json.loads(body)
    except ValueError:
        raise Violation("the body is JSON") from None
    require(isinstance(raw, dict) and set(raw) == {"protected", "payload", "signature"}
            and all(isinstance(value, str) for value in raw.values()),
            "the body holds exactly protected, payload and signature, all strings")
    try:
        header = json.loads(decode(raw["protected"]))
        text = decode(raw["payload"])
        payload = json.loads(text) if text else None
    except ValueError:
        raise Violation("header and payload are JSON") from None
    require(isinstance(header, dict), "the protected header is an object")
    return Message(header, payload, text, raw)


def verify(message, jwk):
    """RS256 over the encoded texts."""
    signed = (message.raw["protected"] + "." + message.raw["payload"]).encode()
    try:
        public_key(jwk).verify(decode(message.raw["signature"]), signed, padding.PKCS1v15(),
                               hashes.SHA256())
    except InvalidSignature:
        raise Violation("the signature verifies") from None
