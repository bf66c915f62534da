"""Servers on this machine, good ones and those that a client must refuse, and a client for them."""

from bench.authority import DAY, issue, name, now, server_names, write, write_key
from cryptography import x509
from cryptography.hazmat.primitives import serialization

LOCAL = server_names(host="localhost", address="127.0.0.1")

WILDCARDS = ("*.whole.example", "ba*.part.example")


def write_party(folder, entity, chain=()):
    write(folder / "cert.pem", b"".join(one.pem() for one in (entity, *chain)))
    write_key(folder / "key.pem", entity.key)


def server(issuer, names=LOCAL, **options):
    return issue(name("Server"), issuer=issuer, ca=False, end=options.pop("end", now() + 365 * DAY), extensions=[names],
                 **options)


def write_servers(out, ca, other_ca):
    write_party(out / "good", server(ca))
    wildcards = x509.SubjectAlternativeName([x509.DNSName(one) for one in WILDCARDS])
    write_party(out / "wildcard", server(ca, (wildcards, False)))
    write_party(out / "wrong-name", server(ca, server_names(host="other.example")))
    write_party(out / "subject-only", issue(name("localhost"), issuer=ca, ca=False))
    write_party(out / "expired", server(ca, begin=now() - 30 * DAY, end=now() - DAY))
    write_party(out / "not-yet", server(ca, begin=now() + 30 * DAY))
    write_party(out / "unknown-ca", server(other_ca))
    intermediate = issue(name("TLS Intermediate"), issuer=ca)
    write_party(out / "intermediate", server(intermediate), [intermediate])
    write(out / "intermediate.pem", intermediate.pem())


def write_client(out, ca):
    client = issue(name("unit-0001"), issuer=ca, ca=False)
    write_party(out / "client", client)
    write_party(out / "client-locked", client)
    locked = client.key.private_bytes(serialization.Encoding.PEM, serialization.PrivateFormat.PKCS8,
                                      serialization.BestAvailableEncryption(b"secret"))
    write(out / "client-locked" / "key.pem", locked)


def write_all(out):
    ca = issue(name("TLS Root"))
    other_ca = issue(name("Other TLS Root"))
    write(out / "ca.pem", ca.pem())
    write(out / "other-ca.pem", other_ca.pem())
    write(out / "empty.pem", b"")
    write_key(out / "no-certificate.pem", other_ca.key)
    broken = b"".join(b"-----BEGIN CERTIFICATE-----\n" + text + b"\n-----END CERTIFICATE-----\n"
                      for text in (b"bm8gY2VydGlmaWNhdGU=", b"%&$", b""))
    write(out / "broken-first.pem", broken + ca.pem())
    write_servers(out, ca, other_ca)
    write_client(out, ca)
