#!/usr/bin/python3
"""Runs the blocks of one page in a folder, inside a sandbox that test_commands.py makes: reads them from standard input
as JSON (a list of pages.Block), and tells on standard output what is wrong, or "done".

One bash runs all of them, and ends at the first command that fails; what runs in a terminal of its own has its own.
"""

import json
import os
import pathlib
import re
import select
import shlex
import subprocess
import sys
import time

DEADLINE_S = 200
SHELL = ["/usr/bin/bash", "-euo", "pipefail"]
UNTIL = re.compile(r'.*\ba terminal of its own, until "(.+)"')
FILE = re.compile(r'a text in "(.+)"')


class Failed(Exception):
    """A block did not do what its page says."""


class Terminal:
    """A bash that commands are pasted into, and everything that it shows."""

    def __init__(self, deadline):
        self._deadline = deadline
        self._bash = subprocess.Popen(SHELL, stdin=subprocess.PIPE,
                                      stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self._shown = b""

    def paste(self, text):
        self._bash.stdin.write(text.encode())
        self._bash.stdin.flush()

    def read_until(self, wanted):
        """What was shown up to `wanted`, which is taken, too."""
        while wanted not in self._shown:
            ready, _, _ = select.select([self._bash.stdout], [], [], max(0, self._deadline - time.monotonic()))
            more = os.read(self._bash.stdout.fileno(), 65536) if ready else b""
            if not more:
                why = "ended" if ready else "shows nothing more"
                raise Failed(f"{why} before {wanted.decode()!r}:\n" + self._shown.decode(errors="replace"))
            self._shown += more
        shown, _, self._shown = self._shown.partition(wanted)
        return shown.decode(errors="replace")

    def run(self, text):
        """Pastes commands and returns what they show."""
        mark = f"-- {time.monotonic_ns()} --"
        self.paste(f"eval {shlex.quote(text)} < /dev/null\nprintf '%s' {shlex.quote(mark)}\n")
        return self.read_until(mark.encode())


def console_commands(text):
    """The commands of a console block, each with what it is to show."""
    commands = []
    for line in text.splitlines(keepends=True):
        if line.startswith("$ "):
            commands.append([line[2:], ""])
        elif commands and commands[-1][0].endswith(("\\\n", "|\n")) and line.startswith("> "):
            commands[-1][0] += line[2:]
        elif commands:
            commands[-1][1] += line
        else:
            raise Failed(f"shown before a command: {line!r}")
    return commands


def pattern_of(expected):
    """A regular expression for what a page shows; "..." stands for any text."""
    parts = []
    for line in expected.splitlines(keepends=True):
        if line.strip() == "...":
            parts.append(r"(?:.*\n)*?")
        else:
            parts.append(re.escape(line).replace(re.escape("..."), r".*"))
    return re.compile("".join(parts))


def run_block(main, block, deadline):
    if block["marker"] in ("run in", "run on") and UNTIL.fullmatch(block["words"]):
        terminal = Terminal(deadline)
        terminal.paste(f"cd {shlex.quote(os.getcwd())}\n{block['text']}")
        terminal.read_until(UNTIL.fullmatch(block["words"])[1].encode())
        return terminal
    if block["marker"] == "run as":
        pathlib.Path(FILE.fullmatch(block["words"])[1]).write_text(block["text"])
    elif block["language"] == "console":
        for command, expected in console_commands(block["text"]):
            shown = main.run(command)
            if not pattern_of(expected).fullmatch(shown):
                raise Failed(f"$ {command}shows\n{shown}and not\n{expected}")
    else:
        sys.stderr.write(main.run(block["text"]))
    return None


def run(blocks):
    deadline = time.monotonic() + DEADLINE_S
    main = Terminal(deadline)
    terminals = []
    for block in blocks:
        try:
            terminals.append(run_block(main, block, deadline))
        except Failed as failed:
            return f"{block['page']}:{block['line']}: {failed}"
    return None


if __name__ == "__main__":
    os.chdir(sys.argv[1])
    failure = run(json.load(sys.stdin))
    print(failure or "done")
    sys.stdout.flush()
    # What runs in other terminals ends with the sandbox.
    os._exit(1 if failure else 0)
