"""The daemon as it runs for years: a unit with a bench of its own, and one process after the other in it."""

import contextlib
import datetime
import json
import os
import re

import lifecycle
from bench.box import ALERTS_NAME, Bench
from running import DEADLINE_S
from unit import PROGRAM

ALERTS_PATH = f"run/adaptive/csc/tarn-uxds/socks-cdp/{ALERTS_NAME}"
MARKER_PATH = "tmp/truststoreupdate_success"
# Where a container of this moment stands between one that is older and one that is newer.
MOMENT = datetime.datetime(2026, 1, 2, 3, 4, 5, tzinfo=datetime.timezone.utc)
DAY = datetime.timedelta(days=1)

HANDLER_INSTALLED = "info: ProcessLifecycleAdapterApiImpl::Initialize, ReportApplicationState kRunning"
READY = "info: Truststore Update Client Ready"
ASLEEP = "debug: Process timeout set to inf"
CONNECTION = "debug: Connection state notification, new state: {}"
LISTENING = "debug: SocksTlsAlertClient: Connection established to socks-cdp"
UNSUPERVISED = "debug: ProcessKeepAliveSignalling, aliveTime =0"
SUBSCRIBED = "debug: MqttConnection: Subscribe acknowledged to topic RUNA-TruststoreUpdate.CTTSCJobKORB1, status 0 " \
             "Request ID:1"
NOT_CONNECTED = "info: Container Download is waiting for correct Connection state..."
UPDATE_ENDED = "debug: Container Update ended."
REPORT_ENDED = "debug: Status Reporting ended."
RETRYING = "error: Retrying in 30 seconds..."
TERMINATED = "info: Truststore Update Client Terminated."
TERMINATING = "debug: libara_exec: application state terminating"


class Daemon:
    """A unit that trusts its bench's signers, and the processes of its daemon.

    how: for Bench.
    """

    def __init__(self, unit, folder, **how):
        self.unit = unit
        self.bench = Bench(folder, alerts=unit.root / ALERTS_PATH, **how)
        self.running = None
        self._sleeps = 0

    def __enter__(self):
        self.bench.__enter__()
        self.unit.provision_root(self.bench.root_path.read_bytes())
        self.configure()
        return self

    def __exit__(self, *_):
        self.unit.close()
        self.bench.__exit__(None, None, None)

    def configure(self, *, level="debug", broker=True, further=""):
        """Writes the unit's configuration: the bench's with this level of the log, perhaps without its broker."""
        text = self.bench.config_path.read_text()
        self.unit.configure(f'[logging]\nlevel = "{level}"\n' + further + (text if broker else text[text.index("[serv"):]))

    def run(self, *arguments, **how):
        """One run of the daemon to its end, or of another program of the unit's."""
        return self.unit.run(*arguments, options=self._options(), **how)

    def install(self, container_id, moment=MOMENT, **how):
        """Has the unit installed a container before the test begins. Returns its id."""
        text, _ = self.bench.backend.make(self.bench.pki, container_id=container_id, moment=moment, **how)
        result = self.unit.install(text, options=self._options())
        assert self.unit.records()[0] == container_id, result.stderr
        return container_id

    def offer(self, container_id, moment=MOMENT + DAY, **how):
        """Has the backend offer a container. Returns its id."""
        return self.bench.new_container(container_id=container_id, moment=moment, **how)

    def start(self, *arguments, options=(), **how):
        """Starts a process; `options` are further ones of bwrap."""
        self._sleeps = 0
        self.running = self.unit.start(PROGRAM, *arguments, options=[*self._options(), *options], **how)
        return self.running

    def await_sleep(self, times=1):
        """Waits until the main thread has gone to sleep for so many times more."""
        self._sleeps += times
        self.running.wait_for(ASLEEP, self._sleeps)

    def start_offline(self, *arguments, **how):
        """Starts a process whose broker does not answer yet, and waits for all that it does then. So no line of its
        start is a matter of luck."""
        self.bench.broker.freeze()
        self.start(*arguments, **how)
        # Once for the connector's start.
        self.await_sleep(2)
        for line in (READY, CONNECTION.format(1), LISTENING, UNSUPERVISED):
            self.running.wait_for(line)
        return self.running

    def go_online(self):
        """Has the broker answer; returns when the process has its topic and sleeps."""
        self.bench.broker.thaw()
        self.running.wait_for(SUBSCRIBED)
        self.await_sleep()

    def start_online(self, *arguments, **how):
        self.start_offline(*arguments, **how)
        self.go_online()
        return self.running

    def control(self, *arguments):
        """Tells the process by the platform's tool; it has to succeed."""
        result = lifecycle.tool(self.unit, *arguments)
        assert result.returncode == 0, result.stderr
        return result.stdout

    def status(self):
        return json.loads(self.control("status", "--json"))

    def alert(self, code, operation):
        """Tells it of a TLS alert; returns when it has taken it."""
        assert self.bench.alerts.alert(code, operation.encode()) == 1

    def end(self):
        """Ends the process by SIGTERM: it has to end in order. Returns its whole log."""
        code, log = self.running.end()
        assert code == 0, log
        return log

    def reports(self):
        """What the backend was told of updates: (status, container id), ..."""
        return [(report.status_name, report.container_id) for report in self.bench.reports()]

    def requests(self):
        """What containers were asked for: (reason, operation, installed id), ..."""
        return [(request.reason, request.operation_type_id, request.container_id)
                for request in self.bench.requests()]

    def marker(self):
        """What other applications are told; None without the file."""
        path = self.unit.root / MARKER_PATH
        return path.read_text() if path.exists() else None

    def names(self):
        """What stands in the log for something that is another one in each run: (pattern, what to put there), ..."""
        ports = {name: endpoint.port for name, endpoint in self.bench.endpoints.items()}
        ports["broker"] = self.bench.broker.port
        return [
            (re.escape(str(self.bench.directory)), "{bench}"),
            *((rf"(?<!\d){port}(?!\d)", f"{{{name} port}}") for name, port in ports.items()),
        ]

    def _options(self):
        return ["--ro-bind", str(self.bench.directory), str(self.bench.directory)]


def threads(pid):
    """Names of a process' threads by their ids; one that ends meanwhile may be missing."""
    found = {}
    for task in os.listdir(f"/proc/{pid}/task"):
        with contextlib.suppress(FileNotFoundError, ProcessLookupError), \
                open(f"/proc/{pid}/task/{task}/comm", encoding="ascii") as name:
            found[int(task)] = name.read().strip()
    return found


def process_status(path):
    """A `status` file below /proc: key to value."""
    with open(path, encoding="ascii") as lines:
        return {key: value.strip() for key, _, value in (line.partition(":") for line in lines)}
