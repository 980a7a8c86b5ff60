"""A certificate authority that speaks the early, resource-typed ACME protocol, for tests.

It is strict: every signature, nonce and payload is verified, names are validated by really fetching
the token or really asking for the TXT record, and certificates come from a hierarchy of its own.
It is scripted like every ScriptedServer (answer, always); scripted or not, a request is judged
first, and what breaks a rule is noted in `violations`.
"""

from .ca import AcmeV1Ca
from .script import challenge_refused, shown_as
from .validation import asked_of, fetched_from

__all__ = ["AcmeV1Ca", "asked_of", "challenge_refused", "fetched_from", "shown_as"]
