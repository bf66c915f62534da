"""The demo tells what it sees, for people and for programs, and does not end well when something came out otherwise."""

import io
import os
import pty
import signal
import subprocess
import sys

import pytest

import demo
from running import DEADLINE_S
from telling import Telling

ESCAPE = "\033"


class Terminal(io.StringIO):
    def isatty(self):
        return True


@pytest.fixture(name="terminal")
def fixture_terminal(monkeypatch):
    monkeypatch.setenv("TERM", "xterm")
    monkeypatch.delenv("NO_COLOR", raising=False)
    return Terminal()


def tell_all(stream):
    telling = Telling(stream)
    telling.step("a", "A step.")
    telling.say("words")
    telling.quote("info: a line")
    telling.as_told("something")
    telling.failure("something else")
    telling.table(("step", "seconds"), [("(a)", 1.25)])
    telling.end("the end")
    return stream.getvalue()


PLAIN = """
(a) A step.
    words
    | info: a line
    as told: something

NOT AS TOLD: something else

step  seconds
(a)       1.2

the end
"""


def test_stream_that_is_no_terminal_gets_plain_lines():
    assert tell_all(io.StringIO()) == PLAIN


def test_terminal_gets_the_same_in_colours(terminal):
    told = tell_all(terminal)
    assert f"{ESCAPE}[1m(a) A step.{ESCAPE}[0m\n" in told
    for code in ("1", "2", "32", "31", "0"):
        told = told.replace(f"{ESCAPE}[{code}m", "")
    assert told == PLAIN


@pytest.mark.parametrize("name, value", [("NO_COLOR", "1"), ("TERM", "dumb")])
def test_terminal_of_somebody_who_wants_no_colours_gets_plain_lines(terminal, monkeypatch, name, value):
    monkeypatch.setenv(name, value)
    assert tell_all(terminal) == PLAIN


def test_real_terminal_is_known_as_one(monkeypatch):
    monkeypatch.setenv("TERM", "xterm")
    monkeypatch.delenv("NO_COLOR", raising=False)
    leader, follower = pty.openpty()
    with open(leader, "rb", buffering=0) as reading, open(follower, "w", encoding="utf-8") as stream:
        Telling(stream).end("x")
        assert reading.read(100) == b"\033[1mx\033[0m\r\n"


def test_quoted_line_does_not_steer_the_terminal(terminal):
    Telling(terminal).quote(f"a{ESCAPE}[2Jb\r\x9b")
    assert terminal.getvalue().replace(f"{ESCAPE}[2m", "").replace(f"{ESCAPE}[0m", "") == "    | a?[2Jb??\n"


@pytest.fixture(name="folder")
def fixture_folder(tmp_path):
    """A build whose daemon ends at once."""
    (tmp_path / "bin").mkdir()
    (tmp_path / "CMakeCache.txt").write_text("TSUC_SANITIZE:STRING=\n")
    program = tmp_path / "bin" / "truststore-update-client"
    program.write_text("#!/bin/sh\necho 'not today' >&2\n")
    program.chmod(0o755)
    return tmp_path


def test_daemon_that_does_otherwise_fails_the_demo(folder):
    stream = io.StringIO()
    assert demo.tell(Telling(stream), folder, False) == 1
    assert stream.getvalue().endswith(
        f"    | not today\n\nNOT AS TOLD: the daemon logs '{demo.EMPTY}'\n")
    assert "Every step came out as told" not in stream.getvalue()


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGHUP, signal.SIGINT], ids=lambda number: number.name)
def test_demo_that_is_ended_leaves_nothing_behind(folder, number):
    (folder / "bin" / "truststore-update-client").write_text("#!/bin/sh\nexec sleep 1000\n")
    temporary = folder / "tmp"
    temporary.mkdir()
    # A background job of a shell ignores SIGINT, and what it starts does, too.
    command = ["env", "--default-signal", sys.executable, demo.__file__, folder]
    with subprocess.Popen(command, stdout=subprocess.PIPE, text=True,
                          env={**os.environ, "TMPDIR": str(temporary), "PYTHONDONTWRITEBYTECODE": "1"}) as process:
        while not process.stdout.readline().startswith("(a)"):
            assert process.poll() is None
        assert list(temporary.iterdir())
        process.send_signal(number)
        assert process.wait(DEADLINE_S) == 130
    assert not list(temporary.iterdir())
