"""The bench's control socket: one request a connection, a line of JSON each way."""

import json
import socket
import threading

from bench import commands, unix_sockets
from bench.processes import BenchError

MAX_LINE_BYTES = 1024 * 1024
TELL_S = 3600
SOCKET_NAME = "control.sock"


def read_line(connection):
    """A line of at most MAX_LINE_BYTES, without its end. Raises OSError when there is none."""
    received = b""
    while not received.endswith(b"\n"):
        piece = connection.recv(65536)
        if not piece:
            raise OSError("closed in the middle of a line")
        received += piece
        if len(received) > MAX_LINE_BYTES:
            raise OSError("line too long")
    return received[:-1]


class Control:
    """Listens in the bench's directory. Commands that start or stop something come one after the other; those that
    wait for units hold up nobody. `stop` is called when the bench is told to end."""

    def __init__(self, bench, stop):
        self._bench = bench
        self._stop = stop
        self._one_at_a_time = threading.Lock()
        self._path = bench.directory / SOCKET_NAME
        self._listener = unix_sockets.listen(self._path)
        self._thread = threading.Thread(target=self._accept, name="bench-control", daemon=True)
        self._thread.start()

    def close(self):
        self._listener.shutdown(socket.SHUT_RDWR)
        self._thread.join()
        self._listener.close()
        self._path.unlink(missing_ok=True)

    def _accept(self):
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            threading.Thread(target=self._serve, args=(connection,), name="bench-told", daemon=True).start()

    def _serve(self, connection):
        with connection:
            try:
                told = json.loads(read_line(connection))
                connection.sendall(json.dumps(self._answer(told)).encode() + b"\n")
            except (OSError, ValueError) as error:
                self._bench.log.write("control", f"request not served: {error}")
                return
        if told.get("command") == "stop":
            self._stop()

    def _answer(self, told):
        try:
            if told.get("command") in commands.WAITING:
                return {"answer": commands.run(self._bench, told)}
            with self._one_at_a_time:
                return {"answer": commands.run(self._bench, told)}
        except (BenchError, OSError) as error:
            return {"error": str(error)}
        except Exception as error:  # pylint: disable=broad-except
            self._bench.log.write("control", f"the bench failed: {error!r}")
            return {"error": f"the bench failed: {error!r}"}


def tell(directory, told):
    """Has the bench of `directory` do something; returns its answer. Raises BenchError."""
    try:
        with unix_sockets.connect(f"{directory}/{SOCKET_NAME}", TELL_S) as connection:
            connection.sendall(json.dumps(told).encode() + b"\n")
            answer = json.loads(read_line(connection))
    except (OSError, ValueError) as error:
        raise BenchError(f"no bench answers in {directory}: {error}") from None
    if "error" in answer:
        raise BenchError(answer["error"])
    return answer["answer"]
