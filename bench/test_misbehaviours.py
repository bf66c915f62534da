"""Every misbehaviour, with curl as the unit."""

import base64
import json
import os
import pathlib
import re
import socket
import ssl
import time

import pytest

from bench.box import Bench
from bench.conftest import SOURCE
from bench.misbehaviour import DOWNLOAD, ENDPOINTS
from bench.misbehaviours import TABLE, find
from bench.processes import BenchError

# Long enough for curl to see what comes on a busy machine, short enough for what never ends.
PATIENCE_S = 2
OK, UNSUPPORTED, WEIRD, PARTIAL, MEMORY, TIMEOUT = 0, 1, 8, 18, 27, 28
REFUSED, TLS, EMPTY, BROKEN, UNTRUSTED = 7, 35, 52, 56, 60
# So that a body without end does not fill the memory.
SLOWLY = ["--limit-rate", "20M"]

# What curl makes of each: its exit code, the status that it saw, how much of the body (a part of it, or its bytes).
NONE, HALF, ALL, SOME = 0, 0.5, 1, None
SEEN = {
    "status-301": (OK, 301, NONE),
    "status-word": (UNSUPPORTED, 0, NONE),
    "status-huge": (UNSUPPORTED, 0, NONE),
    "status-negative": (UNSUPPORTED, 0, NONE),
    "status-missing": (UNSUPPORTED, 0, NONE),
    "status-no-reason": (OK, 204, NONE),
    "status-line-only": (EMPTY, 0, NONE),
    "status-with-body": (OK, 500, SOME),
    "http-word-only": (EMPTY, 0, NONE),
    "http-2": (OK, 200, ALL),
    "no-status-line": (UNSUPPORTED, 0, NONE),
    "garbage": (UNSUPPORTED, 0, NONE),
    "other-protocol": (UNSUPPORTED, 0, NONE),
    "line-breaks": (UNSUPPORTED, 0, NONE),
    "silence": (TIMEOUT, 0, NONE),
    "silence-after-status": (TIMEOUT, 200, NONE),
    "silence-in-headers": (TIMEOUT, 200, NONE),
    "silence-in-body": (TIMEOUT, 200, HALF),
    "silence-after-answer": (OK, 200, ALL),
    "half-closed": (OK, 200, ALL),
    "cut-before-status": (EMPTY, 0, NONE),
    "cut-in-status": (EMPTY, 0, NONE),
    "cut-after-status": (OK, 200, NONE),
    "cut-in-headers": (OK, 200, NONE),
    "cut-before-body": (PARTIAL, 200, NONE),
    "cut-in-body": (PARTIAL, 200, HALF),
    "slow-status": (TIMEOUT, 0, NONE),
    "slow-headers": (TIMEOUT, 200, NONE),
    "slow-body": (TIMEOUT, 200, SOME),
    "small-pieces": (OK, 200, ALL),
    "endless-headers": (BROKEN, 200, NONE),
    "endless-header-line": (MEMORY, 200, NONE),
    "endless-body": (TIMEOUT, 200, SOME),
    "endless-continue": (BROKEN, 100, NONE),
    "endless-garbage": (UNSUPPORTED, 0, NONE),
    "big-body": (OK, 200, SOME),
    "length-missing": (OK, 200, ALL),
    "length-too-large": (PARTIAL, 200, ALL),
    "length-too-small": (OK, 200, HALF),
    "length-zero": (OK, 200, NONE),
    "length-huge": (OK, 200, ALL),
    "length-negative": (WEIRD, 200, NONE),
    "length-word": (WEIRD, 200, NONE),
    "length-twice": (OK, 200, SOME),
    "chunked": (OK, 200, ALL),
    "chunked-broken": (BROKEN, 200, NONE),
    "chunked-huge": (BROKEN, 200, NONE),
    "chunked-unended": (PARTIAL, 200, ALL),
    "compressed": (OK, 200, ALL),
    "continue-first": (OK, 200, ALL),
    "line-break-first": (UNSUPPORTED, 0, NONE),
    "two-answers": (OK, 200, ALL),
    "header-flood": (OK, 200, ALL),
    "header-huge": (MEMORY, 200, NONE),
    "header-no-colon": (WEIRD, 200, NONE),
    "header-folded": (OK, 200, ALL),
    "header-zero-byte": (WEIRD, 200, NONE),
    "header-no-end": (PARTIAL, 200, NONE),
    "bare-line-feeds": (OK, 200, ALL),
    "connect-silence": (TIMEOUT, 0, NONE),
    "connect-cut": (EMPTY, 0, NONE),
    "answer-unasked": (OK, 200, NONE),
}
SEEN |= {name: (OK, int(name[7:]), NONE) for name in TABLE if re.fullmatch(r"status-[2459]\d\d", name)}
SEEN["status-300"] = (OK, 300, NONE)
SEEN_BY_TLS = {name: (TLS, 0) for name in ("tls-1.0", "tls-plain", "tls-garbage", "tls-alert", "tls-cut", "tls-reset")}
SEEN_BY_TLS |= {name: (UNTRUSTED, 0) for name in ("tls-wrong-name", "tls-expired", "tls-unknown-ca")}
SEEN_BY_TLS["tls-no-goodbye"] = (PARTIAL, 200)
# Where it depends on the moment: a reset may overtake what was sent before, and curl sees some lines piece by piece.
RACES = {
    "reset-before-status": {REFUSED, BROKEN}, "reset-in-status": {REFUSED, BROKEN}, "reset-in-body": {REFUSED, BROKEN},
    "reset-in-headers": {REFUSED, BROKEN}, "connect-reset": {REFUSED, BROKEN},
    "reset-after-answer": {OK, REFUSED, BROKEN}, "zeros": {UNSUPPORTED, MEMORY},
}

