"""A scripted ACME v2 CA on the loopback: a small, correct state machine that checks every signed
request, and that tests can make misbehave endpoint by endpoint (see ScriptedServer.answer).

Endpoints: directory, newNonce, newAccount, account, keyChange, newOrder, authz, challenge, order,
finalize, certificate, revokeCert and, where the test gives it, renewalInfo. A request that breaks a rule of the protocol is recorded in `violations`;
the `ca` fixture fails the test for any.
"""

import collections
import itertools
import json
import secrets
from dataclasses import dataclass, field

from cryptography import x509
from cryptography.hazmat.primitives import serialization
from cryptography.x509.oid import ExtensionOID

from . import jws, validators
from .http_script import Reply
from .issuer import Issuer, pem
from .jws import Violation, require
from .signed_server import SignedServer, problem

ERROR = "urn:ietf:params:acme:error:"


@dataclass
class Challenge:
    type: str
    token: str
    number: int
    authorization: object
    status: str = "pending"
    error: dict = None


@dataclass
class Authorization:
    number: int
    name: str       # a wildcard's base name
    wildcard: bool
    account: str
    challenges: list = field(default_factory=list)
    status: str = "pending"
    shown: list = field(default_factory=list)  # statuses to show before the real one


@dataclass
class Order:
    number: int
    account: str
    names: list
    authorizations: list
    shown: list = field(default_factory=list)  # statuses to show before the real one
    certificate: str = None                    # PEM chain once issued
    replaces: str = None                       # identifier of a certificate (RFC 9773)


