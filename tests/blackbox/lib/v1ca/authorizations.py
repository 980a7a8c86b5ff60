"""new-authz, the authorizations and their challenges."""

import re
import secrets

from ..http_script import Reply
from .message import SignedRequest
from .refusal import ERROR, malformed, unauthorized
from .registrations import link
from .state import Authorization, Challenge, Registration

_HOST_NAME = re.compile(r"(?=.{1,253}\Z)([a-z0-9]([a-z0-9-]{0,61}[a-z0-9])?)"
                        r"(\.[a-z0-9]([a-z0-9-]{0,61}[a-z0-9])?)+\Z")


class Authorizations:
    def __init__(self, ca, state, registrations) -> None:
        self._ca = ca  # its knobs
        self._state = state
        self._registrations = registrations

    def new_authz(self, request: SignedRequest):
        registration = self._registrations.subscriber(request.key)
        identifier = request.payload.get("identifier")
        if not isinstance(identifier, dict) or identifier.get("type") != "dns":
            raise malformed("identifier is not of type dns")
        name = identifier.get("value")
        if not isinstance(name, str) or not _HOST_NAME.match(name):
            raise malformed(f"Policy forbids issuing for name {name!r}")

        def act() -> Reply:
            known = self._state.valid_authorization(registration, name) if self._ca.reuse else None
            authorization = known or self._make(registration, name)
            return Reply(201, authorization.document(), {
                "Location": authorization.uri,
                "Link": link(self._ca.url + "/acme/new-cert", "next")})
        return act

    def _make(self, registration: Registration, name: str) -> Authorization:
        number = len(self._state.authorizations) + 1
        authorization = Authorization(number, f"{self._ca.url}/acme/authz/{number}", registration,
                                      name)
        for index, kind in enumerate(self._ca.challenge_types):
            uri = f"{self._ca.url}/acme/challenge/{number}/{index}"
            token = self._ca.tokens.popleft() if self._ca.tokens else secrets.token_urlsafe(32)
            authorization.challenges.append(Challenge(kind, uri, token))
        self._state.authorizations.append(authorization)
        return authorization

    def authz(self, number: str):
        authorization = self._find(number)

        def act() -> Reply:
            reply = Reply(200, authorization.document(),
                          {"Link": link(self._ca.url + "/acme/new-cert", "next")})
            del authorization.shown[:1]
            return reply
        return act

    def challenge(self, number: str, index: str):
        authorization, challenge = self._find_challenge(number, index)
        return lambda: Reply(202, challenge.document(), {"Link": link(authorization.uri, "up")})

    def answer(self, number: str, index: str, request: SignedRequest):
        authorization, challenge = self._find_challenge(number, index)
        if self._registrations.subscriber(request.key) is not authorization.registration:
            raise unauthorized("User registration ID doesn't match registration ID in "
                               "authorization")
        if authorization.status != "pending":
            raise malformed(f"Authorization is {authorization.status}, not pending")
        if request.payload.get("type", challenge.kind) != challenge.kind:
            raise malformed("Challenge is of another type")
        expected = challenge.token + "." + request.key.thumbprint
        if request.payload.get("keyAuthorization") != expected:
            raise unauthorized("Provided key authorization was incorrect")

        def act() -> Reply:
            challenge.key_authorization = expected
            self._validate(authorization, challenge)
            # As it was; the outcome is found by polling.
            return Reply(202, challenge.document(undecided=True), {
                "Location": challenge.uri, "Link": link(authorization.uri, "up")})
        return act

    def _validate(self, authorization: Authorization, challenge: Challenge) -> None:
        validate = self._ca.validators[challenge.kind]
        verdict = validate(authorization.name, challenge.token, challenge.key_authorization)
        if self._ca.refusals:
            verdict = self._ca.refusals.popleft()
        if verdict is not None:
            challenge.error = {"type": ERROR + verdict[0], "detail": verdict[1]}
        challenge.status = authorization.status = "invalid" if verdict else "valid"
        authorization.shown = list(self._ca.states_before_decided)

    def _find(self, number: str) -> Authorization:
        for authorization in self._state.authorizations:
            if str(authorization.number) == number:
                return authorization
        raise malformed("Unable to find authorization", 404)

    def _find_challenge(self, number: str, index: str) -> tuple[Authorization, Challenge]:
        authorization = self._find(number)
        if int(index) >= len(authorization.challenges):
            raise malformed("Unable to find challenge", 404)
        return authorization, authorization.challenges[int(index)]
