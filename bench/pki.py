"""The bench's certificates: the signers' PKI with its revocations, and those of the servers."""

import pathlib
import ssl
import threading
from dataclasses import dataclass

from cryptography import x509
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.x509.oid import ExtendedKeyUsageOID

from bench import authority, containers
from bench.authority import DAY, issue, name, now

HOST = "127.0.0.1"
GOOD, REVOKED, UNKNOWN = "good", "revoked", "unknown"


def past():
    """The period of a certificate that has expired."""
    return {"begin": now() - 30 * DAY, "end": now() - DAY}


@dataclass
class Issuer:
    """A CA that issues certificates of signer chains, with what answers for their revocation."""

    name: str
    entity: authority.Entity
    folder: pathlib.Path

    @property
    def index_path(self):
        return self.folder / f"{self.name}.index.txt"


class Pki:
    """Keys and certificates in a folder: what is there is kept, what is missing is made. Any thread.

    The signer's chain has `chain_length` certificates: "signer", "ca-1", "ca-2" ... , the last one issued by "root".
    "retired" is another signer, revoked from the start.
    """

    def __init__(self, folder, ocsp_url, chain_length=2):
        self.folder = pathlib.Path(folder)
        self.folder.mkdir(mode=0o700, parents=True, exist_ok=True)
        self._lock = threading.RLock()
        self._responder = authority.responder(ocsp_url)
        self._states = {}
        self._made = {}
        self._make_signers(chain_length)
        self._write_indexes()

    def _make_signers(self, chain_length):
        above = Issuer("root", self.entity("root", name("Bench ZORA Root")), self.folder)
        self.issuers = {"root": above}
        self._issued = {}
        for number in range(chain_length - 1, 0, -1):
            entity = self._certify(f"ca-{number}", above, name(f"Bench Signer CA {number}"))
            above = Issuer(f"ca-{number}", entity, self.folder)
            self.issuers[above.name] = above
        for leaf, number in (("signer", 1), ("retired", 0)):
            self._certify(leaf, above, name(f"KALVIRON Bench Signer {number}"), ca=False)
        self._states["retired"] = REVOKED

    def _certify(self, member, above, subject, **how):
        self._issued[member] = above.name
        self._states[member] = GOOD
        return self.entity(member, subject, issuer=above.entity, extensions=[self._responder], **how)

    def entity(self, member, subject=None, *, issuer=None, **how):
        """The entity `member`: what is there by this issuer (None: itself), or else made by authority.issue."""
        with self._lock:
            if member not in self._made:
                self._made[member] = self._load(member, issuer) or self._write(
                    member, issue(subject, issuer=issuer, **how))
            return self._made[member]

    def path(self, member):
        """The file of a certificate that was made."""
        return self.folder / f"{member}.pem"

    def key_path(self, member):
        return self.folder / f"{member}.key.pem"

    def _load(self, member, issuer):
        if not (self.path(member).exists() and self.key_path(member).exists()):
            return None
        key = serialization.load_pem_private_key(self.key_path(member).read_bytes(), None)
        loaded = authority.Entity(key, x509.load_pem_x509_certificate(self.path(member).read_bytes()))
        return loaded if _key_id_of_issuer(loaded.cert) == _key_id((issuer or loaded).cert) else None

    def _write(self, member, entity):
        authority.write_key(self.key_path(member), entity.key)
        authority.write(self.path(member), entity.pem())
        return entity

    # The signers and those who pose as signers.

    def chain(self):
        """Names of the signer's chain, leaf first."""
        return ["signer", *reversed([member for member in self.issuers if member != "root"])]

    def signer(self, leaf="signer"):
        """One of signer, retired, stranger (of a root of its own), wrong-cn and expired, ready to sign."""
        above = next(reversed(self.issuers.values())).entity
        if leaf == "stranger":
            entity = self._leaf(leaf, "KALVIRON Stranger", self.strange_root())
            return containers.Signer(self.key_path(leaf), [entity.der()])
        if leaf == "wrong-cn":
            entity = self._leaf(leaf, "OTHER Bench Signer", above)
        elif leaf == "expired":
            entity = self._leaf(leaf, "KALVIRON Bench Signer 2", above, **past())
        else:
            entity = self._made[leaf]
        rest = [self._made[member].der() for member in self.chain()[1:]]
        return containers.Signer(self.key_path(leaf), [entity.der(), *rest])

    def _leaf(self, member, common_name, issuer, **how):
        return self.entity(member, name(common_name), issuer=issuer, ca=False, extensions=[self._responder], **how)

    def strange_root(self):
        """A root of the true one's name that no unit trusts."""
        return self.entity("strange-root", name("Bench ZORA Root"))

    def bundle_certificates(self):
        """Certificates for the bundles of containers: the servers' CA and two of nobody."""
        webs = [self.entity(f"web-{number}", name(f"Bench Web CA {number}")) for number in (1, 2)]
        return [entity.der() for entity in (self.server_ca(), *webs)]

    # Revocation.

    def delegate(self, issuer, kind="delegate"):
        """A responder's certificate by `issuer`: delegate, delegate-expired or delegate-without-usage."""
        usage = {"extensions": [authority.purpose(ExtendedKeyUsageOID.OCSP_SIGNING)]}
        options = {"delegate": usage, "delegate-expired": usage | past(), "delegate-without-usage": {}}[kind]
        return self.entity(f"{issuer.name}.{kind}", name(f"Bench Responder of {issuer.name}"), issuer=issuer.entity,
                           ca=False, **options)

    def set_state(self, member, state):
        """From now on `member` is good, revoked or unknown. Raises KeyError for an unknown name."""
        with self._lock:
            if member not in self._states:
                raise KeyError(member)
            self._states[member] = state
            self._write_indexes()

    def states(self):
        """Name to good, revoked or unknown."""
        with self._lock:
            return dict(self._states)

    def subject_of(self, request):
        """(name, issuer, certificate) that an OCSP request asks for; None for what is not known."""
        issuer = next((each for each in self.issuers.values() if _is_issuer(each.entity.cert, request)), None)
        if issuer is None:
            return None, None, None
        for member, above in self._issued.items():
            certificate = self._made[member].cert
            if above == issuer.name and certificate.serial_number == request.serial_number:
                return member, issuer, certificate
        return None, issuer, None

    def _write_indexes(self):
        """The files that `openssl ocsp` reads; it does so again when a file is replaced."""
        for issuer in self.issuers.values():
            lines = [_index_line(self._made[member].cert, self._states[member])
                     for member, above in self._issued.items()
                     if above == issuer.name and self._states[member] != UNKNOWN]
            fresh = issuer.index_path.with_suffix(".new")
            fresh.write_text("".join(lines))
            fresh.rename(issuer.index_path)

    # The servers.

    def server_ca(self):
        return self.entity("server-ca", name("Bench Server CA"))

    def server_context(self, kind="server", client_certificates=False):
        """A TLS context: server, or with a fault: server-wrong-name, server-expired, server-unknown-ca."""
        here = authority.server_names(address=HOST, host="localhost")
        elsewhere = authority.server_names(host="other.example")
        names, issuer, period = {
            "server": (here, self.server_ca(), {}),
            "server-wrong-name": (elsewhere, self.server_ca(), {}),
            "server-expired": (here, self.server_ca(), past()),
            "server-unknown-ca": (here, self.strange_root(), {}),
        }[kind]
        extensions = [names, authority.purpose(ExtendedKeyUsageOID.SERVER_AUTH)]
        self.entity(kind, name("Bench Server"), issuer=issuer, ca=False, extensions=extensions, **period)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(self.path(kind), self.key_path(kind))
        if client_certificates:
            context.load_verify_locations(self.path("server-ca"))
            context.verify_mode = ssl.CERT_REQUIRED
        return context

    def client(self):
        """A unit's certificate, as its file's name tells."""
        usage = authority.purpose(ExtendedKeyUsageOID.CLIENT_AUTH)
        self.entity("client", name("Bench Unit"), issuer=self.server_ca(), ca=False, extensions=[usage])
        return "client"


