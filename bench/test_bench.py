"""The command line, and what is left behind."""

import datetime
import json
import os
import pathlib
import re
import select
import signal
import socket
import subprocess
import sys

import pytest

from bench.box import Bench
from bench.misbehaviours import TABLE
from bench.processes import BenchError

PROGRAM = pathlib.Path(__file__).with_name("bench.py")
DEADLINE_S = 30


def tell(tools, directory, *arguments, check=True):
    return tools.run(PROGRAM, "tell", directory, *arguments, check=check)


class Running:
    """`bench.py run` in a directory."""

    def __init__(self, directory, *arguments, **how):
        command = [str(PROGRAM), "run", "--directory", str(directory), *arguments]
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, text=True, **how)
        self.output = []
        for line in self.process.stdout:
            self.output.append(line)
            if line.startswith("tell it more:"):
                break

    def end(self, number):
        self.process.send_signal(number)
        rest, _ = self.process.communicate(timeout=DEADLINE_S)
        return self.process.returncode, rest


@pytest.fixture(name="running")
def fixture_running(tmp_path):
    running = Running(tmp_path / "bench")
    yield running
    running.process.kill()
    running.process.communicate()


def descendants(pid):
    """Process ids below `pid`."""
    found = []
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        for child in (task / "children").read_text().split():
            found += [int(child), *descendants(child)]
    return found


def await_end(pidfds):
    for pidfd in pidfds:
        assert select.select([pidfd], [], [], DEADLINE_S)[0]
        os.close(pidfd)


def listening(pid):
    """Addresses of /proc/net/tcp and tcp6 that a process listens on."""
    inodes = set()
    for descriptor in pathlib.Path(f"/proc/{pid}/fd").iterdir():
        link = os.readlink(descriptor)
        if link.startswith("socket:["):
            inodes.add(link[8:-1])
    rows = [line.split() for name in ("tcp", "tcp6") for line in
            pathlib.Path(f"/proc/{pid}/net/{name}").read_text().splitlines()[1:]]
    return [row[1].partition(":")[0] for row in rows if row[3] == "0A" and row[9] in inodes]


def test_summary_names_what_a_unit_needs(running, tmp_path):
    text = "".join(running.output)
    for part in (f"{tmp_path}/bench/host-platform.toml", f"{tmp_path}/bench/pki/root.pem", "http://127.0.0.1:"):
        assert part in text
    assert re.search(r"^  ocsp +http://127.0.0.1:\d+/ocsp\n  mod-ocsp +http://127.0.0.1:\d+/ocsp\n", text, re.MULTILINE)


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_signal_ends_all_of_it(tmp_path, number):
    running = Running(tmp_path / "bench")
    below = [os.pidfd_open(pid) for pid in descendants(running.process.pid)]
    assert len(below) >= 3
    code, rest = running.end(number)
    assert code == 0
    assert rest.endswith(f"bench: ends, on {number.name}\n")
    await_end(below)


def test_killed_bench_leaves_no_process(running):
    below = [os.pidfd_open(pid) for pid in descendants(running.process.pid)]
    running.process.kill()
    await_end(below)


