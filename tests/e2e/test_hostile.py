"""What a stranger, or a signer gone bad, may send in 4 MiB: each ends in a status, soon and in little memory."""

import json
import os
import re
import resource

import pytest

from bench import authority, containers
from unit import sanitizers

STATUS_LINE = "Send Update Status to the Device Platform: STATUS_CODE_"
TS = "2026-01-02T03:04:05"
SIZE = 4 << 20
CPU_LIMIT_S = 5
MEMORY_LIMIT_KIB = 128 << 10
NOT_PARSED, PATH, UNREADABLE, NOT_RECORDED = "SIGN_VALIDATION_ERROR", "STORAGE_ERROR", "13", "15"


@pytest.fixture(name="ready_unit")
def fixture_ready_unit(unit, pki):
    unit.write_switches()
    unit.provision_root((pki / "root.pem").read_bytes())
    return unit


@pytest.fixture(name="signer")
def fixture_signer(pki):
    return containers.Signer.load(pki / "p256-3")


@pytest.fixture(name="give")
def fixture_give(ready_unit, build_dir):
    """A function that installs a text and returns the status; sanitizers cost more than the bounds allow."""
    sanitized = bool(sanitizers(build_dir))

    def give(text):
        assert len(text) <= SIZE
        (ready_unit.root / "tmp" / "container.tsc").write_text(text)
        command = ready_unit.command(str(build_dir / "bin" / "truststore-update-client"), "-f", "/tmp/container.tsc")
        log = ready_unit.root / "log"
        with open(log, "wb") as stderr, open(os.devnull, "wb") as stdout:
            child = os.posix_spawnp(command[0], command, {**os.environ, "TZ": "UTC"}, file_actions=[
                (os.POSIX_SPAWN_DUP2, stdout.fileno(), 1), (os.POSIX_SPAWN_DUP2, stderr.fileno(), 2)])
        _, _, usage = os.wait4(child, 0)
        if not sanitized:
            assert usage.ru_utime + usage.ru_stime < CPU_LIMIT_S
            # Linux counts what this process had before the child became another program.
            inherited = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
            assert usage.ru_maxrss < max(MEMORY_LIMIT_KIB, inherited + 1)
        told = re.findall(f" {STATUS_LINE}(.*)", log.read_text(errors="replace"))
        return told[-1]
    return give


def fitting(unit_text, size):
    return unit_text * (size // len(unit_text))


# base64 takes four characters for three bytes.
JSON_SIZE = SIZE // 4 * 3 - 8192

PAYLOADS = {
    "deep-arrays": "[" * JSON_SIZE,
    "deep-objects": fitting('{"a":', JSON_SIZE),
    "deep-within-bounds": '{"a":' * 15 + "[" + fitting('"",', JSON_SIZE // 2) + '""]' + "}" * 15,
    "closing": "]" * JSON_SIZE,
    "one-key-again": "{" + fitting('"a":[],', JSON_SIZE - 16) + '"a":[]}',
    "quotes": '{"a":' + '"' * (JSON_SIZE - 16) + "}",
    "backslashes": '{"a":"' + "\\" * (JSON_SIZE - 16) + '"}',
    "short-elements": '{"a":[' + fitting('"A",', JSON_SIZE - 16) + '"A"]}',
    "colons": "{" + ":" * (JSON_SIZE - 16) + "}",
    "blanks": "{" + " " * (JSON_SIZE - 16) + "}",
}


@pytest.mark.parametrize("payload", PAYLOADS)
def test_payload_of_a_signer_gone_bad(give, signer, payload):
    text = containers.assemble(signer, containers.header_text(signer, TS, "id"), PAYLOADS[payload])
    assert give(text) in (NOT_PARSED, UNREADABLE, "SUCCESS")


@pytest.mark.parametrize("payload", PAYLOADS)
def test_header_of_a_stranger(give, signer, payload):
    assert give(containers.assemble(signer, PAYLOADS[payload], "{}")) == NOT_PARSED


@pytest.mark.parametrize("stem", ["rsa-modulus-8192", "rsa-modulus-20800", "dsa-19937", "ec-explicit-19937"])
def test_payload_full_of_one_costly_certificate(give, signer, pki, stem):
    certificate = (pki / "hostile" / f"{stem}.der").read_bytes()
    count = (SIZE - 16384) * 9 // 16 // (len(certificate) + 8)
    assert give(containers.build(signer, {"A": [certificate] * count}, ts=TS)) in ("SUCCESS", UNREADABLE)


@pytest.mark.parametrize("stem", ["rsa-modulus-8192", "rsa-exponent-64", "size-4096"])
def test_chain_of_sixteen_certificates_at_the_bounds(give, signer, pki, stem):
    chain = [signer.chain[0]] + [(pki / "hostile" / f"{stem}.der").read_bytes()] * 15
    assert give(containers.build(containers.Signer(signer.key_path, chain), {}, ts=TS)) == PATH


@pytest.mark.parametrize("stem", ["rsa-modulus-8193", "rsa-exponent-65", "rsa-modulus-20800", "size-4097",
                                  "dsa-19937", "ec-explicit-19937"])
def test_chain_with_certificates_beyond_the_bounds(give, signer, pki, stem):
    chain = [signer.chain[0]] + [(pki / "hostile" / f"{stem}.der").read_bytes()] * 15
    assert give(containers.build(containers.Signer(signer.key_path, chain), {}, ts=TS)) == NOT_PARSED


def test_chain_of_seventeen_certificates(give, signer):
    chain = [signer.chain[0]] * 17
    assert give(containers.build(containers.Signer(signer.key_path, chain), {}, ts=TS)) == NOT_PARSED


def test_chain_that_is_a_ladder_of_two_certificates_of_each_name(give, signer):
    """By their names, both certificates of a rung may have issued both of the rung below: 128 paths."""
    rungs = []
    issuer_name = authority.name("Truststore Tests Root")
    for number in range(7):
        key = authority.p256()
        subject = authority.name(f"Rung {number}")
        rungs += [authority.issue(subject, key=key, key_ids=False, issuer_name=issuer_name).der() for _ in range(2)]
        issuer_name = subject
    leaf = authority.issue(authority.name(authority.SIGNER_CN), ca=False, key_ids=False, issuer_name=issuer_name)
    chain = [leaf.der(), *reversed(rungs)]
    assert give(containers.build(containers.Signer(signer.key_path, chain), {}, ts=TS)) == PATH


@pytest.mark.parametrize("text", ["." * SIZE, "A" * SIZE, "A." * 2 + "A" * (SIZE - 4), ".." + "A" * (SIZE - 2),
                                  "A" * (SIZE - 4) + ".A.A", " " * (SIZE - 4) + ".A.A"],
                         ids=["dots", "no-dot", "long-signature", "only-signature", "long-header", "blank-header"])
def test_text_that_is_no_container(give, text):
    assert give(text) == NOT_PARSED


@pytest.mark.parametrize("field, expected", [("alg", NOT_PARSED), ("ts", "SUCCESS"), ("ContainerId", NOT_RECORDED)])
def test_header_field_as_long_as_the_header_may_be(give, signer, field, expected):
    header = json.loads(containers.header_text(signer, TS, "id"))
    header[field] += "7" * 240_000
    assert give(containers.assemble(signer, json.dumps(header), '{"A":[]}')) == expected
