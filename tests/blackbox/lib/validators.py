"""How the scripted CA validates: functions (name, token, key authorization) that return None when
the proof is in place, else (error type, detail)."""

import hashlib
import http.client

from . import jws, paths


def webroot(_name, token, key_authorization):
    """http-01: the file in the folder that the web server publishes."""
    try:
        with open(f"{paths.TOKENS}/{token}", "rb") as proof:
            content = proof.read()
    except OSError as error:
        return "connection", f"no proof: {error.strerror}"
    if content != key_authorization.encode():
        return "unauthorized", f"wrong proof: {content!r}"
    return None


def web_server(port):
    """http-01: fetched from a real web server on the loopback."""
    def validate(name, token, key_authorization):
        connection = http.client.HTTPConnection("127.0.0.1", port, timeout=10)
        try:
            connection.request("GET", f"/.well-known/acme-challenge/{token}",
                               headers={"Host": name})
            reply = connection.getresponse()
            content = reply.read()
        except OSError as error:
            return "connection", f"cannot fetch: {error}"
        finally:
            connection.close()
        if reply.status != 200 or content != key_authorization.encode():
            return "unauthorized", f"wrong answer: {reply.status} {content!r}"
        return None
    return validate


def txt_value(key_authorization):
    """What the TXT record of dns-01 holds."""
    return jws.encode(hashlib.sha256(key_authorization.encode()).digest())


def txt_records(dns):
    """dns-01: the records of a DnsServer."""
    def validate(name, _token, key_authorization):
        found = dns.texts("_acme-challenge." + name)
        if txt_value(key_authorization) not in found:
            return "dns", f"no such TXT record among {found}"
        return None
    return validate


def accept(_name, _token, _key_authorization):
    """Whatever is there, or not."""
    return None
