"""Manual pages and completions know every command and option that the programs tell in their help."""

import gzip
import os
import re
import subprocess

import pytest

BENCH_COMMANDS = ("container", "job", "token", "revoke", "unrevoke", "forget", "misbehave", "behave", "broker",
                  "responder", "alert", "proxy", "reports", "requests", "listeners", "status", "stop")
# The ways to each command's own help.
COMMANDS = {
    "tsc": [[], *([name] for name in ("create", "inspect", "verify", "job", "report", "switches"))],
    "tsuc-platformctl": [[], ["status"], ["state"], ["connection"]],
    "tsuc-bench": [[], ["run"], ["misbehaviours"], *(["tell", "FOLDER", name] for name in BENCH_COMMANDS)],
}
CASES = [(program, words) for program, ways in COMMANDS.items() for words in ways]
# What people type, and what they are proposed: the end of the line is where the cursor stands.
PROPOSED = [
    ("truststore-update-client -", "-f -m -r -h -reset"),
    ("truststore-update-client -m ", ""),
    ("tsuc-platformctl s", "status state"),
    ("tsuc-platformctl state k", "kOn kPrepSD"),
    ("tsuc-platformctl connection ", "-h --help 1 2 3 4 auto"),
    ("tsuc-platformctl state --timeout ", ""),
    ("tsc ", "-h --help create inspect verify job report switches"),
    ("tsc verify --ocsp g", "good"),
    ("tsc switches --f", "--file --force"),
    ("tsc inspect usr/share/doc/truststore-update-client/cop", "usr/share/doc/truststore-update-client/copyright"),
    ("tsc create --key usr/share/doc/truststore-update-client/cop", "usr/share/doc/truststore-update-client/copyright"),
    ("tsuc-bench ", "-h --help run tell misbehaviours"),
    ("tsuc-bench run --mqtt", "--mqtt-tls --mqtt-password"),
    ("tsuc-bench run --signed-by ", "delegate issuer"),
    ("tsuc-bench tell etc re", "revoke responder reports requests"),
    ("tsuc-bench tell etc container ne", "new"),
    ("tsuc-bench tell etc misbehave download answer-st", None),
    ("tsuc-bench tell etc broker f", "freeze"),
    ("tsuc-bench tell etc proxy a", "absent"),
]


@pytest.fixture(name="environment", scope="session")
def fixture_environment(root):
    """The packages' programs first on the path."""
    return {**os.environ, "PATH": f"{root}/usr/sbin:{root}/usr/bin:{os.environ['PATH']}", "COLUMNS": "200",
            "PYTHONDONTWRITEBYTECODE": "1"}


def help_of(environment, program, words):
    return subprocess.run([program, *words, "--help"], env=environment, capture_output=True, text=True,
                          check=True).stdout


def options_in(help_text):
    """Options that a help text lists, at the beginning of its lines."""
    found = set()
    for names in re.findall(r"^ +(-.*?)(?:  |$)", help_text, re.MULTILINE):
        found |= set(re.findall(r"(?<![\w-])--?[a-z][a-z-]*", names))
    return found


def page(root, name):
    found = list(root.glob(f"usr/share/man/man*/{name}.[0-9].gz"))
    assert len(found) == 1
    return gzip.decompress(found[0].read_bytes()).decode()


def shown(text):
    """A page as people read it."""
    printed = subprocess.run(["mandoc", "-T", "ascii"], input=text, capture_output=True, text=True, check=True).stdout
    # Bold and underlined letters are printed over others.
    return re.sub(r"\s+", " ", re.sub(".\b", "", printed))


@pytest.mark.parametrize("program,words", CASES, ids=lambda value: value if isinstance(value, str) else "-".join(value))
def test_manual_names_each_option(root, environment, program, words):
    text = shown(page(root, program))
    options = options_in(help_of(environment, program, words))
    assert {"-h", "--help"} <= options
    assert [option for option in options if not re.search(rf"(?<![\w-]){option}(?![\w-])", text)] == []


