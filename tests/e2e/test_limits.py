"""The service's limits on memory and threads hold the largest answers that the connector lets through, twice over."""

import os
import re
import threading

import pytest

import confinement
from bench.messages import Response
from bench.misbehaviour import DOWNLOAD, Misbehaviour
from daemon import READY, RETRYING, UPDATE_ENDED, Daemon, process_status, threads
from unit import sanitizers

CONFIG_HEADER = confinement.PACKAGING.parent / "platform" / "host" / "config" / "HostConfig.h"
# Of an answer, what is not the container.
REST = 1024
MEBIBYTE = 1 << 20
RUBBISH = {
    "that is no container": lambda size: "A" * size,
    "of many parts": lambda size: "." * size,
    "behind a header": lambda size: "e30." + "A" * (size - 4),
}
# A counter of threads that has failed counts no more: that must not go unnoticed.
pytestmark = pytest.mark.filterwarnings("error::pytest.PytestUnhandledThreadExceptionWarning")
ENDLESS = ("endless-header-line", "endless-body", "big-body")


def limit(key, unit=""):
    value = confinement.settings()[key][0]
    assert value.endswith(unit)
    return int(value.removesuffix(unit))


def largest_answer():
    """The bytes of an answer that the connector lets through where the configuration says nothing else."""
    return int(re.search(r"responseBytes = (\d+);", CONFIG_HEADER.read_text())[1])


class Threads:
    """Counts the threads of a process, for the most that there were at a time."""

    def __init__(self, pid):
        self._pid = pid
        self._end = threading.Event()
        self._watch = threading.Thread(target=self._run)
        # However quick it is, it is seen once.
        self.most = len(threads(pid))

    def __enter__(self):
        self._watch.start()
        return self

    def __exit__(self, *_):
        self._end.set()
        self._watch.join()

    def _run(self):
        while not self._end.wait(0.005):
            self.most = max(self.most, len(threads(self._pid)))


@pytest.fixture(name="secure")
def fixture_secure(unit, tmp_path, build_dir):
    """A unit that downloads by TLS."""
    if sanitizers(build_dir):
        pytest.skip("a sanitizer has threads and memory of its own")
    with Daemon(unit, tmp_path / "bench", https=True, mqtt_tls=True) as daemon:
        daemon.unit.write_switches()
        yield daemon


def assert_within_limits(daemon, outcome=UPDATE_ENDED):
    """Starts the process, which downloads at once: its store is empty. Waits for the line that tells the outcome."""
    running = daemon.start()
    with Threads(running.pid) as seen:
        running.wait_for(READY)
        running.wait_for(outcome)
    peak = int(process_status(f"/proc/{running.pid}/status")["VmHWM"].removesuffix(" kB")) * 1024
    print(f"peak {peak / MEBIBYTE:.0f} MiB, {seen.most} threads")
    assert 2 * peak <= limit("MemoryMax", "M") * MEBIBYTE, peak
    assert 2 * seen.most <= limit("TasksMax")


def test_a_thread_that_ends_while_threads_are_counted_is_left_out(monkeypatch):
    ended = "4194305"  # above the kernel's highest id
    monkeypatch.setattr(os, "listdir", lambda _: [ended, str(os.getpid())])
    assert list(threads(os.getpid())) == [os.getpid()]


@pytest.mark.long
@pytest.mark.parametrize("bundles", [1, 1000])
def test_a_container_as_large_as_an_answer_may_be_is_installed(secure, bundles):
    certificate = secure.bench.pki.bundle_certificates()[0]
    one = len(secure.bench.backend.make(secure.bench.pki, bundles={"WEB": [certificate] * 100})[0]) / 100
    count = int((largest_answer() - REST - 20 * bundles) / one)
    text, container_id = secure.bench.backend.make(secure.bench.pki, bundles={
        f"WEB{number}": [certificate] * (count // bundles) for number in range(bundles)})
    assert 15 * MEBIBYTE < len(text) <= largest_answer() - REST
    secure.bench.offer_text(text, container_id)
    assert_within_limits(secure)
    assert secure.unit.records()[0] == container_id
    assert len(secure.unit.store()) == bundles


@pytest.mark.parametrize("rubbish", RUBBISH.values(), ids=RUBBISH)
def test_rubbish_as_large_as_an_answer_may_be_is_refused(secure, rubbish):
    secure.bench.offer_text(rubbish(largest_answer() - REST), "TSC-1")
    assert_within_limits(secure)
    assert secure.unit.store() == {}


# Each of these fields could cost a library many times its two bytes.
@pytest.mark.parametrize("field", [b"\x7a\x00", b"\x78\x00", b"\x0b\x0c"], ids=["texts", "numbers", "groups"])
def test_fields_that_nobody_knows_are_refused_in_little_memory(secure, field):
    response = Response(200, body=field * ((largest_answer() - REST) // len(field)))
    secure.bench.endpoints[DOWNLOAD].misbehave(Misbehaviour("unknown", "", lambda scene: scene.peer.send(response.bytes())))
    assert_within_limits(secure, RETRYING)
    assert secure.unit.store() == {}


@pytest.mark.parametrize("name", ENDLESS)
def test_an_answer_larger_than_it_may_be_is_cut_off(secure, name):
    secure.offer("TSC-1")
    secure.bench.misbehave(DOWNLOAD, name)
    assert_within_limits(secure, RETRYING)
    assert secure.unit.store() == {}
