"""The client at work on a platform that shares nothing with the host's: tests/other_platform."""

import os
import pathlib
import re
import shutil
import signal
import socketserver
import subprocess
import threading

import pytest

from bench import containers, schema
from bench.log import EventLog
from bench.messages import body_length, parse_head
from bench.pki import Pki
from bench.responder import Responder
from unit import Unit

SOURCE = pathlib.Path(__file__).resolve().parents[2]
# As the host's build names it; a build for the other platform has it as the client itself.
PROGRAM = os.environ.get("TSUC_CLIENT", "client_on_other_platform")
DOWNLOAD = "RUNA-TruststoreUpdate.CORequestTSC"
REPORT = "RUNA-TruststoreUpdate.COReportTSCStatus"
OCSP = {"root": "RUNA-TruststoreOCSP.COOCSPRequest", "ca-1": "RUNA-TruststoreOCSP.COModOCSPRequest"}
READY = "info: Truststore Update Client Ready"
RUNNING = "info: other_platform: running"
TERMINATING = "info: other_platform: terminating"
INSTALLED = ["info: other_platform: bundle 'FLEET' installed, ", "info: other_platform: bundle 'WEB' installed, "]


class Peer(socketserver.ThreadingMixIn, socketserver.UnixStreamServer):
    """The peer of one operation: answers each request with `body`, and keeps what it was sent."""

    def __init__(self, path, body):
        self.body = body
        self.received = []
        self.has_received = threading.Event()
        with Address(path) as address:
            super().__init__(address, PeerHandler)
        threading.Thread(target=self.serve_forever, daemon=True).start()


class Address:
    """A name for a Unix socket that fits into its address, however long the path is."""

    def __init__(self, path):
        self._folder = os.open(path.parent, os.O_PATH)
        self._name = path.name

    def __enter__(self):
        return f"/proc/self/fd/{self._folder}/{self._name}"

    def __exit__(self, *_):
        os.close(self._folder)


