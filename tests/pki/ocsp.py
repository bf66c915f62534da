"""Certificates with an OCSP responder (RFC 6960), and answers about them, which `openssl ocsp` makes."""

import datetime
import subprocess

from cryptography import x509
from cryptography.x509 import ocsp
from cryptography.x509.oid import AuthorityInformationAccessOID, ExtendedKeyUsageOID, ObjectIdentifier

import der
import hostile
from bench.authority import DAY, SIGNER_CN, issue, name, now, p384, rsa_key, write, write_chain, write_key

RESPONDER_URL = "http://ocsp.invalid/ask"
BASIC_RESPONSE = "1.3.6.1.5.5.7.48.1.1"
FAR = 3650 * DAY
OCSP_SIGNING = (x509.ExtendedKeyUsage([ExtendedKeyUsageOID.OCSP_SIGNING]), False)
OTHER_USAGE = (x509.ExtendedKeyUsage([ExtendedKeyUsageOID.SERVER_AUTH]), False)
ANY_USAGE = (x509.ExtendedKeyUsage([ExtendedKeyUsageOID.ANY_EXTENDED_KEY_USAGE]), False)
CRITICAL_UNKNOWN = (x509.UnrecognizedExtension(ObjectIdentifier(der.PRIVATE_EXTENSION), b"\x05\x00"), True)


def responder_extension(url=RESPONDER_URL):
    access = x509.AccessDescription(AuthorityInformationAccessOID.OCSP, x509.UniformResourceIdentifier(url))
    return (x509.AuthorityInformationAccess([access]), False)


class Answers:
    """Certificates of one issuer, what is known of them, and a folder for the files that openssl wants."""

    def __init__(self, out, folder, issuer):
        self.out, self.folder, self.issuer = out, folder, issuer
        self.lines = []
        write(folder / "issuer.pem", issuer.pem())

    def entity(self, stem, entity):
        write(self.out / f"{stem}.der", entity.der())
        write(self.folder / f"{stem}.pem", entity.pem())
        write_key(self.folder / f"{stem}.key", entity.key)
        return entity

    def know(self, entity, *, revoked=False):
        """Adds a line to openssl's index: status, end, revocation, serial, file, subject."""
        begin, end = (f"{time:%y%m%d%H%M%SZ}" for time in (now() - DAY, now() + 300 * DAY))
        serial = f"{entity.cert.serial_number:X}"
        serial = serial if len(serial) % 2 == 0 else "0" + serial
        known = ["R", end, begin] if revoked else ["V", end, ""]
        self.lines.append("\t".join([*known, serial, "unknown", entity.cert.subject.rfc4514_string()]))
        write(self.folder / "index.txt", "".join(line + "\n" for line in self.lines).encode())

    def answer(self, stem, certificate, responder, *options, issuer="issuer"):
        """Writes STEM.response: what `responder` says about `certificate`, as if `issuer` had issued it."""
        path = self.folder
        request = self.out / f"{certificate}.request"
        run = ["openssl", "ocsp", "-issuer", path / f"{issuer}.pem", "-cert", path / f"{certificate}.pem",
               "-no_nonce", "-reqout", request]
        subprocess.run(run, check=True, capture_output=True)
        run = ["openssl", "ocsp", "-index", path / "index.txt", "-CA", path / "issuer.pem",
               "-rsigner", path / f"{responder}.pem", "-rkey", path / f"{responder}.key",
               "-reqin", request, "-respout", self.out / f"{stem}.response", *options]
        subprocess.run(run, check=True, capture_output=True)
        self.write_times(stem)

    def write_times(self, stem):
        """STEM.times: thisUpdate and, if there is one, nextUpdate in seconds since the epoch."""
        answer = ocsp.load_der_ocsp_response((self.out / f"{stem}.response").read_bytes())
        times = [time for time in (answer.this_update, answer.next_update) if time is not None]
        seconds = [str(int(time.replace(tzinfo=datetime.timezone.utc).timestamp())) for time in times]
        write(self.out / f"{stem}.times", " ".join(seconds).encode())


def leaf(issuer, common_name, **options):
    options.setdefault("extensions", [responder_extension()])
    return issue(name(common_name), issuer=issuer, ca=False, **options)


def delegate(issuer, *extensions, **options):
    """A responder's certificate; OCSPSigning unless told otherwise."""
    return issue(name("Responder"), issuer=issuer, ca=False, extensions=extensions or [OCSP_SIGNING], **options)


