"""The bench's certificates, checked by openssl."""

import pytest

from bench.pki import GOOD, REVOKED, UNKNOWN, Pki

URL = "http://127.0.0.1:1/ocsp"


def chain_file(pki, members):
    path = pki.folder / "untrusted.pem"
    path.write_bytes(b"".join(pki.path(member).read_bytes() for member in members))
    return path


@pytest.mark.parametrize("length", [1, 2, 5])
def test_chain_of_any_length_leads_to_the_root(tmp_path, tools, length):
    pki = Pki(tmp_path, URL, length)
    chain = pki.chain()
    assert len(chain) == length
    above = ["-untrusted", chain_file(pki, chain[1:])] if length > 1 else []
    tools.run("openssl", "verify", "-CAfile", pki.path("root"), *above, pki.path("signer"))


def test_signers_name_and_responder_are_in_the_certificate(tmp_path, tools):
    pki = Pki(tmp_path, URL)
    show = tools.run("openssl", "x509", "-in", pki.path("signer"), "-noout", "-subject", "-ocsp_uri").stdout.decode()
    assert "CN = KALVIRON" in show and URL in show


def test_certificates_in_the_folder_are_kept(tmp_path):
    first = Pki(tmp_path, URL)
    again = Pki(tmp_path, URL)
    assert again.signer().chain == first.signer().chain


def test_chain_of_another_length_is_made_anew_below_the_same_root(tmp_path, tools):
    root = Pki(tmp_path, URL, 2).entity("root").der()
    pki = Pki(tmp_path, URL, 3)
    assert pki.entity("root").der() == root
    by_ca_2 = ["-partial_chain", "-CAfile", pki.path("ca-2"), "-untrusted", pki.path("ca-1")]
    tools.run("openssl", "verify", *by_ca_2, pki.path("signer"))
    tools.run("openssl", "verify", "-CAfile", pki.path("root"), pki.path("ca-2"))


@pytest.mark.parametrize("kind, error", [
    ("server", b"OK"), ("server-expired", b"certificate has expired"), ("server-wrong-name", b"IP address mismatch"),
    ("server-unknown-ca", b"unable to get local issuer certificate")])
def test_server_certificate_is_as_good_as_its_name(tmp_path, tools, kind, error):
    pki = Pki(tmp_path, URL)
    pki.server_context(kind)
    done = tools.run("openssl", "verify", "-CAfile", pki.path("server-ca"), "-purpose", "sslserver", "-verify_ip",
                     "127.0.0.1", pki.path(kind), check=False)
    assert error in done.stdout + done.stderr


def test_states_are_in_the_files_of_openssl(tmp_path):
    pki = Pki(tmp_path, URL)
    for member, state in (("signer", REVOKED), ("retired", UNKNOWN)):
        pki.set_state(member, state)
    lines = pki.issuers["ca-1"].index_path.read_text().splitlines()
    assert [line[0] for line in lines] == ["R"]
    assert pki.states() == {"ca-1": GOOD, "signer": REVOKED, "retired": UNKNOWN}


def test_state_of_nobody_is_refused(tmp_path):
    with pytest.raises(KeyError):
        Pki(tmp_path, URL).set_state("nobody", REVOKED)


def test_keys_are_for_their_owner_only(tmp_path):
    pki = Pki(tmp_path / "pki", URL)
    assert pki.folder.stat().st_mode & 0o077 == 0
