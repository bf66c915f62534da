"""What the program does with what it was started with, and with failures that nobody foresaw."""

import signal

import pytest

from unit import PROGRAM, sanitizers

READY = "info: Truststore Update Client Ready"
ENDED = "info: Truststore Update Client Terminated."
NO_MEMORY = "error: Trust Store Update Client failed: std::bad_alloc"
NO_CONNECTOR = "error: Cannot create LumoConnector!"
MEBIBYTE = 1024 * 1024
LARGEST_CONTAINER = 128 * MEBIBYTE


@pytest.fixture(name="blocked")
def fixture_blocked():
    """What is started meanwhile starts with SIGTERM blocked."""
    before = signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGTERM})
    yield
    signal.pthread_sigmask(signal.SIG_SETMASK, before)


@pytest.mark.usefixtures("blocked")
def test_started_with_sigterm_blocked_it_ends_all_the_same(unit):
    running = unit.start(PROGRAM)
    running.wait_for(READY)
    code, log = running.end()
    assert (code, log[-1]) == (0, ENDED)


def test_started_with_sigterm_ignored_it_ends_all_the_same(unit):
    before = signal.signal(signal.SIGTERM, signal.SIG_IGN)
    try:
        running = unit.start(PROGRAM)
    finally:
        signal.signal(signal.SIGTERM, before)
    running.wait_for(READY)
    code, log = running.end()
    assert (code, log[-1]) == (0, ENDED)


@pytest.mark.parametrize("mebibytes", [60, 100, 150, 250, 300])
def test_out_of_memory_anywhere_ends_with_zero_and_the_switches_reset(unit, build_dir, mebibytes):
    if sanitizers(build_dir):
        pytest.skip("a sanitizer maps more memory than the limit")
    unit.write_switches()
    with open(unit.root / "tmp" / "large", "wb") as file:
        file.truncate(LARGEST_CONTAINER)
    result = unit.run("-f", "/tmp/large", "-r", within=("prlimit", f"--as={mebibytes * MEBIBYTE}"))
    assert result.returncode == 0
    assert {NO_MEMORY, NO_CONNECTOR} & set(result.log())
    switches = unit.switches()
    assert (switches["OcspDisable"], switches["ConnectionRetryTestMode"]) == ("false", "false")
