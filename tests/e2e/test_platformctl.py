"""The platform's tool against a program at work, and against what is no program at all."""

import contextlib
import json
import re
import signal
import stat

import pytest

import lifecycle
from bench import containers
from bench.box import Bench
from lifecycle import CONTROL_SOCKET, ENDED

SOCKET = f"/{CONTROL_SOCKET}"
STATE = "info: lifecycle_unit: connection state {}"
ENTERED = "info: lifecycle_unit: entered state {}"
NO_SERVER = "tsuc-platformctl: no process serves " + SOCKET + ": {}\n"


TABLE = """\
application  running
component    truststore-update-client
  requested               kOn (1)
  confirmed               kOn (1)
supervision  UNIT-1
  checkpoint 7/3 VERDICT: COUNTS, 5 expected in 1000 ms
session      started (2)
connection   connected but degraded (3), held
broker       none configured
bundles      0
"""


@pytest.fixture(name="provisioned")
def fixture_provisioned(unit):
    lifecycle.provision(unit)
    return unit


@pytest.fixture(name="running")
def fixture_running(provisioned):
    running = lifecycle.start(provisioned)
    running.wait_for(STATE.format(2))
    return running


@pytest.fixture(name="tool")
def fixture_tool(provisioned):
    """Runs the tool: tool(arguments...) returns its exit code and what it said."""
    def run(*arguments):
        result = lifecycle.tool(provisioned, *arguments)
        return result.returncode, result.stdout, result.stderr
    return run


def await_status(unit, holds):
    """Asks for the status until holds(status); the program's own events make it true."""
    for _ in range(1000):
        status = lifecycle.status(unit)
        if holds(status):
            return status
    raise AssertionError(status)


@pytest.mark.usefixtures("running")
def test_status_has_every_part(provisioned, pki):
    provisioned.provision_root((pki / "root.pem").read_bytes())
    status = lifecycle.status(provisioned)
    supervision = status.pop("supervision")
    assert status == {
        "application": {"state": "running"},
        "component": {"name": "truststore-update-client", "requested": None, "confirmed": None},
        "session": {"status": 2, "name": "started"},
        "connection": {"state": 2, "held": False},
        "broker": None,
        "bundles": [{"name": "ZORA", "from": "factory", "certificates": 1}],
    }
    assert supervision["instance"] == "UNIT-1"


@pytest.mark.usefixtures("running")
def test_status_is_a_table_for_people(tool):
    assert tool("state", "kOn") == (0, "kOn confirmed (1)\n", "")
    assert tool("connection", "3") == (0, "connection state 3, held\n", "")
    code, table, error = tool("status")
    assert (code, error) == (0, "")
    assert re.sub(r"[a-z ]+: \d+ reached, the last \d+ ms ago, \d+ late", " VERDICT: COUNTS", table) == TABLE


@pytest.mark.usefixtures("running")
def test_checkpoints_that_come_in_time_are_told(provisioned):
    status = await_status(provisioned, lambda status: verdicts(status) == ["in time"])
    checkpoint = status["supervision"]["checkpoints"][0]
    assert checkpoint.pop("count") >= 5
    assert checkpoint.pop("age_ms") <= 1100
    assert checkpoint.pop("late") >= 0
    assert checkpoint == {"instance": "UNIT-1", "supervision_entity_id": 7, "checkpoint_id": 3,
                          "expected": {"indications": 5, "cycle_ms": 1000}, "verdict": "in time"}


def test_checkpoints_of_an_ill_program_are_late(provisioned):
    lifecycle.start(provisioned, "--ill-after", "2")
    status = await_status(provisioned, lambda status: verdicts(status) == ["late"])
    assert status["supervision"]["checkpoints"][0]["count"] == 2


def verdicts(status):
    return [checkpoint["verdict"] for checkpoint in status["supervision"]["checkpoints"]]


def test_requested_states_are_confirmed_one_after_the_other(provisioned, running, tool):
    for sequence, (name, number) in enumerate([("kPrepSD", 2), ("kOn", 1), ("kOn", 1)], 1):
        assert tool("state", name) == (0, f"{name} confirmed ({sequence})\n", "")
        running.wait_for(ENTERED.format(number), sequence if number == 2 else sequence - 1)
        told = {"state": name, "sequence": sequence}
        assert lifecycle.status(provisioned)["component"] == {
            "name": "truststore-update-client", "requested": told, "confirmed": told}


def test_state_that_is_not_confirmed_is_not_done(provisioned, tool):
    lifecycle.start(provisioned, "--no-confirm")
    assert tool("state", "kPrepSD", "--timeout", "1") == (
        1, "", "tsuc-platformctl: kPrepSD was not confirmed within 1 s\n")
    component = lifecycle.status(provisioned)["component"]
    assert (component["requested"], component["confirmed"]) == ({"state": "kPrepSD", "sequence": 1}, None)


def test_program_that_ends_meanwhile_confirms_nothing(provisioned):
    running = lifecycle.start(provisioned, "--no-confirm")
    with lifecycle.connect(provisioned) as connection:
        connection.sendall(b'{"command": "state", "state": "kOn"}\n')
        running.wait_for("info: ProcessLifecycleAdapterApiImpl::StateChangeRequested new state: kOn")
        code, log = running.end()
        assert (code, log[-1]) == (0, ENDED)
        answer = json.loads(connection.makefile().readline())
    assert answer == {"ok": False, "error": "the process is ending"}


