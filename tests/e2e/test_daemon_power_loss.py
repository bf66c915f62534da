"""A daemon that loses power, and what its next start makes of it: no case needs a hand.

Of the some 150 calls by which an update changes files a sample is tried, with TSUC_EVERY_POWER_LOSS=1 each of them.
"""

import signal

import pytest

import power_loss
from bench import containers
from bench.box import Bench
from bench.misbehaviour import REPORT
from power_loss import KILLED
from running import STATUS

OLD, NEW = ("TSC-OLD", "2026-01-02T03:04:05"), ("TSC-NEW", "2026-01-02T03:04:06")
NEW_RECORDS = ("TSC-NEW", "1767323046")
SENT = "info: Update Status was sent successfully."
SUBSCRIBED = "info: MQTT Subscribed successfully"
ALREADY_INSTALLED = "DOWNLOAD_ERROR"
# Ports at which nobody listens.
BACKEND_DOWN = """
[mqtt]
host = "127.0.0.1"
port = 1
client_id = "any"
[service."RUNA-TruststoreUpdate.CORequestTSC"]
url = "http://127.0.0.1:1/"
token = "any"
[service."RUNA-TruststoreUpdate.COReportTSCStatus"]
url = "http://127.0.0.1:1/"
token = "any"
"""


@pytest.fixture(name="backend", scope="module")
def fixture_backend(tmp_path_factory):
    """A bench that offers NEW, and whose job for it waits for every unit that subscribes."""
    with Bench(tmp_path_factory.mktemp("power") / "bench", chain_length=1) as bench:
        bench.offer_text(container(bench, NEW, "B", "C"), NEW[0])
        bench.publish_job(NEW[0], retain=True)
        yield bench


@pytest.fixture(name="empty")
def fixture_empty(unit, backend):
    """A unit as it leaves the factory."""
    unit.provision_root(backend.root_path.read_bytes())
    return unit


@pytest.fixture(name="older")
def fixture_older(empty, backend):
    """A unit on which OLD is installed."""
    empty.write_switches()
    result = empty.install(container(backend, OLD, "A", "B"))
    assert empty.stored_records()[0] == OLD[0], result.stderr
    return empty


@pytest.fixture(name="interrupted")
def fixture_interrupted(older, backend, tmp_path):
    """A unit that lost power between the last two records of NEW."""
    names = calls_of_an_update(older.copy(tmp_path / "interrupted-whole"), backend)
    container_id_stored = len(names) - names[::-1].index("rename")
    start(older, backend, power_loss.at(older, container_id_stored)).wait()
    assert older.stored_records() == ("", NEW_RECORDS[1])
    return older


def container(bench, identity, *names):
    """A container of one certificate in each of the named bundles."""
    container_id, ts = identity
    certificate = bench.pki.bundle_certificates()[0]
    return containers.build(bench.pki.signer(), {name: [certificate] for name in names}, ts=ts,
                            container_id=container_id)


def start(unit, bench, options=()):
    """Starts the daemon, as a client of the broker's that no other unit is."""
    unit.configure(bench.config_path.read_text().replace("bench-unit", unit.root.name))
    return unit.start("truststore-update-client",
                      options=["--ro-bind", str(bench.directory), str(bench.directory), *options])


def calls_of_an_update(unit, bench):
    """The names of the calls up to the report."""
    running = start(unit, bench, power_loss.counting(unit))
    running.wait_for(SENT)
    calls = power_loss.calls(unit)
    assert running.end()[0] == 0
    return calls


def assert_up_to_date(unit):
    assert (sorted(unit.store()), unit.stored_records()) == (["B", "C"], NEW_RECORDS)


def check_backend_up(unit, bench):
    """The next start ends with everything new, and the backend told."""
    running = start(unit, bench)
    running.wait_for(SENT)
    code, log = running.end()
    assert (code, log.count(STATUS + "SUCCESS"), log.count(SENT)) == (0, 1, 1), log
    assert_up_to_date(unit)
    assert unit.records() == NEW_RECORDS


def check_backend_down(unit, text):
    """Without a backend the unit still takes a container from a file."""
    unit.configure(BACKEND_DOWN)
    unit.write_switches()
    result = unit.install(text)
    assert result.status() in ("SUCCESS", ALREADY_INSTALLED), result.stderr
    assert_up_to_date(unit)


def check_power_loss(unit, bench, call, reboots):
    """Loses power at one call, then starts again."""
    try:
        running = start(unit, bench, power_loss.at(unit, call))
        assert running.ended_before(SENT) and running.wait()[0] == KILLED, running.log()
        if reboots:
            unit.reboot()
        check_backend_down(unit.copy(unit.root.with_name(unit.root.name + "-down")), bench.backend.offered()[0])
        check_backend_up(unit, bench)
    finally:
        unit.close()


@pytest.mark.long
@pytest.mark.parametrize("before", ["older", "empty", "interrupted"])
def test_killed_at_any_call_that_changes_files_the_next_start_completes_the_update(before, backend, request, tmp_path):
    unit = request.getfixturevalue(before)
    calls = calls_of_an_update(unit.copy(tmp_path / f"{before}-whole"), backend)
    assert {"write", "pwrite", "rename", "fsync", "fdatasync"} <= set(calls)

    def check(call):
        # Half of the machines start anew, the others only the daemon.
        check_power_loss(unit.copy(tmp_path / f"{before}-{call}"), backend, call, reboots=call % 2 == 0)

    power_loss.assert_no_case_fails(check, power_loss.sample(calls))


@pytest.mark.parametrize("reboots", [False, True])
def test_killed_while_its_report_is_under_way_the_next_job_has_it_report_again(older, backend, reboots):
    before = len(backend.reports())
    backend.misbehave(REPORT, "silence", 1)
    running = start(older, backend)
    backend.wait_for_reports(before + 1)
    assert running.end(signal.SIGKILL)[0] == KILLED
    if reboots:
        older.reboot()
    check_backend_up(older, backend)
    first, second = backend.reports()[before:]
    assert (first.status_code, first.container_id) == (0, "")
    assert (second.status_code, second.container_id) == (0, NEW[0])


def test_killed_before_its_report_without_another_job_it_tells_the_backend_nothing(unit, tmp_path):
    with Bench(tmp_path / "bench", chain_length=1) as bench:
        unit.provision_root(bench.root_path.read_bytes())
        bench.offer_text(container(bench, NEW, "B", "C"), NEW[0])
        calls = calls_of_an_update(unit.copy(tmp_path / "whole"), bench)
        # The last call tells other applications of the new trust store.
        assert start(unit, bench, power_loss.at(unit, len(calls))).wait()[0] == KILLED
        assert_up_to_date(unit)
        running = start(unit, bench)
        running.wait_for(SUBSCRIBED)
        assert running.end()[0] == 0
        assert "info: Currently installed container: TSC-NEW  Timestamp: 2026-01-02T03:04:06" in running.log()
        assert (len(bench.reports()), len(bench.requests())) == (1, 2)
        assert (unit.root / "tmp" / "truststoreupdate_success").read_text() == "0"
