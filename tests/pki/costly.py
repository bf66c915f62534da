"""Signer chains and payload certificates that keep within every bound on size and yet cost their reader dearly.

Nobody holds a key for the chains: they lead to the unit's root by name, and their signatures are noise.
"""

from cryptography import x509

import der
import hostile
from bench.authority import write

CHAIN_LENGTH = 16
MAX_SIGNER_BYTES = 4096
MAX_PAYLOAD_BYTES = 12 * 1024
SUBJECT_ALTERNATIVE_NAMES = "2.5.29.17"
NAME_CONSTRAINTS = "2.5.29.30"
CERTIFICATE_POLICIES = "2.5.29.32"
ORGANISATION = "2.5.4.10"
# Prime; taking a square root modulo such a number needs hundreds of thousands of multiplications.
SMOOTH_PRIME = 1863 * 2**1008 + 1


def _extension(dotted, value):
    return der.sequence(der.oid(dotted), der.octet_string(value))


def _attribute(dotted, text):
    return der.tlv(0x31, der.sequence(der.oid(dotted), der.tlv(0x0C, text)))


def _numbered(count):
    """`count` different texts, as short as they come."""
    return [f"{i:x}".encode() for i in range(count)]


def _dns_names(count):
    return _extension(SUBJECT_ALTERNATIVE_NAMES, der.sequence(*(der.tlv(0x82, text) for text in _numbered(count))))


def _directory_name(count):
    name = der.sequence(*(_attribute(ORGANISATION, text) for text in _numbered(count)))
    return _extension(SUBJECT_ALTERNATIVE_NAMES, der.sequence(der.tlv(0xA4, name)))


def _constraints(count, base):
    """Excludes `count` subtrees (RFC 5280 section 4.2.1.10)."""
    return _extension(NAME_CONSTRAINTS, der.sequence(der.tlv(0xA1, der.sequence(base) * count)))


EMPTY_DIRECTORY_NAME = der.tlv(0xA4, der.EMPTY_NAME)
ONE_DNS_NAME = der.tlv(0x82, b"z")


def _policies(count):
    return _extension(CERTIFICATE_POLICIES,
                      der.sequence(*(der.sequence(der.oid(f"1.2.{i}")) for i in range(1, count + 1))))


def _unknown_extensions(count):
    return [der.sequence(der.oid(f"1.2.{i}"), der.octet_string(b"")) for i in range(1, count + 1)]


def _largest(make, limit):
    """The largest certificate within `limit` bytes that make(count) gives."""
    low, high = 1, limit
    while low < high:
        middle = (low + high + 1) // 2
        low, high = (middle, high) if len(make(middle)) <= limit else (low, middle - 1)
    return make(low)


def _link(spki, *, subject, issuer, extensions=()):
    tbs = der.tbs(spki, subject=subject, issuer=issuer, extensions=extensions)
    return der.certificate(tbs, bytes(256))


def _chain(root_name, make):
    """Leaf first; make(position, names) gives one link, the last one issued in the root's name."""
    names = [der.common_name(f"KALVIRON {i}") for i in range(CHAIN_LENGTH)] + [root_name]
    return [make(i, {"subject": names[i], "issuer": names[i + 1]}) for i in range(CHAIN_LENGTH)]


def _constrained_chain(root_name, names, base):
    """The lower half bears as many names as it can, the upper half as many constraints."""
    spki = der.rsa_spki(hostile.odd_number(2048), 65537)

    def make(position, link):
        def with_count(count):
            extension = names(count) if position < CHAIN_LENGTH // 2 else _constraints(count, base)
            return _link(spki, **link, extensions=[extension])
        return _largest(with_count, MAX_SIGNER_BYTES)

    return _chain(root_name, make)


def _smooth_curve_spki():
    """A curve whose points, given compressed, take seconds to decode."""
    return der.explicit_ec_spki(SMOOTH_PRIME, a=b"\x01", b=bytes([2]), generator=b"\x02\x02", order=2**89 - 1,
                                point=b"\x02\x02")