@pytest.mark.usefixtures("running")
@pytest.mark.parametrize("arguments", [["state", "kSleep"], ["state"], ["connection", "0"], ["connection", "5"],
                                       ["connection", "x"], ["restart"], [], ["state", "kOn", "--timeout", "x"]])
def test_wrong_usage_is_two(tool, arguments):
    code, _, error = tool(*arguments)
    assert (code, error != "") == (2, True)


def test_connection_is_held_and_let_go(provisioned, running, tool):
    for state in (4, 1, 3):
        assert tool("connection", str(state))[0] == 0
        running.wait_for(STATE.format(state))
        assert lifecycle.status(provisioned)["connection"] == {"state": state, "held": True}
    assert tool("connection", "auto") == (0, "connection state 2, following the broker\n", "")
    running.wait_for(STATE.format(2), 2)
    assert lifecycle.status(provisioned)["connection"] == {"state": 2, "held": False}


def test_broker_that_goes_and_comes_is_told(unit, tmp_path):
    with Bench(tmp_path / "bench") as bench:
        lifecycle.provision(unit, bench.config_path.read_text())
        running = lifecycle.start(unit, options=["--ro-bind", str(bench.directory), str(bench.directory)])
        running.wait_for(STATE.format(2))
        address = f"127.0.0.1:{bench.broker.port}"
        assert broker(lifecycle.status(unit)) == (address, True)
        before = running.log().count(STATE.format(1))
        bench.broker.kill()
        running.wait_for(STATE.format(1), before + 1)
        assert broker(lifecycle.status(unit)) == (address, False)
        bench.broker.start()
        running.wait_for(STATE.format(2), 2)
        assert broker(lifecycle.status(unit)) == (address, True)


def broker(status):
    return status["broker"]["address"], status["broker"]["connected"]


def test_installation_beside_a_process_shows_there_and_takes_nothing_over(provisioned, running, pki):
    provisioned.write_switches()
    provisioned.provision_root((pki / "root.pem").read_bytes())
    certificate = (pki / "payload" / "00.der").read_bytes()
    container = containers.build(containers.Signer.load(pki / "p256-3"), {"WEB": [certificate]},
                                 ts="2026-01-02T03:04:05", container_id="TSC-1")
    log = provisioned.install(container).log()
    assert "info: Send Update Status to the Device Platform: STATUS_CODE_SUCCESS" in log
    assert lifecycle.status(provisioned)["bundles"] == [{"name": "WEB", "from": "installed", "certificates": 1},
                                                        {"name": "ZORA", "from": "factory", "certificates": 1}]
    lifecycle.tool(provisioned, "connection", "4")
    running.wait_for(STATE.format(4))


def test_without_a_process_it_says_so(tool):
    assert tool("status") == (1, "", NO_SERVER.format("No such file or directory"))


def test_after_a_killed_process_it_says_so(provisioned, running, tool):
    running.end(signal.SIGKILL)
    assert (provisioned.root / CONTROL_SOCKET).is_socket()
    for arguments in (["status"], ["state", "kOn"], ["connection", "auto"]):
        assert tool(*arguments) == (1, "", NO_SERVER.format("Connection refused"))


def test_socket_is_for_its_owner_and_goes_with_the_process(provisioned, running):
    path = provisioned.root / CONTROL_SOCKET
    assert stat.S_IMODE(path.stat().st_mode) == 0o600
    running.end()
    assert not path.exists()


@pytest.mark.parametrize("number", [signal.SIGKILL, signal.SIGTERM])
def test_second_process_serves_when_the_first_is_gone(provisioned, running, tool, number):
    second = lifecycle.start(provisioned)
    second.wait_for(STATE.format(2))
    tool("connection", "4")
    running.wait_for(STATE.format(4))
    assert STATE.format(4) not in second.log()
    running.end(number)
    await_served(provisioned)
    assert lifecycle.status(provisioned)["connection"] == {"state": 2, "held": False}
    assert tool("state", "kPrepSD")[0] == 0
    second.wait_for(ENTERED.format(2))


def await_served(unit):
    """Asks until a process answers."""
    for _ in range(1000):
        if lifecycle.tool(unit, "status").returncode == 0:
            return
    raise AssertionError("nobody serves")


@pytest.mark.usefixtures("running")
@pytest.mark.parametrize("line", [
    b"nonsense", b"", b"[]", b"{}", b"\xff\xfe", b'{"command": "burn"}', b'{"command": 1}', b'{"command": "state"}',
    b'{"command": "connection", "state": 9}', b"[" * 4000])
def test_nonsense_is_answered_and_the_connection_stays(provisioned, line):
    with lifecycle.connect(provisioned) as connection, connection.makefile("rb") as answers:
        connection.sendall(line + b"\n")
        answer = json.loads(answers.readline())
        assert (answer["ok"], sorted(answer)) == (False, ["error", "ok"])
        connection.sendall(b'{"command": "status"}\n')
        assert json.loads(answers.readline())["ok"] is True


@pytest.mark.usefixtures("running")
def test_endless_line_is_refused(provisioned):
    with lifecycle.connect(provisioned) as connection, connection.makefile("rb") as answers:
        connection.sendall(b"x" * 5000)
        assert json.loads(answers.readline())["ok"] is False
        # The rest of the line was never read: that may end a connection by a reset.
        with contextlib.suppress(ConnectionResetError):
            assert answers.readline() == b""
    assert lifecycle.status(provisioned)["application"] == {"state": "running"}
