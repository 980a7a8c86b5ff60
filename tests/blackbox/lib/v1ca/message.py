"""Signed requests: flattened JWS JSON whose unprotected "header" holds "alg" and "jwk" and whose
"protected" header holds the anti-replay nonce."""

import json
from dataclasses import dataclass

from cryptography.exceptions import InvalidSignature
from cryptography.hazmat.primitives import hashes
from cryptography.hazmat.primitives.asymmetric import padding, rsa

from .. import jws
from .encoding import decode, decode_number, encode_number
from .refusal import bad_nonce, malformed

_PRIVATE_MEMBERS = ("d", "p", "q", "dp", "dq", "qi", "oth", "k")


@dataclass(frozen=True)
class AccountKey:
    """The public key that a request carries."""

    n: int
    e: int

    @property
    def jwk(self) -> dict:
        return {"e": encode_number(self.e), "kty": "RSA", "n": encode_number(self.n)}

    @property
    def thumbprint(self) -> str:
        return jws.thumbprint(self.jwk)

    @property
    def public_key(self) -> rsa.RSAPublicKey:
        return rsa.RSAPublicNumbers(self.e, self.n).public_key()

    def is_key_of(self, certified) -> bool:
        """Whether a certificate or a certificate request is about this key."""
        return certified.public_key().public_numbers() == self.public_key.public_numbers()


@dataclass(frozen=True)
class SignedRequest:
    key: AccountKey
    nonce: str
    payload: dict
    payload_text: bytes    # as it was signed
    protected_text: bytes  # as it was signed
    raw: dict              # the body of the request


def _object(text: bytes, what: str) -> dict:
    try:
        value = json.loads(text.decode("utf-8"))
    except (UnicodeDecodeError, ValueError, RecursionError):
        raise malformed(f"{what} is not JSON") from None
    if not isinstance(value, dict):
        raise malformed(f"{what} is not a JSON object")
    return value


def parse_key(jwk) -> AccountKey:
    if not isinstance(jwk, dict) or jwk.get("kty") != "RSA":
        raise malformed("jwk is not an RSA key")
    leaked = [name for name in _PRIVATE_MEMBERS if name in jwk]
    if leaked:
        raise malformed(f"jwk carries private members: {', '.join(leaked)}")
    key = AccountKey(decode_number(jwk.get("n"), "jwk n"), decode_number(jwk.get("e"), "jwk e"))
    if not 2048 <= key.n.bit_length() <= 4096:
        raise malformed("jwk modulus is not of 2048 to 4096 bits")
    if key.e < 3 or key.e % 2 == 0:
        raise malformed("jwk exponent is not acceptable")
    return key


def _key_of_header(header, protected: dict) -> AccountKey:
    if not isinstance(header, dict):
        raise malformed("request has no header")
    if set(protected) & set(header):
        raise malformed("a member stands in both headers")
    if "crit" in protected or "crit" in header:
        raise malformed("crit is not supported")
    if header.get("alg") != "RS256":
        raise malformed("alg is not RS256")
    return parse_key(header.get("jwk"))


def verify(body: bytes) -> SignedRequest:
    """Everything that can be judged from the request alone; the nonce's worth is the caller's."""
    raw = _object(body, "request")
    if "signatures" in raw:
        raise malformed("request is not in the flattened serialization")
    protected_text = decode(raw.get("protected"), "protected")
    protected = _object(protected_text, "protected")
    key = _key_of_header(raw.get("header"), protected)
    payload_text = decode(raw.get("payload"), "payload")
    signature = decode(raw.get("signature"), "signature")
    signed = f"{raw['protected']}.{raw['payload']}".encode("ascii")
    try:
        key.public_key.verify(signature, signed, padding.PKCS1v15(), hashes.SHA256())
    except InvalidSignature:
        raise malformed("JWS verification error") from None
    nonce = protected.get("nonce")
    if not isinstance(nonce, str) or not nonce:
        raise bad_nonce("JWS has no anti-replay nonce")
    payload = _object(payload_text, "payload")
    return SignedRequest(key, nonce, payload, payload_text, protected_text, raw)