def test_bench_ends_with_its_parent(tmp_path):
    code = ("import subprocess, sys; p = subprocess.Popen(sys.argv[1:]); print(p.pid, file=sys.stderr, flush=True);"
            "p.wait()")
    parent = subprocess.Popen([sys.executable, "-c", code, str(PROGRAM), "run", "--directory", str(tmp_path / "bench")],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    pid = int(parent.stderr.readline())
    for line in parent.stdout:
        if line.startswith("tell it more:"):
            break
    all_of_it = [os.pidfd_open(each) for each in (pid, *descendants(pid))]
    parent.kill()
    parent.communicate()
    try:
        await_end(all_of_it)
    except AssertionError:
        os.kill(pid, signal.SIGKILL)
        raise
    assert last_word(tmp_path / "bench") == "bench: ends, the process that started it has ended"


def last_word(directory):
    """The last line of a bench's log without its time."""
    return (directory / "bench.log").read_text().splitlines()[-1].partition(" ")[2]


def test_log_begins_with_the_date_of_each_run(tmp_path):
    for _ in range(2):
        before = datetime.date.today()
        with Bench(tmp_path):
            pass
    started = [line.partition(" ")[2] for line in (tmp_path / "bench.log").read_text().splitlines()
               if " bench: starts " in line]
    assert len(started) == 2
    assert started[1] in {f"bench: starts on {day}" for day in (before, datetime.date.today())}


def test_everything_listens_on_loopback_only(running):
    pid = running.process.pid
    addresses = [address for each in (pid, *descendants(pid)) for address in listening(each)
                 if in_our_network(each)]
    assert len(addresses) == 5
    assert set(addresses) == {"0100007F"}


def in_our_network(pid):
    """Whether a process shares this one's network: the responders do not."""
    return os.readlink(f"/proc/{pid}/ns/net") == os.readlink("/proc/self/ns/net")


def test_tell_has_things_done_and_asks(running, tmp_path, tools):
    directory = tmp_path / "bench"
    made = json.loads(tell(tools, directory, "container", "new", "--id", "id-1", "--json").stdout)
    assert made == {"container_id": "id-1"}
    tell(tools, directory, "job")
    tell(tools, directory, "revoke", "signer")
    tell(tools, directory, "misbehave", "download", "silence", "--times", "2")
    tell(tools, directory, "broker", "kill")
    status = json.loads(tell(tools, directory, "status", "--json").stdout)
    assert status["container"] == "id-1"
    assert status["certificates"]["signer"] == "revoked"
    assert status["endpoints"]["download"]["misbehaviour"] == "silence"
    assert status["endpoints"]["download"]["times"] == 2
    assert status["broker"]["running"] is False
    tell(tools, directory, "stop")
    assert running.process.wait(DEADLINE_S) == 0
    assert last_word(directory) == "bench: ends, as told"


def test_requests_tell_which_status_was_only_due(running, tmp_path, tools):
    directory = tmp_path / "bench"
    url = json.loads(tell(tools, directory, "status", "--json").stdout)["endpoints"]["download"]["url"]
    tell(tools, directory, "misbehave", "download", "status-503", "--times", "1")
    for _ in range(2):
        tools.curl("-d", "", url)
    told = tell(tools, directory, "requests").stdout.decode().splitlines()
    assert " status=401(was due) misbehaviour=status-503" in told[0]
    assert " status=401 " in told[1]


def test_tell_offers_bundles_and_files(running, tmp_path, tools):
    directory = tmp_path / "bench"
    tell(tools, directory, "container", "new", "--bundle", f"X={directory}/pki/server-ca.pem")
    (tmp_path / "any.tsc").write_text("any text")
    tools.run(PROGRAM, "tell", directory, "container", "file", "--file", "any.tsc", cwd=tmp_path)
    assert (directory / "container.tsc").read_text() == "any text"


def test_file_is_offered_under_the_id_that_it_holds(shared, tmp_path, tools):
    tell(tools, shared, "container", "new", "--id", "TSC-HELD")
    path = tmp_path / "held.tsc"
    path.write_bytes((pathlib.Path(shared) / "container.tsc").read_bytes())
    offer = ["container", "file", "--file", path]
    assert tell(tools, shared, *offer).stdout == b"container_id: TSC-HELD\n"
    assert tell(tools, shared, *offer, "--id", "other").stdout == b"container_id: other\n"
    path.write_text("any text")
    assert tell(tools, shared, *offer).stdout == b"container_id: FILE\n"


def test_nothing_offered_is_told_in_words(shared, tools):
    assert tell(tools, shared, "container", "none").stdout == b"container_id: none\n"
    assert b"\ncontainer: none\n" in tell(tools, shared, "status").stdout


@pytest.mark.parametrize("arguments, error", [
    (["revoke", "nobody"], "bench.py: no certificate 'nobody'; there are ca-1, signer, retired\n"),
    (["misbehave", "download", "nonsense"],
     "bench.py: no misbehaviour 'nonsense'; `bench.py misbehaviours` lists them\n"),
    (["misbehave", "download", "silence", "--times", "0"], "bench.py: 0 times is never\n"),
    (["reports", "--wait", "1", "--timeout", "0"], "bench.py: 0 in place of 1 reports within 0.0 s\n"),
    (["misbehave", "download", "tls-cut"], "bench.py: 'tls-cut' needs a bench that runs with --https\n"),
    (["container", "new", "--bundle", "X"], "bench.py: --bundle X: not NAME=FILE\n"),
    (["responder", "ca-9", "kill"], "bench.py: no CA 'ca-9'; there are root, ca-1\n"),
    (["broker", "start"], "bench.py: broker runs already\n"),
])
def test_tell_says_what_is_wrong(shared, tools, arguments, error):
    done = tell(tools, shared, *arguments, check=False)
    assert (done.returncode, done.stderr.decode()) == (1, error)


@pytest.fixture(name="shared", scope="module")
def fixture_shared(tmp_path_factory):
    running = Running(tmp_path_factory.mktemp("shared"))
    yield running.process.args[3]
    running.end(signal.SIGTERM)


def test_control_survives_nonsense(shared, tools):
    with socket.socket(socket.AF_UNIX) as connection:
        connection.settimeout(DEADLINE_S)
        connection.connect(f"{shared}/control.sock")
        connection.sendall(b"nonsense\n")
        assert connection.recv(1) == b""
    assert tell(tools, shared, "status").returncode == 0


def test_tell_without_a_bench_says_so(tmp_path, tools):
    done = tell(tools, tmp_path, "status", check=False)
    assert done.returncode == 1
    assert done.stderr.decode().startswith(f"bench.py: no bench answers in {tmp_path}: ")


@pytest.mark.parametrize("arguments", [
    [], ["burn"], ["run", "--chain-length", "0"], ["run", "--chain-length", "9"], ["run", "--client-certificate"],
    ["run", "--first-port", "80"], ["run", "--first-port", "65532"], ["tell"], ["tell", ".", "burn"],
    ["tell", ".", "misbehave", "nowhere", "silence"], ["tell", ".", "container", "file"],
    ["tell", ".", "container", "new", "--file", "x"], ["tell", ".", "job", "A", "--payload", "x"]])
def test_wrong_usage_is_two(tools, arguments):
    assert tools.run(PROGRAM, *arguments, check=False).returncode == 2


def test_second_bench_in_a_directory_is_refused(tmp_path):
    with Bench(tmp_path):
        with pytest.raises(BenchError, match=f"a bench runs in {tmp_path} already"):
            with Bench(tmp_path):
                pass


def test_port_that_is_taken_is_told_and_nothing_stays(tmp_path):
    with socket.create_server(("127.0.0.1", 0)) as taken:
        port = taken.getsockname()[1]
        with pytest.raises(BenchError, match=f"port {port} for download: Address already in use"):
            with Bench(tmp_path, first_port=port):
                pass
    with Bench(tmp_path) as bench:
        assert bench.status()["broker"]["running"]


def test_certificates_stay_from_bench_to_bench(tmp_path):
    roots = []
    for _ in range(2):
        with Bench(tmp_path) as bench:
            roots.append(bench.root_path.read_bytes())
    assert roots[0] == roots[1]


def test_temporary_directory_goes_with_the_bench():
    with Bench() as bench:
        directory = bench.directory
        assert directory.exists()
    assert not directory.exists()


def test_client_certificate_is_wanted(tmp_path, tools):
    with Bench(tmp_path, https=True, client_certificate=True) as bench:
        ca = ["--cacert", bench.pki.path("server-ca")]
        assert tools.download(bench, *ca)[0] != 0
        mine = ["--cert", bench.pki.path("client"), "--key", bench.pki.key_path("client")]
        assert tools.download(bench, *ca, *mine)[0] == 0
        assert f'cert_file = "{bench.pki.path("client")}"' in bench.config_path.read_text()


def test_misbehaviours_are_listed(tools):
    listed = json.loads(tools.run(PROGRAM, "misbehaviours", "--json").stdout)
    assert list(listed) == list(TABLE)
    assert len(tools.run(PROGRAM, "misbehaviours").stdout.splitlines()) == len(TABLE)
