"""A small certificate authority: a root, intermediates, and leaves made from requests."""

import datetime

from cryptography import x509
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.hazmat.primitives.asymmetric import ec
from cryptography.x509.oid import NameOID


def pem(thing):
    """PEM bytes of a certificate or of a private key."""
    if isinstance(thing, x509.Certificate):
        return thing.public_bytes(serialization.Encoding.PEM)
    return thing.private_bytes(serialization.Encoding.PEM, serialization.PrivateFormat.PKCS8,
                               serialization.NoEncryption())


def name(common_name, organisation=None):
    parts = [x509.NameAttribute(NameOID.COMMON_NAME, common_name)]
    if organisation is not None:
        parts.insert(0, x509.NameAttribute(NameOID.ORGANIZATION_NAME, organisation))
    return x509.Name(parts)


class Issuer:
    def __init__(self, organisation="Let's Encrypt", intermediates=1):
        self.organisation = organisation
        self.days = 90
        self.now = datetime.datetime.utcnow  # its clock
        self.root_key, self.root = self._authority(name("Test Root", organisation), None, None)
        self.intermediates = []  # (key, certificate), nearest to the root first
        for number in range(intermediates):
            self.add_intermediate(f"Test Intermediate {number + 1}")

    def add_intermediate(self, common_name):
        parent_key, parent = self.intermediates[-1] if self.intermediates else (
            self.root_key, self.root)
        self.intermediates.append(
            self._authority(name(common_name, self.organisation), parent_key, parent))

    def chain(self, leaf):
        """The leaf and the intermediates up to below the root, leaf first."""
        return [leaf] + [certificate for _, certificate in reversed(self.intermediates)]

    def issue(self, names, public_key, days=None):
        """A leaf certificate for those names, from the last intermediate (or the root)."""
        key, issuer = self.intermediates[-1] if self.intermediates else (self.root_key, self.root)
        alternatives = x509.SubjectAlternativeName([x509.DNSName(value) for value in names])
        return self._builder(name(names[0]), issuer.subject, public_key, days or self.days) \
            .add_extension(alternatives, critical=False) \
            .add_extension(x509.BasicConstraints(ca=False, path_length=None), critical=True) \
            .add_extension(x509.AuthorityKeyIdentifier.from_issuer_public_key(key.public_key()),
                           critical=False) \
            .sign(key, hashes.SHA256())

    def _authority(self, subject, parent_key, parent):
        key = ec.generate_private_key(ec.SECP256R1())
        builder = self._builder(subject, parent.subject if parent else subject, key.public_key(),
                                3650)
        builder = builder.add_extension(x509.BasicConstraints(ca=True, path_length=None),
                                        critical=True) \
            .add_extension(x509.SubjectKeyIdentifier.from_public_key(key.public_key()),
                           critical=False)
        return key, builder.sign(parent_key or key, hashes.SHA256())

    def _builder(self, subject, issuer, public_key, days):
        now = self.now()
        return x509.CertificateBuilder().subject_name(subject).issuer_name(issuer) \
            .public_key(public_key).serial_number(x509.random_serial_number()) \
            .not_valid_before(now - datetime.timedelta(hours=1)) \
            .not_valid_after(now + datetime.timedelta(days=days))
