"""Bench: everything that a unit talks to, in one object."""

import contextlib
import datetime
import fcntl
import os
import pathlib
import shutil
import tempfile

from bench import configuration, misbehaviours, schema
from bench.alerts import AlertProxy
from bench.backend import Backend, Download, Report
from bench.broker import Broker
from bench.endpoint import Endpoint
from bench.log import EventLog
from bench.misbehaviour import DOWNLOAD, ENDPOINTS, MOD_OCSP, OCSP, REPORT
from bench.ocsp_front import OcspFront
from bench.pki import GOOD, REVOKED, UNKNOWN, Pki
from bench.processes import BenchError
from bench.responder import Responder

TOKEN = "bench-token"
ALERTS_NAME = "sockstlsalertifsocket"
WAIT_S = 30


class Bench:
    """Certificates, OCSP responders, broker and backend on loopback, from `with` to its end.

    directory: where keys, configuration and logs go; certificates that are there are kept, so that a unit provisioned
    once goes on. None: a temporary one, removed at the end.
    https, mqtt_tls, mqtt_password, client_certificate: what the peers speak and ask for.
    chain_length: certificates of the signer's chain. signed_by: who signs OCSP answers, "delegate" or "issuer".
    first_port: five ports from there on, in place of free ones. streams: take the log.
    alerts: the path of the TLS alert socket, in place of one in the directory.

    Operations may be called from any thread, those that start and stop processes from one at a time.
    """

    def __init__(self, directory=None, *, https=False, mqtt_tls=False, mqtt_password=False, client_certificate=False,
                 chain_length=2, signed_by="delegate", first_port=0, alerts=None, streams=()):
        self.https = https
        self.client_certificate = client_certificate
        self._temporary = directory is None
        self.directory = pathlib.Path(directory or tempfile.mkdtemp(prefix="tsuc-bench-")).absolute()
        self._mqtt = {"tls": mqtt_tls, "password": mqtt_password}
        self._chain_length = chain_length
        self._signed_by = signed_by
        self._first_port = first_port
        self._alerts_path = pathlib.Path(alerts or self.directory / ALERTS_NAME).absolute()
        self._streams = streams
        self._stack = contextlib.ExitStack()
        self.backend = Backend(TOKEN)
        self.endpoints = {}
        self.responders = {}
        self.log = self.pki = self.broker = self.alerts = None

    def __enter__(self):
        with contextlib.ExitStack() as stack:
            if self._temporary:
                stack.callback(shutil.rmtree, self.directory, ignore_errors=True)
            self._start(stack)
            self._stack = stack.pop_all()
        return self

    def __exit__(self, *_):
        self._stack.close()

    # Containers and jobs.

    def new_container(self, kind="new", **how):
        """Offers a container and returns its id. kind: "new"; "same" (made anew, with id and time of the present one);
        "old" (of thirty days ago); "none" (nothing to download). `how` is for Backend.make."""
        if kind == "none":
            self.backend.offer(None, None)
            self.log.write("backend", "offers nothing")
            return None
        how = {key: value for key, value in how.items() if value}
        return self.offer_text(*self.backend.make(self.pki, **self.backend.moment(kind) | how))

    def offer_text(self, text, container_id):
        """Offers any text under this id, and writes it to container.tsc."""
        self.backend.offer(text, container_id)
        (self.directory / "container.tsc").write_text(text)
        self.log.write("backend", f"offers {container_id}, {len(text)} bytes")
        return container_id

    def publish_job(self, container_id=None, *, payload=None, retain=False):
        """Publishes a job for this container (default: the offered one), or `payload` as it is; retained, for units
        that subscribe later, too."""
        if payload is None:
            offered = self.backend.offered()
            container_id = container_id if container_id is not None else offered[1] if offered else ""
            payload = schema.job(container_id).SerializeToString()
        self.broker.publish(payload, retain=retain)
        self.log.write("broker", f"published a job of {len(payload)} bytes for '{container_id or ''}'")

    # What units did.

    def checks(self, endpoint):
        """Names of the certificates that were asked for at an OCSP endpoint so far."""
        return self.endpoints[endpoint].service.checks()

    def reports(self):
        """Records of the status reports so far."""
        return self.backend.records(REPORT)

    def requests(self):
        """Records of the download requests so far."""
        return self.backend.records(DOWNLOAD)

    def wait_for_reports(self, count, seconds=WAIT_S):
        """The reports, once there are `count` of them. Raises BenchError when there are fewer in time."""
        if not self.backend.wait_for(lambda: len(self.reports()) >= count, seconds):
            raise BenchError(f"{len(self.reports())} in place of {count} reports within {seconds} s")
        return self.reports()

    # Trouble.

    def misbehave(self, endpoint, name, times=None):
        """The next `times` connections to `endpoint` (default: all) meet the misbehaviour `name`."""
        if times is not None and times < 1:
            raise BenchError(f"{times} times is never")
        found = misbehaviours.find(name, endpoint)
        if found.by_tls and not self._endpoint(endpoint).tls:
            raise BenchError(f"'{name}' needs a bench that runs with --https")
        self._endpoint(endpoint).misbehave(found, times)
        self.log.write(endpoint, f"misbehaves: {name}" + (f" {times} times" if times else ""))

    def behave(self, endpoint=None):
        """Ends the misbehaviour of one endpoint, or of all."""
        for name in [endpoint] if endpoint else ENDPOINTS:
            self._endpoint(name).misbehave(None)
            self.log.write(name, "behaves")

    def revoke(self, member):
        """Revokes a certificate of the signer's chain by its name: signer, ca-1 ..."""
        self._set_state(member, REVOKED)

    def unrevoke(self, member):
        self._set_state(member, GOOD)

    def forget(self, member):
        """The responder does not know the certificate any more."""
        self._set_state(member, UNKNOWN)

    def set_token(self, token):
        """Another token, at the backend and in the unit's token file."""
        self.backend.token = token
        configuration.write_token(self)
        self.log.write("backend", "takes another token")

    # What there is.

    @property
    def config_path(self):
        """The host platform's configuration for a unit."""
        return self.directory / "host-platform.toml"

    @property
    def root_path(self):
        """The root certificate for a unit's factory/ZORA.pem."""
        return self.pki.path("root")

    def url(self, endpoint):
        scheme = "https" if self.https and endpoint in (DOWNLOAD, REPORT) else "http"
        path = {DOWNLOAD: "/tsc/container", REPORT: "/tsc/report"}.get(endpoint, "/ocsp")
        return f"{scheme}://127.0.0.1:{self.endpoints[endpoint].port}{path}"

    def status(self):
        """All there is to know, as plain values."""
        offered = self.backend.offered()
        return {
            "directory": str(self.directory),
            "configuration": str(self.config_path),
            "root": str(self.root_path),
            "container": offered[1] if offered else None,
            "broker": {"port": self.broker.port, "running": self.broker.running(), "pid": self.broker.pid,
                       **self._mqtt},
            "certificates": self.pki.states(),
            "responders": {name: responder.pid for name, responder in self.responders.items()},
            "endpoints": {name: self._endpoint_status(name) for name in ENDPOINTS},
            "requests": len(self.requests()),
            "reports": len(self.reports()),
            "alerts": self.alerts.status(),
        }

    def _endpoint_status(self, name):
        behaviour, times = self.endpoints[name].behaviour()
        return {"url": self.url(name), "connections": self.endpoints[name].connections(), "misbehaviour": behaviour,
                "times": times}

    def _endpoint(self, name):
        if name not in self.endpoints:
            raise BenchError(f"no endpoint '{name}'; there are {', '.join(ENDPOINTS)}")
        return self.endpoints[name]

    def _set_state(self, member, state):
        try:
            self.pki.set_state(member, state)
        except KeyError:
            raise BenchError(f"no certificate '{member}'; there are {', '.join(self.pki.states())}") from None
        for responder in self.responders.values():
            responder.read_index_again()
        self.log.write("pki", f"{member} is {state}")

    def _start(self, stack):
        self.directory.mkdir(parents=True, exist_ok=True)
        self._lock(stack)
        log_file = stack.enter_context(open(self.directory / "bench.log", "a", encoding="utf-8"))
        self.log = EventLog(log_file, *self._streams)
        # The lines themselves have a time and no date, and the file is kept from run to run.
        self.log.write("bench", f"starts on {datetime.date.today().isoformat()}")
        for number, name in enumerate(ENDPOINTS):
            self._open(stack, name, number)
        # The responders' address is in the certificates: the ports come first.
        self.pki = Pki(self.directory / "pki", self.url(OCSP), self._chain_length)
        self._start_responders(stack)
        self._serve()
        self.broker = Broker(self.pki, self.directory, self.log, port=self._port(4), **self._mqtt)
        stack.callback(self.broker.close)
        self.broker.start()
        self._start_proxy(stack)
        self.new_container()
        configuration.write(self)

    def _lock(self, stack):
        lock = stack.enter_context(open(self.directory / "lock", "w", encoding="ascii"))
        try:
            fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise BenchError(f"a bench runs in {self.directory} already") from None
        lock.write(f"{os.getpid()}\n")
        lock.flush()

    def _open(self, stack, name, number):
        try:
            self.endpoints[name] = Endpoint(name, self.log, self._port(number))
        except OSError as error:
            raise BenchError(f"port {self._port(number)} for {name}: {error.strerror}") from None
        stack.callback(self.endpoints[name].stop)

    def _serve(self):
        tls = self.pki.server_context("server", self.client_certificate) if self.https else None
        self.endpoints[DOWNLOAD].start(Download(self.backend, self.pki), tls)
        self.endpoints[REPORT].start(Report(self.backend, self.pki), tls)
        for name in (OCSP, MOD_OCSP):
            self.endpoints[name].start(OcspFront(self.pki, self.responders))

    def _start_responders(self, stack):
        for name, issuer in self.pki.issuers.items():
            responder = Responder(self.pki, issuer, self.directory, self.log, self._signed_by)
            stack.callback(responder.stop)
            responder.start()
            self.responders[name] = responder

    def _start_proxy(self, stack):
        self.alerts = AlertProxy(self._alerts_path, self.log)
        stack.callback(self.alerts.stop)
        self.alerts.start()

    def _port(self, number):
        return self._first_port + number if self._first_port else 0