# What a unit says to each container by the code that it verifies with: the number that `tsc verify` tells.
UNITS_ANSWER = {
    "container-empty": 3, "container-garbage": 3, "container-truncated": 3, "container-tampered": 5,
    "container-other-signature": 5, "container-wrong-key": 5, "container-stranger": 7, "container-wrong-cn": 9,
    "container-expired": 7, "container-revoked": 0, "container-older": 6, "container-future": 4, "container-no-id": 3,
    "container-wrong-algorithm": 3, "container-bad-certificate": 13,
}


@pytest.fixture(name="https", scope="module")
def fixture_https(tmp_path_factory):
    with Bench(tmp_path_factory.mktemp("https"), https=True) as bench:
        yield bench


def download(tools, bench, *arguments, seconds=PATIENCE_S):
    """(exit code, status, body) of a download that meets a misbehaviour."""
    code, output = tools.download(bench, *SLOWLY, *arguments, "-w", "|%{http_code}", seconds=seconds)
    body, _, status = output.rpartition(b"|")
    return code, int(status), body


def amount(part, whole):
    return {NONE: 0, HALF: whole // 2, ALL: whole}[part]


@pytest.mark.parametrize("name", SEEN)
def test_curl_sees(bench, tools, name):
    patient = SEEN[name][0] == TIMEOUT
    whole = len(download(tools, bench, seconds=10)[2])
    bench.misbehave(DOWNLOAD, name, times=1)
    code, status, body = download(tools, bench, seconds=PATIENCE_S if patient else 10)
    assert (code, status) == SEEN[name][:2]
    part = SEEN[name][2]
    assert part is SOME or abs(len(body) - amount(part, whole)) <= 1


@pytest.mark.parametrize("name", SEEN_BY_TLS)
def test_curl_sees_by_tls(https, tools, name):
    https.misbehave(DOWNLOAD, name, times=1)
    code, status, _ = download(tools, https, "--cacert", https.pki.path("server-ca"), seconds=10)
    assert (code, status) == SEEN_BY_TLS[name]


def test_http_misbehaviours_are_the_same_by_tls(https, tools):
    for name in ("cut-in-body", "status-500", "small-pieces"):
        https.misbehave(DOWNLOAD, name, times=1)
        code, status, _ = download(tools, https, "--cacert", https.pki.path("server-ca"), seconds=10)
        assert (code, status) == SEEN[name][:2], name


def test_good_answer_ends_with_a_word_of_tls_and_a_cut_one_without(https):
    context = ssl.create_default_context(cafile=https.pki.path("server-ca"))
    context.options &= ~ssl.OP_IGNORE_UNEXPECTED_EOF
    for name, goodbye in (("status-500", True), ("cut-in-status", False)):
        https.misbehave(DOWNLOAD, name, times=1)
        address = ("127.0.0.1", https.endpoints[DOWNLOAD].port)
        with socket.create_connection(address, 10) as plain:
            with context.wrap_socket(plain, server_hostname=address[0], suppress_ragged_eofs=False) as connection:
                connection.sendall(b"POST / HTTP/1.1\r\nContent-Length: 0\r\n\r\n")
                assert ends_well(connection) == goodbye, name


def ends_well(connection):
    """Whether everything until the end can be read."""
    try:
        while connection.recv(65536):
            pass
    except ssl.SSLError:
        return False
    return True


def test_answer_cut_without_goodbye_is_told_once(https, tools):
    before = len(https.log.lines())
    https.misbehave(DOWNLOAD, "tls-no-goodbye", times=1)
    download(tools, https, "--cacert", https.pki.path("server-ca"), seconds=10)
    told = [line for line in https.log.lines()[before:] if "[tls-no-goodbye]" in line]
    assert len(told) == 1 and " bytes due)" in told[0]
    assert https.requests()[-1].misbehaviour == "tls-no-goodbye"


def test_old_tls_is_what_it_says(https, tools):
    https.misbehave(DOWNLOAD, "tls-1.0", times=1)
    port = https.endpoints[DOWNLOAD].port
    done = tools.run("openssl", "s_client", "-connect", f"127.0.0.1:{port}", "-tls1", "-cipher", "ALL:@SECLEVEL=0",
                     check=False, input=b"")
    assert b"Protocol  : TLSv1\n" in done.stdout


@pytest.mark.parametrize("name", RACES)
def test_curl_sees_one_of(bench, tools, name):
    bench.misbehave(DOWNLOAD, name, times=1)
    assert download(tools, bench, seconds=10)[0] in RACES[name]


def container_of(tools, bench, name, folder):
    """The container that a misbehaviour sends, as protoc reads it."""
    bench.misbehave(DOWNLOAD, name, times=1)
    _, status, body = download(tools, bench, seconds=10)
    assert status == 200
    decoded = tools.protoc("decode", "RUNACTTruststoreUpdateResponseTSCV1", body).decode()
    found = re.fullmatch(r'trust_store_container: "(.*)"\n|', decoded)
    path = folder / "container.tsc"
    path.write_text(found[1] or "")
    return path


@pytest.mark.parametrize("name", UNITS_ANSWER)
def test_container_is_as_bad_as_its_name(bench, tools, tmp_path, name):
    tsc = pathlib.Path(os.environ.get("TSUC_BUILD_DIR", SOURCE / "build" / "release")) / "bin" / "tsc"
    path = container_of(tools, bench, name, tmp_path)
    yesterday = ["--installed-id", "id", "--installed-timestamp", int(time.time()) - 86400]
    done = tools.run(tsc, "verify", "--json", "--root", bench.root_path, "--ocsp", "good", *yesterday, path,
                     check=False)
    assert json.loads(done.stdout)["status"] == UNITS_ANSWER[name]


def test_revoked_container_is_by_the_revoked_signer(bench, tools, tmp_path):
    path = container_of(tools, bench, "container-revoked", tmp_path)
    header = path.read_text().partition(".")[0]
    assert bench.pki.signer("retired").chain[0].hex() in decoded_chain(header)


def decoded_chain(header):
    fields = json.loads(base64.urlsafe_b64decode(header + "=" * (-len(header) % 4)))
    return [base64.b64decode(der).hex() for der in fields["x5c"]]


# What protoc says to each message: None: no message at all.
MESSAGES = {
    "proto-empty": b"", "proto-garbage": None, "proto-text": None, "proto-truncated": None, "proto-length-huge": None,
    "proto-varint-endless": None, "proto-wrong-type": b"1: 42\n", "proto-unknown-fields": b"trust_store_container",
    "proto-twice": b"trust_store_container", "proto-nested": None,
}


@pytest.mark.parametrize("name", MESSAGES)
def test_message_is_what_protoc_says_it_is(bench, tools, name):
    bench.misbehave(DOWNLOAD, name, times=1)
    body = download(tools, bench, seconds=10)[2]
    command = ["protoc", "--decode=domain.backend.proto.RUNACTTruststoreUpdateResponseTSCV1",
               f"--proto_path={SOURCE / 'proto'}", "RUNA_CT_TruststoreUpdateResponseTSC_v1.proto"]
    done = tools.run(*command, input=body, check=False)
    if MESSAGES[name] is None:
        assert done.returncode != 0
    else:
        assert done.returncode == 0 and done.stdout.startswith(MESSAGES[name])


def test_text_that_is_no_text_and_204_with_a_body(bench, tools):
    bench.misbehave(DOWNLOAD, "proto-no-text", times=1)
    assert download(tools, bench, seconds=10)[2] == b"\x0a\x04\xff\xfe\xfd\xfc"
    bench.misbehave(DOWNLOAD, "no-content-with-body", times=1)
    assert download(tools, bench, seconds=10)[:2] == (OK, 204)


def test_every_misbehaviour_has_its_test():
    tested = {*SEEN, *SEEN_BY_TLS, *UNITS_ANSWER, *MESSAGES, *RACES, "proto-no-text", "no-content-with-body"}
    assert {name for name in TABLE if not name.startswith("ocsp-")} == tested
    assert len(TABLE) > 40


def test_find_refuses_what_there_is_not():
    assert find("silence", "report").endpoints == ENDPOINTS
    with pytest.raises(BenchError, match="no misbehaviour 'silense'"):
        find("silense", "report")
    with pytest.raises(BenchError, match="'container-older' is for download, not for report"):
        find("container-older", "report")
