"""A small DER writer: certificates that no decent library would make. X.690 (encoding), RFC 5280 (certificates)."""

SHA256_WITH_RSA = "1.2.840.113549.1.1.11"
ECDSA_WITH_SHA256 = "1.2.840.10045.4.3.2"
DSA_WITH_SHA256 = "2.16.840.1.101.3.4.3.2"
RSA_ENCRYPTION = "1.2.840.113549.1.1.1"
EC_PUBLIC_KEY = "1.2.840.10045.2.1"
ED25519 = "1.3.101.112"
MCELIECE = "1.3.6.1.4.1.25258.1.3"
PRIME_FIELD = "1.2.840.10045.1.1"
DSA = "1.2.840.10040.4.1"
COMMON_NAME = "2.5.4.3"
# An arc under the documentation enterprise number of RFC 5612: a private extension that nobody knows.
PRIVATE_EXTENSION = "1.3.6.1.4.1.32473.1"


def length(count, long_form=0):
    """The length octets; long_form: at least that many of them after the first (BER, but not DER)."""
    if count < 128 and not long_form:
        return bytes([count])
    octets = count.to_bytes(max(long_form, (count.bit_length() + 7) // 8), "big")
    return bytes([0x80 | len(octets)]) + octets


def tlv(tag, content, long_form=0):
    return bytes([tag]) + length(len(content), long_form) + content


def sequence(*parts):
    return tlv(0x30, b"".join(parts))


def integer(value):
    return tlv(0x02, value.to_bytes(value.bit_length() // 8 + 1, "big"))


def octet_string(content):
    return tlv(0x04, content)


def bit_string(content):
    return tlv(0x03, b"\0" + content)


def oid(dotted):
    first, second, *rest = [int(part) for part in dotted.split(".")]
    out = bytearray()
    for value in [first * 40 + second, *rest]:
        groups = [value & 0x7F]
        while value := value >> 7:
            groups.append(0x80 | value & 0x7F)
        out += bytes(reversed(groups))
    return tlv(0x06, bytes(out))


NULL = b"\x05\x00"


def common_name(text):
    """A Name of one CN, without any limit on its length."""
    return sequence(tlv(0x31, sequence(oid(COMMON_NAME), tlv(0x0C, text.encode()))))


EMPTY_NAME = sequence()


def validity():
    return sequence(tlv(0x17, b"200101000000Z"), tlv(0x17, b"491231235959Z"))


def rsa_spki(modulus, exponent):
    return sequence(sequence(oid(RSA_ENCRYPTION), NULL), bit_string(sequence(integer(modulus), integer(exponent))))


def explicit_ec_spki(prime, *, a, b, generator, order, point):
    """An EC key that spells its curve out (RFC 3279 section 2.3.5) where it ought to name it."""
    curve = sequence(octet_string(a), octet_string(b))
    parameters = sequence(integer(1), sequence(oid(PRIME_FIELD), integer(prime)), curve, octet_string(generator),
                          integer(order), integer(1))
    return sequence(sequence(oid(EC_PUBLIC_KEY), parameters), bit_string(point))


def ec_spki(parameters):
    """An EC key with these bytes in place of its curve."""
    return sequence(sequence(oid(EC_PUBLIC_KEY), parameters), bit_string(b"\x02\x02"))


def ed25519_spki(key):
    return sequence(sequence(oid(ED25519)), bit_string(key))


def mceliece_spki(code_length, errors):
    parameters = sequence(integer(code_length), integer(errors))
    return sequence(sequence(oid(MCELIECE)), bit_string(sequence(parameters, octet_string(b""))))


def dsa_spki(p, q, g, y):
    return sequence(sequence(oid(DSA), sequence(integer(p), integer(q), integer(g))), bit_string(integer(y)))


def signature_algorithm(dotted):
    # RFC 3279 section 2.2: RSA's parameters are NULL, those of DSA and ECDSA are left out.
    return sequence(oid(dotted), NULL) if dotted == SHA256_WITH_RSA else sequence(oid(dotted))


def padding_extension(size):
    return sequence(oid(PRIVATE_EXTENSION), octet_string(bytes(size)))


def tbs(spki, *, subject, issuer=None, algorithm=SHA256_WITH_RSA, extensions=(), version=3, serial=1):
    parts = [tlv(0xA0, integer(version - 1))] if version > 1 else []
    parts += [integer(serial), signature_algorithm(algorithm), subject if issuer is None else issuer, validity(),
              subject, spki]
    if extensions:
        parts.append(tlv(0xA3, sequence(*extensions)))
    return sequence(*parts)


def certificate(tbs_der, signature, algorithm=SHA256_WITH_RSA):
    return sequence(tbs_der, signature_algorithm(algorithm), bit_string(signature))
