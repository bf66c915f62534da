"""Certificates for tests and bench, made with Python's cryptography: none of the code under test has a hand in them."""

import datetime
import ipaddress
import pathlib

from cryptography import x509
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.hazmat.primitives.asymmetric import ec, rsa
from cryptography.x509.oid import AuthorityInformationAccessOID, NameOID

DAY = datetime.timedelta(days=1)
SIGNER_CN = "KALVIRON TSC Signer 1"


def now():
    return datetime.datetime.now(datetime.timezone.utc).replace(microsecond=0, tzinfo=None)


def p256():
    return ec.generate_private_key(ec.SECP256R1())


def p384():
    return ec.generate_private_key(ec.SECP384R1())


def rsa_key(bits):
    return rsa.generate_private_key(public_exponent=65537, key_size=bits)


def name(*common_names, organisation="Truststore Tests"):
    """A distinguished name: the organisation, then one CN attribute for each text, in this order."""
    attributes = []
    if organisation is not None:
        attributes.append(x509.NameAttribute(NameOID.ORGANIZATION_NAME, organisation))
    attributes += [x509.NameAttribute(NameOID.COMMON_NAME, text) for text in common_names]
    return x509.Name(attributes)


def _hash_for(key):
    if isinstance(key, ec.EllipticCurvePrivateKey) and key.curve.key_size == 384:
        return hashes.SHA384()
    return hashes.SHA256()


class Entity:
    """A key and its certificate, which may issue others."""

    def __init__(self, key, cert):
        self.key = key
        self.cert = cert

    def der(self):
        return self.cert.public_bytes(serialization.Encoding.DER)

    def pem(self):
        return self.cert.public_bytes(serialization.Encoding.PEM)


def issue(subject, *, issuer=None, key=None, ca=True, ca_bit=True, key_ids=True, begin=None, end=None,
          issuer_name=None, extensions=()):
    """Issues a certificate for `subject` by `issuer`, or by itself.

    ca: a CA's key usage and basic constraints, otherwise a signer's; ca_bit False: a CA but for its CA bit.
    key_ids False: neither subject nor authority key identifier. issuer_name: what to write in place of the issuer's
    own name. extensions: further ones, each with whether it is critical.
    """
    key = key or p256()
    issuer_key = issuer.key if issuer else key
    if issuer_name is None:
        issuer_name = issuer.cert.subject if issuer else subject
    builder = (
        x509.CertificateBuilder()
        .subject_name(subject)
        .issuer_name(issuer_name)
        .public_key(key.public_key())
        .serial_number(x509.random_serial_number())
        .not_valid_before(begin or now() - DAY)
        .not_valid_after(end or now() + 3650 * DAY)
        .add_extension(x509.BasicConstraints(ca=ca and ca_bit, path_length=None), critical=True)
        .add_extension(_key_usage(ca), critical=True)
    )
    if key_ids:
        builder = builder.add_extension(x509.SubjectKeyIdentifier.from_public_key(key.public_key()), critical=False)
        authority = x509.AuthorityKeyIdentifier.from_issuer_public_key(issuer_key.public_key())
        builder = builder.add_extension(authority, critical=False)
    for extension, critical in extensions:
        builder = builder.add_extension(extension, critical=critical)
    return Entity(key, builder.sign(issuer_key, _hash_for(issuer_key)))


def server_names(*, address=None, host=None):
    """The extension with a server's IP address, its name, or both."""
    names = [x509.DNSName(host)] if host else []
    names += [x509.IPAddress(ipaddress.ip_address(address))] if address else []
    return (x509.SubjectAlternativeName(names), False)


def purpose(*object_identifiers):
    """The extension with what the certificate may be used for."""
    return (x509.ExtendedKeyUsage(object_identifiers), False)


def responder(url):
    """The extension with the place to ask for the certificate's revocation."""
    access = x509.AccessDescription(AuthorityInformationAccessOID.OCSP, x509.UniformResourceIdentifier(url))
    return (x509.AuthorityInformationAccess([access]), False)


def _key_usage(ca):
    return x509.KeyUsage(
        digital_signature=not ca, key_cert_sign=ca, crl_sign=ca, content_commitment=False, key_encipherment=False,
        data_encipherment=False, key_agreement=False, encipher_only=False, decipher_only=False)


def write(path, content):
    path = pathlib.Path(path)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(content)


def write_key(path, key):
    write(path, key.private_bytes(serialization.Encoding.PEM, serialization.PrivateFormat.PKCS8,
                                  serialization.NoEncryption()))


def write_chain(folder, leaf, rest, roots):
    """FOLDER/leaf.key.pem, FOLDER/chain/0.der and so on (leaf first), FOLDER/chain.pem, FOLDER/root.pem."""
    chain = [leaf, *rest]
    write_key(folder / "leaf.key.pem", leaf.key)
    for position, entity in enumerate(chain):
        write(folder / "chain" / f"{position}.der", entity.der())
    write(folder / "chain.pem", b"".join(entity.pem() for entity in chain))
    write(folder / "root.pem", b"".join(root.pem() for root in roots))
