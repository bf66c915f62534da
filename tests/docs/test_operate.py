"""What docs/operate.md tells of numbers, lines and the configuration is so in the sources."""

import re
import subprocess

import pytest

from pages import SOURCE, bare_system, blocks_of, text_of

PAGE = "docs/operate.md"
ENUMS = SOURCE / "src" / "TruststoreUpdateClient" / "UpdateEnums.h"
LITERAL = r'"(?:[^"\\\n]|\\.)*"'


# What stands in for the packages and the service manager here; tests/packages has both as they are.
STAND_INS = {
    "apt": """#!/bin/bash -e
[[ "$1" == install ]] || exit 0
mkdir -p /etc/truststore-update-client /run/csc/config/truststore-update-client \\
    /var/lib/truststore-update-client/trust-store/factory
""",
    "systemctl": """#!/bin/bash -e
[[ "$2" == truststore-update-client ]]
if [[ "$1" != start && -e /run/unit.pid ]]; then
  kill "$(cat /run/unit.pid)"
  tail --pid="$(cat /run/unit.pid)" --follow /dev/null
  rm /run/unit.pid
fi
[[ "$1" != stop ]] || exit 0
TZ=UTC setsid truststore-update-client > /run/unit.log 2>&1 &
echo $! > /run/unit.pid
""",
    "runuser": """#!/bin/bash -e
while [[ "$1" != -- ]]; do shift; done
exec "${@:2}"
""",
    "tsuc-bench": f"""#!/bin/bash -e
exec {SOURCE}/bench/bench.py "$@"
""",
}


def section(title):
    text = re.search(rf"^## {re.escape(title)}\n(.*?)(?=^## |\Z)", text_of(PAGE), re.DOTALL | re.MULTILINE)
    assert text, title
    return text[1]


def rows(text):
    """The rows of a section's tables, without head and rule: their cells."""
    lines = [line for line in text.splitlines() if line.startswith("| ") or line.startswith("|-")]
    kept = [line for number, line in enumerate(lines)
            if not line.startswith("|-") and not (number + 1 < len(lines) and lines[number + 1].startswith("|-"))]
    return [[cell.strip() for cell in line.strip("|").split(" |")] for line in kept]


@pytest.fixture(name="literals", scope="session")
def fixture_literals():
    """All texts in the sources of client and platform; parts that stand side by side are one text."""
    texts = set()
    for folder in ("src", "platform/host"):
        for path in sorted((SOURCE / folder).rglob("*")):
            if path.suffix not in (".cpp", ".h") or path.stem.endswith("_test"):
                continue
            for found in re.findall(rf"{LITERAL}(?:\s+{LITERAL})*", path.read_text()):
                texts.add("".join(literal[1:-1] for literal in re.findall(LITERAL, found)).replace('\\"', '"'))
    return texts


def is_logged(line, literals):
    """Whether each part of a line, "…" between them, stands in a text of the sources."""
    parts = [part for part in re.split("…", line) if part.strip(" :,'.!/")]
    return bool(parts) and all(any(part.strip() in text for text in literals) for part in parts)


def quoted_lines():
    return [line for cells in rows(section("Lines worth an alarm")) for line in re.findall(r"`([^`]+)`", cells[0])]


@pytest.mark.parametrize("line", quoted_lines())
def test_line_worth_an_alarm_is_one_of_the_log(line, literals):
    assert is_logged(line, literals)


@pytest.mark.parametrize("line, known", [
    ("Cannot create …!", True), ("ERROR: Clearing the truststores failed", True), ("…", False),
    ("Clearing the stores failed", False)])
def test_a_line_that_nobody_logs_is_told(line, known, literals):
    assert is_logged(line, literals) == known


def test_lines_quoted_with_status_numbers_are_of_the_log(literals):
    for cells in rows(section("Status numbers")):
        for line in re.findall(r"`([^`]+)`", cells[2]):
            assert is_logged(line, literals), line


def test_table_has_every_number_and_the_names_of_the_schema():
    enum = ENUMS.read_text().partition("enum RenewalReason")[0]
    values = set(map(int, re.findall(r"^  \w+ = (\d+),", enum, re.MULTILINE)))
    names = dict(re.findall(r"^  (STATUS_CODE_\w+) = (\d+),", enum, re.MULTILINE))
    table = {number: cells[1].strip("`") for cells in rows(section("Status numbers"))
             for number in map(int, cells[0].split(", "))}
    assert set(table) == set(range(max(values) + 1))
    for name, number in names.items():
        assert table[int(number)] == name
    for number in values - set(map(int, names.values())):
        assert table[number] == f"STATUS_CODE_{number}"
    not_sent = {number for cells in rows(section("Status numbers")) if cells[2].startswith("not sent")
                for number in map(int, cells[0].split(", "))}
    # 2 and 8 have a name in the schema, and nothing makes them.
    assert not_sent == set(range(17)) - values | {2, 8}


def test_configuration_of_the_page_is_taken(build_dir, tmp_path):
    block, = [block for block in blocks_of(PAGE) if block.language == "toml"]
    path = tmp_path / "host-platform.toml"

    def told_of(text):
        path.write_text(text)
        return subprocess.run([str(build_dir / "bin" / "tsuc-platformctl"), "status"], capture_output=True, check=False,
                              env={"TSUC_HOST_CONFIG": str(path)}, timeout=60)
    # Nobody serves the socket, so it ends with 1; with 2 where the configuration cannot be used.
    socket = f'[control]\nsocket = "{tmp_path}/none.sock"\n\n'
    assert told_of(socket + block.text).returncode == 1
    assert told_of(socket + block.text.replace("client_id", "client_di")).returncode == 2


def test_commands_for_a_bare_system_do_what_the_page_says(sandbox):
    done = sandbox(bare_system(PAGE), STAND_INS)
    assert done.stdout == "done\n", done.stdout + done.stderr[-4000:]
    assert "Send Update Status to the Device Platform: STATUS_CODE_SUCCESS" in done.stderr
