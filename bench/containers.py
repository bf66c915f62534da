"""Builds, signs and verifies containers (docs/container-format.md) with Python's cryptography and with openssl.

Shares no code with the programs under test, so that neither side's fault hides in the other.
"""

import base64
import datetime
import json
import pathlib
import re
import subprocess
import tempfile
from dataclasses import dataclass

from cryptography import x509
from cryptography.exceptions import InvalidSignature
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.hazmat.primitives.asymmetric import ec, padding
from cryptography.hazmat.primitives.asymmetric.utils import decode_dss_signature, encode_dss_signature

SIGNATURE_BYTES = 64


class ContainerError(Exception):
    """What is wrong with a container."""


@dataclass
class Signer:
    """A key and its chain in DER, leaf first."""

    key_path: pathlib.Path
    chain: list

    @classmethod
    def load(cls, folder):
        """The signer of one folder of make_pki.py."""
        folder = pathlib.Path(folder)
        files = sorted((folder / "chain").glob("*.der"), key=lambda path: int(path.stem))
        return cls(folder / "leaf.key.pem", [path.read_bytes() for path in files])

    def key(self):
        return serialization.load_pem_private_key(self.key_path.read_bytes(), None)


@dataclass
class Container:
    """What a verified container holds."""

    algorithm: str
    timestamp: str
    container_id: str
    chain: list
    bundles: dict


def encode(content):
    """base64url without padding (RFC 4648 section 5, RFC 7515 section 2)."""
    return base64.urlsafe_b64encode(content).rstrip(b"=").decode()


def decode(text):
    return base64.urlsafe_b64decode(text + "=" * (-len(text) % 4))


def certificates(path):
    """The certificates of a PEM file, each in DER. Raises OSError, and ValueError when there is none."""
    blocks = re.findall(rb"-----BEGIN CERTIFICATE-----.*?-----END CERTIFICATE-----", pathlib.Path(path).read_bytes(),
                        re.DOTALL)
    if not blocks:
        raise ValueError("no certificate")
    return [x509.load_pem_x509_certificate(block).public_bytes(serialization.Encoding.DER) for block in blocks]


def timestamp(moment=None, **offset):
    """`moment` (UTC, default now) moved by a timedelta of `offset`, as a header writes it."""
    moment = moment or datetime.datetime.now(datetime.timezone.utc)
    return (moment + datetime.timedelta(**offset)).strftime("%Y-%m-%dT%H:%M:%S")


def _raw_signature(der):
    r, s = decode_dss_signature(der)
    return r.to_bytes(32, "big") + s.to_bytes(32, "big")


def sign_with_cryptography(signer, data):
    return _raw_signature(signer.key().sign(data, ec.ECDSA(hashes.SHA256())))


def sign_with_openssl(signer, data):
    command = ["openssl", "dgst", "-sha256", "-sign", str(signer.key_path)]
    return _raw_signature(subprocess.run(command, input=data, capture_output=True, check=True).stdout)


def header_text(signer, ts, container_id, alg="ES256", escape_slashes=False):
    fields = {"alg": alg, "ts": ts, "ContainerId": container_id,
              "x5c": [base64.b64encode(der).decode() for der in signer.chain]}
    text = json.dumps({key: value for key, value in fields.items() if value is not None})
    return text.replace("/", "\\/") if escape_slashes else text


def payload_text(bundles):
    """bundles: name to list of DER certificates."""
    return json.dumps({name: [encode(der) for der in certificates] for name, certificates in bundles.items()},
                      ensure_ascii=False)


def assemble(signer, header, payload, sign=sign_with_cryptography):
    """Signs any header and payload text, well-formed or not."""
    signing_input = f"{encode(header.encode())}.{encode(payload.encode())}"
    return f"{signing_input}.{encode(sign(signer, signing_input.encode()))}"


