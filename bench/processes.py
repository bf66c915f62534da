"""Programs that the bench runs: each ends with it, however it ends."""

import concurrent.futures
import pathlib
import random
import socket
import subprocess
import threading
import time

START_S = 20
STOP_S = 10
# Below the ports that the system gives to outgoing connections: a client that keeps trying a port of those while nobody
# listens connects to itself now and then.
FREE_PORTS = range(20_000, 32_000)
PORT_ATTEMPTS = 100


class BenchError(Exception):
    """Something of the bench does not work, in words for the person before it."""


def free_port():
    """A port of loopback that nobody listens on; somebody else may take it before you do."""
    for _ in range(PORT_ATTEMPTS):
        port = random.choice(FREE_PORTS)
        with socket.socket() as probe:
            probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            try:
                probe.bind(("127.0.0.1", port))
            except OSError:
                continue
            return port
    raise BenchError(f"no free port between {FREE_PORTS[0]} and {FREE_PORTS[-1]}")


class _Starter:
    """Starts processes from one thread that lives as long as this process: the kernel kills a child with a death
    signal when the thread that started it ends."""

    def __init__(self):
        self._lock = threading.Lock()
        self._executor = None

    def start(self, command, **how):
        with self._lock:
            self._executor = self._executor or concurrent.futures.ThreadPoolExecutor(1, "starter")
        mortal = ["setpriv", "--pdeathsig", "KILL", *map(str, command)]
        return self._executor.submit(subprocess.Popen, mortal, **how).result()


_STARTER = _Starter()


class Process:
    """A program with its output in a file. Start, stop, kill and start again from any one thread at a time."""

    def __init__(self, name, output_path):
        self.name = name
        self.output_path = pathlib.Path(output_path)
        self._process = None

    @property
    def pid(self):
        return self._process.pid if self.running() else None

    def running(self):
        return self._process is not None and self._process.poll() is None

    def start(self, command, ready):
        """Runs `command` and waits until `ready()`. False: it ended before. Raises BenchError when neither happens."""
        with open(self.output_path, "ab") as output:
            self._process = _STARTER.start(command, stdin=subprocess.DEVNULL, stdout=output, stderr=output)
        deadline = time.monotonic() + START_S
        while self.running():
            if ready():
                return True
            if time.monotonic() > deadline:
                self.kill()
                raise BenchError(f"{self.name} is not ready after {START_S} s; see {self.output_path}")
            time.sleep(0.02)
        return False

    def stop(self):
        """Asks it to end, and makes it end when it does not."""
        if self.running():
            self._process.terminate()
            try:
                self._process.wait(STOP_S)
            except subprocess.TimeoutExpired:
                self.kill()

    def kill(self):
        """Ends it as a power loss would."""
        if self.running():
            self._process.kill()
            self._process.wait()
