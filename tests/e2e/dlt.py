"""The DLT daemon as a unit has it, and a reader of what it has gathered."""

import contextlib
import re
import socket
import subprocess
import threading
import time

from bench.processes import free_port
from running import DEADLINE_S

CONFIGURATION = "ECUId = ECU1\nBindAddress = ::ffff:127.0.0.1\nUDPConnectionSetup = 0\n" \
                "ControlSocketPath = /tmp/dlt-ctrl.sock\nLoggingMode = 3\n"
LINE = re.compile(rb".* ECU1 (?P<application>\S{4}) (?P<context>\S{4}) log (?P<level>\S+) V 1 \[(?P<text>.*)\]\n")


class DltDaemon:
    """A real dlt-daemon inside `unit`; it works until `stop` or the unit is closed. `folder` has its pipes."""

    def __init__(self, unit, folder="tmp"):
        self._unit = unit
        self._folder = folder
        self._pipe = unit.root / folder / "dlt"
        self.port = free_port()
        (unit.root / "etc" / "dlt.conf").write_text(CONFIGURATION)
        self.running = None

    def start(self):
        """Returns when it takes messages and readers."""
        self.running = self._unit.start("/usr/bin/dlt-daemon", "-p", str(self.port), "-t", f"/{self._folder}")
        _await(lambda: self._pipe.exists() and self._accepts())
        return self

    def stop(self, *how):
        self.running.end(*how)
        # A daemon that was killed leaves its pipe behind.
        self._pipe.unlink(missing_ok=True)

    def _accepts(self):
        with contextlib.suppress(ConnectionRefusedError), socket.create_connection(("127.0.0.1", self.port)):
            return True
        return False


class Reader:
    """A real dlt-receive at a daemon, also for what it has gathered before."""

    def __init__(self, daemon):
        self._lines = []
        self._changed = threading.Condition()
        command = ["stdbuf", "-oL", "dlt-receive", "-a", "-p", str(daemon.port), "127.0.0.1"]
        # pylint: disable-next=consider-using-with
        self._process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
        self._thread = threading.Thread(target=self._read, daemon=True)
        self._thread.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._process.kill()
        self._process.wait()
        self._thread.join(DEADLINE_S)
        self._process.stdout.close()

    def _read(self):
        for line in self._process.stdout:
            if match := LINE.fullmatch(line):
                with self._changed:
                    self._lines.append(tuple(part.decode().rstrip("-") for part in match.groups()))
                    self._changed.notify_all()

    def lines(self, application="TU"):
        """An application's lines so far: (context, level, text), ..."""
        with self._changed:
            return [line[1:] for line in self._lines if line[0] == application]

    def wait_for(self, line, application="TU"):
        """Waits for one line."""
        assert self.hears(line, DEADLINE_S, application), self._lines[-100:]

    def hears(self, line, seconds, application="TU"):
        """Whether a line comes within so many seconds, or has come."""
        with self._changed:
            return self._changed.wait_for(lambda: line in self.lines(application), seconds)


def _await(condition):
    deadline = time.monotonic() + DEADLINE_S
    while not condition():
        assert time.monotonic() < deadline
        time.sleep(0.01)
