"""A minimal client of the early protocol, so that the CA is tested by something other than the
program that it is there to test."""

import hashlib
import http.client
import json
from dataclasses import dataclass
from urllib.parse import urlsplit

from cryptography import x509
from cryptography.hazmat.primitives import hashes
from cryptography.hazmat.primitives.asymmetric import padding, rsa
from cryptography.hazmat.primitives.serialization import Encoding
from cryptography.x509.oid import NameOID

from ..jws import encode
from .encoding import encode_number


@dataclass
class Answer:
    status: int
    headers: list[tuple[str, str]]
    body: bytes

    @property
    def json(self):
        return json.loads(self.body)

    def header(self, name: str) -> str | None:
        return next((value for key, value in self.headers if key == name), None)

    def link(self, relation: str) -> str | None:
        suffix = f'>;rel="{relation}"'
        for key, value in self.headers:
            if key == "Link" and value.endswith(suffix):
                return value[1:-len(suffix)]
        return None


def request(method: str, url: str, body: bytes | None = None) -> Answer:
    parts = urlsplit(url)
    connection = http.client.HTTPConnection(parts.hostname, parts.port, timeout=10)
    try:
        connection.request(method, parts.path, body)
        reply = connection.getresponse()
        return Answer(reply.status, reply.getheaders(), reply.read())
    finally:
        connection.close()


class _KeyPool:
    """RSA keys are slow to make: each test starts over with those that earlier tests made."""

    def __init__(self) -> None:
        self._keys: list[rsa.RSAPrivateKey] = []
        self._taken = 0

    def rewind(self) -> None:
        self._taken = 0

    def take(self) -> rsa.RSAPrivateKey:
        if self._taken == len(self._keys):
            self._keys.append(rsa.generate_private_key(65537, 2048))
        self._taken += 1
        return self._keys[self._taken - 1]


KEYS = _KeyPool()


def new_key() -> rsa.RSAPrivateKey:
    """A key that no one else has got since the pool was rewound."""
    return KEYS.take()


def make_csr(names: list[str], key: rsa.RSAPrivateKey) -> bytes:
    subject = x509.Name([x509.NameAttribute(NameOID.COMMON_NAME, names[0])])
    alternative = x509.SubjectAlternativeName([x509.DNSName(name) for name in names])
    builder = x509.CertificateSigningRequestBuilder().subject_name(subject)
    return builder.add_extension(alternative, False).sign(key, hashes.SHA256()).public_bytes(
        Encoding.DER)


class TinyClient:
    def __init__(self, directory_url: str, key: rsa.RSAPrivateKey | None = None) -> None:
        self.key = key or new_key()
        answer = request("GET", directory_url)
        self.directory = answer.json
        self.nonce = answer.header("Replay-Nonce")

    @property
    def jwk(self) -> dict:
        numbers = self.key.public_key().public_numbers()
        return {"kty": "RSA", "n": encode_number(numbers.n), "e": encode_number(numbers.e)}

    @property
    def thumbprint(self) -> str:
        text = json.dumps(self.jwk, sort_keys=True, separators=(",", ":")).encode()
        return encode(hashlib.sha256(text).digest())

    def signed(self, payload: dict, /, **changes) -> dict:
        """The request document; `changes` replace its members after signing."""
        protected = encode(json.dumps({"nonce": self.nonce}).encode())
        body = encode(json.dumps(payload).encode())
        signature = self.key.sign(f"{protected}.{body}".encode(), padding.PKCS1v15(),
                                  hashes.SHA256())
        document = {"header": {"alg": "RS256", "jwk": self.jwk}, "protected": protected,
                    "payload": body, "signature": encode(signature)}
        document.update(changes)
        return document

    def send(self, url: str, document) -> Answer:
        answer = request("POST", url, json.dumps(document).encode())
        self.nonce = answer.header("Replay-Nonce") or self.nonce
        return answer

    def post(self, url: str, payload: dict) -> Answer:
        return self.send(url, self.signed(payload))

    def register(self, contact: str = "mailto:me@mail.example") -> Answer:
        made = self.post(self.directory["new-reg"], {"resource": "new-reg", "contact": [contact]})
        self.post(made.header("Location"), {"resource": "reg", "contact": [contact],
                                            "agreement": made.link("terms-of-service")})
        return made

    def authorize(self, name: str) -> Answer:
        return self.post(self.directory["new-authz"], {
            "resource": "new-authz", "identifier": {"type": "dns", "value": name}})

    def answer_challenge(self, challenge: dict, **changes) -> Answer:
        payload = {"resource": "challenge", "type": challenge["type"],
                   "keyAuthorization": f"{challenge['token']}.{self.thumbprint}"}
        payload.update(changes)
        return self.post(challenge["uri"], payload)

    def new_cert(self, csr: bytes) -> Answer:
        return self.post(self.directory["new-cert"],
                         {"resource": "new-cert", "csr": encode(csr)})

    def revoke(self, der: bytes) -> Answer:
        return self.post(self.directory["revoke-cert"],
                         {"resource": "revoke-cert", "certificate": encode(der)})
