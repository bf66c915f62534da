"""Certificates that cost their reader dearly, or nearly so. Nobody holds their keys: the signatures are noise."""

import random

import der
from bench.authority import write

# Mersenne primes: a reader that tests its modulus for primality does all of the work.
P_9689 = (1 << 9689) - 1
P_11213 = (1 << 11213) - 1
P_19937 = (1 << 19937) - 1

_noise = random.Random(1)


def odd_number(bits):
    return _noise.getrandbits(bits) | 1 << (bits - 1) | 1


def _subject(text):
    return der.common_name(f"KALVIRON hostile {text}")


def self_issued_rsa(text, *, modulus_bits=2048, exponent=65537, signature_bytes=None, extensions=()):
    """Subject equals issuer, no key identifiers: readers that want to know whether it is self-signed must compute."""
    spki = der.rsa_spki(odd_number(modulus_bits), exponent)
    tbs = der.tbs(spki, subject=_subject(text), extensions=extensions)
    return der.certificate(tbs, _noise.randbytes(signature_bytes or modulus_bits // 8))


def padded_to(size):
    """A harmless RSA certificate of exactly `size` bytes."""
    padding = size - 1024
    while len(made := self_issued_rsa("padded", extensions=[der.padding_extension(padding)])) != size:
        padding += size - len(made)
    return made


def with_extensions_of(size):
    """A harmless RSA certificate whose list of extensions is encoded in exactly `size` bytes."""
    padding = size - 64
    while (made := len(der.sequence(der.padding_extension(padding)))) != size:
        padding += size - made
    return self_issued_rsa("padded", extensions=[der.padding_extension(padding)])


def explicit_ec():
    """A curve over a prime of 19,937 bits that the certificate brings along."""
    byte = b"\x02"
    generator = b"\x04" + byte + byte
    spki = der.explicit_ec_spki(P_19937, a=byte, b=byte, generator=generator, order=P_9689, point=generator)
    tbs = der.tbs(spki, subject=_subject("explicit curve"), algorithm=der.ECDSA_WITH_SHA256)
    signature = der.sequence(der.integer(1), der.integer(1))
    return der.certificate(tbs, signature, der.ECDSA_WITH_SHA256)


def keyed(text, spki):
    return der.certificate(der.tbs(spki, subject=_subject(text)), bytes(64))


def huge_dsa():
    spki = der.dsa_spki(P_19937, P_9689, 3, 5)
    tbs = der.tbs(spki, subject=_subject("DSA"), algorithm=der.DSA_WITH_SHA256)
    signature = der.sequence(der.integer(7), der.integer(11))
    return der.certificate(tbs, signature, der.DSA_WITH_SHA256)


def write_all(out):
    exponent_64 = (1 << 63) + 13
    exponent_65 = (1 << 64) + 13
    made = {
        "rsa-modulus-8192": self_issued_rsa("modulus", modulus_bits=8192, exponent=exponent_64),
        "rsa-modulus-8193": self_issued_rsa("modulus", modulus_bits=8193, exponent=exponent_64),
        "rsa-exponent-64": self_issued_rsa("exponent", exponent=exponent_64),
        "rsa-exponent-65": self_issued_rsa("exponent", exponent=exponent_65),
        "size-4096": padded_to(4096),
        "size-4097": padded_to(4097),
        "extensions-12288": with_extensions_of(12288),
        "extensions-12289": with_extensions_of(12289),
        "rsa-modulus-20800": self_issued_rsa("both", modulus_bits=20800, exponent=odd_number(10300),
                                             signature_bytes=16),
        "ec-explicit-19937": explicit_ec(),
        "dsa-19937": huge_dsa(),
        "ec-parameters-32": keyed("parameters", der.ec_spki(der.tlv(0x06, b"\1" * 30))),
        "ec-parameters-33": keyed("parameters", der.ec_spki(der.tlv(0x06, b"\1" * 31))),
        "ed25519": keyed("Ed25519", der.ed25519_spki(bytes(range(32)))),
        "mceliece": keyed("McEliece", der.mceliece_spki(2**32 - 1, 2**31)),
    }
    for stem, content in made.items():
        write(out / f"{stem}.der", content)
