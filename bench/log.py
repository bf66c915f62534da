"""The bench's log: one line an event with time, component and what happened."""

import collections
import datetime
import threading

KEPT_LINES = 10_000


def printable(text):
    """`text` on one line: control characters, and what no terminal should be given, as \\xNN."""
    return "".join(character if character.isprintable() else f"\\x{ord(character):02x}" for character in text)


class EventLog:
    """Writes events to streams and keeps the last ones. Any thread."""

    def __init__(self, *streams):
        self._streams = streams
        self._lock = threading.Lock()
        self._lines = collections.deque(maxlen=KEPT_LINES)

    def write(self, component, text):
        line = f"{component}: {printable(text)}"
        with self._lock:
            self._lines.append(line)
            time = datetime.datetime.now().strftime("%H:%M:%S.%f")[:-3]
            for stream in self._streams:
                try:
                    stream.write(f"{time} {line}\n")
                    stream.flush()
                except (OSError, ValueError):
                    # A reader that went away must not stop the bench.
                    pass

    def lines(self):
        """The last lines without their times, so that two runs compare: ["component: text", ...]."""
        with self._lock:
            return list(self._lines)
