"""The log in DLT: a real DLT daemon in the unit, and a real tool that reads from it.

The service as it comes has no right to that: but for the test of what the page gives it, these daemons have all rights.
"""

import itertools
import pathlib
import re
import signal

import pytest

import confinement
import lifecycle
from daemon import DAY, MOMENT, READY, REPORT_ENDED, SUBSCRIBED, process_status, threads
from dlt import DltDaemon, Reader

SOURCE = pathlib.Path(__file__).resolve().parents[2]
ONLY_DLT = 'sinks = ["dlt"]\n'
DLT_AND_STDERR = 'sinks = ["dlt", "stderr"]\n'
# Contexts of an update, by what stands in front of their lines.
CONTEXTS = {
    "MAIN": "", "CONT": "ContainerHandler", "HSM": "HSM", "HTTP": "HttpConnection", "MQTT": "MqttConnection",
    "ALRT": "TlsAlerts", "SOCK": "SocksTlsAlertClient", "PERS": "PersistantFileStorage",
    "LIFE": "ProcessLifecycleAdapter", "SIGN": "SignalHandler", "INIF": "IniFileReader", "HEXE": "libara_exec",
    "HCON": "libLumoConnectorShared",
}
LEVELS = {"warn": "warning"}


def line(told, context="MAIN"):
    """A line as `daemon` names it, as DLT tells it."""
    level, text = told.split(": ", 1)
    return context, level, text


def in_short(lines):
    return [f"{LEVELS.get(level, level)}: {text}" for _, level, text in lines]


@pytest.fixture(name="gatherer")
def fixture_gatherer(daemon):
    """The unit's DLT daemon, not started."""
    return DltDaemon(daemon.unit)


def test_update_is_told_by_contexts_and_nowhere_else(daemon, gatherer):
    daemon.install("TSC-1")
    daemon.offer("TSC-2")
    daemon.configure(further=ONLY_DLT)
    with Reader(gatherer.start()) as reader:
        running = daemon.start(is_confined=False)
        reader.wait_for(line(SUBSCRIBED, "MQTT"))
        daemon.bench.publish_job()
        reader.wait_for(line(REPORT_ENDED))
        assert running.end() == (0, [])
        reader.wait_for(("SIGN", "info", "SignalHandler: SIGTERM received."))
        lines = reader.lines()
    assert daemon.reports() == [("STATUS_CODE_SUCCESS", "")]
    assert daemon.unit.records()[0] == "TSC-2"
    assert {context for context, _, _ in lines} == set(CONTEXTS)
    assert [each for each in lines if not each[2].startswith(CONTEXTS[each[0]])] == []


def test_tells_what_standard_error_tells(daemon, gatherer):
    text, _ = daemon.bench.backend.make(daemon.bench.pki, container_id="TSC-1", moment=MOMENT)
    daemon.configure(level="verbose", further=DLT_AND_STDERR)
    gatherer.start()
    result = daemon.unit.install(text, is_confined=False)
    with Reader(gatherer) as reader:
        reader.wait_for(("INTM", "info", "Unregistered ApID 'TU'"), "DLTD")
        assert sorted(in_short(reader.lines())) == sorted(result.log())


def test_without_a_daemon_the_work_is_done_and_nothing_said_of_it(daemon):
    daemon.configure(further=ONLY_DLT)
    text, _ = daemon.bench.backend.make(daemon.bench.pki, container_id="TSC-1", moment=MOMENT)
    result = daemon.unit.install(text, is_confined=False)
    assert (result.returncode, result.stderr) == (0, "")
    assert "DLT" not in result.stdout
    assert daemon.unit.records()[0] == "TSC-1"
    assert list((daemon.unit.root / "tmp" / "dltpipes").iterdir()) == []


def state_changes():
    """Requests of state management without end, each with the line that tells of its confirmation."""
    for sequence in itertools.count(1):
        name, number = (("kOn", 1), ("kPrepSD", 2))[sequence % 2]
        yield name, ("LIFE", "info", f"ProcessLifecycleAdapterApiImpl::StateChanged: {number} seq: {sequence}")


def test_daemon_that_comes_late_is_killed_and_comes_again_is_told(daemon, gatherer):
    daemon.install("TSC-1")
    daemon.configure(broker=False, further=DLT_AND_STDERR)
    running = daemon.start(is_confined=False)
    # libdlt may lose a line at the moment at which it finds a daemon: nothing is said then, or said again.
    running.wait_for(READY)
    daemon.await_sleep(2)
    with Reader(gatherer.start()) as reader:
        reader.wait_for(line(READY))
    gatherer.stop(signal.SIGKILL)
    with Reader(gatherer.start()) as reader:
        for name, told in itertools.islice(state_changes(), 20):
            daemon.control("state", name)
            if reader.hears(told, 3):
                break
        else:
            raise AssertionError(reader.lines())
    assert running.end()[0] == 0


