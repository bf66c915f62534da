#!/usr/bin/python3
"""One unit and one backend on this machine, told step by step: demo.py BUILD_DIR [--log] (script/demo runs it).

Each process of the daemon starts one update at most, so each trigger has a process of its own. The first thing that
comes out otherwise than told ends the demo with 1.
"""

import argparse
import collections
import os
import pathlib
import signal
import sys
import tempfile
import time

SOURCE = pathlib.Path(__file__).resolve().parents[2]
sys.path += [str(SOURCE), str(SOURCE / "tests" / "e2e")]

from bench import authority, containers
from bench.processes import BenchError
from daemon import RETRYING, SUBSCRIBED, TERMINATED, Daemon
from server import CURL_OK, CURL_PEER_NOT_TRUSTED, Server, ServerError
from telling import Telling
from unit import Unit

REAL_CAS = pathlib.Path("/usr/share/ca-certificates/mozilla")
OPERATION = "Demo.Fleet"
UNKNOWN_CA = 48
# A try is made every 30 seconds: to end within these is not to wait for one.
AT_ONCE_S = 15
# Of the log, when something comes out otherwise.
LAST_LINES = 60
# Number and name; the number counts: docs/container-format.md.
SUCCESS = "0 STATUS_CODE_SUCCESS"
REVOKED = "5 STATUS_CODE_CERT_DECODE_ERROR"
EMPTY = "info: TrustStore is empty! Starting TrustStore update process."
UP_TO_DATE = "info: Container is up-to-date"
NEWER = "info: Received Container ID is NOT matched. Update process triggered by MQTT signal"
MESSAGE = "info: MQTT Message was received"
SIGNER_REVOKED = "error: OCSP response status: revoked for KALVIRON Bench Signer 1"
ALERTED = "info: Tls Alert 'Unknown CA' Occurred"
SUSPENDED = "info: Prepararing client for shutdown."
RESUMED = "info: Resuming client."
NOTIFIED = "info: Update Notification sent to other applications"
SENT = "info: Update Status was sent successfully."
HEADER = ("step", "trigger", "status reported", "seconds")

Row = collections.namedtuple("Row", "step trigger status seconds")


class NotAsTold(Exception):
    """A step came out otherwise."""


