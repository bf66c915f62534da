"""The table of updates under outages, tests/matrix/updates.txt, as far as whole daemons play it. The file tells its
form; the runner of tests/matrix checks that it is whole."""

import pathlib
import re
from dataclasses import dataclass

FILE = pathlib.Path(__file__).resolve().parents[1] / "matrix" / "updates.txt"
WORDS = ("triggers", "outages", "phases", "then", "at")
COLUMNS = 10
LOG_LINE = re.compile(r"(info|warning|error): .+")


@dataclass(frozen=True)
class Cell:
    """One update: what happens to it, and what comes of it. `log`: patterns of "level: text"."""

    line: int
    trigger: str
    outage: str
    phase: str
    then: str
    at: str
    status: str
    reports: tuple
    store: str
    log: tuple

    @property
    def name(self):
        return f"{self.trigger}-{self.outage}-{self.phase}-{self.then}"


class Table:
    """What `text` says. Raises ValueError with the line for what is no table. `daemons`: the cells that run in real
    time; `anywhere`: patterns of lines that may stand anywhere in a log."""

    def __init__(self, text):
        self.daemons = []
        self.anywhere = []
        self._words = {kind: [] for kind in WORDS}
        self._blocks = {}
        self._block = self._section = None
        for number, line in enumerate(text.splitlines(), 1):
            try:
                if line.strip() and not line.lstrip().startswith("#"):
                    self._read(line.rstrip(), number)
            except (KeyError, ValueError) as error:
                raise ValueError(f"line {number}: {error}") from None

    def _read(self, line, number):
        if line.startswith("["):
            self._section = line.strip("[]")
        elif self._section in WORDS:
            if not line.startswith(" "):
                self._words[self._section].append(line.split()[0])
        elif self._section == "lines":
            self._read_block(line)
        elif self._section == "anywhere":
            self.anywhere.append(self._log_line(line.strip()))
        elif self._section == "cells":
            self._read_row([column.strip() for column in line.split("|")], number)
        else:
            raise ValueError(f"no such section: {self._section}")

    def _read_block(self, line):
        if line.startswith(" "):
            text = line.strip()
            self._block.append(text if text.startswith("@") else self._log_line(text))
        else:
            self._block = self._blocks[line] = []

    @staticmethod
    def _log_line(text):
        if not LOG_LINE.fullmatch(text):
            raise ValueError("no log line")
        return text

    def _read_row(self, columns, number):
        if len(columns) != COLUMNS:
            raise ValueError(f"not {COLUMNS} columns")
        *names, at, status, reports, store, daemon, log = columns
        wanted = set(daemon.split()) - {"-"}
        choices = [self._choice(kind, name) for kind, name in zip(WORDS, names)]
        for trigger, outage, phase, then in (
                (trigger, outage, phase, then) for trigger in choices[0] for outage in choices[1]
                for phase in choices[2] for then in choices[3]):
            if wanted and wanted <= {trigger, phase, then}:
                lines = tuple(line for block in log.split() for line in self._lines(block, (then, store, trigger)))
                self.daemons.append(Cell(number, trigger, outage, phase, then, at, status,
                                         tuple(reports.split()) if reports != "-" else (), store, lines))

    def _choice(self, kind, name):
        chosen = self._words[kind] if name == "any" else [word.strip() for word in name.split(",")]
        for word in chosen:
            if word not in self._words[kind]:
                raise ValueError(f"'{word}' is not among the {kind}")
        return chosen

    def _lines(self, name, variants):
        """The lines of a block: of its first variant that there is."""
        names = [f"{name}/{variant}" for variant in variants if f"{name}/{variant}" in self._blocks]
        for line in self._blocks[(names or [name])[0]]:
            if line.startswith("@"):
                yield from self._lines(line[1:], variants)
            else:
                yield line


def read():
    """The table of the file."""
    return Table(FILE.read_text(encoding="ascii"))


def matches(pattern, line):
    """Whether `line` is what `pattern` says: "*" stands for any text, also for none."""
    return re.fullmatch(".*".join(re.escape(piece) for piece in pattern.split("*")), line) is not None
