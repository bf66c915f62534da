"""One unit that listens for TLS alerts: a connection of the alert proxy."""

import dataclasses
import datetime
import fcntl
import socket
import struct
import termios
import threading
import time

START_LISTENING = 0x01
# How long a unit may take before it reads what was sent to it.
SEND_S = 30
DRAIN_PAUSE_S = 0.001


@dataclasses.dataclass
class Record:
    """One connection: whether the unit asked for alerts, what it was sent, and, when it is over, why."""

    number: int
    time: str
    listened: bool = False
    sent_bytes: int = 0
    end: str = None


class AlertListener:
    """A connection, served by `run` on a thread of its own; all else is for any thread.

    changed: a condition that guards the record and is notified when it changes. tell: takes a line for the log.
    """

    def __init__(self, connection, number, changed, tell):
        now = datetime.datetime.now(datetime.timezone.utc)
        self.record = Record(number, now.isoformat(timespec="milliseconds"))
        self._connection = connection
        self._changed = changed
        self._tell = tell
        self._sending = threading.Lock()
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_SNDTIMEO, struct.pack("ll", SEND_S, 0))

    def run(self):
        """Reads the request, then waits for the end of the connection."""
        try:
            self._read()
        except OSError as error:
            self.end(f"while reading: {error}")
        with self._sending:
            self._connection.close()
        self._tell(f"#{self.record.number} gone: {self.record.end}")

    def _read(self):
        request = self._connection.recv(1)
        if not request:
            return self.end("closed before a request")
        if request[0] != START_LISTENING:
            return self.end(f"unknown request {request[0]:#04x}")
        with self._changed:
            self.record.listened = True
            self._changed.notify_all()
        self._tell(f"#{self.record.number} listens")
        return self.end("more than a request" if self._connection.recv(1) else "closed by the unit")

    def listening(self):
        """Whether the unit has asked for alerts and is still there. `changed` is held."""
        return self.record.listened and self.record.end is None

    def send(self, content, size=None):
        """Sends bytes, in pieces of `size` that the unit reads one by one when given. Whether the unit took them."""
        try:
            with self._sending:
                for position in range(0, len(content), size or len(content) or 1):
                    self._send(content[position:position + (size or len(content))], alone=size is not None)
        except OSError as error:
            self.end(f"while sending: {error}")
            return False
        return True

    def _send(self, piece, alone):
        self._connection.sendall(piece)
        with self._changed:
            self.record.sent_bytes += len(piece)
        deadline = time.monotonic() + SEND_S
        while alone and self._unread():
            if time.monotonic() > deadline:
                raise TimeoutError(f"not read within {SEND_S} s")
            time.sleep(DRAIN_PAUSE_S)

    def _unread(self):
        """How much of what was sent still waits for the unit, as the kernel counts it; 0 when the unit has gone."""
        return struct.unpack("i", fcntl.ioctl(self._connection, termios.TIOCOUTQ, bytes(4)))[0]

    def end(self, reason):
        """Ends the connection, `run` with it. The first reason counts."""
        with self._changed:
            self.record.end = self.record.end or reason
            self._changed.notify_all()
        try:
            self._connection.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass
