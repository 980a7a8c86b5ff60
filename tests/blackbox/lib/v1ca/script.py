"""Answers for AcmeV1Ca.answer and always, beside those of http_script."""

from ..http_script import edited_json
from .refusal import ERROR


def shown_as(status):
    """As an answer: the authorization with that value as its status."""
    def edit(document):
        document["status"] = status
    return edited_json(edit)


def challenge_refused(kind, error_type, detail):
    """As an answer: the authorization is invalid, its challenge of that type tells why."""
    def edit(document):
        document["status"] = "invalid"
        for challenge in document["challenges"]:
            if challenge["type"] == kind:
                challenge["error"] = {"type": ERROR + error_type, "detail": detail}
    return edited_json(edit)
