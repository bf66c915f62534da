"""Updates under outages as whole daemons in real time: the cells of tests/matrix/updates.txt that say so. They wait for
most of their time, so that all of them run at once, each in a unit with a bench of its own."""

import concurrent.futures
import contextlib
import itertools
import pathlib
import signal
import socket
import threading
import traceback

import pytest

import update_table
from bench.misbehaviour import DOWNLOAD, OCSP, REPORT, Misbehaviour
from daemon import DAY, MOMENT, NOT_CONNECTED, READY, RETRYING, TERMINATED, Daemon
from running import DEADLINE_S
from unit import Unit

INSTALLED, OFFERED = "container-0", "container-1"
OPERATION = "FLEET-Shop.COOrder"
REASONS = {"job": "RENEWAL_REASON_JOB", "empty": "RENEWAL_REASON_EMPTYTS",
           "alert46": "RENEWAL_REASON_UNKNOWNCA", "alert48": "RENEWAL_REASON_UNKNOWNCA"}
STATUS_NAMES = {"0": "STATUS_CODE_SUCCESS", "5": "STATUS_CODE_CERT_DECODE_ERROR"}
# At the end of a cell's log: of the job that comes to a unit which has resumed.
LINES_OF_JOB = 2
STOPPING = "debug: Stopping Container Update"
SENT = "info: Update Status was sent successfully."
# Endpoint and name of the bench's misbehaviour for an outage, before the container is installed.
BEFORE = {"silence": (DOWNLOAD, "silence"), "cut": (DOWNLOAD, "cut-in-body"), "204": (DOWNLOAD, "status-204"),
          "500": (DOWNLOAD, "status-500"), "protobuf": (DOWNLOAD, "proto-garbage"),
          "container": (DOWNLOAD, "container-wrong-key"), "ocsp-silent": (OCSP, "silence"),
          "report": (REPORT, "status-403")}
# The same afterwards: only what reports meet.
AFTER = {"silence": (REPORT, "silence"), "500": (REPORT, "status-500"), "report": (REPORT, "status-403")}


class Gate:
    """A port in front of another one of loopback: connecting to it is refused until it is opened."""

    def __init__(self, target):
        self._target = target
        self._listener = socket.socket()
        self._listener.bind(("127.0.0.1", 0))
        self.port = self._listener.getsockname()[1]

    def open(self):
        self._listener.listen()
        threading.Thread(target=self._accept, daemon=True).start()

    def close(self):
        with contextlib.suppress(OSError):
            self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()

    def _accept(self):
        while True:
            try:
                client, _ = self._listener.accept()
            except OSError:
                return
            server = socket.create_connection(("127.0.0.1", self._target))
            for pair in ((client, server), (server, client)):
                threading.Thread(target=self._pass_on, args=pair, daemon=True).start()

    @staticmethod
    def _pass_on(source, target):
        try:
            while content := source.recv(65536):
                target.sendall(content)
            target.shutdown(socket.SHUT_WR)
        except OSError:
            pass  # the other direction notices as well, and ends


