#!/usr/bin/python3
"""What an update takes, from the published job to the accepted report, and what of it nobody can take away.

    update_benchmark.py [BUILD]

BUILD is the build folder (default: build/release). Each run starts the daemon on a fresh unit in a sandbox, with an
older container installed, and publishes a job for one of 150 of this machine's CA certificates; its log tells when each
phase ended. Between the runs plain clients ask the same peers the same things, and the floor of
installation_benchmark does the unavoidable work on the same container. Prints medians, and the ratio of the daemon's
time to the sum of the others. Exit 1 when it is above the goal.
"""

import datetime
import pathlib
import re
import socket
import statistics
import subprocess
import sys
import tempfile
import time

import paho.mqtt.client as mqtt
from cryptography import x509
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.x509 import ocsp

sys.dont_write_bytecode = True
SOURCE = pathlib.Path(__file__).resolve().parents[1]
sys.path[:0] = [str(SOURCE), str(SOURCE / "tests" / "e2e")]

# pylint: disable=wrong-import-position
from bench import backend, containers, schema
from bench.box import TOKEN, Bench
from bench.broker import JOB_TOPIC
from bench.misbehaviour import DOWNLOAD, MOD_OCSP, OCSP, REPORT
from unit import Unit

RUNS = 9
CERTIFICATES = 150
BUNDLES = 5
MOST_RATIO = 1.5
WAIT_S = 30
# The broker's kernel holds back what follows within 40 ms on its word to a subscription. No job comes so soon.
SETTLE_S = 0.1
SYSTEM_CERTIFICATES = "/etc/ssl/certs/ca-certificates.crt"
# Each phase and the line of the log that ends it.
PHASES = (
    ("job received", "MQTT Message was received"),
    ("job read, thread started", "ContainerUpdateThread Started."),
    ("token and URL", "Got URL for 'RUNA-TruststoreUpdate.CORequestTSC'"),
    ("download", "TrustStore Container was downloaded successfully."),
    ("parse, name", "Verifying the Common Name passed."),
    ("path", "X5C certificates path validation succeeded!"),
    ("OCSP", "All OCSP checks Passed"),
    ("signature", "Verifying the Signature passed."),
    ("install", "Send Update Status to the Device Platform: STATUS_CODE_SUCCESS"),
    ("report", "Update Status was sent successfully."),
)
SWITCHES = "run/csc/config/truststore-update-client/config.cfg"
CONFIGURATION = """
[logging]
level = "warning"
[trust_store]
directory = "{0}/store"
[persistency]
directory = "{0}/persistency"
"""
FLOOR = "certificates, path, signature, disk"
READY = "info: MQTT Subscribed successfully"
LOG_LINE = re.compile(r"(\S+)Z \S+ TU (.*)")


class Publisher:
    """A client of the broker's that stays connected: publishes jobs, and hears them as a unit would."""

    def __init__(self, port):
        self._heard = []
        self._client = mqtt.Client()
        self._client.on_message = lambda *_: self._heard.append(time.time())
        self._client.connect("127.0.0.1", port)
        self._client.loop_start()
        self._granted = []
        self._client.on_subscribe = lambda *_: self._granted.append(True)

    def listen(self):
        self._client.subscribe(JOB_TOPIC, 1)
        wait_until(lambda: self._granted)

    def publish(self, container_id):
        """Returns when it did, in seconds of the epoch."""
        payload = schema.job(container_id).SerializeToString()
        begun = time.time()
        self._client.publish(JOB_TOPIC, payload, qos=1)
        return begun

    def round_trip(self, container_id):
        """Seconds from a publication to its arrival here."""
        self._heard.clear()
        begun = self.publish(container_id)
        wait_until(lambda: self._heard)
        return self._heard[0] - begun

    def close(self):
        self._client.disconnect()
        self._client.loop_stop()


def wait_until(condition):
    deadline = time.monotonic() + WAIT_S
    while not condition():
        if time.monotonic() > deadline:
            raise RuntimeError("nothing comes")
        time.sleep(0.0002)


def exchange(port, path, content_type, body, token=None):
    """Seconds of one POST, from connecting to the end of the answer."""
    head = [f"POST {path} HTTP/1.1", f"Host: 127.0.0.1:{port}", "Connection: close", f"Content-Length: {len(body)}",
            f"Content-Type: {content_type}", f"Accept: {backend.RESPONSE_TYPE}"]
    if token:
        head.append(f"Authorization: Bearer {token}")
    begun = time.perf_counter()
    with socket.create_connection(("127.0.0.1", port), WAIT_S) as connection:
        connection.sendall("\r\n".join([*head, "", ""]).encode() + body)
        answer = bytearray()
        while received := connection.recv(65536):
            answer += received
    taken = time.perf_counter() - begun
    if answer.split(b" ", 2)[1] not in (b"200", b"204"):
        raise RuntimeError(bytes(answer[:100]))
    return taken


def ocsp_request(bench, member, issuer):
    certificates = (x509.load_pem_x509_certificate(bench.pki.path(each).read_bytes()) for each in (member, issuer))
    request = ocsp.OCSPRequestBuilder().add_certificate(*certificates, hashes.SHA1()).build()
    return request.public_bytes(serialization.Encoding.DER)


