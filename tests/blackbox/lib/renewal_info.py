"""Renewal information (RFC 9773): what the scripted CA answers, and how it knows a certificate."""

import base64
import datetime
import json
import time

from cryptography import x509

from . import expect

HISTORY = "/usr/kova/etc/letsencrypt/renewal"
DAY = 86400


def moment(seconds):
    """RFC 3339 text of that many seconds from now."""
    return time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(time.time() + seconds))


def window(start, end, **more):
    """An answer whose window begins and ends that many seconds from now."""
    return {"suggestedWindow": {"start": moment(start), "end": moment(end)}, **more}


def identifier(path):
    """The identifier of the first certificate of a PEM file."""
    return identifier_of(x509.load_pem_x509_certificate(expect.read(path).encode()))


def identifier_of(leaf):
    key = leaf.extensions.get_extension_for_class(x509.AuthorityKeyIdentifier).value.key_identifier
    # A sign bit's room: an octet more when the highest bit is set.
    serial = leaf.serial_number.to_bytes(leaf.serial_number.bit_length() // 8 + 1, "big")
    return ".".join(base64.urlsafe_b64encode(part).rstrip(b"=").decode() for part in (key, serial))


def asked_for(ca):
    """The identifiers that the CA was asked about, in order."""
    return [request.path.rsplit("/", 1)[1] for request in ca.calls("renewalInfo")]


def advice(identity):
    """What the certificate's history holds of it."""
    return json.loads(expect.read(f"{HISTORY}/{identity}.json"))["ari"]


def seconds_of(text):
    """Seconds since the epoch of the history's own form."""
    parsed = datetime.datetime.strptime(text, "%Y-%m-%dT%H:%M:%SZ")
    return int(parsed.replace(tzinfo=datetime.timezone.utc).timestamp())
