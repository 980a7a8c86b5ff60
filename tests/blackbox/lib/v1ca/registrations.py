"""new-reg and the registrations that it makes. Every step judges its request, and returns what is
then to be done; so a request is judged even when a test scripts another reply."""

import re

from ..http_script import Reply
from .message import AccountKey, SignedRequest
from .refusal import Refusal, malformed, unauthorized
from .state import Registration, State

_EMAIL = re.compile(r"mailto:[^@\s,?]+@[^@\s,?]+\Z")


def link(url: str, relation: str) -> str:
    return f'<{url}>;rel="{relation}"'


def _contact(payload: dict) -> list[str]:
    contact = payload.get("contact", [])
    if not isinstance(contact, list) or not all(isinstance(entry, str) for entry in contact):
        raise malformed("contact is not a list of strings")
    for entry in contact:
        if not _EMAIL.match(entry):
            raise Refusal(400, "invalidEmail", f"contact {entry} is not an e-mail address")
    return contact


class Registrations:
    def __init__(self, url: str, state: State) -> None:
        self._url = url
        self._state = state
        self.terms_url = url + "/terms/v1"

    def new_reg(self, request: SignedRequest):
        contact = _contact(request.payload)
        agreement = self._agreement(request.payload)
        known = self._state.registration_of(request.key)
        if known is not None:
            raise Refusal(409, "malformed", "Registration key is already in use",
                          {"Location": self._location(known)})

        def act() -> Reply:
            registration = self.register(request.key, contact, agreement)
            return Reply(201, registration.document(), {
                "Location": self._location(registration), "Link": self._links()})
        return act

    def update_reg(self, number: str, request: SignedRequest):
        registration = next((r for r in self._state.registrations if str(r.number) == number), None)
        if registration is None or registration.key != request.key:
            raise unauthorized("Request signing key did not match registration key")
        contact = _contact(request.payload) if "contact" in request.payload else None
        agreement = self._agreement(request.payload)

        def act() -> Reply:
            registration.contact = registration.contact if contact is None else contact
            registration.agreement = agreement or registration.agreement
            return Reply(202, registration.document(), {"Link": self._links()})
        return act

    def register(self, key: AccountKey, contact: list[str], agreement: str = "") -> Registration:
        number = len(self._state.registrations) + 1
        registration = Registration(number, key, contact, agreement)
        self._state.registrations.append(registration)
        return registration

    def subscriber(self, key: AccountKey) -> Registration:
        """The registration that may ask for authorizations and certificates."""
        registration = self._state.registration_of(key)
        if registration is None:
            raise unauthorized("No registration exists matching provided key")
        if not registration.agreement:
            raise unauthorized("Must agree to subscriber agreement before any further actions")
        return registration

    def _location(self, registration: Registration) -> str:
        return f"{self._url}/acme/reg/{registration.number}"

    def _links(self) -> list[str]:
        return [link(self._url + "/acme/new-authz", "next"),
                link(self.terms_url, "terms-of-service")]

    def _agreement(self, payload: dict) -> str:
        agreement = payload.get("agreement", "")
        if agreement not in ("", self.terms_url):
            raise malformed(f"Provided agreement URL [{agreement}] does not match current "
                            f"agreement URL [{self.terms_url}]")
        return agreement
