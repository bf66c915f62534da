"""Loses power at one of the calls by which a program of a unit changes files (tests/programs/power_loss.cpp)."""

import concurrent.futures
import os
import signal

KILLED = 128 + signal.SIGKILL
AT_ONCE = 3
# Where the program may write.
CALLS = "/run/truststore-update-client/calls"
# Every call is tried when asked for, else every eleventh: two records that are stored the same way meet different ones.
DISTANCE = 1 if "TSUC_EVERY_POWER_LOSS" in os.environ else 11


def counting(unit):
    """Options of bwrap that have a program's calls written down."""
    return _preloading(unit, "POWER_LOSS_CALLS", CALLS)


def calls(unit):
    """The names of the calls that were written down so far."""
    return (unit.root / CALLS.removeprefix("/")).read_text().splitlines()


def sample(names):
    """The numbers of the calls to try, of all with these names."""
    return range(1, len(names) + 1, DISTANCE)


def at(unit, call):
    """Options of bwrap that end a program with SIGKILL at its call of this number, from 1."""
    return _preloading(unit, "POWER_LOSS_AT", str(call))


def assert_no_case_fails(check, cases):
    """check(case) raises an AssertionError where a case goes wrong."""
    def failure(case):
        try:
            check(case)
        except AssertionError as error:
            return f"{case}: {error}"
        return None

    with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
        failures = [each for each in pool.map(failure, cases) if each]
    assert not failures, f"{len(failures)} of {len(cases)}; {failures[0]}"


def _preloading(unit, name, value):
    library = unit.build_dir / "lib" / "libpower_loss.so"
    return ["--setenv", "LD_PRELOAD", str(library), "--setenv", name, value]