class PeerHandler(socketserver.StreamRequestHandler):
    def handle(self):
        head = b""
        while not head.endswith(b"\r\n\r\n"):
            if not (line := self.rfile.readline()):
                return
            head += line
        headers = parse_head(head.removesuffix(b"\r\n\r\n"))[-1]
        self.server.received.append(self.rfile.read(body_length(headers)))
        self.wfile.write(b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\n\r\n" % len(self.server.body) + self.server.body)
        self.server.has_received.set()


class OtherUnit:
    """A unit on the other platform, with its peers."""

    def __init__(self, unit, pki):
        self.unit = unit
        self.pki = pki
        self.folder = unit.root / "var/lib/other-platform"
        (self.folder / "factory").mkdir(parents=True)
        (self.folder / "peers").mkdir()
        shutil.copy(pki.path("root"), self.folder / "factory" / "ZORA.pem")
        for pipe in ("states", "jobs"):
            os.mkfifo(self.folder / pipe)
        self.container = containers.build(pki.signer(), {"FLEET": pki.bundle_certificates()[:1],
                                                         "WEB": pki.bundle_certificates()[1:]})

    def start(self):
        return self.unit.start(PROGRAM)

    def tell(self, pipe, line):
        with open(self.folder / pipe, "w", encoding="ascii") as file:
            file.write(line + "\n")


@pytest.fixture(name="pki")
def fixture_pki(tmp_path):
    return Pki(tmp_path / "pki", "http://responder/")


@pytest.fixture(name="other")
def fixture_other(tmp_path, build_dir, pki):
    unit = Unit(tmp_path / "unit", build_dir)
    yield OtherUnit(unit, pki)
    unit.close()


@pytest.fixture(name="responders")
def fixture_responders(other, pki):
    """Real ones, each at the socket of its operation."""
    log = EventLog()
    folder = other.folder / "responders"
    folder.mkdir()
    started = [Responder(pki, pki.issuers[issuer], folder, log) for issuer in OCSP]
    for responder, operation in zip(started, OCSP.values()):
        responder.start()
        (other.folder / "peers" / operation).symlink_to(f"../responders/{responder.socket_path.name}")
    yield started
    for responder in started:
        responder.stop()


@pytest.fixture(name="backend")
def fixture_backend(other):
    """The peers for download and report."""
    download = Peer(other.folder / "peers" / DOWNLOAD, schema.download_response(other.container).SerializeToString())
    report = Peer(other.folder / "peers" / REPORT, b"")
    yield report
    for peer in (download, report):
        peer.shutdown()
        peer.server_close()


def log_to_its_end(running):
    """Its whole log, ended in order by SIGTERM."""
    running.send_signal(signal.SIGTERM)
    code, log = running.wait()
    assert code == 0
    return log


def bundles_of(log):
    return [line for line in log if line.startswith("info: other_platform: bundle ")]


def test_empty_store_a_container_is_installed_and_reported(other, responders, backend):
    running = other.start()
    running.wait_for("info: Update Status was sent successfully.")
    log = log_to_its_end(running)
    assert READY in log
    assert [line.rpartition(", ")[0] + ", " for line in bundles_of(log)] == INSTALLED
    report = schema.status_report()
    report.ParseFromString(backend.received[0])
    assert (schema.enum_name(report, "status_code"), len(backend.received)) == ("STATUS_CODE_SUCCESS", 1)


def test_container_in_a_file_is_installed(other, responders):
    result = other.unit.install(other.container, program=PROGRAM)
    assert (result.returncode, result.status()) == (0, "SUCCESS"), result.stderr
    assert [line.rpartition(", ")[0] + ", " for line in bundles_of(result.log())] == INSTALLED


def test_revoked_signer_nothing_is_installed(other, pki, responders, backend):
    pki.set_state("signer", "revoked")
    for responder in responders:
        responder.read_index_again()
    running = other.start()
    running.wait_for("info: Update Status was sent successfully.")
    log = log_to_its_end(running)
    assert bundles_of(log) == []
    assert "info: Send Update Status to the Device Platform: STATUS_CODE_CERT_DECODE_ERROR" in log


def test_states_are_entered_and_confirmed(other):
    running = other.start()
    running.wait_for(READY)
    other.tell("states", "kPrepSD")
    running.wait_for("info: other_platform: state kPrepSD (1) confirmed")
    other.tell("states", "kOn")
    running.wait_for("info: other_platform: state kOn (2) confirmed")
    log_to_its_end(running)


def test_job_of_the_broker_reaches_the_client(other):
    running = other.start()
    running.wait_for(READY)
    other.tell("jobs", schema.job("TSC-1").SerializeToString().hex())
    running.wait_for("info: MQTT Message was received")
    log_to_its_end(running)


def test_end_terminating_is_reported_once_and_last(other):
    running = other.start()
    running.wait_for(READY)
    log = log_to_its_end(running)
    reports = [line for line in log if line in (RUNNING, TERMINATING)]
    assert (reports.count(TERMINATING), reports[-1], reports[0]) == (1, TERMINATING, RUNNING)


def test_build_for_the_other_platform_has_the_client_and_nothing_of_the_hosts(tmp_path):
    """As docs/integrate.md says; the compiler itself is left out, it has had each of the files for PROGRAM."""
    page = (SOURCE / "docs" / "integrate.md").read_text()
    option = re.search(r"^cmake --preset release -B \S+ (-DTSUC_PLATFORM=\S+)$", page, re.MULTILINE)[1]
    command = ["cmake", "--preset", "release", "-B", str(tmp_path), option]
    subprocess.run(command, cwd=SOURCE, check=True, capture_output=True, timeout=120)
    told = subprocess.run(["cmake", "--build", str(tmp_path), "--target", "truststore-update-client", "--", "-n", "-v"],
                          check=True, capture_output=True, text=True, timeout=60).stdout
    assert f"{SOURCE}/src/TruststoreUpdateClient/main.cpp" in told
    assert f"{SOURCE}/tests/other_platform/LumoConnector.cpp" in told
    assert "platform/host/" not in told