def make_certificates(answers, root, issuer):
    answers.know(answers.entity("good", leaf(issuer, "KALVIRON good")))
    answers.know(answers.entity("other", leaf(issuer, "KALVIRON other")))
    answers.know(answers.entity("revoked", leaf(issuer, "KALVIRON revoked")), revoked=True)
    answers.entity("unknown", leaf(issuer, "KALVIRON unknown"))
    # Entitled to answer, but not about itself.
    answers.know(answers.entity("own", leaf(issuer, "KALVIRON own", extensions=[responder_extension(), OCSP_SIGNING])))
    answers.entity("no-responder", leaf(issuer, "KALVIRON no responder", extensions=[]))
    answers.entity("no-name", issue(name(), issuer=issuer, ca=False, extensions=[responder_extension()]))
    answers.entity("root", root)
    answers.entity("issuer", issuer)


def make_responders(answers, root, issuer):
    past = {"begin": now() - 30 * DAY, "end": now() - DAY}
    future = {"begin": now() + 30 * DAY, "end": now() + FAR}
    stranger = issue(issuer.cert.subject)
    responders = {
        "delegate": delegate(issuer, end=now() + FAR),
        "delegate-rsa": delegate(issuer, key=rsa_key(3072)),
        "delegate-p384": delegate(issuer, key=p384()),
        "delegate-expired": delegate(issuer, **past),
        "delegate-not-yet": delegate(issuer, **future),
        "delegate-no-usage": issue(name("Responder"), issuer=issuer, ca=False),
        "delegate-other-usage": delegate(issuer, OTHER_USAGE),
        "delegate-any-usage": delegate(issuer, ANY_USAGE),
        "delegate-ca-key-usage": issue(name("Responder"), issuer=issuer, extensions=[OCSP_SIGNING]),
        "delegate-critical": delegate(issuer, OCSP_SIGNING, CRITICAL_UNKNOWN),
        "delegate-of-root": delegate(root),
        "delegate-of-stranger": delegate(stranger),
        "stranger": stranger,
    }
    responders["delegate-of-delegate"] = delegate(responders["delegate"])
    for stem, entity in responders.items():
        answers.entity(stem, entity)
    return responders


def make_answers(answers, responders):
    week = ["-ndays", "7"]
    answers.answer("good", "good", "issuer", *week)
    answers.answer("good-without-next-update", "good", "issuer")
    answers.answer("good-by-key-id", "good", "issuer", *week, "-resp_key_id")
    answers.answer("good-without-certificates", "good", "issuer", *week, "-resp_no_certs")
    answers.answer("good-sha512", "good", "issuer", *week, "-rmd", "sha512")
    answers.answer("good-wrong-signature", "good", "issuer", *week, "-badsig")
    answers.answer("other", "other", "issuer", *week)
    answers.answer("revoked", "revoked", "issuer", *week)
    answers.answer("unknown", "unknown", "issuer", *week)
    answers.answer("own", "own", "own", *week)
    answers.answer("own-about-other", "good", "own", *week)
    for stem in responders:
        answers.answer(stem, "good", stem, *week)
    answers.answer("delegate-without-certificates", "good", "delegate", *week, "-resp_no_certs")
    answers.answer("delegate-by-key-id", "good", "delegate", *week, "-resp_key_id")
    answers.answer("revoked-by-delegate", "revoked", "delegate", *week)
    chain = answers.folder / "delegate-chain.pem"
    write(chain, b"".join((answers.folder / f"{stem}.pem").read_bytes() for stem in ("issuer", "root", "other")))
    answers.answer("delegate-with-chain", "good", "delegate", *week, "-rother", chain)


def answer_with(*certificates):
    """An answer that says nothing and that nobody signed, with these certificates (RFC 6960 section 4.2.1)."""
    nothing = der.sequence()
    basic = der.sequence(nothing, nothing, der.bit_string(bytes(64)), der.tlv(0xA0, der.sequence(*certificates)))
    bytes_of = der.sequence(der.oid(BASIC_RESPONSE), der.octet_string(basic))
    return der.sequence(der.tlv(0x0A, b"\0"), der.tlv(0xA0, bytes_of))


def write_all(out):
    root = issue(name("OCSP Root"))
    issuer = issue(name("OCSP Issuer"), issuer=root, extensions=[responder_extension()])
    # For a responder that runs while a test does: index, certificates and keys.
    answers = Answers(out, out / "responder", issuer)
    make_certificates(answers, root, issuer)
    make_answers(answers, make_responders(answers, root, issuer))
    costly = hostile.self_issued_rsa("responder", modulus_bits=20000, exponent=hostile.odd_number(10000),
                                     signature_bytes=16)
    write(out / "costly.response", answer_with(costly))


def write_signers(out):
    """Signers of containers, alone below their root, and what a responder says about them."""
    root = issue(name("Signer Root"))
    answers = Answers(out, out / "responder", root)
    answers.entity("issuer", root)
    for stem, revoked in (("good", False), ("revoked", True)):
        signer = answers.entity(stem, leaf(root, SIGNER_CN))
        answers.know(signer, revoked=revoked)
        answers.answer(stem, stem, "issuer", "-ndays", "7")
        write_chain(out / stem, signer, [], [root])
