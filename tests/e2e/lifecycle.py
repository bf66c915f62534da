"""A unit's program that lives in its platform: what it is given, and what the platform's tool says of it."""

import contextlib
import json
import socket

from bench import unix_sockets
from running import DEADLINE_S

PROGRAM = "lifecycle_unit"
TOOL = "tsuc-platformctl"
SUPERVISION = """\
[supervision]
instance-id = UNIT-1
supervision-entity-id = 7
checkpoint-id = 3
# In tenths of a second: a checkpoint every 200 ms.
supervision-cycle = 10
expected-alive-indications = 5
"""
SUPERVISED = "debug: ProcessKeepAliveSignalling, aliveTime =2"
REPORTS_RUNNING = "info: ProcessLifecycleAdapterApiImpl::Initialize, ReportApplicationState kRunning"
ENDED = "info: lifecycle_unit: ended"
CONTROL_SOCKET = "run/truststore-update-client/control.sock"


def provision(unit, configuration=""):
    """Gives a unit its supervision file and a log of every line."""
    (unit.root / "etc" / "truststore-update-client-phm.ini").write_text(SUPERVISION)
    unit.configure('[logging]\nlevel = "debug"\n' + configuration)


def start(unit, *arguments, **how):
    """Starts the program; returns when it is at work."""
    running = unit.start(PROGRAM, *arguments, **how)
    running.wait_for(SUPERVISED)
    return running


def tool(unit, *arguments, **how):
    """Runs the platform's tool in a unit."""
    return unit.run(*arguments, program=TOOL, **how)


def status(unit):
    result = tool(unit, "status", "--json")
    assert result.returncode == 0, result.stderr
    return json.loads(result.stdout)


def connect(unit):
    """A connection to the control socket."""
    return unix_sockets.connect(unit.root / CONTROL_SOCKET, DEADLINE_S)


class NotifySocket:
    """The service manager's end of what a process reports of itself: see sd_notify(3)."""

    def __init__(self, unit):
        self._path = unit.root / "run" / "notify"
        self._socket = unix_sockets.bind(self._path, socket.SOCK_DGRAM)
        self._socket.settimeout(DEADLINE_S)
        self.environment = {"NOTIFY_SOCKET": "/run/notify"}

    def receive(self):
        return self._socket.recv(1000).decode()

    def fill(self):
        """Sends reports of its own until there is room for none."""
        with unix_sockets.connect(self._path, 0, socket.SOCK_DGRAM) as other, contextlib.suppress(BlockingIOError):
            while True:
                other.send(b"full")

    def waiting(self):
        """Whether there is a report that nobody has received."""
        self._socket.setblocking(False)
        try:
            return bool(self._socket.recv(1, socket.MSG_PEEK))
        except BlockingIOError:
            return False
        finally:
            self._socket.settimeout(DEADLINE_S)