@pytest.mark.parametrize("program,words", CASES, ids=lambda value: value if isinstance(value, str) else "-".join(value))
def test_completion_proposes_each_option(root, environment, program, words):
    words = ["etc" if word == "FOLDER" else word for word in words]
    options = options_in(help_of(environment, program, words))
    assert set(proposals(root, environment, " ".join([program, *words, "-"]))) == options


@pytest.mark.parametrize("program", COMMANDS)
def test_commands_are_those_of_the_help(root, environment, program):
    text = help_of(environment, program, [])
    told = set(re.findall(r"^ {2,4}([a-z]+)(?: {2,}|$)", text.partition("\nSubcommands:")[2] or text, re.MULTILINE))
    words = {way[0] for way in COMMANDS[program] if way}
    assert told == words
    assert set(proposals(root, environment, f"{program} ")) == words | {"-h", "--help"}


def test_commands_of_tell_are_those_of_the_help(root, environment):
    text = help_of(environment, "tsuc-bench", ["tell", "etc"])
    told = set(re.findall(r"^ {4}([a-z]+)(?: {2,}|$)", text, re.MULTILINE))
    assert told == set(BENCH_COMMANDS)
    assert set(proposals(root, environment, "tsuc-bench tell etc ")) == told | {"-h", "--help"}


def test_manual_and_completion_know_the_daemons_options(root, environment):
    text = subprocess.run(["truststore-update-client", "-h"], env=environment, capture_output=True, text=True,
                          check=True).stdout
    options = set(re.findall(r"^truststore-update-client (-\w+) ", text, re.MULTILINE))
    assert options == {"-f", "-m", "-r", "-h", "-reset"}
    shown_page = shown(page(root, "truststore-update-client"))
    assert [option for option in options if f"{option} " not in shown_page] == []
    assert set(proposals(root, environment, "truststore-update-client -")) == options


def test_manual_names_each_key_of_the_example(root):
    text = shown(page(root, "truststore-update-client.toml"))
    example = (root / "etc/truststore-update-client/host-platform.toml").read_text()
    keys = set(re.findall(r"^(?:# )?([a-z_]+) = ", example, re.MULTILINE))
    assert len(keys) == 17
    assert [key for key in keys if not re.search(rf"\b{key}\b", text)] == []


@pytest.mark.parametrize("name", ["truststore-update-client.8", "truststore-update-client.toml.5", "tsc.1",
                                  "tsuc-platformctl.1", "tsuc-bench.1"])
def test_manual_has_no_fault(source, name):
    done = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", source / "packaging" / "man" / name],
                          capture_output=True, text=True, check=False)
    assert (done.returncode, done.stdout) == (0, "")


def proposals(root, environment, line):
    """What bash proposes at the end of `line`, as its completion asks the function of the program."""
    program = line.split()[0]
    script = """\
source "usr/share/bash-completion/completions/$1"
compopt() { :; }
line="$2"
read -ra COMP_WORDS <<<"$line"
[[ "$line" == *" " ]] && COMP_WORDS+=("")
COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
COMP_LINE="$line" COMP_POINT=${#line}
read -r _ _ function _ < <(complete -p "$1")
"$function" "$1" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
printf '%s\\n' "${COMPREPLY[@]}"
"""
    done = subprocess.run(["bash", "-uc", script, "bash", program, line], cwd=root, env=environment,
                          capture_output=True, text=True, check=True)
    assert done.stderr == ""
    return done.stdout.split()


@pytest.mark.parametrize("line,expected", PROPOSED, ids=lambda value: str(value))
def test_completion_proposes(root, environment, line, expected):
    found = proposals(root, environment, line)
    if expected is None:
        prefix = line.split()[-1]
        assert all(name.startswith(prefix) for name in found)
        return
    assert sorted(found) == sorted(expected.split())
