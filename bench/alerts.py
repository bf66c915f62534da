"""The proxy end of the TLS alert socket: tells units of TLS alerts, well and badly. docs/tls-alerts.md describes the
messages."""

import collections
import contextlib
import dataclasses
import pathlib
import socket
import stat
import threading

from bench import unix_sockets
from bench.alert_listener import AlertListener
from bench.processes import BenchError

ALERT = 0x02
MAX_OPERATION_BYTES = 0xFFFF
LISTEN, CLOSE_AT_ONCE, FULL, REFUSE, ABSENT = "listen", "close-at-once", "full", "refuse", "absent"
MODES = (LISTEN, CLOSE_AT_ONCE, FULL, REFUSE, ABSENT)
WAIT_S = 30
STOP_S = 10
KEPT_RECORDS = 1000
FLOOD_BYTES = 256 * 1024


def message(code, operation=b"", kind=ALERT):
    """The bytes of an alert. `kind` is its type byte: units know no other than ALERT."""
    if not 0 <= code <= 0xFF:
        raise BenchError(f"alert {code}: 0 to 255")
    if not 0 <= kind <= 0xFF:
        raise BenchError(f"type {kind}: 0 to 255")
    if len(operation) > MAX_OPERATION_BYTES:
        raise BenchError(f"operation of {len(operation)} bytes: at most {MAX_OPERATION_BYTES}")
    return bytes([kind]) + len(operation).to_bytes(2, "big") + operation + bytes([code])


