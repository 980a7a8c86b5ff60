"""What the CA remembers."""

from dataclasses import dataclass, field

from cryptography import x509

from .message import AccountKey


@dataclass
class Registration:
    number: int
    key: AccountKey
    contact: list[str]
    agreement: str = ""

    def document(self) -> dict:
        document = {"id": self.number, "key": self.key.jwk, "contact": self.contact,
                    "initialIp": "127.0.0.1", "createdAt": "2016-04-01T00:00:00Z"}
        if self.agreement:
            document["agreement"] = self.agreement
        return document


@dataclass
class Challenge:
    kind: str
    uri: str
    token: str
    status: str = "pending"
    key_authorization: str = ""
    error: dict | None = None

    def document(self, undecided: bool = False) -> dict:
        document = {"type": self.kind, "status": "pending" if undecided else self.status,
                    "uri": self.uri, "token": self.token}
        if self.key_authorization:
            document["keyAuthorization"] = self.key_authorization
        if self.error and not undecided:
            document["error"] = self.error
        return document


@dataclass
class Authorization:
    number: int
    uri: str
    registration: Registration
    name: str
    status: str = "pending"
    challenges: list[Challenge] = field(default_factory=list)
    shown: list[str] = field(default_factory=list)  # statuses to show before the real one

    def document(self) -> dict:
        undecided = bool(self.shown)
        return {"identifier": {"type": "dns", "value": self.name},
                "status": self.shown[0] if undecided else self.status,
                "expires": "2099-01-01T00:00:00Z",
                "challenges": [challenge.document(undecided) for challenge in self.challenges],
                "combinations": [[index] for index in range(len(self.challenges))]}


@dataclass
class Issued:
    certificate: x509.Certificate
    der: bytes
    names: list[str]
    registration: Registration
    revoked: bool = False


class State:
    def __init__(self) -> None:
        self.registrations: list[Registration] = []
        self.authorizations: list[Authorization] = []
        self.certificates: list[Issued] = []

    def registration_of(self, key: AccountKey) -> Registration | None:
        return next((r for r in self.registrations if r.key == key), None)

    def valid_authorization(self, registration: Registration, name: str) -> Authorization | None:
        return next((a for a in self.authorizations
                     if a.registration is registration and a.name == name and a.status == "valid"),
                    None)

    def issued(self, der: bytes) -> Issued | None:
        return next((c for c in self.certificates if c.der == der), None)
