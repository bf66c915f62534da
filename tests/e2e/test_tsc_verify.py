"""The tool asks responders what a unit asks them, and tells what the unit says."""

import json
import re
import subprocess

import pytest

from bench.box import Bench
from bench.endpoint import Endpoint
from bench.misbehaviour import OCSP
from bench.ocsp_front import OcspFront

INSTALLED = "status 0 (STATUS_CODE_SUCCESS): a unit would install it"
REFUSED = "status 5 (STATUS_CODE_CERT_DECODE_ERROR): signer revoked or revocation unknown, or signature wrong"
# Where two runs differ: by the time of an answer or by the port of an endpoint, and by the pieces that bytes come in.
PORT = re.compile(r"127\.0\.0\.1:\d+")
PIECE = re.compile(r"info: HttpConnection: (Read|Total received) \d+ bytes from socket")


@pytest.fixture(name="bench", scope="module")
def fixture_bench():
    with Bench() as bench:
        yield bench


@pytest.fixture(name="healed", autouse=True)
def fixture_healed(bench):
    yield
    bench.behave()
    for member in bench.pki.chain():
        bench.unrevoke(member)


@pytest.fixture(name="verify")
def fixture_verify(build_dir, bench):
    def run(*arguments, url=None):
        command = [build_dir / "bin" / "tsc", "verify", "--root", bench.root_path, "--ocsp-url",
                   url or bench.url(OCSP), *arguments, bench.directory / "container.tsc"]
        return subprocess.run(command, capture_output=True, text=True, check=False, timeout=100)
    return run


def answer(done):
    return done.returncode, done.stdout.splitlines()[-1], done.stderr


def checks(lines):
    """The lines of the revocation checks."""
    first = next(i for i, line in enumerate(lines) if "Got URL for" in line)
    last = next(i for i, line in enumerate(lines) if line.endswith(("OCSP check FAILED", "All OCSP checks Passed")))
    return [PORT.sub("PEER", line) for line in lines[first:last + 1] if not PIECE.fullmatch(line)]


def make_good(_):
    pass


def revoke_the_signer(bench):
    bench.revoke("signer")


def revoke_the_ca(bench):
    bench.revoke("ca-1")


def forget_the_signer(bench):
    bench.forget("signer")


@pytest.mark.parametrize("prepare, expected", [(make_good, (0, INSTALLED, "")), (revoke_the_signer, (1, REFUSED, "")),
                                               (revoke_the_ca, (1, REFUSED, "")),
                                               (forget_the_signer, (1, REFUSED, ""))])
def test_answer_and_lines_are_those_of_a_unit(bench, unit, verify, prepare, expected):
    prepare(bench)
    done = verify()
    assert answer(done) == expected
    unit.provision_root(bench.root_path.read_bytes())
    result = unit.install(bench.backend.offered()[0], env={"TSUC_HOST_CONFIG": str(bench.config_path)},
                          options=["--ro-bind", str(bench.directory), str(bench.directory)])
    assert checks([line.strip() for line in done.stdout.splitlines()]) == checks(result.log())


def test_each_certificate_of_the_chain_is_asked_about_once(bench, verify):
    before = len(bench.checks(OCSP))
    assert answer(verify()) == (0, INSTALLED, "")
    assert bench.checks(OCSP)[before:] == ["ca-1", "signer"]


@pytest.mark.parametrize("misbehaviour", [pytest.param("silence", marks=pytest.mark.long), "cut-before-status",
                                          "reset-before-status"])
def test_responder_without_an_answer_leaves_revocation_unknown(bench, verify, misbehaviour):
    bench.misbehave(OCSP, misbehaviour)
    before = bench.endpoints[OCSP].connections()
    assert answer(verify()) == (1, REFUSED, "")
    assert bench.endpoints[OCSP].connections() == before + 1


def test_responder_that_does_not_listen_leaves_revocation_unknown(verify):
    done = verify(url="http://127.0.0.1:1/")
    assert answer(done) == (1, REFUSED, "")
    assert "for RUNA-TruststoreOCSP.COOCSPRequest: Connection refused" in done.stdout


def test_json_tells_status_and_lines(bench, verify):
    bench.revoke("signer")
    told = json.loads(verify("--json").stdout)
    assert (told["status"], told["container_id"]) == (5, bench.backend.offered()[1])
    assert "error: OCSP response status: revoked for KALVIRON Bench Signer 1" in told["log"]


@pytest.fixture(name="https_url")
def fixture_https_url(bench):
    endpoint = Endpoint("ocsp-https", bench.log)
    endpoint.start(OcspFront(bench.pki, bench.responders), bench.pki.server_context())
    yield f"https://127.0.0.1:{endpoint.port}/ocsp"
    endpoint.stop()


def test_https_responder_is_verified_against_the_given_file(bench, verify, https_url):
    assert answer(verify("--ocsp-ca", bench.pki.path("server-ca"), url=https_url)) == (0, INSTALLED, "")
    done = verify("--ocsp-ca", bench.root_path, url=https_url)
    assert answer(done) == (1, REFUSED, "")
    assert "error: libLumoConnectorShared: cannot connect to" in done.stdout


def test_https_responder_without_a_file_is_never_asked(verify, https_url):
    done = verify(url=https_url)
    assert (done.returncode, done.stdout) == (2, "")
    assert done.stderr == f"tsc verify: --ocsp-url {https_url}: https needs --ocsp-ca FILE\n"