def _uniform_chain(root_name, spki):
    return _chain(root_name, lambda position, link: _link(spki, **link))


def _rsa_8192():
    return der.rsa_spki(hostile.odd_number(8192), (1 << 63) + 13)


def _rsa_pairs(root_name):
    """Two different certificates of each name, with the costliest RSA keys."""
    names = [der.common_name(f"KALVIRON {i}") for i in range(CHAIN_LENGTH // 2)] + [root_name]
    return [der.certificate(der.tbs(_rsa_8192(), subject=names[i // 2], issuer=names[i // 2 + 1]), bytes(1023) + b"\1")
            for i in range(CHAIN_LENGTH)]


def signer_chains(root_name):
    return {
        # Estimating the strength of such a key means to count to 2**31 and more.
        "mceliece": _uniform_chain(root_name, der.mceliece_spki(2**32 - 1, 2**31)),
        "smooth-curve": _uniform_chain(root_name, _smooth_curve_spki()),
        "dns-constraints": _constrained_chain(root_name, _dns_names, ONE_DNS_NAME),
        "directory-constraints": _constrained_chain(root_name, _directory_name, EMPTY_DIRECTORY_NAME),
        "rsa-8192": _chain(root_name, lambda position, link: _link(_rsa_8192(), **link)),
        "rsa-8192-self-issued": [hostile.self_issued_rsa(f"{i}", modulus_bits=8192, exponent=(1 << 63) + 13)
                                 for i in range(CHAIN_LENGTH)],
        "rsa-8192-pairs": _rsa_pairs(root_name),
    }


def _payload_certificate(make_extensions):
    spki = der.rsa_spki(hostile.odd_number(512), 65537)

    def make(count):
        return der.certificate(der.tbs(spki, subject=der.common_name("a"), extensions=make_extensions(count)), b"\1")

    return _largest(make, MAX_PAYLOAD_BYTES)


def _huge_rsa(subject):
    """Subject and issuer differ from no name at all in their bytes only."""
    spki = der.rsa_spki(hostile.odd_number(8 * 6000), hostile.odd_number(8 * 6000))
    return der.certificate(der.tbs(spki, subject=subject), b"\1")


def _smallest():
    tbs = der.tbs(der.rsa_spki(3, 3), subject=der.EMPTY_NAME, version=1, algorithm=der.ECDSA_WITH_SHA256)
    return der.certificate(tbs, b"", der.ECDSA_WITH_SHA256)


def payload_certificates():
    def attributes(count):
        name = der.sequence(*(_attribute(ORGANISATION, text) for text in _numbered(count)))
        tbs = der.tbs(der.rsa_spki(3, 3), subject=name, issuer=der.EMPTY_NAME)
        return der.certificate(tbs, b"\1")

    return {
        "alternative-names": _payload_certificate(lambda count: [_dns_names(count)]),
        "policies": _payload_certificate(lambda count: [_policies(count)]),
        "extensions": _payload_certificate(_unknown_extensions),
        "constraints": _payload_certificate(lambda count: [_constraints(count, EMPTY_DIRECTORY_NAME)]),
        "attributes": _largest(attributes, MAX_PAYLOAD_BYTES),
        "empty-set-name": _huge_rsa(der.sequence(der.tlv(0x31, b""))),
        "empty-text-name": _huge_rsa(der.common_name("")),
        "smallest": _smallest(),
    }


def write_all(out, root_pem):
    root = x509.load_pem_x509_certificate(root_pem.read_bytes())
    root_name = root.subject.public_bytes()
    for name, chain in signer_chains(root_name).items():
        for position, content in enumerate(chain):
            assert len(content) <= MAX_SIGNER_BYTES, name
            write(out / name / "chain" / f"{position}.der", content)
    for name, content in payload_certificates().items():
        assert len(content) <= MAX_PAYLOAD_BYTES, name
        write(out / "payload" / f"{name}.der", content)
