"""The log."""

import io
import re

from bench.log import EventLog


def test_line_has_time_component_and_text():
    stream = io.StringIO()
    EventLog(stream).write("download", "done")
    assert re.fullmatch(r"\d\d:\d\d:\d\d\.\d{3} download: done\n", stream.getvalue())


def test_lines_are_kept_without_their_times():
    log = EventLog()
    log.write("download", "one")
    log.write("report", "two")
    assert log.lines() == ["download: one", "report: two"]


def test_control_characters_never_reach_a_terminal():
    log = EventLog()
    log.write("download", "a\x1b[2J\nb\x7f")
    assert log.lines() == ["download: a\\x1b[2J\\x0ab\\x7f"]


def test_stream_that_is_closed_stops_nobody():
    stream = io.StringIO()
    log = EventLog(stream)
    stream.close()
    log.write("download", "done")
    assert log.lines() == ["download: done"]