def build(signer, bundles, *, ts=None, container_id="TSC-1", alg="ES256", escape_slashes=False,
          sign=sign_with_cryptography):
    """A container's text. alg, ts or container_id None: the key is left out (ts "" for an empty one)."""
    header = header_text(signer, timestamp() if ts is None else ts, container_id, alg, escape_slashes)
    return assemble(signer, header, payload_text(bundles), sign)


def tampered(container):
    """The same container with one payload certificate's byte changed, its signature left as it was."""
    header, payload, signature = container.split(".")
    middle = len(payload) // 2
    other = "A" if payload[middle] != "A" else "B"
    return ".".join([header, payload[:middle] + other + payload[middle + 1:], signature])


def container_id(text):
    """The id in a container's header; None for a text without one."""
    try:
        header = json.loads(decode(text.partition(".")[0]))
    except (ValueError, RecursionError):
        return None
    held = header.get("ContainerId") if isinstance(header, dict) else None
    return held if isinstance(held, str) else None


def verify(text, root_pem):
    """Takes a container apart and checks every signature up to the root; raises ContainerError."""
    segments = text.split(".")
    if len(segments) != 3:
        raise ContainerError(f"{len(segments)} segments in place of 3")
    header = json.loads(decode(segments[0]))
    signature = decode(segments[2])
    chain = [base64.b64decode(element, validate=True) for element in header["x5c"]]
    leaf = x509.load_der_x509_certificate(chain[0])
    if len(signature) != SIGNATURE_BYTES:
        raise ContainerError(f"a signature of {len(signature)} bytes")
    _verify_signature(leaf, signature, ".".join(segments[:2]).encode())
    _verify_chain([*chain, _root_der(root_pem)])
    bundles = {name: [decode(der) for der in value] for name, value in json.loads(decode(segments[1])).items()}
    for certificates in bundles.values():
        for der in certificates:
            x509.load_der_x509_certificate(der)
    return Container(header["alg"], header["ts"], header["ContainerId"], chain, bundles)


def verify_with_openssl(text, leaf_pem_path):
    """Whether `openssl dgst` takes the container's signature for the leaf's."""
    signing_input, _, signature = text.rpartition(".")
    raw = decode(signature)
    der = encode_dss_signature(int.from_bytes(raw[:32], "big"), int.from_bytes(raw[32:], "big"))
    with tempfile.TemporaryDirectory() as folder:
        key, sig = pathlib.Path(folder) / "key.pem", pathlib.Path(folder) / "sig.der"
        sig.write_bytes(der)
        extract = ["openssl", "x509", "-in", str(leaf_pem_path), "-pubkey", "-noout", "-out", str(key)]
        subprocess.run(extract, check=True)
        command = ["openssl", "dgst", "-sha256", "-verify", str(key), "-signature", str(sig)]
        return subprocess.run(command, input=signing_input.encode(), capture_output=True, check=False).returncode == 0


def _verify_signature(leaf, signature, data):
    r, s = int.from_bytes(signature[:32], "big"), int.from_bytes(signature[32:], "big")
    try:
        leaf.public_key().verify(encode_dss_signature(r, s), data, ec.ECDSA(hashes.SHA256()))
    except InvalidSignature:
        raise ContainerError("the signature does not verify") from None


def _root_der(root_pem):
    return x509.load_pem_x509_certificate(root_pem).public_bytes(serialization.Encoding.DER)


def _verify_chain(chain):
    certificates = [x509.load_der_x509_certificate(der) for der in chain]
    for subject, issuer in zip(certificates, certificates[1:]):
        key = issuer.public_key()
        scheme = ([ec.ECDSA(subject.signature_hash_algorithm)] if isinstance(key, ec.EllipticCurvePublicKey)
                  else [padding.PKCS1v15(), subject.signature_hash_algorithm])
        try:
            key.verify(subject.signature, subject.tbs_certificate_bytes, *scheme)
        except InvalidSignature:
            raise ContainerError("the chain is not in issuing order") from None
