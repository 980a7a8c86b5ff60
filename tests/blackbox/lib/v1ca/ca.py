"""The CA as a server: its routes and knobs.

Endpoints, as `answer`, `calls` and `trace` know them: directory, terms, new-reg, reg, new-authz,
authz, challenge, new-cert, cert, issuer, revoke-cert.
"""

import collections
import re

from cryptography.hazmat.primitives.serialization import Encoding

from ..http_script import Reply
from ..issuer import Issuer
from ..signed_server import SignedServer
from . import message
from .authorizations import Authorizations
from .certificates import Certificates
from .refusal import Refusal, bad_nonce, malformed
from .registrations import Registrations
from .state import State
from .validation import asked_of, fetched_from

_ROUTES = [  # endpoint, path, whether requests are signed; groups go to the endpoint's step
    ("directory", "/directory", False),
    ("terms", "/terms/v1", False),
    ("new-reg", "/acme/new-reg", True),
    ("reg", r"/acme/reg/(\d+)", True),
    ("new-authz", "/acme/new-authz", True),
    ("authz", r"/acme/authz/(\d+)", False),
    ("challenge", r"/acme/challenge/(\d+)/(\d+)", True),
    ("challenge", r"/acme/challenge/(\d+)/(\d+)", False),
    ("new-cert", "/acme/new-cert", True),
    ("cert", "/acme/cert/([0-9a-f]+)", False),
    ("issuer", "/acme/issuer-cert", False),
    ("revoke-cert", "/acme/revoke-cert", True),
]


class AcmeV1Ca(SignedServer):
    def __init__(self, port=0, organisation="Early Protocol Testing"):
        # Knobs; tests set them before they run the client.
        self.challenge_types = ["http-01", "dns-01"]
        self.validators = {"http-01": fetched_from(80), "dns-01": asked_of("127.0.0.1")}
        self.refusals = collections.deque()  # (error type, detail) for the next validations
        self.tokens = collections.deque()    # tokens to hand out before good ones
        self.states_before_decided = []      # what an authorization shows first, poll by poll
        self.reuse = False                   # new-authz answers with an earlier, valid one

        self.issuer = Issuer(organisation)
        self.issuer_der = self.issuer.intermediates[-1][1].public_bytes(Encoding.DER)
        self.state = State()
        super().__init__(port)
        self.directory = self.url + "/directory"
        self.registrations = Registrations(self.url, self.state)
        authorizations = Authorizations(self, self.state, self.registrations)
        certificates = Certificates(self, self.state, self.registrations)
        self._reads = {
            "directory": self._directory, "terms": self._terms, "authz": authorizations.authz,
            "challenge": authorizations.challenge, "cert": certificates.cert,
            "issuer": certificates.issuer_cert}
        self._writes = {
            "new-reg": self.registrations.new_reg, "reg": self.registrations.update_reg,
            "new-authz": authorizations.new_authz, "challenge": authorizations.answer,
            "new-cert": certificates.new_cert, "revoke-cert": certificates.revoke}

    def _directory(self):
        names = ("new-authz", "new-cert", "new-reg", "revoke-cert")
        return lambda: Reply(200, {name: f"{self.url}/acme/{name}" for name in names})

    @staticmethod
    def _terms():
        return lambda: Reply(200, "Be excellent to each other.\n", {"Content-Type": "text/plain"})

    # -- requests --------------------------------------------------------------------------------

    def endpoint_of(self, request):
        return next((endpoint for endpoint, path, _ in _ROUTES
                     if re.fullmatch(path, request.path)), request.path)

    def prepare(self, request):
        try:
            request.act = self._judge(request)
        except Refusal as refusal:
            request.act = refusal.reply
            if refusal.is_violation:
                request.violation = str(refusal)
                self.violations.append(f"{request.endpoint}: {refusal}")

    def behave(self, request):
        return request.act()

    def _judge(self, request):
        """The request's worth; returns what is then to be done, or raises Refusal."""
        matches = [(signed, match) for _, path, signed in _ROUTES
                   if (match := re.fullmatch(path, request.path))]
        if not matches:
            raise malformed("Page not found", 404)
        for signed, match in matches:
            if (request.method == "POST") == signed:
                if not signed:
                    return self._reads[request.endpoint](*match.groups())
                request.jws = self._verify(request)
                return self._writes[request.endpoint](*match.groups(), request.jws)
        raise malformed("Method not allowed", 405)

    def _verify(self, request):
        signed = message.verify(request.body)
        if not self.use_nonce(signed.nonce):
            raise bad_nonce(f"JWS has an invalid anti-replay nonce: {signed.nonce}")
        resource = signed.payload.get("resource")
        if resource != request.endpoint:
            raise malformed("JWS resource payload does not match the HTTP resource: "
                            f"{resource} != {request.endpoint}")
        return signed