def _key_id(certificate):
    return certificate.extensions.get_extension_for_class(x509.SubjectKeyIdentifier).value.key_identifier


def _key_id_of_issuer(certificate):
    return certificate.extensions.get_extension_for_class(x509.AuthorityKeyIdentifier).value.key_identifier


def _is_issuer(certificate, request):
    """Whether an OCSP request means this issuer (RFC 6960 section 4.1.1)."""
    algorithm = request.hash_algorithm
    key = certificate.public_key().public_bytes(serialization.Encoding.DER,
                                                serialization.PublicFormat.SubjectPublicKeyInfo)
    digest = hashes.Hash(algorithm)
    digest.update(_bit_string(key))
    return digest.finalize() == request.issuer_key_hash


def _bit_string(key_info):
    """The key inside a SubjectPublicKeyInfo of a P-256 key: its last 65 bytes."""
    return key_info[-65:]


def _index_line(certificate, state):
    expiry = certificate.not_valid_after.strftime("%y%m%d%H%M%SZ")
    serial = f"{certificate.serial_number:X}"
    serial = serial.rjust(len(serial) + len(serial) % 2, "0")
    revoked = now().strftime("%y%m%d%H%M%SZ") if state == REVOKED else ""
    return f"{'R' if state == REVOKED else 'V'}\t{expiry}\t{revoked}\t{serial}\tunknown\t/CN={serial}\n"
