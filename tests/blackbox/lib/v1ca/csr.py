"""Certificate requests as the CA reads them."""

from cryptography import x509
from cryptography.hazmat.primitives.asymmetric import rsa
from cryptography.x509.oid import NameOID

from .refusal import malformed


def load_request(der: bytes) -> x509.CertificateSigningRequest:
    try:
        request = x509.load_der_x509_csr(der)
        names = requested_names(request)
    except ValueError:
        raise malformed("Error parsing certificate request") from None
    if not request.is_signature_valid:
        raise malformed("Certificate request has an invalid signature")
    key = request.public_key()
    if not isinstance(key, rsa.RSAPublicKey) or key.key_size < 2048:
        raise malformed("Certificate request holds no acceptable key")
    if not names:
        raise malformed("Certificate request names no host")
    return request


def requested_names(request: x509.CertificateSigningRequest) -> list[str]:
    """Common name first, then the alternative names in their order, each once."""
    names = [str(attribute.value)
             for attribute in request.subject.get_attributes_for_oid(NameOID.COMMON_NAME)]
    try:
        extension = request.extensions.get_extension_for_class(x509.SubjectAlternativeName)
        names += extension.value.get_values_for_type(x509.DNSName)
    except x509.ExtensionNotFound:
        pass
    return list(dict.fromkeys(name.lower() for name in names))
