"""Compares a log, line by line, with the one that a file of transcripts/ tells.

A transcript is written as a log would be, each line behind the thread that writes it:

    == the broker answers
    connector | debug: Connection state notification, new state: 2
    main      | info: Handling MQTT subscription request.

Lines of one thread come in their order. Lines of several threads come in any order between two `==`, and none comes
across one: the test waits there, or one thread waits for the other. Every line has to come, once, and there is no
other. `+` behind a thread's name: this line comes once or more, as often as the network has it. `#` begins a comment.
What is another text in each run, a port for example, stands in braces.
"""

import pathlib
import re

FOLDER = pathlib.Path(__file__).resolve().parent / "transcripts"
LINE = re.compile(r"(?P<thread>\w+)(?P<repeated>\+?) *\| (?P<text>.*)")
# What the daemon says of what nobody counts: sockets, and how the network cuts an answer.
ALWAYS = [
    (r"(?<=ocket: )\d+$", "{number}"),
    (r"(?<=HttpConnection: )Read \d+ bytes", "Read {some} bytes"),
]


class Phase:
    """What comes between two `==`."""

    def __init__(self):
        self.threads = {}

    def add(self, thread, text, repeated):
        self.threads.setdefault(thread, []).append((text, repeated))

    def begin(self):
        return (0,) * len(self.threads)

    def is_over(self, positions):
        return all(position == len(lines) for position, lines in zip(positions, self.threads.values()))

    def after(self, positions, text):
        """Where the threads may be once one of them has written `text`."""
        for number, (position, lines) in enumerate(zip(positions, self.threads.values())):
            if position < len(lines) and lines[position][0] == text:
                yield positions[:number] + (position + 1,) + positions[number + 1:]
            if position > 0 and lines[position - 1] == (text, True):
                yield positions

    def expected(self, positions):
        """What each thread has to write next."""
        for position, (thread, lines) in zip(positions, self.threads.items()):
            if position < len(lines):
                yield f"{thread} | {lines[position][0]}"


def parse(text):
    """The phases of a transcript."""
    phases = [Phase()]
    for line in text.splitlines():
        if line.startswith("=="):
            phases.append(Phase())
        elif line and not line.startswith("#"):
            match = LINE.fullmatch(line)
            assert match, f"no line of a transcript: {line}"
            phases[-1].add(match["thread"], match["text"], bool(match["repeated"]))
    return phases


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
    text = (FOLDER / f"{name}.txt").read_text()
    found = fault(parse(text), normalised(log, names))
    assert found is None, f"{name}.txt: after these lines the log\n{found}"