def ask_responders(bench):
    """Seconds of one question about each certificate of the chain."""
    chain = [*bench.pki.chain(), "root"]
    top = len(chain) - 2
    return sum(exchange(bench.endpoints[OCSP if number == top else MOD_OCSP].port, "/ocsp", "application/ocsp-request",
                        ocsp_request(bench, chain[number], chain[number + 1])) for number in range(top + 1))


def install(kind, build, bench, folder):
    """Seconds of an installation of the offered container and nothing else. kind: "floor", or "client" for our own."""
    for name, content in {"store/factory/ZORA.pem": bench.root_path.read_text(), SWITCHES: "OcspDisable = true\n",
                          "host-platform.toml": CONFIGURATION.format(folder)}.items():
        (folder / name).parent.mkdir(parents=True, exist_ok=True)
        (folder / name).write_text(content)
    command = [build / "bin" / "installation_benchmark", "--child", kind, bench.directory / "container.tsc", folder]
    return float(subprocess.run(command, check=True, capture_output=True, timeout=WAIT_S).stdout)


def measure_peers(build, bench, publisher, folder):
    """Seconds of each part that is not the daemon's to shorten."""
    offered = bench.backend.offered()[1]
    request = schema.download_request()
    request.container_id = "OLD"
    report = schema.status_report()
    ports = {name: bench.endpoints[name].port for name in (DOWNLOAD, REPORT)}
    return {
        "broker, publish to receive": publisher.round_trip(offered),
        "backend, download": exchange(ports[DOWNLOAD], backend.DOWNLOAD_PATH, backend.REQUEST_TYPE,
                                      request.SerializeToString(), TOKEN),
        "openssl ocsp, each certificate": ask_responders(bench),
        FLOOR: install("floor", build, bench, folder),
        "backend, report": exchange(ports[REPORT], backend.REPORT_PATH, backend.REPORT_TYPE,
                                    report.SerializeToString(), TOKEN),
    }


def measure_daemon(unit, bench, publisher):
    """Seconds of each phase."""
    granted = granted_subscriptions(bench)
    running = unit.start("truststore-update-client",
                         options=["--ro-bind", str(bench.directory), str(bench.directory)])
    try:
        running.wait_for(READY)
        wait_until(lambda: granted_subscriptions(bench) > granted)
        time.sleep(SETTLE_S)
        begun = publisher.publish(bench.backend.offered()[1])
        running.wait_for("info: " + PHASES[-1][1])
        return phases_of(begun, running.lines())
    finally:
        running.end()


def granted_subscriptions(bench):
    """How often the broker has told units that they are subscribed: it delivers nothing before."""
    return (bench.directory / "mosquitto.log").read_text().count("Sending SUBACK to bench-unit")


def phases_of(begun, lines):
    ends = {}
    for line in lines:
        if match := LOG_LINE.fullmatch(line):
            moment = datetime.datetime.fromisoformat(match[1]).replace(tzinfo=datetime.timezone.utc)
            ends.setdefault(match[2], moment.timestamp())
    phases = {}
    for name, line in PHASES:
        phases[name] = ends[line] - begun
        begun = ends[line]
    return phases


def bundles():
    """CERTIFICATES of this machine's CA certificates, in BUNDLES bundles."""
    system = containers.certificates(SYSTEM_CERTIFICATES)
    taken = [system[number % len(system)] for number in range(CERTIFICATES)]
    return {f"BUNDLE-{number}": taken[number::BUNDLES] for number in range(BUNDLES)}


def print_medians(title, measured):
    """Prints the median of each name, and returns their sum."""
    medians = {name: statistics.median(each[name] for each in measured) for name in measured[0]}
    print(title)
    for name, seconds in medians.items():
        print(f"  {name:38} {1000 * seconds:8.1f} ms")
    total = statistics.median(sum(each.values()) for each in measured)
    print(f"  {'together':38} {1000 * total:8.1f} ms")
    return total


def main():
    build = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else SOURCE / "build" / "release").resolve()
    daemon, peers, own = [], [], []
    with tempfile.TemporaryDirectory(prefix="tsuc-update-") as name, Bench(f"{name}/bench") as bench:
        folder = pathlib.Path(name)
        older = Unit(folder / "older", build)
        older.write_switches()
        older.provision_root(bench.root_path.read_bytes())
        older.install(bench.backend.make(bench.pki)[0])
        older.write_switches()
        older.configure(bench.config_path.read_text())
        bench.new_container(bundles=bundles())
        publisher = Publisher(bench.broker.port)
        for run in range(RUNS):
            daemon.append(measure_daemon(older.copy(folder / f"unit-{run}"), bench, publisher))
        publisher.listen()
        for run in range(RUNS):
            peers.append(measure_peers(build, bench, publisher, folder / f"floor-{run}"))
            own.append({**peers[-1], FLOOR: install("client", build, bench, folder / f"client-{run}")})
        publisher.close()
    taken = print_medians(f"the daemon, {RUNS} updates, medians", daemon)
    least = print_medians("the same peers asked by plain clients, and the floor", peers)
    alone = print_medians("the same, and the installation by our own code alone in place of the floor", own)
    print(f"{taken / alone:.2f} times the latter")
    print(f"ratio {taken / least:.2f}, at most {MOST_RATIO}")
    return 0 if taken <= MOST_RATIO * least else 1


if __name__ == "__main__":
    sys.exit(main())
