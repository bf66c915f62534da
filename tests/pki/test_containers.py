"""The container builder and verifier of the Python tests, checked against each other and against known faults."""

import json

import pytest

import containers

pytestmark = pytest.mark.usefixtures("pki")


@pytest.fixture(name="signer")
def fixture_signer(pki):
    return containers.Signer.load(pki / "p256-3")


@pytest.fixture(name="root")
def fixture_root(pki):
    return (pki / "root.pem").read_bytes()


@pytest.fixture(name="bundles")
def fixture_bundles(pki):
    return {"WEB": [(pki / "payload" / f"{number:02}.der").read_bytes() for number in range(3)], "EMPTY": []}


@pytest.mark.parametrize("sign", [containers.sign_with_cryptography, containers.sign_with_openssl])
def test_build_then_verify_returns_what_went_in(signer, root, bundles, sign):
    text = containers.build(signer, bundles, ts="2024-07-05T01:02:03", container_id="id/1", sign=sign)
    held = containers.verify(text, root)
    assert (held.algorithm, held.timestamp, held.container_id) == ("ES256", "2024-07-05T01:02:03", "id/1")
    assert held.chain == signer.chain
    assert held.bundles == bundles


def test_escaped_slashes_are_valid_json_and_still_escaped_in_the_text(signer, bundles):
    header = containers.header_text(signer, "now", "a/b", escape_slashes=True)
    assert json.loads(header)["ContainerId"] == "a/b"
    assert "a\\/b" in header and bundles


def test_verify_refuses_a_tampered_payload(signer, root, bundles):
    with pytest.raises(containers.ContainerError, match="does not verify"):
        containers.verify(containers.tampered(containers.build(signer, bundles)), root)


def test_verify_refuses_a_chain_out_of_order(signer, root, bundles):
    wrong = containers.Signer(signer.key_path, [signer.chain[0], signer.chain[2], signer.chain[1]])
    with pytest.raises(containers.ContainerError, match="issuing order"):
        containers.verify(containers.build(wrong, bundles), root)


def test_verify_refuses_another_root_of_the_same_name(pki, signer, bundles):
    with pytest.raises(containers.ContainerError, match="issuing order"):
        containers.verify(containers.build(signer, bundles), (pki / "other-root" / "same-name.pem").read_bytes())


def test_verify_with_openssl_tells_right_from_tampered(tmp_path, pki, signer, bundles):
    text = containers.build(signer, bundles)
    assert containers.verify_with_openssl(text, pki / "p256-3" / "chain.pem")
    assert not containers.verify_with_openssl(containers.tampered(text), pki / "p256-3" / "chain.pem")
    assert not containers.verify_with_openssl(text, pki / "p256-2" / "chain.pem")
