"""What the built program answers to its command line, byte for byte."""

import re

import pytest

from daemon import READY
from unit import DEFAULT_SWITCHES, PROGRAM

HELP = """\
Usage: truststore-update-client [-f filename|-m 10000001|-r|-h] -reset
truststore-update-client -f       Give a container example eg. '-f valid_tsc_2021.txt'
truststore-update-client -m       Modify config.cfg by given binary string (1=true, 0=false) eg. '-m 10000001'
truststore-update-client -r       Run Client in Retry Test Mode
truststore-update-client -h       Print help
truststore-update-client -reset   Activate Factory Reset
"""
CHECKS = ("no-check-replayprotection", "no-check-timestampfuture", "no-check-signcertpath", "no-check-signcertcn",
          "no-check-tscsignature", "no-check-ocsp", "no-check-all")
NO_FILE = ">>> No configuration file found: /var/run/csc/config/truststore-update-client/config.cfg\n"


def changed(key, value):
    return f"\033[1;32mOption '{key}' value changed to '{value}'\033[0m\n"


def not_found(key):
    return f"\033[1;31mOption '{key}' not found!\033[0m\n"


RESET = changed("ConnectionRetryTestMode", "false") + changed("OcspDisable", "false")
# The file with both switches as a program writes them: the rest of their lines goes.
SWITCHED_ON, SWITCHED_OFF = (re.sub("^(ConnectionRetryTestMode|OcspDisable) .*$", rf"\1 = {value}", DEFAULT_SWITCHES,
                                    flags=re.MULTILINE) for value in ("true", "false"))


@pytest.fixture(name="switched_unit")
def fixture_switched_unit(unit):
    unit.write_switches()
    return unit


@pytest.mark.parametrize("arguments", [
    ["-h"], ["-h", "-reset"], ["-x"], ["--help"], ["-f"], ["-m"], ["-h", "-f", "valid"], ["-x", "-m", "1"],
], ids=" ".join)
def test_help_and_what_it_does_not_know_print_the_usage(switched_unit, arguments):
    result = switched_unit.run(*arguments)
    assert (result.returncode, result.stdout) == (0, HELP)
    assert switched_unit.switches_path.read_text() == DEFAULT_SWITCHES


def test_an_unknown_option_after_r_prints_the_usage_after_writing_r(switched_unit):
    result = switched_unit.run("-r", "-x")
    assert (result.returncode, result.stdout) == (0, changed("ConnectionRetryTestMode", "true") + HELP)


@pytest.mark.parametrize("arguments", [["-reset", "-h"], ["-reset", "-r"], ["-reset", "-f", "valid"]], ids=" ".join)
def test_reset_anywhere_but_last_ends_with_the_usage(switched_unit, arguments):
    result = switched_unit.run(*arguments)
    assert result.returncode == 0
    assert result.stdout.endswith(HELP)
    assert switched_unit.switches()["OcspDisable"] == "false"
    assert "Factory Reset" not in result.stderr


@pytest.mark.parametrize("bits", ["1", "0", "11", "0110", "1111111", "0000000", "1010101"])
def test_m_writes_one_switch_a_bit(switched_unit, bits):
    result = switched_unit.run("-m", bits)
    told = {key: "true" if bit == "1" else "false" for key, bit in zip(CHECKS, bits)}
    assert (result.returncode, result.stdout) == (0, "".join(changed(*pair) for pair in told.items()))
    assert switched_unit.switches() == {
        "TestModeEnabled": "true", "ConnectionRetryTestMode": "false", "OcspDisable": "false",
        **dict.fromkeys(CHECKS, "false"), **told}


def test_m_one_writes_nothing_but_the_first_switch(switched_unit):
    switched_unit.run("-m", "1")
    before, after = DEFAULT_SWITCHES.splitlines(), switched_unit.switches_path.read_text().splitlines()
    assert [new for old, new in zip(before, after) if old != new][0].startswith("no-check-replayprotection = true")
    assert sum(old != new for old, new in zip(before, after)) == 1
    assert len(before) == len(after)


def test_m_with_eight_bits_tells_that_index_7_means_nothing(switched_unit):
    result = switched_unit.run("-m", "10000001")
    told = [changed(key, "true" if key == CHECKS[0] else "false") for key in CHECKS]
    assert result.stdout == "".join(told) + "No 'no-check-xxx' development flag on index: 7\n"
    assert result.returncode == 0


def test_m_takes_a_newline_for_false(switched_unit):
    switched_unit.write_switches(DEFAULT_SWITCHES.replace("no-check-timestampfuture    = false",
                                                          "no-check-timestampfuture    = true"))
    result = switched_unit.run("-m", "1\n")
    assert result.stdout == changed(CHECKS[0], "true") + changed(CHECKS[1], "false")


