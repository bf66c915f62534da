"""A stock TLS server and a stock TLS client on loopback: openssl s_server and curl."""

import re
import subprocess
import threading

DEADLINE_S = 20
CURL_OK = 0
CURL_PEER_NOT_TRUSTED = 60


class Server:
    """openssl s_server on a free port of loopback, for the length of a `with` block."""

    def __init__(self, certificate, key):
        self.command = ["openssl", "s_server", "-accept", "127.0.0.1:0", "-cert", str(certificate), "-key", str(key),
                        "-www"]
        self.process = None
        self.port = None

    def __enter__(self):
        self.process = subprocess.Popen(self.command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                        stderr=subprocess.STDOUT, text=True)
        # Ends the wait below if the server never tells its port.
        deadline = threading.Timer(DEADLINE_S, self.process.kill)
        deadline.start()
        try:
            self.port = self._port()
        finally:
            deadline.cancel()
        if self.port is None:
            self.__exit__()
            raise RuntimeError("openssl s_server did not start")
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()

    def _port(self):
        for line in self.process.stdout:
            if match := re.match(r"ACCEPT .*:(\d+)$", line.strip()):
                return match[1]
        return None

    def curl(self, bundle):
        """Fetches a page trusting `bundle` alone; returns curl's exit code."""
        command = ["curl", "--silent", "--show-error", "--noproxy", "*", "--max-time", str(DEADLINE_S),
                   "--cacert", str(bundle), "--capath", "/nowhere", "--output", "/dev/null",
                   f"https://127.0.0.1:{self.port}/"]
        return subprocess.run(command, capture_output=True, check=False).returncode
