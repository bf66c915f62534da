"""The programs of this tree against independent ones: each takes what the other has made, and refuses the same."""

import json
import re
import subprocess

import pytest
from cryptography import x509

from bench import containers

TS = "2026-01-02T03:04:05"
SIGN = pytest.mark.parametrize("sign", [containers.sign_with_cryptography, containers.sign_with_openssl])
GOOD_CHAINS = pytest.mark.parametrize("chain", ["p256-1", "p256-2", "p256-3", "p256-5", "p384-3", "rsa3072-2",
                                                "with-root-3", "cross-3", "same-subject-2"])
# Each signer that a unit must refuse, and the status it gives.
REFUSED = {"rsa2048-2": 7, "expired-leaf-2": 7, "expired-ca-2": 7, "notyet-leaf-2": 7, "notyet-ca-2": 7,
           "ca-bit-missing-2": 7, "forged-leaf-2": 7, "same-subject-3": 7, "root-name-8": 7,
           "root-name-spelt-8": 7, "cn-wrong": 9, "cn-prefix-not-first": 9, "cn-line-feed": 9, "cn-missing": 9, "cn-100000": 3}
STATUS_NAMES = {0: "SUCCESS", 3: "SIGN_VALIDATION_ERROR", 5: "CERT_DECODE_ERROR", 7: "STORAGE_ERROR",
                9: "UNEXPECTED_ERROR"}


@pytest.fixture(name="bundles")
def fixture_bundles(pki):
    files = sorted(pki.glob("payload/[0-9][0-9].der"))
    return {"WEB": [path.read_bytes() for path in files[:12]], "fleet/a": [files[12].read_bytes()], "EMPTY": []}


@pytest.fixture(name="ready_unit")
def fixture_ready_unit(unit):
    unit.write_switches()
    return unit


def pem_certificates(text):
    return [x509.load_pem_x509_certificate(pem.encode())
            for pem in re.findall(r"-----BEGIN CERTIFICATE-----.*?-----END CERTIFICATE-----\n", text, re.DOTALL)]


def store_as_der(unit):
    encoding = containers.serialization.Encoding.DER
    return {name: [certificate.public_bytes(encoding) for certificate in pem_certificates(pem)]
            for name, pem in unit.store().items()}


@SIGN
@GOOD_CHAINS
def test_what_others_sign_is_installed(ready_unit, pki, bundles, chain, sign):
    ready_unit.provision_root((pki / chain / "root.pem").read_bytes())
    signer = containers.Signer.load(pki / chain)
    result = ready_unit.install(containers.build(signer, bundles, ts=TS, container_id="id-1", sign=sign))
    assert result.status() == "SUCCESS"
    assert store_as_der(ready_unit) == bundles
    assert ready_unit.records() == ("id-1", "1767323045")


@pytest.mark.parametrize("chain", REFUSED)
def test_signers_to_refuse_are_refused_and_nothing_changes(ready_unit, pki, bundles, chain):
    ready_unit.provision_root((pki / chain / "root.pem").read_bytes())
    result = ready_unit.install(containers.build(containers.Signer.load(pki / chain), bundles, ts=TS))
    assert result.status() == STATUS_NAMES[REFUSED[chain]]
    assert ready_unit.store() == {}


def test_the_independent_verifier_and_the_unit_refuse_the_same_tampering(ready_unit, pki, bundles):
    ready_unit.provision_root((pki / "root.pem").read_bytes())
    text = containers.tampered(containers.build(containers.Signer.load(pki / "p256-3"), bundles, ts=TS))
    with pytest.raises(containers.ContainerError, match="does not verify"):
        containers.verify(text, (pki / "root.pem").read_bytes())
    assert ready_unit.install(text).status() == "CERT_DECODE_ERROR"


def test_escaped_slashes_in_the_chain_are_taken(ready_unit, pki, bundles):
    ready_unit.provision_root((pki / "root.pem").read_bytes())
    text = containers.build(containers.Signer.load(pki / "p256-3"), bundles, ts=TS, escape_slashes=True)
    assert ready_unit.install(text).status() == "SUCCESS"


@pytest.fixture(name="tsc")
def fixture_tsc(build_dir):
    def run(*arguments):
        return subprocess.run([build_dir / "bin" / "tsc", *map(str, arguments)], capture_output=True, text=True,
                              check=False, timeout=60)
    return run


