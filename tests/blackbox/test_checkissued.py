"""What a CA issued is stored only when it is what was asked for."""

import pytest
from cryptography.hazmat.primitives.asymmetric import rsa
from lib import expect
from lib.http_script import edited
from lib.issuer import Issuer, pem
from lib.renewal import Archive, folder_of, record

NAMES = ["a.example", "b.example"]
ID = "AbC123"


def leaf_of(ca, chain):
    """The leaf that the CA is about to send, and the rest of its chain."""
    end = b"-----END CERTIFICATE-----\n"
    head, tail = chain.split(end, 1)
    return head + end, tail


def issued(ca, names=None, **more):
    """A chain with another leaf for the key that was sent."""
    key = ca.certificates[-1].public_key()
    leaf = ca.issuer.issue(names or NAMES, key, **more)
    return b"".join(pem(certificate) for certificate in ca.issuer.chain(leaf))


def other_key(ca, chain):
    key = rsa.generate_private_key(65537, 2048).public_key()
    return pem(ca.issuer.issue(NAMES, key)) + leaf_of(ca, chain)[1]


def missing_name(ca, chain):
    return issued(ca, NAMES[:1])


def other_name(ca, chain):
    return issued(ca, ["c.example"])


def expired(ca, chain):
    return issued(ca, days=-1 / 48)


def wrong_order(ca, chain):
    leaf, rest = leaf_of(ca, chain)
    return leaf + pem(ca.issuer.root) + rest


def ends_elsewhere(ca, chain):
    return leaf_of(ca, chain)[0] + pem(Issuer("Another").root)


def garbage(ca, chain):
    return leaf_of(ca, chain)[0] + b"garbage\n" + leaf_of(ca, chain)[1]


def no_certificate(ca, chain):
    return leaf_of(ca, chain)[0] + b"-----BEGIN CERTIFICATE-----\nYQ==\n-----END CERTIFICATE-----\n"


MISFITS = [
    (other_key, "it has another key"), (missing_name, "it is not for b.example"),
    (other_name, "it is not for a.example"), (expired, "it has expired"),
    (wrong_order, "certificate 2 of the chain did not issue the one before"),
    (ends_elsewhere, "certificate 2 of the chain did not issue the one before"),
    (garbage, "it is no chain of certificates"), (no_certificate, "it is no chain of certificates")]


def spoil(ca, change):
    def answer(_request, normal):
        reply = normal()
        return edited(body=change(ca, reply.content()))(_request, lambda: reply)
    ca.always("certificate", answer)


@pytest.mark.parametrize("change, why", MISFITS)
def test_new_certificate_that_does_not_fit(host, ca, account, change, why):
    host.settings(orderattempts=1, skipdns01=True)
    spoil(ca, change)
    result = host.new_cert(ca.directory, NAMES)
    expect.gave_up(result, 200, f"new-cert: issued certificate does not fit. ({why})", attempts=1)
    assert result.errors[0] == f"client_v2:# Issued certificate does not fit. [{why}]"
    assert host.certificates() == []


@pytest.mark.parametrize("change, why", MISFITS)
def test_renewal_that_does_not_fit_leaves_the_old_one(host, ca, account, change, why):
    Archive(host).add(ID, record=record(ca.directory, account, ";".join(NAMES)))
    before = expect.tree(folder_of(ID))
    spoil(ca, change)
    result = host.run("renew", "-c", ID)
    assert result.stdout == expect.failure_text(
        200, f"new-cert: issued certificate does not fit. ({why})", "client_v2")
    assert expect.tree(folder_of(ID)) == before
    assert host.certificates() == [folder_of(ID)]


@pytest.mark.parametrize("value", [None, False, 1, "true"])
@pytest.mark.parametrize("change", [other_key, missing_name, expired, wrong_order])
def test_without_the_setting_it_is_stored(host, ca, account, value, change):
    host.bare_settings(checkissued=value, skipdns01=True)
    spoil(ca, change)
    assert host.new_cert(ca.directory, NAMES).document["error"] == 0
