"""A program that lives in its platform, from READY to its end, through signals at any moment."""

import random
import re
import signal

import pytest

import lifecycle
from lifecycle import ENDED, PROGRAM, REPORTS_RUNNING

REPORTS_TERMINATING = "debug: ProcessLifecycleAdapterApiImpl::Terminating, ReportApplicationState kTerminating"
SUPERVISION_FILE = "/etc/truststore-update-client-phm.ini"
MISSING = "warning: Configuration parameter \"{}\" not found from INI file for component truststore-update-client"
NOT_TOLD = "error: libara_exec: cannot report application state {}: Resource temporarily unavailable"
CAUGHT = "info: SignalHandler: Signal {} caught"
SEED = 20240705
STARTS = 20


@pytest.fixture(name="provisioned")
def fixture_provisioned(unit):
    lifecycle.provision(unit)
    return unit


@pytest.fixture(name="running")
def fixture_running(provisioned):
    return lifecycle.start(provisioned)


def end(running, *numbers):
    """Ends the program with SIGTERM; it has to succeed. Returns its log."""
    code, log = running.end()
    assert code == 0, log
    assert log[-1] == ENDED
    return log


def test_service_manager_hears_of_start_and_end(provisioned):
    manager = lifecycle.NotifySocket(provisioned)
    running = lifecycle.start(provisioned, env=manager.environment)
    assert manager.receive() == "READY=1"
    assert not manager.waiting()
    end(running)
    assert manager.receive() == "STOPPING=1"
    assert not manager.waiting()


def test_service_manager_that_reads_nothing_stops_nobody(provisioned):
    manager = lifecycle.NotifySocket(provisioned)
    manager.fill()
    log = end(lifecycle.start(provisioned, env=manager.environment))
    assert [line for line in log if line.startswith("error: ")] == [
        NOT_TOLD.format("running"), "error: ReportApplicationState to kRunning failed.", NOT_TOLD.format("terminating")]


def test_log_of_a_whole_life_is_as_expected(running):
    # The connector's thread and the periods of the supervision come between these lines anywhere.
    log = [line for line in end(running) if not re.search(r"IAmAlive|lifecycle_unit: (session|connection)", line)]
    assert log == [
        REPORTS_RUNNING,
        "debug: libara_exec: application state running",
        "debug: ProcessLifecycleAdapterApiImpl::Start",
        f"debug: IniFileReader: Settings read from file {SUPERVISION_FILE}",
        "debug: Create Phm_client UNIT-1",
        "debug: ProcessKeepAliveSignalling, aliveTime =2",
        CAUGHT.format(15),
        "info: SignalHandler: SIGTERM received.",
        "debug: ProcessLifecycleAdapterImpl::Terminate",
        REPORTS_TERMINATING,
        "debug: libara_exec: application state terminating",
        ENDED]


@pytest.mark.parametrize("text, told", [
    (None, [f"error: IniFileReader: Reading file {SUPERVISION_FILE} failed: No such file or directory",
            MISSING.format("instance-id")]),
    ("instance-id = UNIT-1\n", [f"debug: IniFileReader: Settings read from file {SUPERVISION_FILE}",
                                MISSING.format("supervision-entity-id")]),
])
def test_without_supervision_it_lives_and_sends_no_checkpoint(provisioned, text, told):
    path = provisioned.root / SUPERVISION_FILE.removeprefix("/")
    path.unlink()
    if text is not None:
        path.write_text(text)
    running = provisioned.start(PROGRAM)
    running.wait_for("debug: ProcessKeepAliveSignalling, aliveTime =0")
    log = end(running)
    start = log.index("debug: ProcessLifecycleAdapterApiImpl::Start")
    assert [line for line in log[start + 1:] if "lifecycle_unit" not in line][:len(told) + 1] == [
        *told, "error: ProcessLifecycleAdapter::Reading application configuration failed for truststore-update-client"]
    assert not [line for line in log if "IAmAlive" in line]


def test_second_sigterm_changes_nothing(provisioned):
    manager = lifecycle.NotifySocket(provisioned)
    running = lifecycle.start(provisioned, env=manager.environment)
    running.send_signal(signal.SIGTERM)
    log = end(running)
    assert log.count(REPORTS_TERMINATING) == 1
    assert [manager.receive(), manager.receive()] == ["READY=1", "STOPPING=1"]
    assert not manager.waiting()


def test_sigpipe_is_told_and_survived(running):
    for count in (1, 2):
        running.send_signal(signal.SIGPIPE)
        running.wait_for(CAUGHT.format(13), count)
    log = end(running)
    assert [line for line in log if "SignalHandler: " in line] == [
        *[CAUGHT.format(13)] * 2, CAUGHT.format(15), "info: SignalHandler: SIGTERM received."]


def test_sigterm_at_any_instant_of_the_start_ends_it_in_order(provisioned):
    chance = random.Random(SEED)
    for _ in range(STARTS):
        running = provisioned.start(PROGRAM)
        running.wait_for(REPORTS_RUNNING)
        assert not running.ended_within(chance.uniform(0, 0.1))
        if chance.random() < 0.5:
            running.send_signal(signal.SIGTERM)
        end(running)
