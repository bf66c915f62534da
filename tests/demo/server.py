"""A stock TLS server and a stock TLS client on loopback: openssl s_server and curl."""

import re
import subprocess
import threading

DEADLINE_S = 20
CURL_OK = 0
CURL_PEER_NOT_TRUSTED = 60


class ServerError(Exception):
    """The server does not do what it is there for."""


class Server:
    """openssl s_server on a free port of loopback, for the length of a `with` block."""

    def __init__(self, certificate, key):
        self._command = ["openssl", "s_server", "-accept", "127.0.0.1:0", "-cert", str(certificate), "-key", str(key),
                         "-www"]
        self._changed = threading.Condition()
        self._lines = []
        self._process = self._reader = self._port = None

    def __enter__(self):
        self._process = subprocess.Popen(self._command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                         stderr=subprocess.STDOUT, text=True)
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()
        try:
            self._port = self._wait_for(r"ACCEPT .*:(\d+)$")
        except ServerError:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        self._process.kill()
        self._process.wait()
        self._reader.join(DEADLINE_S)
        self._process.stdout.close()

    def _read(self):
        for line in self._process.stdout:
            with self._changed:
                self._lines.append(line.strip())
                self._changed.notify_all()

    def _wait_for(self, pattern):
        """The group of the first line that matches."""
        def found():
            return next((match for line in self._lines if (match := re.search(pattern, line))), None)
        with self._changed:
            match = self._changed.wait_for(found, DEADLINE_S)
            if not match:
                raise ServerError(f"openssl s_server told nothing like '{pattern}': {self._lines}")
            return match[1]

    def alert(self):
        """The TLS alert that a client refused it with."""
        return int(self._wait_for(r"SSL alert number (\d+)"))

    def curl(self, bundle):
        """Fetches a page trusting `bundle` alone; returns curl's exit code."""
        command = ["curl", "--silent", "--show-error", "--noproxy", "*", "--max-time", str(DEADLINE_S),
                   "--cacert", str(bundle), "--capath", "/nowhere", "--output", "/dev/null",
                   f"https://127.0.0.1:{self._port}/"]
        return subprocess.run(command, capture_output=True, check=False).returncode