@pytest.mark.parametrize("bits, character, position", [
    ("10x", "x", 2), ("2", "2", 0), ("1 0", " ", 1), ("111a1b", "a", 3), ("00000000x", "x", 8),
])
def test_m_with_another_character_writes_nothing(switched_unit, bits, character, position):
    result = switched_unit.run("-m", bits)
    assert result.returncode == 0
    assert result.stdout == (f"\033[1;31mThe non-acceptible character {character} at position {position}. "
                             "Config.cfg not modified\033[0m\n")
    assert switched_unit.switches_path.read_text() == DEFAULT_SWITCHES


def test_m_with_an_empty_text_writes_nothing(switched_unit):
    result = switched_unit.run("-m", "")
    assert (result.returncode, result.stdout) == (0, "")
    assert switched_unit.switches_path.read_text() == DEFAULT_SWITCHES


def test_options_after_m_are_not_looked_at(switched_unit):
    result = switched_unit.run("-m", "1", "-r", "-f", "valid")
    assert result.stdout == changed(CHECKS[0], "true")
    assert switched_unit.switches()["ConnectionRetryTestMode"] == "false"


def test_m_without_a_switches_file_makes_none(unit):
    result = unit.run("-m", "1")
    assert (result.returncode, result.stdout) == (0, NO_FILE + not_found(CHECKS[0]))
    assert not unit.switches_path.exists()


def test_f_valid_with_r_leaves_both_switches_false(switched_unit):
    result = switched_unit.run("-f", "valid", "-r")
    assert result.returncode == 0
    assert result.stdout.startswith(changed("OcspDisable", "true") + changed("ConnectionRetryTestMode", "true"))
    assert result.stdout.endswith(changed("ConnectionRetryTestMode", "false") + changed("OcspDisable", "false"))
    assert "error: Failed to open '/var/run/csc/config/truststore-update-client/valid_tsc_2018.txt'" in result.log()
    switches = switched_unit.switches()
    assert (switches["OcspDisable"], switches["ConnectionRetryTestMode"]) == ("false", "false")


def end(running):
    """Ends the daemon, which has to succeed. Returns its log."""
    code, log = running.end()
    assert code == 0, log
    return log


def test_a_start_without_arguments_writes_both_switches_only_at_its_end(switched_unit):
    switched_unit.write_switches(SWITCHED_ON)
    running = switched_unit.start(PROGRAM)
    running.wait_for(READY)
    assert switched_unit.switches_path.read_text() == SWITCHED_ON
    end(running)
    assert running.stdout() == RESET
    assert switched_unit.switches_path.read_text() == SWITCHED_OFF


def test_r_is_on_until_the_daemon_ends(switched_unit):
    running = switched_unit.start(PROGRAM, "-r")
    running.wait_for(READY)
    switches = switched_unit.switches()
    assert (switches["ConnectionRetryTestMode"], switches["OcspDisable"]) == ("true", "false")
    end(running)
    assert running.stdout() == changed("ConnectionRetryTestMode", "true") + RESET
    assert switched_unit.switches_path.read_text() == SWITCHED_OFF


def test_f_with_r_and_then_a_start_leave_both_switches_false(switched_unit):
    switched_unit.run("-f", "valid", "-r")
    running = switched_unit.start(PROGRAM)
    running.wait_for(READY)
    end(running)
    assert switched_unit.switches_path.read_text() == SWITCHED_OFF


@pytest.mark.parametrize("arguments", [["-reset"], ["-r", "-reset"]], ids=" ".join)
def test_reset_last_resets_before_the_daemon_goes_to_work(switched_unit, arguments):
    switched_unit.write_switches(SWITCHED_ON)
    running = switched_unit.start(PROGRAM, *arguments)
    running.wait_for(READY)
    lines = end(running)
    reset = lines.index("info: Truststore Update Client Factory Reset")
    assert lines.count(lines[reset]) == 1
    assert reset < lines.index("info: Truststores cleared succesfully.") < lines.index(READY)
    assert running.stdout().endswith(RESET)
    assert switched_unit.switches_path.read_text() == SWITCHED_OFF


def test_without_a_switches_file_the_daemon_makes_none(unit):
    running = unit.start(PROGRAM)
    running.wait_for(READY)
    end(running)
    # Everybody who looks for the file says so.
    assert running.stdout().replace(NO_FILE, "") == not_found("ConnectionRetryTestMode") + not_found("OcspDisable")
    assert not unit.switches_path.exists()


def test_f_with_a_missing_file_tells_its_name(switched_unit):
    result = switched_unit.run("-f", "/tmp/nowhere.tsc")
    assert result.returncode == 0
    assert "error: Failed to open '/tmp/nowhere.tsc'" in result.log()


def test_f_with_reset_last_resets_first(switched_unit):
    result = switched_unit.run("-f", "/tmp/nowhere.tsc", "-reset")
    lines = result.log()
    reset = lines.index("info: Truststore Update Client Factory Reset")
    assert reset < lines.index("error: Failed to open '/tmp/nowhere.tsc'")
