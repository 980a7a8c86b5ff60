"""base64url as JOSE uses it (RFC 7515, section 2): no padding, no line ends, canonical."""

import base64
import re

from ..jws import encode
from .refusal import malformed

_ALPHABET = re.compile(r"[A-Za-z0-9_-]*\Z")


def decode(text, what: str) -> bytes:
    if not isinstance(text, str):
        raise malformed(f"{what} is not a string")
    if not _ALPHABET.match(text) or len(text) % 4 == 1:
        raise malformed(f"{what} is not unpadded base64url")
    data = base64.urlsafe_b64decode(text + "=" * (-len(text) % 4))
    if encode(data) != text:
        raise malformed(f"{what} is not canonical base64url")
    return data


def decode_number(text, what: str) -> int:
    """Base64urlUInt (RFC 7518, section 2): big-endian, as few octets as possible."""
    data = decode(text, what)
    if not data or (data[0] == 0 and len(data) > 1):
        raise malformed(f"{what} is not of minimal length")
    return int.from_bytes(data, "big")


def encode_number(number: int) -> str:
    return encode(number.to_bytes(max(1, (number.bit_length() + 7) // 8), "big"))
