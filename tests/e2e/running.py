"""A program at work inside a unit."""

import collections
import contextlib
import json
import os
import pathlib
import re
import signal
import subprocess
import threading
from dataclasses import dataclass

DEADLINE_S = 60
SEND_AGAIN_S = 2
STATUS = "info: Send Update Status to the Device Platform: STATUS_CODE_"
LOG_LINE = re.compile(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z (?P<level>[a-z]+) (?P<application>\S+) (?P<text>.*)")


def in_short(lines):
    """A log without times: ["info: text", ...]. A line that is no log line stands as it is."""
    return [f"{match['level']}: {match['text']}" if (match := LOG_LINE.fullmatch(line)) else line for line in lines]


@dataclass
class Result:
    """What one run of a program left behind."""

    returncode: int
    stdout: str
    stderr: str

    def log(self):
        return in_short(self.stderr.splitlines())

    def status(self):
        """The status of the update that it tells: a name without STATUS_CODE_, or a number."""
        return [line for line in self.log() if line.startswith(STATUS)][-1].removeprefix(STATUS)


class Running:
    """A program, from its start to `end`. `bwrap`: the command that starts it, given further options of bwrap.

    stdout: the file that takes its standard output.
    may_lose_signal: ThreadSanitizer of clang 14 loses a signal that interrupts the very first wait of a thread.
    pass_fds, how: for Popen.
    """

    def __init__(self, bwrap, environment, stdout, may_lose_signal=False, pass_fds=(), **how):
        self._may_lose_signal = may_lose_signal
        self._sent = None
        self._stdout = pathlib.Path(stdout)
        reading, writing = os.pipe()
        with open(reading, encoding="ascii") as told, open(stdout, "wb") as output:
            try:
                self._process = subprocess.Popen(bwrap("--info-fd", str(writing)), env=environment,
                                                 pass_fds=[writing, *pass_fds], stdin=subprocess.DEVNULL,
                                                 stdout=output, stderr=subprocess.PIPE, **how)
            finally:
                os.close(writing)
            self.pid = json.load(told)["child-pid"]
        self._changed = threading.Condition()
        self._lines = []
        self._counts = collections.Counter()
        self._closed = False
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def _read(self):
        for line in self._process.stderr:
            text = line.decode().removesuffix("\n")
            with self._changed:
                self._lines.append(text)
                self._counts.update(in_short([text]))
                self._changed.notify_all()
        with self._changed:
            self._closed = True
            self._changed.notify_all()

    def lines(self):
        """Its standard error so far."""
        with self._changed:
            return list(self._lines)

    def log(self):
        return in_short(self.lines())

    def stdout(self):
        """Its standard output so far."""
        return self._stdout.read_text()

    def wait_for(self, text, count=1):
        """Waits until the log has a line `count` times; there is nothing to wait for behind its end."""
        with self._changed:
            self._changed.wait_for(lambda: self._counts[text] >= count or self._closed, DEADLINE_S)
            assert self._counts[text] >= count, self._lines[-100:]

    def ended_before(self, text):
        """Waits until the log has a line, or no more can come. Whether the line never came."""
        with self._changed:
            assert self._changed.wait_for(lambda: self._counts[text] or self._closed, DEADLINE_S), self._lines[-100:]
            return not self._counts[text]

    def send_signal(self, number):
        """A signal to it; nothing if it has ended, as the signal before may have made it."""
        self._sent = number
        with contextlib.suppress(ProcessLookupError):
            os.kill(self.pid, number)

    def wait(self):
        """Waits for its end. Returns its exit code, 128 and more for a signal, and all of its log."""
        if self._may_lose_signal and self._sent is not None:
            self._send_again()
        code = self._process.wait(DEADLINE_S)
        self._reader.join(DEADLINE_S)
        return code, self.log()

    def _send_again(self):
        for _ in range(DEADLINE_S // SEND_AGAIN_S):
            if self.ended_within(SEND_AGAIN_S):
                return
            self.send_signal(self._sent)

    def ended_within(self, seconds):
        """Watches it so long; whether it has ended."""
        try:
            self._process.wait(seconds)
        except subprocess.TimeoutExpired:
            return False
        return True

    def end(self, number=signal.SIGTERM):
        """Ends it with a signal, then as wait."""
        self.send_signal(number)
        return self.wait()

    def close(self):
        """Leaves nothing of it, whatever it does. Returns its exit code."""
        if self._process.poll() is None:
            # What bwrap has only begun to start does not end with bwrap.
            self.send_signal(signal.SIGKILL)
        self._process.kill()
        self._process.wait()
        self._reader.join(DEADLINE_S)
        self._process.stderr.close()
        return self._process.returncode
