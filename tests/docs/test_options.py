"""Options and arguments that the documentation names are those of the programs."""

import functools
import json
import re
import subprocess

import pytest

from pages import COMMANDS, PAGES, SOURCE, blocks_of, text_of

# By what name a page calls a program; which of them have commands with a help of their own.
PROGRAMS = {"tsc": "tsc", "tsuc-platformctl": "tsuc-platformctl", "bench/bench.py": "bench", "tsuc-bench": "bench",
            "truststore-update-client": "truststore-update-client"}
WITH_COMMANDS = ("tsc", "tsuc-platformctl", "bench")
OPTION = re.compile(r"(?<![\w-])--?[a-zA-Z][\w-]*")
SCRIPT = re.compile(r"(?:^|[\s`(])script/(?P<name>[a-z-]+)(?P<arguments>(?: [\w-]+)*)")
END_OF_COMMAND = re.compile(r"[|;&<>#)]")


@pytest.fixture(name="help_of", scope="session")
def fixture_help_of(build_dir):
    """What a program says on --help, or one of its commands does."""
    @functools.cache
    def help_of(program, *commands):
        path = SOURCE / "bench" / "bench.py" if program == "bench" else build_dir / "bin" / program
        option = "-h" if program == "truststore-update-client" else "--help"
        done = subprocess.run([str(path), *commands, option], capture_output=True, check=False, text=True, timeout=60)
        assert done.returncode == 0, (program, commands)
        return done.stdout
    return help_of


def calls_of(page):
    """Each call of a program that a page shows, as its words: in blocks of commands, and in code within a line."""
    pieces = [line for block in blocks_of(page) if block.language in COMMANDS
              for line in block.text.replace("\\\n> ", "").replace("\\\n", "").splitlines()]
    text = re.sub(r"^ *```.*?^ *```$", "", text_of(page), flags=re.DOTALL | re.MULTILINE)
    pieces += re.findall(r"`([^`\n]+)`", text)
    for piece in pieces:
        for command in END_OF_COMMAND.split(piece):
            words = [word.replace("build/release/bin/", "").replace("/usr/sbin/", "") for word in command.split()]
            for number, word in enumerate(words):
                # Where a command begins; elsewhere the name is an argument of another program.
                begins = number == 0 or "=" in words[number - 1] or words[number - 1] in ("--", "$")
                if word in PROGRAMS and begins and words[number + 1:]:
                    yield [PROGRAMS[word], *words[number + 1:]]
                    break


def commands_in(program, words, help_of):
    """The leading words that choose a command and so a help of their own."""
    commands = []
    if program not in WITH_COMMANDS:
        return commands
    for word in words:
        if program == "bench" and commands == ["tell"]:
            commands.append("DIR")
            continue
        if not re.fullmatch("[a-z][a-z-]*", word):
            break
        if not re.search(rf"^ +{re.escape(word)}\b", help_of(program, *commands), re.MULTILINE):
            break
        commands.append(word)
        if program != "bench":
            break
    return commands


def unknown_options(words, help_of):
    program, *rest = words
    if program == "truststore-update-client":
        told = help_of(program)
    else:
        told = help_of(program, *commands_in(program, rest, help_of))
    named = {match for word in rest for match in OPTION.findall(word) if word.startswith("-")}
    return [option for option in sorted(named) if not re.search(rf"(?<![\w-]){re.escape(option)}(?![\w-])", told)]


@pytest.mark.parametrize("page", PAGES)
def test_options_that_a_page_names_exist(page, help_of):
    assert [(words, unknown) for words in calls_of(page) if (unknown := unknown_options(words, help_of))] == []


def options_of_table(page, pattern):
    """The options in the first column of the table after `pattern`."""
    table = re.search(rf"{pattern}.*?\n((?:\|[^\n]*\n)+)", text_of(page), re.DOTALL)[1]
    return {option for row in re.findall(r"^\| (`-.*?) \|", table, re.MULTILINE) for option in OPTION.findall(row)}


@pytest.mark.parametrize("page, pattern, command", [
    ("docs/tsc.md", "## tsc create\n", ("tsc", "create")),
    ("docs/tsc.md", "## tsc verify\n", ("tsc", "verify")),
    ("docs/bench.md", r"\| option of `run` \|", ("bench", "run")),
    ("docs/bench.md", r"\| option of `alert` \|", ("bench", "tell", "DIR", "alert"))], ids=str)
def test_table_has_the_options_of_its_command(page, pattern, command, help_of):
    named = options_of_table(page, pattern)
    lines = re.findall(r"^  +(-.*?)(?:  |$)", help_of(*command), re.MULTILINE)
    # Of an option's names the page needs one.
    offered = [set(OPTION.findall(line)) for line in lines]
    assert named - set().union(*offered) == set()
    assert [names for names in offered if not names & (named | {"--json", "--help"})] == []


@pytest.mark.parametrize("words, unknown", [
    (["tsc", "verify", "--root", "x"], []), (["tsc", "verify", "--rot", "x"], ["--rot"]),
    (["bench", "tell", "/x", "reports", "--wait", "1"], []),
    (["bench", "tell", "/x", "reports", "--weight"], ["--weight"]),
    (["truststore-update-client", "-f", "x", "-x"], ["-x"])])
def test_an_option_that_no_program_has_is_told(words, unknown, help_of):
    assert unknown_options(words, help_of) == unknown


def arguments_known(script):
    """What a script may be given: the words of its usage, presets, and what it finds in the tree."""
    path = SOURCE / "script" / script
    done = subprocess.run([str(path), "-h"], capture_output=True, check=False, text=True, timeout=60)
    assert done.returncode == 0, script
    presets = json.loads((SOURCE / "CMakePresets.json").read_text())["configurePresets"]
    return set(re.findall(r"[\w-]+", done.stdout)) | {preset["name"] for preset in presets} | {
        path.stem for path in (SOURCE / "fuzz").glob("*_fuzz.cpp")}


@pytest.mark.parametrize("page", PAGES)
def test_scripts_that_a_page_names_exist_and_take_their_arguments(page):
    named = {match["name"] for match in SCRIPT.finditer(text_of(page))}
    assert [name for name in named if not (SOURCE / "script" / name).exists()] == []
    for block in blocks_of(page):
        for line in block.text.splitlines() if block.language in COMMANDS else ():
            for match in SCRIPT.finditer(line.partition("#")[0]):
                known = arguments_known(match["name"])
                words = [word for word in match["arguments"].split() if not word.isdigit()]
                assert [word for word in words if word not in known] == [], line