def test_daemon_that_reads_no_more_holds_up_nobody(daemon, gatherer):
    daemon.install("TSC-1")
    daemon.offer("TSC-2", MOMENT + DAY)
    daemon.configure(level="verbose", further=DLT_AND_STDERR)
    gatherer.start()
    gatherer.running.send_signal(signal.SIGSTOP)
    running = daemon.start(is_confined=False)
    running.wait_for(SUBSCRIBED)
    daemon.bench.publish_job()
    running.wait_for(REPORT_ENDED)
    assert running.end()[0] == 0


def test_without_the_sink_no_thread_and_no_pipe_of_it(daemon):
    daemon.configure(broker=False)
    running = daemon.start()
    running.wait_for(READY)
    assert [name for name in threads(running.pid).values() if "dlt" in name] == []
    assert not (daemon.unit.root / "tmp" / "dltpipes").exists()
    assert lifecycle.tool(daemon.unit, "status").returncode == 0


def test_signals_are_the_clients_own(daemon):
    """What each signal of the process does, with and without the sink; no thread of libdlt's takes one."""
    daemon.install("TSC-1")
    told = []
    for sinks in ('sinks = ["stderr"]\n', DLT_AND_STDERR):
        daemon.configure(broker=False, further=sinks)
        running = daemon.start(is_confined=False)
        running.wait_for(READY)
        status = process_status(f"/proc/{running.pid}/status")
        told.append((status["SigCgt"], status["SigIgn"]))
        blocked = [process_status(f"/proc/{running.pid}/task/{thread}/status")["SigBlk"]
                   for thread, name in threads(running.pid).items() if name.startswith("dlt_")]
        assert running.end()[0] == 0
    assert told[0] == told[1]
    assert len(blocked) == 2
    assert all(int(each, 16) >> signal.SIGTERM - 1 & 1 for each in blocked)


def test_service_with_the_rights_of_the_page_logs_to_dlt(daemon, monkeypatch):
    page = (SOURCE / "docs" / "host-platform.md").read_text()
    added = dict(re.findall(r"^(Environment|ReadWritePaths|SystemCallFilter)=(.*)$", page, re.MULTILINE))
    variable, folder = added["Environment"].split("=")
    assert added["ReadWritePaths"] == folder
    calls = confinement.allowed_calls() | set(added["SystemCallFilter"].split())
    monkeypatch.setattr(confinement, "allowed_calls", lambda: calls)
    monkeypatch.setattr(confinement, "filter_program", confinement.filter_program.__wrapped__)
    daemon.configure(broker=False, further=ONLY_DLT)
    pipes = daemon.unit.root / folder[1:]
    pipes.mkdir()
    gatherer = DltDaemon(daemon.unit, folder[1:]).start()
    # Made by the test's user, whom the daemon is not.
    for path in (pipes, pipes / "dltpipes", pipes / "dlt"):
        path.chmod(0o1777 if path.name == "dltpipes" else 0o755 if path.is_dir() else 0o622)
    running = daemon.start(env={variable: folder}, options=["--bind", str(pipes), folder])
    with Reader(gatherer) as reader:
        reader.wait_for(line(READY))
    assert running.end() == (0, [])


def test_page_tells_every_context():
    page = (SOURCE / "docs" / "host-platform.md").read_text()
    rows = re.findall(r"^\| `([A-Z]{1,4})` \| (.*) \| (.*) \|$", page, re.MULTILINE)
    told = [(context, description, " ".join(re.findall("`(.*?)`", names))) for context, description, names in rows]
    header = (SOURCE / "platform" / "host" / "csc_logging" / "DltContexts.h").read_text()
    assert told == re.findall(r'\{"(\w+)",\s*"(.*?)",\s*"(.*?)"\}', header)


def test_every_name_that_a_sub_logger_is_given_has_a_context():
    header = (SOURCE / "platform" / "host" / "csc_logging" / "DltContexts.h").read_text()
    sources = [path.read_text() for layer in ("src", "platform/host") for path in (SOURCE / layer).rglob("*.cpp")]
    names = {name for text in sources for name in re.findall(r'CSCSubLogger\b[^;]*?\("(\w+)"\)', text)}
    assert names >= {"SignalHandler", "libhost_control"}
    assert [name for name in names if not re.search(rf'[" ]{name}[" ]', header)] == []