class AlertProxy:
    """Serves the socket at `path`, whose folder is made, from `start` to `stop`. Any thread.

    There are five ways to be: LISTEN serves; CLOSE_AT_ONCE closes connections as they come; FULL has a socket whose
    queue is full, so that nobody gets in; REFUSE has a socket file that nobody listens at; ABSENT has none.
    """

    def __init__(self, path, log):
        self.path = pathlib.Path(path)
        self._log = log
        self._becoming = threading.Lock()
        self._changed = threading.Condition()
        self._mode = ABSENT
        self._closing = 0
        self._count = 0
        self._records = collections.deque(maxlen=KEPT_RECORDS)
        self._listeners = {}
        self._listener = self._accepting = None
        self._queued = []

    def start(self):
        """Listens. Raises BenchError when that cannot be, or when there is something else at the path."""
        try:
            self._start()
        except OSError as error:
            raise BenchError(f"{self.path}: {error.strerror}") from None

    def _start(self):
        self.path.parent.mkdir(parents=True, exist_ok=True)
        if self.path.exists() and not stat.S_ISSOCK(self.path.stat().st_mode):
            raise BenchError(f"{self.path} is there and is no socket")
        if unix_sockets.served(self.path):
            raise BenchError(f"another process serves {self.path}")
        self.be(LISTEN)

    def stop(self):
        """Ends every connection and removes the socket."""
        with self._becoming:
            self._end_listening()
            with self._changed:
                listeners = dict(self._listeners)
            self._end_connections(listeners)

    def be(self, mode, times=1):
        """Goes on in another way, or in the same as if started again; then ends the connections that there were, so that
        a unit that comes back at once finds the new way. `times`: CLOSE_AT_ONCE closes so many connections and is
        LISTEN then."""
        if times < 1:
            raise BenchError(f"{times} times is never")
        begin = {LISTEN: self._listen, CLOSE_AT_ONCE: self._listen, FULL: self._fill, REFUSE: self._bind,
                 ABSENT: lambda: None}[mode]
        with self._becoming:
            self._end_listening()
            with self._changed:
                before = dict(self._listeners)
                self._mode = mode
                self._closing = times if mode == CLOSE_AT_ONCE else 0
            self._tell(f"is {mode}" + (f" {times} times" if mode == CLOSE_AT_ONCE else ""))
            begin()
            self._end_connections(before)

    def alert(self, code, operation=b"", *, kind=ALERT, cut=None, pieces=None, times=1, seconds=WAIT_S):
        """Tells every unit that listens of an alert; waits until there is one. Returns how many took it.

        kind: the type byte. cut: only so many bytes, and the connection is closed behind them. pieces: in pieces of so
        many bytes, each sent when the one before was read. times: the same alert again and again, as fast as it goes.
        """
        content = message(code, operation, kind)
        if cut is not None and not 0 <= cut <= len(content):
            raise BenchError(f"cut at {cut}: 0 to {len(content)}")
        if times < 1 or pieces is not None and pieces < 1:
            raise BenchError("times and pieces: at least 1")
        taken = self.send(content[:cut], size=pieces, times=times, close=cut is not None, seconds=seconds)
        self._tell(f"sent {self._in_words(code, operation, kind, cut, times)}: {taken} took it")
        return taken

    @staticmethod
    def _in_words(code, operation, kind, cut, times):
        """An alert in words: its operation is cut short, since a log line should not be of 64 KiB."""
        shown = operation[:64].decode(errors="replace") + ("..." if len(operation) > 64 else "")
        words = [f"alert {code} of '{shown}'"]
        words += [f"with type {kind:#04x}"] if kind != ALERT else []
        words += [f"cut at {cut}"] if cut is not None else []
        words += [f"{times} times"] if times > 1 else []
        return ", ".join(words)

    def send(self, content, *, size=None, times=1, close=False, seconds=WAIT_S):
        """Sends any bytes to every unit that listens, `times` over; waits until there is one. Returns how many of them
        took all of it. close: closes the connections behind it. Raises BenchError when nobody listens in time."""
        taken = 0
        for listener in self._wait_for_listeners(seconds):
            taken += self._send_all(listener, content, size, times)
            if close:
                listener.end("closed here")
        return taken

    @staticmethod
    def _send_all(listener, content, size, times):
        at_once = max(1, FLOOD_BYTES // max(1, len(content))) if size is None else 1
        while times > 0:
            if not listener.send(content * min(times, at_once), size):
                return False
            times -= at_once
        return True

    def _wait_for_listeners(self, seconds):
        with self._changed:
            if not self._changed.wait_for(self._listening, seconds):
                raise BenchError(f"no unit listens for alerts within {seconds} s")
            return self._listening()

    def _listening(self):
        return [listener for listener in self._listeners.values() if listener.listening()]

    def wait_for(self, condition, seconds=WAIT_S):
        """Waits until condition(records) holds. Raises BenchError when it does not in time."""
        with self._changed:
            if not self._changed.wait_for(lambda: condition(list(self._records)), seconds):
                raise BenchError(f"not within {seconds} s; connections: {list(self._records)}")

    def records(self):
        """What became of the last connections, oldest first."""
        with self._changed:
            return [dataclasses.replace(record) for record in self._records]

    def status(self):
        """All there is to know, as plain values."""
        with self._changed:
            return {"path": str(self.path), "proxy": self._mode, "connections": self._count,
                    "listening": len(self._listening())}

    def _listen(self):
        self._listener = unix_sockets.listen(self.path)
        self._accepting = threading.Thread(target=self._accept, name="bench-alerts", daemon=True)
        self._accepting.start()

    def _bind(self):
        unix_sockets.bind(self.path).close()

    def _fill(self):
        self._listener = unix_sockets.listen(self.path, backlog=0)
        with contextlib.suppress(BlockingIOError):
            while True:
                self._queued.append(unix_sockets.connect(self.path, 0))

    def _end_listening(self):
        if self._accepting:
            # Wakes accept, which a close alone does not.
            self._listener.shutdown(socket.SHUT_RDWR)
            self._accepting.join()
        self.path.unlink(missing_ok=True)
        for each in [self._listener, *self._queued]:
            if each:
                each.close()
        self._listener = self._accepting = None
        self._queued = []

    @staticmethod
    def _end_connections(listeners):
        for thread, listener in listeners.items():
            listener.end("closed here")
            thread.join(STOP_S)

    def _accept(self):
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            self._start_serving(connection)

    def _start_serving(self, connection):
        with self._changed:
            self._count += 1
            listener = AlertListener(connection, self._count, self._changed, self._tell)
            self._records.append(listener.record)
            if self._closing:
                self._close_at_once(listener)
            thread = threading.Thread(target=self._serve, args=(listener,), name=f"bench-alerts-{self._count}",
                                      daemon=True)
            self._listeners[thread] = listener
            self._changed.notify_all()
        thread.start()

    def _close_at_once(self, listener):
        listener.end("closed at once")
        self._closing -= 1
        if not self._closing:
            self._mode = LISTEN

    def _serve(self, listener):
        listener.run()
        with self._changed:
            del self._listeners[threading.current_thread()]

    def _tell(self, text):
        self._log.write("alerts", text)
