"""The OCSP endpoints, with `openssl ocsp` asking."""

import pytest

from bench.misbehaviours import TABLE


def ask(tools, bench, member="signer", issuer="ca-1", endpoint="mod-ocsp"):
    """What openssl's client says about a certificate; it trusts the signers' CAs."""
    trusted = bench.pki.folder / "trusted.pem"
    trusted.write_bytes(b"".join(bench.pki.path(each).read_bytes() for each in bench.pki.issuers))
    done = tools.run("openssl", "ocsp", "-url", bench.url(endpoint), "-issuer", bench.pki.path(issuer), "-cert",
                     bench.pki.path(member), "-CAfile", trusted, "-no_nonce", check=False)
    return (done.stderr + done.stdout).decode()


def request_file(tools, bench, *options):
    """A request about the signer, made by openssl."""
    path = bench.directory / "request.der"
    tools.run("openssl", "ocsp", "-issuer", bench.pki.path("ca-1"), "-cert", bench.pki.path("signer"), "-reqout", path,
              *options)
    return path


@pytest.mark.parametrize("member, issuer", [("signer", "ca-1"), ("ca-1", "ca-2"), ("ca-2", "root")])
def test_each_certificate_is_good_at_any_endpoint(bench, tools, member, issuer):
    for endpoint in ("ocsp", "mod-ocsp"):
        told = ask(tools, bench, member, issuer, endpoint)
        assert "Response verify OK" in told and f"{member}.pem: good" in told, told
        assert bench.checks(endpoint)[-1] == member


def test_revocation_counts_from_the_next_answer_on(bench, tools):
    for operation, state in ((bench.revoke, "revoked"), (bench.unrevoke, "good"), (bench.forget, "unknown"),
                             (bench.unrevoke, "good")):
        operation("signer")
        told = ask(tools, bench)
        assert "Response verify OK" in told and f"signer.pem: {state}" in told, told


def test_revocation_of_one_is_not_that_of_another(bench, tools):
    bench.revoke("ca-1")
    assert "ca-1.pem: revoked" in ask(tools, bench, "ca-1", "ca-2")
    assert "signer.pem: good" in ask(tools, bench)


def test_retired_signer_is_revoked(bench, tools):
    assert "retired.pem: revoked" in ask(tools, bench, "retired")


def test_answers_may_be_the_issuers_own(bench, tools):
    bench.responders["ca-1"].restart(signed_by="issuer")
    assert "Response verify OK" in ask(tools, bench)
    bench.responders["ca-1"].restart(signed_by="delegate")


def test_killed_responder_answers_nothing_until_it_is_back(bench, tools):
    bench.responders["ca-1"].kill()
    assert "good" not in ask(tools, bench)
    assert bench.log.lines()[-1].endswith("POST about signer of ca-1 -> nothing: its responder does not run")
    assert "good" in ask(tools, bench, "ca-1", "ca-2")
    bench.responders["ca-1"].start()
    assert "good" in ask(tools, bench)


def test_answer_is_openssls_own_byte_for_byte(bench, tools):
    request = request_file(tools, bench)
    code, output = tools.curl("-i", "-H", "Content-Type: application/ocsp-request", "--data-binary", f"@{request}",
                              bench.url("ocsp"))
    assert code == 0
    assert output.startswith(b"HTTP/1.0 200 OK\r\nContent-type: application/ocsp-response\r\nContent-Length: ")


# What openssl's client makes of each bad answer.
VERDICTS = {
    "ocsp-try-later": "Responder Error: trylater (3)",
    "ocsp-unauthorized": "Responder Error: unauthorized (6)",
    "ocsp-internal-error": "Responder Error: internalerror (2)",
    "ocsp-malformed": "Responder Error: malformedrequest (1)",
    "ocsp-success-only": "Error parsing response",
    "ocsp-empty": "Error querying OCSP responder",
    "ocsp-garbage": "Error querying OCSP responder",
    "ocsp-page": "Error querying OCSP responder",
    "ocsp-truncated": "Error querying OCSP responder",
    "ocsp-trailing": "inconsistent content length",
    "ocsp-indefinite": "Error querying OCSP responder",
    "ocsp-revoked": "signer.pem: revoked",
    "ocsp-unknown": "signer.pem: unknown",
    "ocsp-another": "signer.pem: ERROR: No Status found.",
    "ocsp-old": "WARNING: Status times invalid.",
    "ocsp-old-undated": "This Update:",
    "ocsp-undated": "signer.pem: good",
    "ocsp-not-yet": "WARNING: Status times invalid.",
    "ocsp-by-issuer": "Response verify OK",
    "ocsp-by-delegate": "Response verify OK",
    "ocsp-delegate-expired": "certificate has expired",
    "ocsp-delegate-without-usage": "missing ocspsigning usage",
    "ocsp-stranger": "Response Verify Failure",
    "ocsp-namesake": "Response Verify Failure",
    "ocsp-wrong-signature": "Response Verify Failure",
    "ocsp-big": "Response verify OK",
}


def test_request_that_tells_the_default_version_is_answered(bench, tools):
    path = request_file(tools, bench, "-no_nonce")
    plain = path.read_bytes()
    path.write_bytes(bytes([plain[0], plain[1] + 5, plain[2], plain[3] + 5, 0xa0, 3, 2, 1, 0]) + plain[4:])
    _, output = tools.curl("-i", "-H", "Content-Type: application/ocsp-request", "--data-binary", f"@{path}",
                           bench.url("ocsp"))
    assert output.startswith(b"HTTP/1.0 200 OK\r\n")
    assert bench.checks("ocsp")[-1] == "signer"


@pytest.mark.parametrize("name", [name for name in TABLE if name.startswith("ocsp-")])
def test_bad_answer_is_what_openssl_says_it_is(bench, tools, name):
    bench.misbehave("mod-ocsp", name)
    assert VERDICTS[name] in ask(tools, bench)


def test_big_answer_is_above_the_bound(bench, tools):
    request = request_file(tools, bench)
    bench.misbehave("ocsp", "ocsp-big")
    _, body = tools.curl("-H", "Content-Type: application/ocsp-request", "--data-binary", f"@{request}",
                         bench.url("ocsp"))
    assert len(body) > 16 * 1024


@pytest.mark.parametrize("arguments, expected", [
    ([], b"415"), (["-H", "Content-Type: application/ocsp-request"], b"404"),
    (["-H", "Content-Type: application/ocsp-request", "-X", "PUT"], b"405")])
def test_what_is_no_request_is_refused(bench, tools, arguments, expected):
    assert tools.curl("-d", "x", "-o", "-", "-w", "%{http_code}", *arguments, bench.url("ocsp"))[1][-3:] == expected
