"""The container builder and verifier of the Python tests, checked against each other and against known faults."""

import json

import pytest

from bench import authority, containers


@pytest.fixture(name="folder", scope="module")
def fixture_folder(tmp_path_factory):
    """A signer's folder: leaf, two intermediates, root; another root of the same name; three certificates."""
    folder = tmp_path_factory.mktemp("signer")
    root = authority.issue(authority.name("Root"))
    issuers = [authority.issue(authority.name("Intermediate 2"), issuer=root)]
    issuers.insert(0, authority.issue(authority.name("Intermediate 1"), issuer=issuers[0]))
    leaf = authority.issue(authority.name(authority.SIGNER_CN), issuer=issuers[0], ca=False)
    authority.write_chain(folder, leaf, issuers, [root])
    authority.write(folder / "same-name.pem", authority.issue(authority.name("Root")).pem())
    for number in range(3):
        authority.write(folder / f"{number}.der", authority.issue(authority.name(f"Web {number}")).der())
    return folder


@pytest.fixture(name="signer")
def fixture_signer(folder):
    return containers.Signer.load(folder)


@pytest.fixture(name="root")
def fixture_root(folder):
    return (folder / "root.pem").read_bytes()


@pytest.fixture(name="bundles")
def fixture_bundles(folder):
    return {"WEB": [(folder / f"{number}.der").read_bytes() for number in range(3)], "EMPTY": []}


@pytest.mark.parametrize("sign", [containers.sign_with_cryptography, containers.sign_with_openssl])
def test_build_then_verify_returns_what_went_in(signer, root, bundles, sign):
    text = containers.build(signer, bundles, ts="2024-07-05T01:02:03", container_id="id/1", sign=sign)
    held = containers.verify(text, root)
    assert (held.algorithm, held.timestamp, held.container_id) == ("ES256", "2024-07-05T01:02:03", "id/1")
    assert held.chain == signer.chain
    assert held.bundles == bundles


@pytest.mark.parametrize("header, held", [
    ('{"ContainerId": "id/1"}', "id/1"), ('{"ContainerId": 1}', None), ("{}", None), ("[]", None), ("{", None),
    ("[" * 100_000, None), ("\u00ff", None)])
def test_id_is_read_from_the_header_when_there_is_one(header, held):
    assert containers.container_id(f"{containers.encode(header.encode())}.e30.c2ln") == held


@pytest.mark.parametrize("text", ["", "any text", "A", "\u00e4.b.c"])
def test_text_that_is_no_container_has_no_id(text):
    assert containers.container_id(text) is None


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


def test_verify_refuses_another_root_of_the_same_name(folder, signer, bundles):
    with pytest.raises(containers.ContainerError, match="issuing order"):
        containers.verify(containers.build(signer, bundles), (folder / "same-name.pem").read_bytes())


def test_verify_with_openssl_tells_right_from_tampered(folder, signer, bundles):
    text = containers.build(signer, bundles)
    assert containers.verify_with_openssl(text, folder / "chain.pem")
    assert not containers.verify_with_openssl(containers.tampered(text), folder / "chain.pem")
    assert not containers.verify_with_openssl(text, folder / "same-name.pem")
