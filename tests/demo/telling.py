"""Tells what happens, step by step: in colours on a terminal, in plain lines anywhere else."""

import os

BOLD, DIM, GREEN, RED = "1", "2", "32", "31"


def wants_colours(stream, environment=os.environ):
    """Whether a stream is a terminal of somebody who wants colours (https://no-color.org)."""
    return stream.isatty() and environment.get("TERM", "dumb") != "dumb" and not environment.get("NO_COLOR")


class Telling:
    """Writes to one stream, each line at once."""

    def __init__(self, stream):
        self._stream = stream
        self._colours = wants_colours(stream)

    def _in(self, colour, text):
        return f"\033[{colour}m{text}\033[0m" if self._colours else text

    def _line(self, text=""):
        print(text, file=self._stream, flush=True)

    def step(self, letter, text):
        """The beginning of a step."""
        self._line()
        self._line(self._in(BOLD, f"({letter}) {text}"))

    def say(self, text):
        self._line(f"    {text}")

    def quote(self, line):
        """A line of a log, a control character of which would be one of the terminal."""
        shown = "".join(each if each.isprintable() else "?" for each in line)
        self._line("    " + self._in(DIM, f"| {shown}"))

    def as_told(self, text):
        """Something that came out as it should."""
        self._line("    " + self._in(GREEN, "as told:") + f" {text}")

    def failure(self, text):
        self._line()
        self._line(self._in(RED, "NOT AS TOLD:") + f" {text}")

    def table(self, header, rows):
        """Columns as wide as they need; the last one holds numbers and ends flush."""
        texts = [header, *([*row[:-1], f"{row[-1]:.1f}"] for row in rows)]
        widths = [max(len(row[column]) for row in texts) for column in range(len(header))]
        self._line()
        for number, row in enumerate(texts):
            cells = [*(cell.ljust(width) for cell, width in zip(row[:-1], widths)), row[-1].rjust(widths[-1])]
            line = "  ".join(cells)
            self._line(self._in(BOLD, line) if number == 0 else line)
        self._line()

    def end(self, text):
        self._line(self._in(BOLD, text))
