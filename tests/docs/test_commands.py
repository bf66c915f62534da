"""Every command in the documentation runs, and shows what its page says. pages.py tells the marks of blocks."""

import collections
import re

import pytest

import session
from pages import PAGES, SOURCE, Block, blocks_of, session_of, text_of

# Blocks that nobody runs: a new one is a decision.
NOT_RUN = {"README.md": 3, "docs/CONTRIBUTING.md": 1, "docs/arm64.md": 1, "docs/benchmarks.md": 7, "docs/fuzzing.md": 2,
           "docs/integrate.md": 1, "docs/operate.md": 1, "docs/tsc.md": 2}
MARKED = ("run in", "run as", "run on", "run by", "not run")


@pytest.mark.parametrize("page", [page for page in PAGES if session_of(page)])
def test_commands_of_a_page_do_what_it_says(page, sandbox):
    done = sandbox(session_of(page))
    assert done.stdout == "done\n", done.stdout + done.stderr[-4000:]


def test_commands_that_nobody_runs_are_counted():
    blocks = [block for page in PAGES for block in blocks_of(page)]
    assert collections.Counter(block.page for block in blocks if block.marker == "not run") == NOT_RUN


@pytest.mark.parametrize("page", PAGES)
def test_commands_stand_in_blocks_that_can_be_run(page):
    text = re.sub(r"^ *```.*?^ *```$", "", text_of(page), flags=re.DOTALL | re.MULTILINE)
    assert re.findall(r"\n\n    \S.*", text) == []


@pytest.mark.parametrize("page", PAGES)
def test_marks_stand_above_blocks_and_are_known(page):
    text = re.sub(r"^ *```.*?^ *```$", "```", text_of(page), flags=re.DOTALL | re.MULTILINE)
    marks = re.findall(r"^<!-- (?!run after: )(.*) -->\n(.*)$", text, re.MULTILINE)
    assert [(mark, below) for mark, below in marks if below != "```" or mark.partition(":")[0] not in MARKED] == []


def test_tests_that_run_blocks_read_their_section():
    for page in PAGES:
        for block in blocks_of(page):
            if block.marker == "run by":
                assert f'"{block.section}"' in (SOURCE / block.words).read_text(), block.where


@pytest.mark.parametrize("text, shown, right", [
    ("a\n", "a\n", True), ("a\n", "b\n", False), ("a...c\n", "abc\n", True), ("a...c\n", "a\nc\n", False),
    ("...\nc\n", "a\nb\nc\n", True), ("...\nc\n", "a\nb\n", False), ("", "a\n", False)])
def test_output_of_a_page_matches_what_was_shown(text, shown, right):
    assert bool(session.pattern_of(text).fullmatch(shown)) == right


@pytest.mark.parametrize("text, told", [
    ("$ false\n", "ended before"), ("$ echo a\nb\n", "shows\na\nand not\nb\n"), ("a\n", "shown before a command")])
def test_a_page_that_is_wrong_is_told(sandbox, text, told):
    done = sandbox([Block("x.md", 7, "", "console", text)])
    assert done.returncode == 1
    assert done.stdout.startswith("x.md:7: ")
    assert told in done.stdout
