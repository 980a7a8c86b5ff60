"""The steps of the protocol on verified requests. One method per resource."""

import re

from cryptography.hazmat.primitives.serialization import Encoding

from . import b64, pki, validation
from .jws import AccountKey, SignedRequest
from .problems import Problem, malformed, unauthorized
from .script import Reply
from .settings import CaSettings
from .state import Authorization, Challenge, Issued, Registration, State, fresh_token

_HOST_NAME = re.compile(r"(?=.{1,253}\Z)([a-z0-9]([a-z0-9-]{0,61}[a-z0-9])?)"
                        r"(\.[a-z0-9]([a-z0-9-]{0,61}[a-z0-9])?)+\Z")
_EMAIL = re.compile(r"mailto:[^@\s,?]+@[^@\s,?]+\Z")


def link(url: str, relation: str) -> tuple[str, str]:
    return "Link", f'<{url}>;rel="{relation}"'


class Protocol:
    def __init__(self, base_url: str, settings: CaSettings) -> None:
        self.base = base_url
        self.settings = settings
        self.state = State()
        self.hierarchy = pki.Hierarchy(settings.organisation, settings.lifetime_days)

    def url(self, path: str) -> str:
        return self.base + path

    @property
    def terms_url(self) -> str:
        return self.url("/terms/v1")

    # -- reading ----------------------------------------------------------------------------------

    def directory(self) -> Reply:
        names = ("new-authz", "new-cert", "new-reg", "revoke-cert")
        return Reply.json(200, {name: self.url("/acme/" + name) for name in names})

    def terms(self) -> Reply:
        return Reply(200, b"Be excellent to each other.\n", [("Content-Type", "text/plain")])

    def authorization(self, ident: str) -> Reply:
        authz = self.state.authorizations.get(ident)
        if authz is None:
            raise malformed("Unable to find authorization", 404)
        document = authz.document()
        status = self.settings.pending_poll_status if document["status"] == "pending" else 200
        if authz.polls_left_pending:
            authz.polls_left_pending -= 1
        return Reply.json(status, document, [link(self.url("/acme/new-cert"), "next")])

    def issuer(self) -> Reply:
        return Reply(200, self.hierarchy.issuer_der, [("Content-Type", "application/pkix-cert")])

    def certificate(self, serial: str) -> Reply:
        for issued in self.state.certificates:
            if f"{issued.certificate.serial_number:x}" == serial:
                return Reply(200, issued.der, [("Content-Type", "application/pkix-cert"),
                                               link(self.url("/acme/issuer-cert"), "up")])
        raise malformed("Certificate not found", 404)

    # -- registrations ----------------------------------------------------------------------------

    def new_reg(self, request: SignedRequest) -> Reply:
        contact = self._contact(request.payload)
        known = self.state.registration_of(request.key)
        if known is not None:
            raise Problem(409, "malformed", "Registration key is already in use",
                          {"Location": self._registration_url(known)})
        registration = Registration(len(self.state.registrations) + 1, request.key, contact)
        self._agree(registration, request.payload)
        self.state.registrations.append(registration)
        return Reply.json(201, registration.document(), [
            ("Location", self._registration_url(registration)),
            link(self.url("/acme/new-authz"), "next"), link(self.terms_url, "terms-of-service")])

    def update_reg(self, number: str, request: SignedRequest) -> Reply:
        registration = next((r for r in self.state.registrations if str(r.number) == number), None)
        if registration is None or registration.key != request.key:
            raise unauthorized("Request signing key did not match registration key")
        if "contact" in request.payload:
            registration.contact = self._contact(request.payload)
        self._agree(registration, request.payload)
        return Reply.json(202, registration.document(), [
            link(self.url("/acme/new-authz"), "next"), link(self.terms_url, "terms-of-service")])

    def _registration_url(self, registration: Registration) -> str:
        return self.url(f"/acme/reg/{registration.number}")

    @staticmethod
    def _contact(payload: dict) -> list[str]:
        contact = payload.get("contact", [])
        if not isinstance(contact, list) or not all(isinstance(c, str) for c in contact):
            raise malformed("contact is not a list of strings")
        for entry in contact:
            if not _EMAIL.match(entry):
                raise Problem(400, "invalidEmail", f"contact {entry} is not an e-mail address")
        return contact

    def _agree(self, registration: Registration, payload: dict) -> None:
        if "agreement" not in payload:
            return
        if payload["agreement"] != self.terms_url:
            raise malformed(f"Provided agreement URL [{payload['agreement']}] does not match "
                            f"current agreement URL [{self.terms_url}]")
        registration.agreement = self.terms_url

    def _subscriber(self, key: AccountKey) -> Registration:
        registration = self.state.registration_of(key)
        if registration is None:
            raise unauthorized("No registration exists matching provided key")
        if not registration.agreement:
            raise unauthorized("Must agree to subscriber agreement before any further actions")
        return registration

    # -- authorizations ---------------------------------------------------------------------------

    def new_authz(self, request: SignedRequest) -> Reply:
        registration = self._subscriber(request.key)
        identifier = request.payload.get("identifier")
        if not isinstance(identifier, dict) or identifier.get("type") != "dns":
            raise malformed("identifier is not of type dns")
        name = identifier.get("value")
        if not isinstance(name, str) or not _HOST_NAME.match(name):
            raise malformed(f"Policy forbids issuing for name {name!r}")
        authz = None
        if self.settings.reuse_valid:
            authz = self.state.valid_authorization(registration, name)
        if authz is None:
            authz = self._make_authorization(registration, name)
        return Reply.json(201, authz.document(), [
            ("Location", authz.uri), link(self.url("/acme/new-cert"), "next")])

    def _make_authorization(self, registration: Registration, name: str) -> Authorization:
        ident = fresh_token()
        authz = Authorization(ident, self.url("/acme/authz/" + ident), registration, name)
        for index, kind in enumerate(self.settings.challenge_types):
            uri = self.url(f"/acme/challenge/{ident}/{index}")
            authz.challenges.append(Challenge(kind, uri, fresh_token()))
        self.state.authorizations[ident] = authz
        return authz

    def _challenge(self, ident: str, index: str) -> tuple[Authorization, Challenge]:
        authz = self.state.authorizations.get(ident)
        if authz is None or int(index) >= len(authz.challenges):
            raise malformed("Unable to find challenge", 404)
        return authz, authz.challenges[int(index)]

    def challenge_document(self, ident: str, index: str) -> Reply:
        authz, challenge = self._challenge(ident, index)
        return Reply.json(202, challenge.document(), [link(authz.uri, "up")])

    def answer_challenge(self, ident: str, index: str, request: SignedRequest) -> Reply:
        authz, challenge = self._challenge(ident, index)
        if self._subscriber(request.key) is not authz.registration:
            raise unauthorized("User registration ID doesn't match registration ID in authorization")
        if authz.status != "pending":
            raise malformed(f"Authorization is {authz.status}, not pending")
        if request.payload.get("type", challenge.kind) != challenge.kind:
            raise malformed("Challenge is of another type")
        expected = challenge.token + "." + request.key.thumbprint
        if request.payload.get("keyAuthorization") != expected:
            raise unauthorized("Provided key authorization was incorrect")
        challenge.key_authorization = expected
        self._validate(authz, challenge)
        shown = Challenge(challenge.kind, challenge.uri, challenge.token, "pending", expected)
        return Reply.json(202, shown.document(),
                          [("Location", challenge.uri), link(authz.uri, "up")])

    def _validate(self, authz: Authorization, challenge: Challenge) -> None:
        check = validation.CHECKS[challenge.kind]
        challenge.error = check(authz.name, challenge.token, challenge.key_authorization,
                                self.settings)
        challenge.status = authz.status = "invalid" if challenge.error else "valid"
        authz.polls_left_pending = self.settings.pending_polls

    # -- certificates -----------------------------------------------------------------------------

    def new_cert(self, request: SignedRequest) -> Reply:
        registration = self._subscriber(request.key)
        csr = pki.load_request(b64.decode(request.payload.get("csr"), "csr"))
        if csr.public_key().public_numbers() == request.key.public_key().public_numbers():
            raise malformed("Certificate public key must be different than account key")
        names = pki.requested_names(csr)
        if not names:
            raise malformed("Certificate request names no host")
        missing = [n for n in names if not self.state.valid_authorization(registration, n)]
        if missing:
            raise unauthorized(f"Authorizations for these names not found or expired: "
                               f"{', '.join(missing)}")
        certificate = self.hierarchy.issue(csr, names)
        der = certificate.public_bytes(Encoding.DER)
        self.state.certificates.append(Issued(certificate, der, names, registration))
        return Reply(201, der, [
            ("Content-Type", "application/pkix-cert"),
            ("Location", self.url(f"/acme/cert/{certificate.serial_number:x}")),
            link(self.url("/acme/issuer-cert"), "up")])

    def revoke_cert(self, request: SignedRequest) -> Reply:
        issued = self.state.issued(b64.decode(request.payload.get("certificate"), "certificate"))
        if issued is None:
            raise malformed("No such certificate", 404)
        if not self._may_revoke(request.key, issued):
            raise unauthorized("Revocation request must be signed by private key of cert to be "
                               "revoked, by the account key of the account that issued it, or by "
                               "the account key of an account that holds valid authorizations for "
                               "all names in the certificate.")
        if issued.revoked:
            raise Problem(409, "malformed", "Certificate already revoked")
        issued.revoked = True
        return Reply(200)

    def _may_revoke(self, key: AccountKey, issued: Issued) -> bool:
        if key.public_key().public_numbers() == issued.certificate.public_key().public_numbers():
            return True
        registration = self.state.registration_of(key)
        if registration is None:
            return False
        return registration is issued.registration or all(
            self.state.valid_authorization(registration, name) for name in issued.names)