def create(tsc, pki, chain, output):
    return tsc("create", "--key", pki / chain / "leaf.key.pem", "--chain", pki / chain / "chain.pem", "--id", "id/2",
               "--timestamp", TS, "--bundle", f"WEB={pki / 'payload' / '00.der'}", "--bundle",
               f"WEB={pki / 'root.pem'}", "--bundle", "EMPTY=", "-o", output)


@GOOD_CHAINS
def test_what_tsc_creates_others_verify(tsc, pki, tmp_path, chain):
    done = create(tsc, pki, chain, tmp_path / "out.tsc")
    assert (done.returncode, done.stderr) == (0, "")
    text = (tmp_path / "out.tsc").read_text()
    root = (pki / chain / "root.pem").read_bytes()
    held = containers.verify(text, root)
    assert (held.algorithm, held.timestamp, held.container_id) == ("ES256", TS, "id/2")
    assert held.chain == containers.Signer.load(pki / chain).chain
    root_der = pem_certificates((pki / "root.pem").read_text())[0].public_bytes(containers.serialization.Encoding.DER)
    assert held.bundles == {"EMPTY": [], "WEB": [(pki / "payload" / "00.der").read_bytes(), root_der]}
    assert containers.verify_with_openssl(text, pki / chain / "chain.pem")


def test_what_tsc_creates_the_unit_installs(tsc, ready_unit, pki, tmp_path):
    assert create(tsc, pki, "p256-3", tmp_path / "out.tsc").returncode == 0
    ready_unit.provision_root((pki / "root.pem").read_bytes())
    result = ready_unit.install((tmp_path / "out.tsc").read_text())
    assert result.status() == "SUCCESS"
    assert sorted(ready_unit.store()) == ["EMPTY", "WEB"]


def verdict(log):
    """The lines of a unit's log that are about the container: not those of its life, its records and its report."""
    about_the_unit = re.compile(r"[a-z]+: (Trust Store Update Client|Waiting for|LumoConnector|Lumo-Connector|Warning: "
                                r"linked|ProcessLifecycleAdapter|IniFileReader|Configuration parameter|TlsAlerts|"
                                r"SocksTlsAlertClient|SignalHandler|PersistantFileStorage|Failed to load|Send Update Status)")
    return [line for line in log if not about_the_unit.match(line)]


@pytest.mark.parametrize("chain", ["p256-3", *REFUSED])
def test_tsc_verify_says_what_the_unit_says(tsc, ready_unit, pki, bundles, tmp_path, chain):
    root = pki / chain / "root.pem"
    text = containers.build(containers.Signer.load(pki / chain), bundles, ts=TS)
    (tmp_path / "in.tsc").write_text(text)
    done = tsc("verify", "--json", "--root", root, "--switch", "OcspDisable", tmp_path / "in.tsc")
    told = json.loads(done.stdout)
    expected = REFUSED.get(chain, 0)
    assert (told["status"], done.returncode) == (expected, 0 if expected == 0 else 1)
    ready_unit.provision_root(root.read_bytes())
    assert [line.replace("\n", "\\x0a") for line in told["log"]] == verdict(ready_unit.install(text).log())


def test_tsc_verify_says_what_the_unit_says_to_a_name_too_long_for_its_store(tsc, ready_unit, pki, bundles, tmp_path):
    text = containers.build(containers.Signer.load(pki / "p256-3"), {**bundles, "x" * 245: []}, ts=TS)
    (tmp_path / "in.tsc").write_text(text)
    done = tsc("verify", "--json", "--root", pki / "root.pem", "--switch", "OcspDisable", tmp_path / "in.tsc")
    told = json.loads(done.stdout)
    assert (told["status"], done.returncode) == (10, 1)
    ready_unit.provision_root((pki / "root.pem").read_bytes())
    assert told["log"] == verdict(ready_unit.install(text).log())
    assert ready_unit.store() == {}


def test_tsc_inspect_shows_what_was_put_in(tsc, pki, bundles, tmp_path):
    (tmp_path / "in.tsc").write_text(containers.build(containers.Signer.load(pki / "p256-3"), bundles, ts=TS))
    shown = json.loads(tsc("inspect", "--json", tmp_path / "in.tsc").stdout)
    assert (shown["container_id"], shown["timestamp"], shown["signature_bytes"]) == ("TSC-1", TS, 64)
    fingerprints = {name: [x509.load_der_x509_certificate(der).fingerprint(containers.hashes.SHA256()).hex()
                           for der in ders] for name, ders in bundles.items()}
    assert {bundle["name"]: [entry["sha256"] for entry in bundle["certificates"]]
            for bundle in shown["bundles"]} == fingerprints
