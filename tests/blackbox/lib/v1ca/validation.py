"""Proofs of control, checked for real. Each factory makes a function (name, token, key
authorization) that returns None when the proof is in place, else (error type, detail)."""

import hashlib
import http.client

from dnslib import QTYPE, RCODE, DNSError, DNSRecord

from .. import jws

_LONGEST_BODY = 8192


def on_loopback(_name):
    return "127.0.0.1"


def fetched_from(port, resolve=on_loopback, timeout=3.0):
    """http-01: the token fetched from the web server. `resolve` tells the address of a name, or
    None when it has none."""
    def validate(name, token, key_authorization):
        address = resolve(name)
        if address is None:
            return "unknownHost", f"No valid IP addresses found for {name}"
        path = "/.well-known/acme-challenge/" + token
        url = f"http://{name}{path}"
        try:
            status, body = _fetch(address, port, name, path, timeout)
        except (OSError, http.client.HTTPException):
            return "connection", f"Could not connect to {url}"
        if status != 200:
            return "unauthorized", f"Invalid response from {url} [{address}]: {status}"
        if body.rstrip() != key_authorization.encode("ascii"):
            return "unauthorized", ("The key authorization file from the server did not match this "
                                    "challenge")
        return None
    return validate


def _fetch(address, port, host, path, timeout):
    connection = http.client.HTTPConnection(address, port, timeout=timeout)
    try:
        connection.request("GET", path, headers={"Host": host, "User-Agent": "acme-validator"})
        reply = connection.getresponse()
        return reply.status, reply.read(_LONGEST_BODY)
    finally:
        connection.close()


def asked_of(address, port=53, timeout=3.0):
    """dns-01: the TXT record asked of the DNS server."""
    def validate(name, _token, key_authorization):
        owner = "_acme-challenge." + name
        try:
            packet = DNSRecord.question(owner, "TXT").send(address, port, timeout=timeout)
            reply = DNSRecord.parse(packet)
        except (OSError, DNSError):
            return "connection", f"DNS query timed out for TXT {owner}"
        if reply.header.rcode not in (RCODE.NOERROR, RCODE.NXDOMAIN):
            return "connection", f"DNS problem: {RCODE[reply.header.rcode]} looking up {owner}"
        digest = jws.encode(hashlib.sha256(key_authorization.encode("ascii")).digest())
        if digest not in _texts(reply, owner):
            return "unauthorized", "Correct value not found for DNS challenge"
        return None
    return validate


def _texts(reply, owner):
    return [b"".join(record.rdata.data).decode("ascii", "replace") for record in reply.rr
            if record.rtype == QTYPE.TXT and str(record.rname).rstrip(".") == owner]
