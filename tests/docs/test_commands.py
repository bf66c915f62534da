"""Every command in the documentation runs, and shows what its page says. pages.py tells the marks of blocks."""

import collections
import dataclasses
import json
import os
import pathlib
import re
import subprocess
import sys

import pytest

import session
from pages import PAGES, SOURCE, blocks_of, session_of, text_of

HERE = pathlib.Path(__file__).resolve().parent
# Blocks that nobody runs: a new one is a decision.
NOT_RUN = {"README.md": 2, "docs/CONTRIBUTING.md": 1, "docs/benchmarks.md": 6, "docs/fuzzing.md": 2,
           "docs/operate.md": 1, "docs/tsc.md": 2}
# What programs need of /etc to load, to resolve names, and to make certificates.
ETC = ("alternatives", "group", "hosts", "ld.so.cache", "localtime", "nsswitch.conf", "passwd", "protocols", "services",
       "ssl")
MARKED = ("run in", "run as", "run on", "run by", "not run")


@pytest.fixture(name="sandbox")
def fixture_sandbox(build_dir, tmp_path):
    """Runs a session where a clone with a build is, as root of a machine of its own: /etc, /run, /srv, /tmp and
    /var/lib are the test's. A bench inside makes further sandboxes."""
    for folder in ("etc", "run", "srv", "tmp", "var/lib", "clone/build"):
        (tmp_path / folder).mkdir(parents=True)
    clone = tmp_path / "clone"
    for name in ("bench", "docs", "proto", "script", "tests"):
        (clone / name).symlink_to(SOURCE / name)
    (clone / "build" / "release").symlink_to(build_dir)
    binds = []
    for folder in ("etc", "run", "srv", "tmp", "var/lib"):
        binds += ["--bind", str(tmp_path / folder), f"/{folder}"]
    for name in ETC:
        if os.path.exists(f"/etc/{name}"):
            binds += ["--ro-bind", f"/etc/{name}", f"/etc/{name}"]
    command = ["bwrap", "--ro-bind", "/", "/", "--dev", "/dev", "--proc", "/proc", *binds,
               "--bind", str(clone), str(clone), "--ro-bind", str(SOURCE), str(SOURCE),
               "--bind", str(build_dir), str(build_dir), "--unshare-user", "--uid", "0", "--gid", "0",
               "--cap-add", "ALL", "--unshare-pid", "--unshare-net", "--die-with-parent", "--new-session"]
    environment = {name: value for name, value in os.environ.items() if not name.startswith("TSUC_")}
    environment |= {"PATH": f"{build_dir / 'bin'}:{os.environ['PATH']}", "HOME": str(clone)}

    def run(blocks):
        return subprocess.run([*command, sys.executable, str(HERE / "session.py"), str(clone)], env=environment,
                              input=json.dumps(blocks), capture_output=True, check=False, text=True, timeout=100)
    return run


@pytest.mark.parametrize("page", [page for page in PAGES if session_of(page)])
def test_commands_of_a_page_do_what_it_says(page, sandbox):
    done = sandbox([dataclasses.asdict(block) for block in session_of(page)])
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
    done = sandbox([{"page": "x.md", "line": 7, "language": "console", "text": text, "marker": None, "words": ""}])
    assert done.returncode == 1
    assert done.stdout.startswith("x.md:7: ")
    assert told in done.stdout
