"""What the pages tell of the code by name is there: limits with their values, and classes with their operations."""

import ast
import pathlib
import re

import pytest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
SECURITY = SOURCE / "docs" / "security.md"
ARCHITECTURE = SOURCE / "docs" / "architecture.md"
CODE = "".join(path.read_text() for folder in ("src", "platform", "tools")
               for path in sorted((SOURCE / folder).rglob("*")) if path.suffix in (".h", ".cpp"))

ROW = re.compile(r"^\| `(\w+)`(?: \([\w ]+\)| \(.*`\w+`\))? \| (\d+)( s| ms| h)? \| `([^`]+)` \|$")
UNITS = {"hours": " h", "seconds": " s", "milliseconds": " ms"}


def rows(text):
    """The lines of the table of limits: name, value, unit, file."""
    begin = text.index("| constant | value | file |")
    lines = text[begin:].split("\n\n")[0].splitlines()[2:]
    found = [ROW.match(line) for line in lines]
    assert all(found), [line for line, row in zip(lines, found) if not row]
    return [(row[1], int(row[2]), row[3] or "", row[4]) for row in found]


def number(text):
    """What an initializer of C++ comes to: literals, products, shifts."""
    text = re.sub(r"std::\w+\{([^{}]*)\}", r"(\1)", text)
    text = re.sub(r"\b(\d+)[uU]\b", r"\1", text)
    operations = {ast.Mult: lambda a, b: a * b, ast.LShift: lambda a, b: a << b}

    def value(node):
        if isinstance(node, ast.Constant):
            return node.value
        return operations[type(node.op)](value(node.left), value(node.right))
    return value(ast.parse(text.strip(), mode="eval").body)


def definition(name, code):
    """Value and unit of a constant, or of a member with its initializer."""
    found = re.findall(rf"^[\w ]*?(?:std::)?(?:chrono::)?(\w+) {name}(?: = ([^;]+)|\{{([^;]*)\}});", code, re.MULTILINE)
    assert len(found) == 1, found
    kind, assigned, braced = found[0]
    return number(assigned or braced), UNITS.get(kind, "")


LIMITS = rows(SECURITY.read_text())


@pytest.mark.parametrize("name, value, unit, file", LIMITS, ids=[f"{file}:{name}" for name, _, _, file in LIMITS])
def test_a_limit_is_what_the_page_says(name, value, unit, file):
    assert definition(name, (SOURCE / file).read_text()) == (value, unit)


@pytest.mark.parametrize("code, expected", [
    ("inline constexpr std::size_t kX = std::size_t{64} * 1024 * 1024;", (64 * 1024 * 1024, "")),
    ("  static constexpr std::size_t kX = std::size_t{4} << 20;", (4 << 20, "")),
    ("inline constexpr std::int64_t kX = std::int64_t{1} << 30;", (1 << 30, "")),
    ("inline constexpr std::size_t kX = 256U << 20U;", (256 << 20, "")),
    ("inline constexpr int kX = 16;", (16, "")),
    ("inline constexpr std::chrono::hours kX{7 * 24};", (168, " h")),
    ("  static constexpr std::chrono::milliseconds kX{50};", (50, " ms")),
    ("  std::int32_t kX = 20000;  ///< milliseconds", (20000, ""))])
def test_an_initializer_is_read(code, expected):
    assert definition("kX", code) == expected


def test_a_wrong_value_is_found():
    name, value, unit, file = LIMITS[0]
    changed = (SOURCE / file).read_text().replace(f"{name} = {value}", f"{name} = {value + 1}")
    assert definition(name, changed) == (value + 1, unit)


def operations(text):
    return sorted(set(re.findall(r"`([A-Z]\w+)::(\w+)`", text)))


@pytest.mark.parametrize("owner, operation", operations(ARCHITECTURE.read_text()))
def test_an_operation_that_the_page_names_is_there(owner, operation):
    assert re.search(rf"\b{owner}::{operation}\(", CODE)
