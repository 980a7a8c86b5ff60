"""new-cert, the certificates and their revocation."""

from cryptography.hazmat.primitives.serialization import Encoding

from ..http_script import Reply
from .csr import load_request, requested_names
from .encoding import decode
from .message import AccountKey, SignedRequest
from .refusal import Refusal, malformed, unauthorized
from .registrations import link
from .state import Issued


class Certificates:
    def __init__(self, ca, state, registrations) -> None:
        self._ca = ca
        self._state = state
        self._registrations = registrations

    def new_cert(self, request: SignedRequest):
        registration = self._registrations.subscriber(request.key)
        csr = load_request(decode(request.payload.get("csr"), "csr"))
        if request.key.is_key_of(csr):
            raise malformed("Certificate public key must be different than account key")
        names = requested_names(csr)
        missing = [n for n in names if not self._state.valid_authorization(registration, n)]
        if missing:
            raise unauthorized("Authorizations for these names not found or expired: "
                               + ", ".join(missing))

        def act() -> Reply:
            certificate = self._ca.issuer.issue(names, csr.public_key())
            issued = Issued(certificate, certificate.public_bytes(Encoding.DER), names,
                            registration)
            self._state.certificates.append(issued)
            return self._reply(201, issued)
        return act

    def cert(self, serial: str):
        for issued in self._state.certificates:
            if f"{issued.certificate.serial_number:x}" == serial:
                return lambda: self._reply(200, issued)
        raise malformed("Certificate not found", 404)

    def _reply(self, status: int, issued: Issued) -> Reply:
        location = f"{self._ca.url}/acme/cert/{issued.certificate.serial_number:x}"
        return Reply(status, issued.der, {
            "Content-Type": "application/pkix-cert", "Location": location,
            "Link": link(self._ca.url + "/acme/issuer-cert", "up")})

    def issuer_cert(self):
        return lambda: Reply(200, self._ca.issuer_der, {"Content-Type": "application/pkix-cert"})

    def revoke(self, request: SignedRequest):
        issued = self._state.issued(decode(request.payload.get("certificate"), "certificate"))
        if issued is None:
            raise malformed("No such certificate", 404)
        if not self._may_revoke(request.key, issued):
            raise unauthorized("Revocation request must be signed by the key of the certificate, "
                               "or by an account that issued it or is authorized for its names")
        if issued.revoked:
            raise Refusal(409, "malformed", "Certificate already revoked")

        def act() -> Reply:
            issued.revoked = True
            return Reply(200)
        return act

    def _may_revoke(self, key: AccountKey, issued: Issued) -> bool:
        if key.is_key_of(issued.certificate):
            return True
        registration = self._state.registration_of(key)
        if registration is None:
            return False
        return registration is issued.registration or all(
            self._state.valid_authorization(registration, name) for name in issued.names)
