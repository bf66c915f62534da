"""CA certificates for a container's payload: ordinary ones, and every oddity that has to be taken or refused."""

import base64

from cryptography.hazmat.primitives import hashes
from cryptography.hazmat.primitives.asymmetric import ec, padding
from cryptography.hazmat.primitives import serialization

import der
from bench.authority import Entity, issue, name, p256, p384, rsa_key, write


def public_der(key):
    return key.public_key().public_bytes(serialization.Encoding.DER, serialization.PublicFormat.SubjectPublicKeyInfo)


def sign_tbs(key, tbs, algorithm):
    if isinstance(key, ec.EllipticCurvePrivateKey):
        signature = key.sign(tbs, ec.ECDSA(hashes.SHA256()))
    else:
        signature = key.sign(tbs, padding.PKCS1v15(), hashes.SHA256())
    return der.certificate(tbs, signature, algorithm)


def long_form(certificate):
    """The same certificate with its outermost length in four octets where two would do: BER, and not DER."""
    header = 2 + (certificate[1] & 0x7F)
    return der.tlv(0x30, certificate[header:], long_form=4)


def ordinary(rsa):
    """Twenty CAs: roots with and without key identifiers on three kinds of key, and intermediates below them."""
    made = []
    for number in range(10):
        key = (p256, p384, lambda: rsa)[number % 3]()
        made.append(issue(name(f"Payload CA {number}"), key=key, key_ids=number % 2 == 0))
    made += [issue(name(f"Payload CA {number + 10}"), issuer=issuer) for number, issuer in enumerate(made[:10])]
    return [entity.der() for entity in made]


def odd(rsa):
    """Taken by a lenient reader, one by one for a reason of its own."""
    ec_key = p256()
    tbs_v1 = der.tbs(public_der(ec_key), subject=der.common_name("Payload v1"), algorithm=der.ECDSA_WITH_SHA256,
                     version=1)
    nobody = der.tbs(public_der(ec_key), subject=der.EMPTY_NAME, algorithm=der.ECDSA_WITH_SHA256)
    good = issue(name("Payload odd")).der()
    wrong_signature = bytearray(issue(name("Payload wrong signature"), key_ids=False).der())
    wrong_signature[-1] ^= 1
    stranger = Entity(p256(), issue(name("Payload stranger")).cert)
    return {
        "self-issued-no-ids": issue(name("Payload self-issued"), key=rsa, key_ids=False).der(),
        "self-issued-wrong-signature": bytes(wrong_signature),
        "issuer-unknown": issue(name("Payload orphan"), issuer=stranger).der(),
        "issuer-name-own-key-other": issue(name("Payload twin"), issuer=stranger, key_ids=False,
                                           issuer_name=name("Payload twin")).der(),
        "v1": sign_tbs(ec_key, tbs_v1, der.ECDSA_WITH_SHA256),
        "empty-names": sign_tbs(ec_key, nobody, der.ECDSA_WITH_SHA256),
        "long-form-length": long_form(good),
        "long-form-length-as-der": good,
        "trailing-bytes": good + b"trailing",
        "pem-text": to_pem(good),
    }


def to_pem(content):
    text = base64.encodebytes(content)
    return b"-----BEGIN CERTIFICATE-----\n" + text + b"-----END CERTIFICATE-----\n"


def refused(good):
    return {
        "truncated": good[:-20],
        "truncated-header": good[:3],
        "indefinite-length": b"\x30\x80" + good[4:] + b"\0\0",
        "not-a-certificate": b"plain text in place of a certificate",
        "empty-sequence": der.sequence(),
        "nested": b"\x30\x82\x00\x00" * 1000,
    }


def write_all(out):
    rsa = rsa_key(2048)
    certificates = ordinary(rsa)
    for number, content in enumerate(certificates):
        write(out / f"{number:02}.der", content)
    for folder, made in (("odd", odd(rsa)), ("refused", refused(certificates[0]))):
        for stem, content in made.items():
            write(out / folder / f"{stem}.der", content)
