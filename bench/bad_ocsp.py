"""OCSP answers (RFC 6960) that no client should take; made here, since `openssl ocsp` only makes good ones."""

import datetime

from cryptography import x509
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.x509 import ocsp

from bench.authority import name, now
from bench.messages import Response
from bench.misbehaviour import MOD_OCSP, OCSP, Misbehaviour

OCSP_ENDPOINTS = (OCSP, MOD_OCSP)
HOUR = datetime.timedelta(hours=1)
YEAR = datetime.timedelta(days=365)
# Enough certificates for an answer above 16 KiB.
MANY = 40


def _send(scene, body):
    scene.peer.send(Response(200, [("Content-Type", "application/ocsp-response")], body).bytes())


def _body(body):
    return lambda scene: _send(scene, body)


def _unsuccessful(status):
    answer = ocsp.OCSPResponseBuilder.build_unsuccessful(status).public_bytes(serialization.Encoding.DER)
    return _body(answer)


def _answer(pki, issuer, certificate, *, status=ocsp.OCSPCertStatus.GOOD, signer=None, this_update=None,
            next_update=HOUR, others=()):
    """A signed answer about `certificate`; by the issuer unless `signer` is another entity, who comes along then."""
    begin = now() + (this_update or -HOUR)
    revoked = status == ocsp.OCSPCertStatus.REVOKED
    by = signer or issuer.entity
    builder = ocsp.OCSPResponseBuilder().add_response(
        cert=certificate, issuer=issuer.entity.cert, algorithm=hashes.SHA1(), cert_status=status, this_update=begin,
        next_update=None if next_update is None else begin + 2 * next_update,
        revocation_time=begin if revoked else None,
        revocation_reason=x509.ReasonFlags.key_compromise if revoked else None)
    builder = builder.responder_id(ocsp.OCSPResponderEncoding.NAME, by.cert)
    along = [*([signer.cert] if signer else []), *others]
    if along:
        builder = builder.certificates(along)
    return builder.sign(by.key, hashes.SHA256()).public_bytes(serialization.Encoding.DER)


def _made(make):
    """An answer by make(pki, issuer, certificate); the due one when nobody knows the certificate."""
    def act(scene):
        front = scene.endpoint.service
        _, issuer, certificate = front.subject_of(scene.request)
        if certificate is None:
            scene.peer.send(scene.response.bytes())
        else:
            _send(scene, make(front.pki, issuer, certificate))
    return act


def _with(**how):
    return _made(lambda pki, issuer, certificate: _answer(pki, issuer, certificate, **how))


def _by_delegate(kind):
    return _made(lambda pki, issuer, certificate: _answer(pki, issuer, certificate, signer=pki.delegate(issuer, kind)))


def _by_stranger(pki, issuer, certificate):
    return _answer(pki, issuer, certificate, signer=pki.strange_root())


def _by_namesake(pki, issuer, certificate):
    namesake = pki.entity(f"{issuer.name}.namesake", issuer.entity.cert.subject)
    return _answer(pki, issuer, certificate, signer=namesake)


def _about_another(pki, issuer, _):
    other = pki.entity(f"{issuer.name}.other", name("Bench Other"), issuer=issuer.entity, ca=False)
    return _answer(pki, issuer, other.cert)


def _wrong_signature(pki, issuer, certificate):
    answer = bytearray(_answer(pki, issuer, certificate))
    answer[-1] ^= 1
    return bytes(answer)


def _big(pki, issuer, certificate):
    return _answer(pki, issuer, certificate, others=[issuer.entity.cert] * MANY)


def _amended(amend):
    return _made(lambda pki, issuer, certificate: amend(_answer(pki, issuer, certificate)))


_STATUS = ocsp.OCSPResponseStatus
_TABLE = [
    ("ocsp-try-later", "the answer tryLater", _unsuccessful(_STATUS.TRY_LATER)),
    ("ocsp-unauthorized", "the answer unauthorized", _unsuccessful(_STATUS.UNAUTHORIZED)),
    ("ocsp-internal-error", "the answer internalError", _unsuccessful(_STATUS.INTERNAL_ERROR)),
    ("ocsp-malformed", "the answer malformedRequest", _unsuccessful(_STATUS.MALFORMED_REQUEST)),
    ("ocsp-success-only", "success without an answer in it", _body(b"\x30\x03\x0a\x01\x00")),
    ("ocsp-empty", "the status 200 without a body", _body(b"")),
    ("ocsp-garbage", "bytes that are no answer", _body(b"\xff" * 800)),
    ("ocsp-page", "a web page", _body(b"<html><body>Log in first</body></html>")),
    ("ocsp-truncated", "the first half of a good answer", _amended(lambda answer: answer[:len(answer) // 2])),
    ("ocsp-trailing", "a good answer and bytes behind it", _amended(lambda answer: answer + b"\0" * 16)),
    ("ocsp-indefinite", "a length that is not told, and nothing in it", _body(b"\x30\x80\x0a\x01\x00")),
    ("ocsp-revoked", "the certificate is revoked", _with(status=ocsp.OCSPCertStatus.REVOKED)),
    ("ocsp-unknown", "the certificate is not known", _with(status=ocsp.OCSPCertStatus.UNKNOWN)),
    ("ocsp-another", "a good answer about another certificate", _made(_about_another)),
    ("ocsp-old", "a good answer of a year ago, out of date", _with(this_update=-YEAR)),
    ("ocsp-old-undated", "a good answer of a year ago that names no end", _with(this_update=-YEAR, next_update=None)),
    ("ocsp-undated", "a good answer of an hour ago that names no end", _with(next_update=None)),
    ("ocsp-not-yet", "a good answer of next year", _with(this_update=YEAR)),
    ("ocsp-by-issuer", "a good answer signed by the issuer", _with()),
    ("ocsp-by-delegate", "a good answer signed by a delegate", _by_delegate("delegate")),
    ("ocsp-delegate-expired", "signed by a delegate that has expired", _by_delegate("delegate-expired")),
    ("ocsp-delegate-without-usage", "signed by a certificate of the issuer that is no delegate",
     _by_delegate("delegate-without-usage")),
    ("ocsp-stranger", "signed by a stranger", _made(_by_stranger)),
    ("ocsp-namesake", "signed by a stranger with the issuer's name", _made(_by_namesake)),
    ("ocsp-wrong-signature", "a good answer with a bit of its signature changed", _made(_wrong_signature)),
    ("ocsp-big", "a good answer above 16 KiB", _made(_big)),
]

OCSP_FAULTS = [Misbehaviour(title, summary, act, OCSP_ENDPOINTS) for title, summary, act in _TABLE]