class AcmeCa(SignedServer):
    def __init__(self, port=0, intermediates=1, organisation="Let's Encrypt"):
        # Knobs; tests set them before they run the client.
        self.challenge_types = ["dns-01", "http-01"]  # offered for a name; dns-01 for a wildcard
        self.validators = {"http-01": validators.webroot, "dns-01": validators.accept}
        self.refusals = collections.deque()  # (error type, detail) for the next validations
        self.tokens = collections.deque()    # tokens to hand out before good ones
        self.states_before_valid = []        # what an authorization shows first, poll by poll
        self.states_before_ready = []        # what an order shows first; finalize is then refused
        self.states_after_finalize = []      # what a finalized order shows first
        self.reuse = False                   # authorizations start out valid
        self.takes_padding = True            # "=" at the end of a request's base64 text
        self.renewal_info = None             # what renewalInfo answers; None: there is none

        # State.
        self.issuer = Issuer(organisation, intermediates)
        self.accounts = {}          # URL -> {"jwk": ..., "payload": ...}
        self.orders = []
        self.authorizations = []
        self.challenges = []
        self.certificates = []      # x509 leaves, as issued
        self.revoked = []           # payloads of accepted revocations
        self.replaced = set()       # identifiers of certificates that others have replaced
        self._numbers = itertools.count(1)
        super().__init__(port)
        self.directory = self.url + "/directory"
        self.links = {"newNonce": self.url + "/new-nonce", "newAccount": self.url + "/new-account",
                      "newOrder": self.url + "/new-order", "revokeCert": self.url + "/revoke-cert",
                      "keyChange": self.url + "/key-change"}

    # -- requests --------------------------------------------------------------------------------

    _ENDPOINTS = {"directory": "directory", "new-nonce": "newNonce", "new-account": "newAccount",
                  "account": "account", "key-change": "keyChange",
                  "new-order": "newOrder", "revoke-cert": "revokeCert", "authz": "authz",
                  "challenge": "challenge", "order": "order", "finalize": "finalize",
                  "certificate": "certificate", "renewal-info": "renewalInfo"}
    _EMPTY_PAYLOAD = ("authz", "order", "certificate")

    def endpoint_of(self, request):
        return self._ENDPOINTS.get(request.path.split("/")[1], request.path)

    def check(self, request):
        if request.endpoint not in self._ENDPOINTS.values():
            return  # a target of redirects
        require(request.version == "HTTP/1.1", "requests are HTTP/1.1")
        require(request.header("Content-Type") == "application/jose+json", "content type")
        if request.endpoint in ("directory", "newNonce", "renewalInfo"):
            require(request.method == "GET", f"{request.endpoint} is fetched")
        else:
            require(request.method == "POST", f"{request.endpoint} is posted to")
            self._verify(request)

    def _verify(self, request):
        request.jws = message = jws.parse(request.body)
        header = message.header
        require(set(header) in ({"alg", "nonce", "url", "jwk"}, {"alg", "nonce", "url", "kid"}),
                "the header holds alg, nonce, url and either jwk or kid")
        require(header["alg"] == "RS256", "alg is RS256")
        require(header["url"] == self.url + request.target, "url is the request's")
        require(self.use_nonce(header["nonce"]), "the nonce is one of ours, used once")
        require(("jwk" in header) == (request.endpoint == "newAccount"),
                "newAccount goes out with jwk, all others with kid")
        if "kid" in header:
            require(header["kid"] in self.accounts, "kid is a known account")
        jwk = header["jwk"] if "jwk" in header else self.accounts[header["kid"]]["jwk"]
        jws.verify(message, jwk)
        require((message.text == b"") == (request.endpoint in self._EMPTY_PAYLOAD),
                "POST-as-GET exactly where something is fetched")

    def behave(self, request):
        if request.endpoint not in self._ENDPOINTS.values():
            return problem("malformed", "no such endpoint", 404)
        if request.violation:
            return problem("malformed", request.violation)
        if request.jws and self._account_of(request).get("status") == "deactivated":
            return problem("unauthorized", "the account is deactivated", 403)
        return getattr(self, "_" + request.endpoint)(request)

    # -- accounts --------------------------------------------------------------------------------

    def _directory(self, _request):
        offered = {} if self.renewal_info is None else {"renewalInfo": self.url + "/renewal-info"}
        return Reply(200, {**self.links, **offered, "meta": {"termsOfService": self.url + "/terms"}},
                     nonce=None)

    def _newNonce(self, _request):
        return Reply(204)

    def _account_of(self, request):
        """The account that speaks, by its URL or by its key; empty when there is none."""
        header = request.jws.header
        if "kid" in header:
            return self.accounts[header["kid"]]
        return self.accounts.get(self.url_of(header["jwk"]), {})

    def url_of(self, jwk):
        """The account URL of a public key, or None."""
        return next((url for url, known in self.accounts.items() if known["jwk"] == jwk), None)

    def _newAccount(self, request):
        payload = request.jws.payload
        url = self.url_of(request.jws.header["jwk"])
        if payload.get("onlyReturnExisting") is True:
            if url is None:
                return problem("accountDoesNotExist", "no account has this key")
            return Reply(200, {"status": "valid"}, {"Location": url})
        if payload.get("termsOfServiceAgreed") is not True:
            return problem("userActionRequired", "agree to the terms first", 403)
        url = self.register(request.jws.header["jwk"], payload)
        return Reply(201, {"status": "valid", "contact": payload["contact"]}, {"Location": url})

    def register(self, jwk, payload=None):
        """Makes the key (public JWK) known; returns the account URL."""
        url = f"{self.url}/account/{next(self._numbers)}"
        self.accounts[url] = {"jwk": {name: jwk[name] for name in ("kty", "n", "e")},
                              "payload": payload}
        return url

    def _account(self, request):
        account, payload = self._account_of(request), request.jws.payload
        require(request.jws.header["kid"] == self.url + request.path, "an account asks for itself")
        account.setdefault("changes", []).append(payload)
        account.update({name: payload[name] for name in ("contact", "status") if name in payload})
        return Reply(200, {"status": account.get("status", "valid"),
                           "contact": account.get("contact", [])})

    def _keyChange(self, request):
        """RFC 8555, 7.3.5."""
        try:
            jwk = self._new_key_of(request)
        except Violation as violation:
            self.violations.append(f"key change: {violation}")
            return problem("malformed", str(violation))
        owner = self.url_of(jwk)
        if owner is not None:
            return problem("malformed", "an account has this key", 409, headers={"Location": owner})
        self._account_of(request)["jwk"] = jwk
        return Reply(200)

    def _new_key_of(self, request):
        inner = jws.parse(json.dumps(request.jws.payload).encode())
        require(set(inner.header) == {"alg", "jwk", "url"} and inner.header["alg"] == "RS256",
                "the inner header holds alg, jwk and url, and no nonce")
        require(inner.header["url"] == request.jws.header["url"], "both urls are the same")
        jws.verify(inner, inner.header["jwk"])
        require(inner.payload == {"account": request.jws.header["kid"],
                                  "oldKey": self._account_of(request)["jwk"]},
                "the inner payload holds the account and its old key")
        return inner.header["jwk"]

    # -- orders and authorizations ---------------------------------------------------------------

    def _newOrder(self, request):
        names = [entry["value"] for entry in request.jws.payload["identifiers"]]
        account = request.jws.header["kid"]
        replaces = request.jws.payload.get("replaces")
        if replaces in self.replaced:
            return problem("alreadyReplaced", "that one has been replaced", 409)
        order = Order(next(self._numbers), account, names,
                      [self._authorization(account, value) for value in dict.fromkeys(names)],
                      shown=list(self.states_before_ready), replaces=replaces)
        self.orders.append(order)
        return Reply(201, self._order_body(order), {"Location": f"{self.url}/order/{order.number}"})

    def _authorization(self, account, value):
        wildcard = value.startswith("*.")
        authorization = Authorization(next(self._numbers), value[2:] if wildcard else value,
                                      wildcard, account)
        for kind in self.challenge_types:
            if kind == "dns-01" or not wildcard:
                challenge = Challenge(kind, self._token(), next(self._numbers), authorization)
                authorization.challenges.append(challenge)
                self.challenges.append(challenge)
        if self.reuse:
            authorization.status = "valid"
        self.authorizations.append(authorization)
        return authorization

    def _token(self):
        return self.tokens.popleft() if self.tokens else secrets.token_urlsafe(24)

    def _find(self, things, request):
        number = int(request.path.rsplit("/", 1)[1])
        return next(thing for thing in things if thing.number == number)

    def authorization_body(self, authorization):
        body = {"status": authorization.status,
                "identifier": {"type": "dns", "value": authorization.name},
                "expires": "2099-01-01T00:00:00Z",
                "challenges": [self.challenge_body(c) for c in authorization.challenges]}
        return {**body, "wildcard": True} if authorization.wildcard else body

    def challenge_body(self, challenge):
        body = {"type": challenge.type, "status": challenge.status, "token": challenge.token,
                "url": f"{self.url}/challenge/{challenge.number}"}
        return {**body, "error": challenge.error} if challenge.error else body

    def _authz(self, request):
        authorization = self._find(self.authorizations, request)
        body = self.authorization_body(authorization)
        if authorization.shown:
            body["status"] = authorization.shown.pop(0)
        return Reply(200, body)

    def _challenge(self, request):
        challenge = self._find(self.challenges, request)
        if request.jws.payload != {}:
            return problem("malformed", "the payload is an empty object")
        self._validate(challenge)
        # The reply shows the challenge as it was; the outcome is found by polling.
        return Reply(200, {**self.challenge_body(challenge), "status": "processing"})

    def _validate(self, challenge):
        authorization = challenge.authorization
        jwk = self.accounts[authorization.account]["jwk"]
        proof = challenge.token + "." + jws.thumbprint(jwk)
        verdict = self.validators[challenge.type](authorization.name, challenge.token, proof)
        if self.refusals:
            verdict = self.refusals.popleft()
        if verdict is not None:
            challenge.error = {"type": ERROR + verdict[0], "detail": verdict[1], "status": 400}
        challenge.status = authorization.status = "invalid" if verdict else "valid"
        authorization.shown = list(self.states_before_valid)

    # -- issuance --------------------------------------------------------------------------------

    def _order_status(self, order):
        states = {authorization.status for authorization in order.authorizations}
        if "invalid" in states:
            return "invalid"
        if order.certificate is not None:
            return "valid"
        return "ready" if states == {"valid"} else "pending"

    def _order_body(self, order):
        status = order.shown.pop(0) if order.shown else self._order_status(order)
        body = {"status": status, "finalize": f"{self.url}/finalize/{order.number}",
                "identifiers": [{"type": "dns", "value": value} for value in order.names],
                "authorizations": [f"{self.url}/authz/{authorization.number}"
                                   for authorization in order.authorizations]}
        if status == "valid":
            body["certificate"] = f"{self.url}/certificate/{order.number}"
        return body

    def _order(self, request):
        return Reply(200, self._order_body(self._find(self.orders, request)))

    def _finalize(self, request):
        order = self._find(self.orders, request)
        if order.shown or self._order_status(order) != "ready":
            return problem("orderNotReady", "the order is not ready", 403)
        if not self.takes_padding and request.jws.payload["csr"].endswith("="):
            return problem("malformed", "not base64url without padding")
        try:
            self._issue(order, self._request_of(request.jws.payload["csr"], order))
        except Violation as violation:
            self.violations.append(f"CSR: {violation}")
            return problem("badCSR", str(violation))
        order.shown = list(self.states_after_finalize)
        return Reply(200, self._order_body(order))

    def _request_of(self, text, order):
        # Padding at the end is tolerated, as real CAs do.
        csr = x509.load_der_x509_csr(jws.decode(text.rstrip("=")) if isinstance(text, str) else b"")
        require(csr.is_signature_valid, "the request's signature verifies")
        names = csr.extensions.get_extension_for_oid(
            ExtensionOID.SUBJECT_ALTERNATIVE_NAME).value.get_values_for_type(x509.DNSName)
        require(sorted(set(names)) == sorted(set(order.names)),
                f"the request is for {order.names}, not {names}")
        numbers = csr.public_key().public_numbers()
        account = jws.public_key(self.accounts[order.account]["jwk"]).public_numbers()
        require(numbers != account, "the certificate has a key of its own")
        return csr

    def _issue(self, order, csr):
        leaf = self.issuer.issue(list(dict.fromkeys(order.names)), csr.public_key())
        self.certificates.append(leaf)
        order.certificate = b"".join(map(pem, self.issuer.chain(leaf))).decode()
        if order.replaces is not None:
            self.replaced.add(order.replaces)

    def _certificate(self, request):
        order = self._find(self.orders, request)
        return Reply(200, order.certificate,
                     {"Content-Type": "application/pem-certificate-chain"})

    def _revokeCert(self, request):
        der = jws.decode(request.jws.payload["certificate"])
        known = [leaf.public_bytes(serialization.Encoding.DER) for leaf in self.certificates]
        if der not in known:
            return problem("unauthorized", "not a certificate of yours", 403)
        self.revoked.append(request.jws.payload)
        return Reply(200)

    def _renewalInfo(self, _request):
        return Reply(200, self.renewal_info, nonce=None)

    # -- reading back ----------------------------------------------------------------------------

    def payloads(self, endpoint):
        return [request.jws.payload for request in self.calls(endpoint)]


def challenge_of(body, kind):
    """The challenge of that type in an authorization's body."""
    return next(entry for entry in body["challenges"] if entry["type"] == kind)