class Play:
    """One cell on a daemon."""

    def __init__(self, cell, daemon):
        self.cell = cell
        self.daemon = daemon
        self.bench = daemon.bench
        self.asked = threading.Event()
        self.told = threading.Event()
        self.gate = None
        self.before = {}

    def close(self):
        if self.gate:
            self.gate.close()

    def run(self):
        """From the unit in its factory to the end of its process. Raises AssertionError where it is not as told."""
        if self.cell.trigger != "empty":
            self.daemon.install(INSTALLED)
        certificates = self.bench.pki.bundle_certificates()
        self.daemon.offer(OFFERED, bundles={"NEW": certificates, "FLEET": certificates})
        self.before = self.daemon.unit.store()
        if self.cell.phase == "during":
            self.amend(DOWNLOAD, self.begin)
        else:
            self.prepare()
        first = self.start()
        self.go_on()
        code, log = self.daemon.running.wait()
        assert code == 0, log
        self.check_log(log[first:])
        self.check_backend()
        self.check_unit()

    def start(self):
        """Starts the daemon and does what starts the update. Returns how many lines the log has had before."""
        if self.cell.trigger == "empty":
            running = self.daemon.start()
            running.wait_for(READY)
            return running.log().index(READY)
        running = self.daemon.start_online()
        if self.cell.phase == "before":
            self.begin()
        first = len(running.log())
        if self.cell.trigger == "job":
            self.bench.publish_job()
        else:
            self.daemon.alert(int(self.cell.trigger.removeprefix("alert")), OPERATION)
        return first

    # The outage.

    def prepare(self):
        """What breaks without a running daemon."""
        if self.cell.at == "report":
            self.amend(REPORT, self.hold)
        elif self.cell.at == "silence":
            self.amend(self.way()[0], self.stay_silent)
        elif self.way():
            self.bench.misbehave(*self.way(), 1 if self.cell.then == "recovers" else None)
        if self.cell.at == "report" and self.way() and self.way()[0] != REPORT:
            self.bench.misbehave(*self.way())
        if self.cell.outage == "ocsp-revoked" and self.cell.phase == "before":
            self.bench.revoke("signer")
        if self.cell.outage == "refused":
            self.close_gate()
        if self.cell.trigger == "empty" and self.cell.phase == "before":
            self.begin()

    def way(self):
        """Endpoint and misbehaviour, or None."""
        return (AFTER if self.cell.phase == "after" else BEFORE).get(self.cell.outage)

    def amend(self, endpoint, action):
        """The next connection to an endpoint gets its due answer after action(scene)."""
        def act(scene):
            action(scene)
            scene.peer.send(scene.response.bytes())
        self.bench.endpoints[endpoint].misbehave(Misbehaviour("amended", "", act), 1)

    def hold(self, _):
        self.asked.set()
        assert self.told.wait(DEADLINE_S)

    def stay_silent(self, scene):
        self.asked.set()
        scene.peer.wait_until_gone()

    def close_gate(self):
        port = self.bench.endpoints[DOWNLOAD].port
        self.gate = Gate(port)
        path = self.bench.config_path
        path.write_text(path.read_text().replace(f":{port}/", f":{self.gate.port}/"))
        self.daemon.configure()

    def begin(self, _=None):
        """What breaks beside a running daemon, or just before it."""
        if self.cell.outage == "token":
            self.token_path().rename(self.token_path().with_name("no-token"))
        elif self.cell.outage == "lost" and self.daemon.running:
            self.daemon.control("connection", "1")
        elif self.cell.outage == "lost":
            self.bench.broker.freeze()

    def end_outage(self):
        if self.cell.outage == "token":
            self.token_path().with_name("no-token").rename(self.token_path())
        elif self.cell.outage == "lost" and self.cell.trigger == "empty":
            self.bench.broker.thaw()
        elif self.cell.outage == "lost":
            self.daemon.control("connection", "auto")
        elif self.gate:
            self.gate.open()
        else:
            self.bench.behave()

    def token_path(self):
        return pathlib.Path(self.bench.directory) / "token"

    # What the unit is told.

    def go_on(self):
        """From the trigger to the SIGTERM."""
        running = self.daemon.running
        if self.cell.then == "recovers":
            if self.cell.at == "wait" or RETRYING in self.cell.log:
                self.wait_for_point()
                self.end_outage()
            running.wait_for(SENT)
        else:
            self.wait_for_point()
        if self.cell.then.startswith("kPrepSD"):
            self.suspend()
        if self.cell.then == "kPrepSD+kOn":
            self.end_outage()
            # The store is looked at again, perhaps with the result of the start.
            looked = self.filled_in(self.cell.log[-1 - LINES_OF_JOB])
            before = running.log().count(looked)
            self.daemon.control("state", "kOn")
            running.wait_for(looked, before + 1)
            self.bench.publish_job()
            running.wait_for(self.cell.log[-1])
        running.send_signal(signal.SIGTERM)
        running.wait_for(STOPPING, 2 if self.cell.then.startswith("kPrepSD") else 1)
        self.told.set()

    def wait_for_point(self):
        running = self.daemon.running
        if self.cell.at == "wait":
            what = "Status Update" if self.cell.phase == "during" else "Container Download"
            running.wait_for(f"info: {what} is waiting for correct Connection state...")
        elif self.cell.at in ("report", "silence"):
            assert self.asked.wait(DEADLINE_S), running.log()
        else:
            running.wait_for(SENT if self.cell.at == "idle" else RETRYING)

    def suspend(self):
        with concurrent.futures.ThreadPoolExecutor() as pool:
            done = pool.submit(self.daemon.control, "state", "kPrepSD", "--timeout", str(DEADLINE_S))
            self.daemon.running.wait_for(STOPPING)
            self.told.set()
            done.result()

    # What comes of it.

    def filled_in(self, pattern):
        moment = MOMENT + DAY if self.cell.store == "new" else MOMENT
        return (pattern.replace("{installed}", INSTALLED).replace("{offered}", OFFERED)
                .replace("{status}", STATUS_NAMES.get(self.cell.status, "-"))
                .replace("Timestamp: *", f"Timestamp: {moment:%Y-%m-%dT%H:%M:%S}"))

    def check_log(self, log):
        anywhere = update_table.read().anywhere
        lines = [line for line in log if line.startswith(("info: ", "warning: ", "error: "))
                 and not any(update_table.matches(pattern, line) for pattern in anywhere)]
        if self.cell.trigger == "empty":
            lines = self.without_its_start(lines)
        expected = [*map(self.filled_in, self.cell.log), TERMINATED]
        assert len(lines) == len(expected) and all(map(update_table.matches, expected, lines)), (
            "\n".join(["expected:", *expected, "logged:", *lines]))

    def without_its_start(self, lines):
        """Lines of an update that begins with the process: until the broker has answered, it may wait for the
        connection or, without one, be told more than once that there is none."""
        if self.cell.outage != "lost":
            return [line for line in lines if line != NOT_CONNECTED]
        return [line for line, _ in itertools.groupby(lines)]

    def check_backend(self):
        installed = "" if self.cell.trigger == "empty" else INSTALLED
        expected = [(int(report.partition("/")[0]), installed if "/" in report else "") for report in self.cell.reports]
        assert [(report.status_code, report.container_id) for report in self.bench.reports()] == expected
        operation = OPERATION if self.cell.trigger.startswith("alert") else ""
        assert {*self.daemon.requests()} <= {(REASONS[self.cell.trigger], operation, installed)}

    def check_unit(self):
        unit = self.daemon.unit
        if self.cell.store == "new":
            assert list(unit.store()) == ["FLEET", "NEW"]
            assert (unit.records()[0], self.daemon.marker()) == (OFFERED, "1")
        else:
            assert unit.store() == self.before
            kept = None if self.cell.trigger == "empty" else INSTALLED
            assert (unit.records()[0] or None, self.daemon.marker()) == (kept, "0")


def play(cell, folder, build_dir):
    """Plays a cell. Returns what was wrong, or None."""
    try:
        with Daemon(Unit(folder / "unit", build_dir), folder / "bench", chain_length=1) as daemon:
            with contextlib.closing(Play(cell, daemon)) as played:
                played.run()
    except Exception:  # pylint: disable=broad-except
        return f"updates.txt:{cell.line}: {cell.name}\n{traceback.format_exc()}"
    return None


@pytest.mark.long
def test_cells_of_the_table_come_out_as_told_in_real_time(tmp_path, build_dir):
    cells = update_table.read().daemons
    assert len(cells) >= 20
    with concurrent.futures.ThreadPoolExecutor(len(cells)) as pool:
        wrong = list(pool.map(lambda cell: play(cell, tmp_path / cell.name, build_dir), cells))
    assert not any(wrong), "\n\n".join(filter(None, wrong))
