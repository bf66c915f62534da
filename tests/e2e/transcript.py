"""Compares a log, line by line, with the one that a file of transcripts/ tells.

A transcript is written as a log is, each line behind the thread that writes it:

    == the broker answers
    connector      | debug: Connection state notification, new state: 2
    main<connector | info: Handling MQTT subscription request.

Lines of one thread come in their order. Lines of several threads come in any order, except that none comes across a `==`
(the test waits there), and that the line of `main<connector` comes behind every line of `connector` above it (the one
thread waits for the other). Every line has to come, once, and there is no other. `+` behind the thread's name: the line
comes once or more. `#` begins a comment. `<< NAME` stands for the lines of parts/NAME.txt. What is another text in each
run, a port for example, stands in braces.

The threads are those of docs/threads.md, by short names: `main`, `signals` and `keepAlive`; `connector`, and `topics` for
what the same thread tells of those (LumoConnector); `mqtt` (LumoMqtt); `alerts` (TlsAlerts); `states` (AraStm); `update`
(ContainerUpdate); `report` (StatusReport). `last` is whichever of two comes last.
"""

import dataclasses
import pathlib
import re

FOLDER = pathlib.Path(__file__).resolve().parent / "transcripts"
LINE = re.compile(r"(?P<thread>\w+)(?P<repeated>\+?)(<(?P<behind>\w+))? *\| (?P<text>.*)")
PART = re.compile(r"<< (?P<name>\w+)")
# What differs however the unit is made: numbers of sockets, how the network cuts an answer, and what is in messages of
# certificates, whose lengths vary.
ALWAYS = [
    (r"(?<=ocket: )\d+$", "{number}"),
    (r"(?<=HttpConnection: Read )\d+", "{some}"),
    (r"(?<=HttpConnection: Total received )\d+", "{some}"),
    (r"(?<=HttpConnection: Received payload )\d+", "{some}"),
    (r"(HttpConnection: Received Response.*Content-Length: )\d+", r"\1{some}"),
    (r"(application/ocsp-request.*Content-Length: )\d+(\\x0d\\x0a\\x0d\\x0a).*(?=\\x0a-----)", r"\1{some}\2{body}"),
]


@dataclasses.dataclass(frozen=True)
class Line:
    """A line of a thread. behind: how many lines of which other thread come before it."""

    text: str
    repeated: bool
    behind: tuple


class Phase:
    """What comes between two `==`. Where its threads are is told by the number of lines that each has behind it."""

    def __init__(self):
        self._threads = {}

    def add(self, thread, text, repeated, other):
        behind = (other, len(self._threads.get(other, []))) if other else None
        self._threads.setdefault(thread, []).append(Line(text, repeated, behind))

    def begin(self):
        return (0,) * len(self._threads)

    def is_over(self, positions):
        return all(position == len(lines) for position, lines in zip(positions, self._threads.values()))

    def after(self, positions, text):
        """Where the threads may be once one of them has written `text`."""
        for number, (position, lines) in enumerate(zip(positions, self._threads.values())):
            if position < len(lines) and lines[position].text == text and self._may_come(lines[position], positions):
                yield positions[:number] + (position + 1,) + positions[number + 1:]
            if position > 0 and lines[position - 1].repeated and lines[position - 1].text == text:
                yield positions

    def expected(self, positions):
        """What each thread that need not wait writes next."""
        for position, (thread, lines) in zip(positions, self._threads.items()):
            if position < len(lines) and self._may_come(lines[position], positions):
                yield f"{thread} | {lines[position].text}"

    def _may_come(self, line, positions):
        if line.behind is None:
            return True
        other, count = line.behind
        return dict(zip(self._threads, positions))[other] >= count


def parse(text):
    """The phases of a transcript."""
    phases = [Phase()]
    for line in text.splitlines():
        if line.startswith("=="):
            phases.append(Phase())
        elif line and not line.startswith("#"):
            match = LINE.fullmatch(line)
            assert match, f"no line of a transcript: {line}"
            phases[-1].add(match["thread"], match["text"], bool(match["repeated"]), match["behind"])
    return phases


def load(name):
    """The text of a transcript, with its parts."""
    text = (FOLDER / f"{name}.txt").read_text()
    return re.sub(rf"^{PART.pattern}$", lambda match: load(f"parts/{match['name']}").rstrip("\n"), text,
                  flags=re.MULTILINE)


def normalised(log, names):
    """A log with braces for what differs from run to run."""
    lines = []
    for line in log:
        for pattern, name in [*names, *ALWAYS]:
            line = re.sub(pattern, name, line)
        lines.append(line)
    return lines


def fault(phases, log):
    """What is wrong with a log, in words; None when nothing is."""
    # Two threads may have the same line next: each state is one way to tell who wrote what.
    states = _entered(phases, {(0, phases[0].begin())})
    for number, line in enumerate(log):
        following = {(at, positions) for at, before in states for positions in phases[at].after(before, line)}
        if not following:
            return _told(phases, states, log[:number], f"has: {line}")
        states = _entered(phases, following)
    if any(at == len(phases) - 1 and phases[at].is_over(positions) for at, positions in states):
        return None
    return _told(phases, states, log, "has no more")


def _entered(phases, states):
    """`states` and those of the next phases that may have begun."""
    for at, positions in sorted(states):
        while at + 1 < len(phases) and phases[at].is_over(positions):
            at, positions = at + 1, phases[at + 1].begin()
            states = states | {(at, positions)}
    return states


def _told(phases, states, before, found):
    expected = {line for at, positions in states for line in phases[at].expected(positions)}
    return "\n".join([*before[-10:], found, "expected one of:", *sorted(expected)])


def check(name, log, names=()):
    """The log has to be the one of transcripts/`name`.txt; `names` are as Daemon.names."""
    found = fault(parse(load(name)), normalised(log, names))
    assert found is None, f"{name}.txt: after these lines the log\n{found}"
