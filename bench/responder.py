"""`openssl ocsp` for one issuing CA."""

import pathlib
import socket

from bench import unix_sockets
from bench.processes import BenchError, Process

RELAY = pathlib.Path(__file__).resolve().with_name("responder_relay.py")
# Every responder has a network of its own, and in it the same port.
PORT = 2560
ANSWER_S = 30
READY = b"waiting for OCSP client connections"


class Responder:
    """A responder process. `signed_by`: "delegate", or "issuer" for the CA itself. Any one thread at a time starts and
    stops it; any thread asks."""

    def __init__(self, pki, issuer, folder, log, signed_by="delegate"):
        self.name = f"responder-{issuer.name}"
        self._pki = pki
        self._issuer = issuer
        self._folder = pathlib.Path(folder)
        self._log = log
        self._signed_by = signed_by
        self._process = Process(self.name, self._folder / f"{self.name}.log")

    @property
    def socket_path(self):
        """Where it listens: as on its port, by a Unix socket."""
        return self._folder / f"{self._issuer.name}.ocsp.sock"

    @property
    def pid(self):
        return self._process.pid

    def start(self, signed_by=None):
        self._signed_by = signed_by or self._signed_by
        self.socket_path.unlink(missing_ok=True)
        output = self._process.output_path
        before = output.stat().st_size if output.exists() else 0
        if not self._process.start(self._command(), lambda: READY in output.read_bytes()[before:]):
            raise BenchError(f"{self.name} did not start; see {output}")
        self._log.write(self.name, f"started, answers signed by {self._signed_by}")

    def stop(self):
        self._process.stop()
        self.socket_path.unlink(missing_ok=True)

    def kill(self):
        self._process.kill()
        self._log.write(self.name, "killed")

    def restart(self, signed_by=None):
        self.stop()
        self.start(signed_by)

    def read_index_again(self):
        """Ends the wait for a request that began with an older index: it looks for a newer one only between two."""
        try:
            self.ask(b"GET / HTTP/1.0\r\n\r\n")
        except OSError:
            # Not running: it reads the index when it starts.
            pass

    def ask(self, request):
        """The responder's whole HTTP answer to a whole HTTP request. Raises OSError when there is none."""
        answer = b""
        with unix_sockets.connect(self.socket_path, ANSWER_S) as connection:
            connection.sendall(request)
            connection.shutdown(socket.SHUT_WR)
            while received := connection.recv(65536):
                answer += received
        return answer

    def _command(self):
        signer = self._issuer.name
        if self._signed_by == "delegate":
            self._pki.delegate(self._issuer)
            signer = f"{self._issuer.name}.delegate"
        return ["bwrap", "--dev-bind", "/", "/", "--unshare-net", "--unshare-pid", "--die-with-parent",
                "--chdir", self._folder, "/usr/bin/python3", RELAY, self.socket_path.name, PORT,
                "openssl", "ocsp", "-port", PORT, "-index", self._issuer.index_path,
                "-CA", self._pki.path(self._issuer.name), "-rsigner", self._pki.path(signer),
                "-rkey", self._pki.key_path(signer), "-nmin", "60", "-ignore_err"]
