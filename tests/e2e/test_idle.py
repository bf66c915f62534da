"""What a daemon costs that has nothing to do: no wake-up, and little memory.

TSUC_IDLE_S: how long it is watched; `script/check e2e` watches for a minute.
"""

import os

import pytest

from daemon import READY, process_status, threads
from unit import PROGRAM, sanitizers

WATCHED_S = int(os.environ.get("TSUC_IDLE_S", "20"))
THREADS = {PROGRAM[:15], "signals", "TlsAlerts", "LumoConnector", "HostControl", "AraStm"}
MEMORY_LIMIT_KIB = 20 << 10
SUPERVISION_FILE = "etc/truststore-update-client-phm.ini"
# Two checkpoints in ten tenths of a second.
EACH_500_MS = """\
[phm]
instance-id = UNIT-1
supervision-entity-id = 7
checkpoint-id = 3
supervision-cycle = 10
expected-alive-indications = 2
"""


@pytest.fixture(name="idle")
def fixture_idle(daemon, build_dir):
    """A unit that is up to date, has no broker and tells only what matters."""
    if sanitizers(build_dir):
        pytest.skip("a sanitizer has threads and memory of its own")
    daemon.install("TSC-1")
    daemon.configure(broker=False, level="info")
    return daemon


def start(daemon):
    """Starts the process; returns when every thread of it sleeps, its proxy's alerts in its ear."""
    running = daemon.start()
    running.wait_for(READY)
    daemon.bench.alerts.wait_for(lambda records: records and records[-1].listened)
    return running


def switches(pid):
    """How often each thread has given up a processor, of its own will or not."""
    counts = {}
    for thread, name in threads(pid).items():
        status = process_status(f"/proc/{pid}/task/{thread}/status")
        counts[name, thread] = (int(status["voluntary_ctxt_switches"]), int(status["nonvoluntary_ctxt_switches"]))
    return counts


def settled(running, but=None):
    """The counts, once those of all threads `but` one have stayed the same for a second."""
    for _ in range(30):
        before = switches(running.pid)
        assert not running.ended_within(1)
        after = switches(running.pid)
        if others(before, but) == others(after, but):
            return after
    raise AssertionError(before)


def others(counts, name):
    return {key: count for key, count in counts.items() if key[0] != name}


@pytest.mark.long
def test_nothing_wakes_an_idle_daemon(idle):
    running = start(idle)
    before = settled(running)
    assert {name for name, _ in before} == THREADS
    assert not running.ended_within(WATCHED_S)
    assert switches(running.pid) == before


@pytest.mark.long
def test_supervision_wakes_its_own_thread_at_each_report_and_no_other(idle):
    (idle.unit.root / SUPERVISION_FILE).write_text(EACH_500_MS)
    running = start(idle)
    before = settled(running, "keepAlive")
    (alive,) = [key for key in before if key[0] == "keepAlive"]
    assert not running.ended_within(WATCHED_S)
    after = switches(running.pid)
    assert others(after, "keepAlive") == others(before, "keepAlive")
    # On a busy machine each report may be late, and then there are fewer.
    assert WATCHED_S <= after[alive][0] - before[alive][0] <= 2 * WATCHED_S + 1


def test_idle_daemon_has_little_memory(idle):
    running = start(idle)
    settled(running)
    resident = process_status(f"/proc/{running.pid}/status")["VmRSS"]
    assert resident.endswith(" kB")
    assert int(resident.removesuffix(" kB")) <= MEMORY_LIMIT_KIB
