"""The pages of the documentation: their headings, links and commands.

Every fenced block of commands in README.md, CHANGELOG.md and docs/*.md is run by somebody. `sh` blocks are commands as
a reader pastes them; in `console` blocks "$ " begins a command, "> " continues one that ends in a backslash or a bar,
and the rest is what it shows: "..." stands for any text within a line, and a line of nothing else for any lines. Blocks
of one page are one session, in their order: the folder, variables and functions of one are there in the next.

A comment in the line above a block tells who runs it; without one test_commands.py does, in a sandbox:

<!-- run in: a terminal of its own, until "TEXT" -->
    Likewise, but it goes on until the page ends; the next block comes when it has shown TEXT.
<!-- run as: a text in "FILE" -->
    The block, of any language, is written to FILE.
<!-- run on: a bare system -->
    The check of the packages runs it as root, in order, on a Debian with nothing but the packages, whose files are in
    the folder. Further words may say "in a terminal of its own, until "TEXT"", as above.
<!-- run on: a bare system with systemd -->
    Likewise; where systemd is not the first process the check does what systemctl would, by the unit file.
<!-- run by: tests/FILE.py -->
    That test runs it; it reads the section by its name.
<!-- not run: REASON -->
    Nobody does; test_commands.py counts these.

One comment in a page may say where its session begins: `<!-- run after: PAGE.md, SECTION -->` runs that section first.
"""

import dataclasses
import pathlib
import re

SOURCE = pathlib.Path(__file__).resolve().parents[2]
PAGES = sorted(path.relative_to(SOURCE).as_posix()
               for path in (SOURCE / "README.md", SOURCE / "CHANGELOG.md", *(SOURCE / "docs").glob("*.md")))
COMMANDS = ("sh", "console")

_FENCE = re.compile(r"(?P<indent> *)```(?P<language>\w*)\n")
_COMMENT = re.compile(r"<!-- (?P<what>run in|run as|run on|run by|not run): (?P<text>.+) -->\n")
_AFTER = re.compile(r"^<!-- run after: (?P<page>\S+\.md), (?P<section>.+) -->$", re.MULTILINE)
_HEADING = re.compile(r"(?P<marks>#+) (?P<title>.+)\n")


@dataclasses.dataclass(frozen=True)
class Block:
    """A fenced block: where it begins, what it is, who runs it (None: the sandbox) and by which words."""
    page: str
    line: int
    section: str
    language: str
    text: str
    marker: str | None = None
    words: str = ""

    @property
    def where(self):
        return f"{self.page}:{self.line}"

    @property
    def is_commands(self):
        return self.language in COMMANDS or self.marker is not None


def text_of(page):
    return (SOURCE / page).read_text()


def blocks_of(page, section=None):
    """All fenced blocks of a page, or of one of its sections."""
    found = []
    title, comment, opened = "", None, None
    for number, line in enumerate(text_of(page).splitlines(keepends=True), 1):
        if opened is not None:
            if line.strip() == "```":
                found.append(Block(page, opened[0], title, opened[1], "".join(opened[2]), *(comment or ())))
                opened, comment = None, None
            else:
                opened[2].append(line)
        elif fence := _FENCE.fullmatch(line):
            opened = (number, fence["language"], [])
        elif heading := _HEADING.fullmatch(line):
            title = heading["title"]
        else:
            match = _COMMENT.fullmatch(line)
            comment = (match["what"], match["text"]) if match else None
    assert opened is None, f"{page}:{opened[0]}: a block without an end"
    return [block for block in found if section in (None, block.section)]


def session_of(page):
    """The blocks that the sandbox runs for a page; none for a page without commands for it."""
    own = [block for block in blocks_of(page) if block.is_commands and block.marker in (None, "run in", "run as")]
    after = _AFTER.search(text_of(page))
    if own and after:
        own = blocks_of(after["page"], after["section"]) + own
    return own


def bare_system(page):
    """The blocks of a page for a bare system, in their order. session.py runs them, as any others."""
    return [block for block in blocks_of(page) if block.marker == "run on"]


def anchors_of(page):
    """The names by which a page's headings are linked to."""
    names = []
    inside = False
    for line in text_of(page).splitlines(keepends=True):
        if line.lstrip().startswith("```"):
            inside = not inside
        elif not inside and (heading := _HEADING.fullmatch(line)):
            name = re.sub(r"[^\w\- ]", "", heading["title"].lower()).replace(" ", "-")
            names.append(name if name not in names else f"{name}-{names.count(name)}")
    return names


def links_of(page):
    """Targets of the links of a page, code left out."""
    text = re.sub(r"^ *```.*?^ *```$", "", text_of(page), flags=re.DOTALL | re.MULTILINE)
    text = re.sub(r"`[^`\n]*`", lambda code: "x" * len(code[0]), text)
    return re.findall(r"\]\(([^)\s]+)\)", text)