def real_bundles():
    """The CA certificates of this machine in two bundles: name to DER certificates."""
    found = [containers.certificates(path)[0] for path in sorted(REAL_CAS.glob("*.crt"))]
    return {"WEB_A": found[:len(found) // 2], "WEB_B": found[len(found) // 2:]}


class Demo:
    """The steps, of a Daemon; `folder` is for the TLS server's files."""

    def __init__(self, daemon, telling, folder, whole_log):
        self.daemon = daemon
        self.unit = daemon.unit
        self.bench = daemon.bench
        self.telling = telling
        self.whole_log = whole_log
        self.rows = []
        self.reports = 0
        self.ca = authority.issue(authority.name("Demo Fleet CA"))
        self.new_ca = authority.issue(authority.name("Demo New Fleet CA"))
        self.server = self._server(folder)
        self.bundles = real_bundles() | {"FLEET": [self.ca.der()]}

    def _server(self, folder):
        leaf = authority.issue(authority.name("server"), issuer=self.new_ca, ca=False,
                               extensions=[authority.server_names(address="127.0.0.1")])
        authority.write(folder / "server.pem", leaf.pem())
        authority.write_key(folder / "server.key", leaf.key)
        return Server(folder / "server.pem", folder / "server.key")

    def run(self):
        self.introduce()
        self.empty_store()
        self.job_for_the_installed()
        self.job_for_a_newer()
        with self.server:
            self.unknown_ca()
            self.revoked_signer()
        self.requested_states()
        self.termination()

    # The steps.

    def introduce(self):
        self.telling.say("The backend: HTTPS server, MQTT broker with TLS, OCSP responders and signers of its own.")
        self.telling.say("The unit: the daemon in a sandbox, provisioned with the signers' root and nothing else.")
        self.check("this machine has CA certificates for the bundles", len(self.bundles["WEB_A"]) > 10,
                   f"none in {REAL_CAS}")
        self.check("the unit has no bundle installed", self.unit.store() == {})

    def empty_store(self):
        self.telling.step("a", "A fresh unit starts, finds its trust store empty, and asks for a container.")
        offered = self.offer()
        since = self.start(subscribed=False)
        self.logged(EMPTY)
        self.reported("a", "empty trust store", since)
        self.asked_because("RENEWAL_REASON_EMPTYTS")
        self.is_installed(offered)
        # The broker keeps jobs for a unit that has subscribed once.
        self.wait_for(SUBSCRIBED)
        self.end()

    def job_for_the_installed(self):
        self.telling.step("b", "A job names the container that is installed: nothing to do but to say so.")
        self.start()
        before, installed = self.state(), self.unit.records()[0]
        since = self.publish_job(installed)
        self.logged(UP_TO_DATE)
        self.reported("b", "job for what is installed", since, container_id=installed)
        self.unchanged(before)
        self.end()

    def job_for_a_newer(self):
        self.telling.step("c", "A job for a newer container is published while the unit is off; then it starts.")
        installed, offered = self.unit.records()[0], self.offer()
        self.publish_job()
        since = self.start()
        self.logged(NEWER)
        self.reported("c", "job for a newer container", since)
        self.asked_because("RENEWAL_REASON_JOB", installed=installed)
        self.is_installed(offered)
        self.end()

    def unknown_ca(self):
        self.telling.step("d", "A TLS client meets a server of an unknown CA; the next container brings that CA.")
        fleet = self.unit.store_dir / "installed" / "FLEET.pem"
        self.check("curl with the installed bundle FLEET refuses the server",
                   self.server.curl(fleet) == CURL_PEER_NOT_TRUSTED)
        self.check("the server got TLS alert 48, unknown CA", self.server.alert() == UNKNOWN_CA)
        installed = self.unit.records()[0]
        self.bundles = self.bundles | {"FLEET": [self.ca.der(), self.new_ca.der()]}
        offered = self.offer()
        self.start()
        self.telling.say("The unit's proxy tells the daemon of the alert.")
        since = time.monotonic()
        self.daemon.alert(UNKNOWN_CA, OPERATION)
        self.logged(ALERTED)
        self.reported("d", "TLS alert 48, unknown CA", since)
        self.asked_because("RENEWAL_REASON_UNKNOWNCA", OPERATION, installed)
        self.is_installed(offered)
        self.check("curl with the installed bundle FLEET accepts the server", self.server.curl(fleet) == CURL_OK)
        self.end()

    def revoked_signer(self):
        self.telling.step("e", "The signer is revoked; a job tells of a newer container that it signed.")
        self.bench.revoke("signer")
        self.start()
        self.offer()
        before = self.state()
        since = self.publish_job()
        self.logged(NEWER)
        self.logged(SIGNER_REVOKED)
        self.reported("e", "job, its signer revoked", since, REVOKED)
        self.unchanged(before)
        fleet = self.unit.store_dir / "installed" / "FLEET.pem"
        self.check("curl still accepts the server", self.server.curl(fleet) == CURL_OK)
        self.end()
        self.bench.unrevoke("signer")

    def requested_states(self):
        self.telling.step("f", "The platform requests kPrepSD; a job that comes then waits until it requests kOn.")
        self.start()
        self.control("state", "kPrepSD")
        self.logged(SUSPENDED)
        offered, asked = self.offer(), len(self.bench.requests())
        self.publish_job()
        self.logged(MESSAGE)
        # It has been round its loop, with the message, once it confirms another time.
        self.control("state", "kPrepSD")
        self.check("the unit asks for nothing in kPrepSD", len(self.bench.requests()) == asked)
        since = time.monotonic()
        self.control("state", "kOn")
        self.logged(RESUMED)
        self.logged(NEWER)
        self.reported("f", "kPrepSD, a job, kOn", since)
        self.is_installed(offered)
        self.end()

    def termination(self):
        self.telling.step("g", "The backend answers 503, and SIGTERM comes before the next try.")
        self.start()
        self.bench.misbehave("download", "status-503")
        self.offer()
        before = self.state()
        self.publish_job()
        self.logged(NEWER)
        self.logged(RETRYING)
        since = time.monotonic()
        self.end()
        seconds = time.monotonic() - since
        self.check("it did not wait for the next try", seconds < AT_ONCE_S, f"{seconds} s")
        self.unchanged(before)
        self.telling.as_told("nothing to report")
        self.rows.append(Row("(g)", "SIGTERM between two tries", "none", seconds))

    # What the steps are made of.

    def check(self, told, condition, details=""):
        if not condition:
            raise NotAsTold(f"{told}\n{details}".rstrip())
        self.telling.as_told(told)

    def start(self, subscribed=True):
        """Starts a process of the daemon; returns when that was. subscribed: waits until it has its topic."""
        since = time.monotonic()
        self.daemon.start()
        if subscribed:
            self.wait_for(SUBSCRIBED)
        return since

    def end(self):
        """Ends the process by SIGTERM."""
        code, log = self.daemon.running.end()
        self.check("SIGTERM ends the daemon in order", code == 0 and TERMINATED in log, f"exit code {code}")
        if len(self.bench.reports()) > self.reports:
            raise NotAsTold(f"one report: {self.bench.reports()[self.reports - 1:]}")
        self.check("its log shows no access token", not any(self.bench.backend.token in line for line in log))
        for line in log if self.whole_log else ():
            self.telling.quote(line)

    def wait_for(self, line):
        try:
            self.daemon.running.wait_for(line)
        except AssertionError:
            raise NotAsTold(f"the daemon logs '{line}'") from None

    def logged(self, line):
        """Waits for a line of the daemon's log and shows it."""
        self.wait_for(line)
        self.telling.quote(line)

    def control(self, *arguments):
        self.telling.say("tsuc-platformctl " + " ".join(arguments) + ": " + self.daemon.control(*arguments).strip())

    def offer(self):
        offered = self.bench.new_container(bundles=self.bundles)
        count = sum(len(each) for each in self.bundles.values())
        self.telling.say(f"The backend offers {offered}: {count} CA certificates in {len(self.bundles)} bundles.")
        return offered

    def publish_job(self, container_id=None):
        """Publishes a job, for what is offered or for another container; returns when that was."""
        since = time.monotonic()
        self.bench.publish_job(container_id)
        self.telling.say("The backend publishes the job.")
        return since

    def reported(self, step, trigger, since, status=SUCCESS, container_id=""):
        """Waits for the one report of a step."""
        self.logged(SENT)
        seconds = time.monotonic() - since
        found = [(f"{report.status_code} {report.status_name}", report.container_id)
                 for report in self.bench.reports()[self.reports:]]
        self.reports += len(found)
        named = f"{status} for {container_id}" if container_id else status
        self.check(f"the backend has one more report: {named}", found == [(status, container_id)], f"reports: {found}")
        self.rows.append(Row(f"({step})", trigger, status, seconds))

    def asked_because(self, reason, operation="", installed=""):
        request = self.bench.requests()[-1]
        found = request.reason, request.operation_type_id, request.container_id
        self.check(f"the backend was asked because of {reason}", found == (reason, operation, installed),
                   f"asked: {found}")

    def is_installed(self, container_id):
        self.logged(NOTIFIED)
        counts = {name: pem.count("BEGIN CERTIFICATE") for name, pem in self.unit.store().items()}
        told = ", ".join(f"{name} ({len(each)})" for name, each in sorted(self.bundles.items()))
        self.check(f"installed: {told}", counts == {name: len(each) for name, each in self.bundles.items()},
                   f"found: {counts}")
        records = self.unit.records()
        self.check(f"recorded as installed: {container_id}", records[0] == container_id, f"found: {records}")
        self.check("other applications are told", self.daemon.marker() == "1", f"found: {self.daemon.marker()}")

    def state(self):
        return self.unit.store(), self.unit.records()

    def unchanged(self, before):
        self.check("trust store and records are as before", self.state() == before)


def tell(telling, build_dir, whole_log):
    """Runs the demo. Returns the exit code."""
    began = time.monotonic()
    with tempfile.TemporaryDirectory(prefix="tsuc-demo-") as name:
        folder = pathlib.Path(name)
        with Daemon(Unit(folder / "unit", build_dir), folder / "bench", https=True, mqtt_tls=True,
                    mqtt_password=True) as daemon:
            demo = Demo(daemon, telling, folder, whole_log)
            try:
                demo.run()
            except (NotAsTold, AssertionError, BenchError, ServerError) as failure:
                for line in daemon.running.log()[-LAST_LINES:] if daemon.running else ():
                    telling.quote(line)
                telling.failure(str(failure))
                return 1
            telling.table(HEADER, demo.rows)
    telling.end(f"Every step came out as told, in {time.monotonic() - began:.0f} seconds.")
    return 0


def end_on(signals):
    """Lets the first of these signals end the demo as Ctrl-C does, with its processes and folders; further ones do not
    disturb that."""
    def interrupt(_number, _frame):
        for each in signals:
            signal.signal(each, signal.SIG_IGN)
        raise KeyboardInterrupt
    for each in signals:
        # nohup has a reason to ignore one.
        if signal.getsignal(each) != signal.SIG_IGN:
            signal.signal(each, interrupt)


def main():
    parser = argparse.ArgumentParser(description="One unit and one backend on this machine, told step by step.")
    parser.add_argument("build_dir", type=pathlib.Path, help="where the programs were built: build/release")
    parser.add_argument("--log", action="store_true", help="show the daemon's whole log")
    options = parser.parse_args()
    # SIGHUP: the terminal was closed.
    end_on((signal.SIGTERM, signal.SIGHUP))
    try:
        return tell(Telling(sys.stdout), options.build_dir.resolve(), options.log)
    except KeyboardInterrupt:
        return 130
    except BrokenPipeError:
        # Whoever read along has gone; nor shall Python try to tell them when it ends.
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 1


if __name__ == "__main__":
    sys.exit(main())
