"""Programs that the bench runs."""

import os
import select
import signal
import subprocess
import sys
import threading

import pytest

from bench import processes
from bench.processes import BenchError, Process, free_port

DEADLINE_S = 20


@pytest.fixture(name="sleeper")
def fixture_sleeper(tmp_path):
    process = Process("sleeper", tmp_path / "log")
    yield process
    process.kill()


def has_ended(pidfd):
    return bool(select.select([pidfd], [], [], DEADLINE_S)[0])


def test_free_port_is_none_that_outgoing_connections_get():
    with open("/proc/sys/net/ipv4/ip_local_port_range", encoding="ascii") as limits:
        lowest = int(limits.read().split()[0])
    assert 1024 < free_port() < lowest


def test_start_waits_until_ready(sleeper, tmp_path):
    assert sleeper.start(["sh", "-c", "echo ready; sleep 60"], lambda: (tmp_path / "log").read_text() == "ready\n")
    assert sleeper.running()


def test_start_of_what_ends_at_once_is_false(sleeper):
    assert not sleeper.start(["false"], lambda: False)
    assert sleeper.pid is None


def test_start_of_what_never_gets_ready_raises_and_leaves_nothing(sleeper, monkeypatch):
    monkeypatch.setattr(processes, "START_S", 0.1)
    with pytest.raises(BenchError, match="sleeper is not ready after 0.1 s"):
        sleeper.start(["sleep", "60"], lambda: False)
    assert not sleeper.running()


def test_stop_ends_what_ignores_the_request(sleeper, tmp_path, monkeypatch):
    monkeypatch.setattr(processes, "STOP_S", 0.1)
    ready = lambda: (tmp_path / "log").read_text() == "ready\n"
    sleeper.start(["sh", "-c", "trap '' TERM; echo ready; while true; do sleep 60; done"], ready)
    sleeper.stop()
    assert not sleeper.running()


def test_process_outlives_the_thread_that_started_it(sleeper):
    thread = threading.Thread(target=sleeper.start, args=(["sleep", "60"], lambda: True))
    thread.start()
    thread.join()
    pidfd = os.pidfd_open(sleeper.pid)
    assert not select.select([pidfd], [], [], 0.2)[0]
    os.close(pidfd)


def test_process_ends_with_a_killed_parent(tmp_path):
    code = ("import sys, time; sys.path.insert(0, sys.argv[1]); from bench.processes import Process;"
            "p = Process('sleeper', sys.argv[2]);"
            "p.start(['sleep', '60'], lambda: open(f'/proc/{p.pid}/comm').read() == 'sleep\\n');"
            "print(p.pid, flush=True);"
            "time.sleep(60)")
    source = os.path.dirname(os.path.dirname(os.path.abspath(processes.__file__)))
    with subprocess.Popen([sys.executable, "-B", "-c", code, source, str(tmp_path / "log")],
                          stdout=subprocess.PIPE) as parent:
        pidfd = os.pidfd_open(int(parent.stdout.readline()))
        parent.send_signal(signal.SIGKILL)
        assert has_ended(pidfd)
        os.close(pidfd)
