"""What a transcript accepts and what it does not: a comparison that accepts too much would never tell."""

import pytest

import transcript

TEXT = """\
# A comment.
== start
main      | info: begins
other     | info: hello
main      | info: goes on
== later
other+    | info: again
main      | info: ends
"""


def lines(letters):
    """A log, one letter a line."""
    told = {"b": "info: begins", "h": "info: hello", "g": "info: goes on", "a": "info: again", "e": "info: ends",
            "x": "info: nobody says this"}
    return [told[letter] for letter in letters]


@pytest.mark.parametrize("log", ["bhgae", "hbgae", "bghae", "bghea", "bghaaae", "bghaea", "bgheaa"])
def test_lines_in_an_order_that_threads_may_have_are_accepted(log):
    assert transcript.fault(transcript.parse(TEXT), lines(log)) is None


@pytest.mark.parametrize("log", [
    "", "b", "bhga", "bhge", "hgbae", "bgahe", "bgeha", "xbhgae", "bhxgae", "bhgaex", "bhgaee", "bbhgae",
    "bhhgae", "bhgae" * 2])
def test_lines_that_miss_exceed_or_come_in_another_order_are_not(log):
    assert transcript.fault(transcript.parse(TEXT), lines(log)) is not None


def test_fault_tells_the_line_and_what_was_expected():
    assert transcript.fault(transcript.parse(TEXT), lines("bx")) == (
        "info: begins\nhas: info: nobody says this\nexpected one of:\nmain | info: goes on\nother | info: hello")


def test_fault_of_a_log_that_ends_too_soon():
    assert transcript.fault(transcript.parse(TEXT), lines("bhga")).endswith(
        "has no more\nexpected one of:\nmain | info: ends")


@pytest.mark.parametrize("log, accepted", [("bhge", True), ("bghe", True), ("hbge", False), ("bheg", False)])
def test_line_behind_another_threads_lines_comes_behind_them(log, accepted):
    text = "main | info: begins\nother<main | info: hello\nmain | info: goes on\nthird<main | info: ends\n"
    assert (transcript.fault(transcript.parse(text), lines(log)) is None) == accepted


def test_line_that_is_none_is_told():
    with pytest.raises(AssertionError, match="no line of a transcript: info: hello"):
        transcript.parse("info: hello\n")


def test_two_threads_with_the_same_line_are_told_apart():
    text = "one | info: hello\none | info: begins\ntwo | info: hello\ntwo | info: ends\n"
    assert transcript.fault(transcript.parse(text), lines("hehb")) is None
    assert transcript.fault(transcript.parse(text), lines("hbhe")) is None
    assert transcript.fault(transcript.parse(text), lines("heb")) is not None


def test_what_differs_from_run_to_run_is_named():
    assert transcript.normalised(["error: 127.0.0.1:4711, 47110", "debug: Closing socket: 9"],
                                 [(r"(?<!\d)4711(?!\d)", "{broker port}")]) == [
        "error: 127.0.0.1:{broker port}, 47110", "debug: Closing socket: {number}"]
