"""The alert proxy, with bare sockets at the other end."""

import json
import pathlib
import re
import socket
import stat
import threading

import pytest

from bench import control, unix_sockets
from bench.alerts import ABSENT, CLOSE_AT_ONCE, FULL, LISTEN, REFUSE, AlertProxy, message
from bench.box import Bench
from bench.processes import BenchError

DEADLINE_S = 20
PROGRAM = pathlib.Path(__file__).with_name("bench.py")


@pytest.fixture(name="proxy")
def fixture_proxy(tmp_path, log):
    proxy = AlertProxy(tmp_path / "alerts.sock", log)
    proxy.start()
    yield proxy
    proxy.stop()


@pytest.fixture(name="unit")
def fixture_unit(proxy):
    """A connection that has asked for alerts."""
    with listen(proxy) as unit:
        yield unit


def connect(proxy):
    return unix_sockets.connect(proxy.path, DEADLINE_S)


def listen(proxy):
    unit = connect(proxy)
    unit.sendall(b"\x01")
    return unit


def received(unit, count):
    """The next `count` bytes; fewer when the connection ends before."""
    content = b""
    while len(content) < count and (piece := unit.recv(count - len(content))):
        content += piece
    return content


def ended(proxy, number=1):
    """Waits for the end of a connection and returns its record."""
    proxy.wait_for(lambda records: len(records) >= number and records[number - 1].end, DEADLINE_S)
    return proxy.records()[number - 1]


@pytest.mark.parametrize("code, operation, content", [
    (48, b"", b"\x02\x00\x00\x30"),
    (0, b"RUNA", b"\x02\x00\x04RUNA\x00"),
    (255, b"\x00\xff\n", b"\x02\x00\x03\x00\xff\n\xff"),
    (46, b"x" * 256, b"\x02\x01\x00" + b"x" * 256 + b"\x2e"),
    (48, b"x" * 65535, b"\x02\xff\xff" + b"x" * 65535 + b"\x30"),
], ids=["empty", "text", "any bytes", "two bytes of length", "longest"])
def test_alert_arrives_byte_for_byte(proxy, unit, code, operation, content):
    sending = threading.Thread(target=proxy.alert, args=(code, operation))
    sending.start()
    assert received(unit, len(content)) == content
    sending.join(DEADLINE_S)


@pytest.mark.parametrize("how, error", [
    ({"code": 256}, "alert 256: 0 to 255"),
    ({"code": -1}, "alert -1: 0 to 255"),
    ({"code": 1, "kind": 256}, "type 256: 0 to 255"),
    ({"code": 1, "kind": -1}, "type -1: 0 to 255"),
    ({"code": 1, "operation": b"x" * 65536}, "operation of 65536 bytes: at most 65535"),
    ({"code": 1, "cut": 5}, "cut at 5: 0 to 4"),
    ({"code": 1, "cut": -1}, "cut at -1: 0 to 4"),
    ({"code": 1, "times": 0}, "times and pieces: at least 1"),
    ({"code": 1, "pieces": 0}, "times and pieces: at least 1"),
    ({"code": 1, "seconds": 0}, "no unit listens for alerts within 0 s"),
])
def test_alert_that_cannot_be_is_refused(proxy, how, error):
    with pytest.raises(BenchError, match=f"^{re.escape(error)}$"):
        proxy.alert(**how)


def test_alert_waits_for_a_unit_that_listens(proxy):
    taken = []
    waiting = threading.Thread(target=lambda: taken.append(proxy.alert(48, seconds=DEADLINE_S)))
    waiting.start()
    with listen(proxy) as unit:
        assert received(unit, 4) == message(48)
    waiting.join(DEADLINE_S)
    assert taken == [1]


def test_alert_goes_to_every_unit_that_listens(proxy, unit):
    with listen(proxy) as second, connect(proxy) as silent:
        proxy.wait_for(lambda records: [record.listened for record in records] == [True, True, False], DEADLINE_S)
        assert proxy.alert(40) == 2
        assert [received(each, 4) for each in (unit, second)] == [message(40)] * 2
        silent.setblocking(False)
        with pytest.raises(BlockingIOError):
            silent.recv(1)


def test_another_type_is_sent_as_told(proxy, unit):
    proxy.alert(48, b"a", kind=3)
    assert received(unit, 5) == b"\x03\x00\x01a\x30"


@pytest.mark.parametrize("cut", range(len(message(48, b"ab")) + 1))
def test_cut_alert_ends_the_connection_behind_its_bytes(proxy, unit, cut):
    proxy.alert(48, b"ab", cut=cut)
    assert received(unit, 100) == message(48, b"ab")[:cut]
    assert ended(proxy).end == "closed here"


def test_pieces_arrive_one_by_one(proxy, unit):
    sending = threading.Thread(target=proxy.alert, args=(48, b"abc"), kwargs={"pieces": 2})
    sending.start()
    content = message(48, b"abc")
    assert [unit.recv(100) for _ in range(4)] == [content[0:2], content[2:4], content[4:6], content[6:]]
    sending.join(DEADLINE_S)


def test_several_alerts_go_in_one_write(proxy, unit):
    assert proxy.send(message(46, b"a") + message(48, b"b")) == 1
    assert unit.recv(100) == message(46, b"a") + message(48, b"b")


@pytest.mark.parametrize("times", [1, 2, 65536, 65537, 200_000])
def test_flood_is_whole(proxy, unit, times):
    flooding = threading.Thread(target=proxy.alert, args=(48,), kwargs={"times": times})
    flooding.start()
    assert received(unit, 4 * times) == message(48) * times
    flooding.join(DEADLINE_S)
    assert proxy.records()[0].sent_bytes == 4 * times


def test_unit_that_leaves_ends_a_flood(proxy, log):
    flooding = threading.Thread(target=proxy.alert, args=(48,), kwargs={"times": 10 ** 9})
    flooding.start()
    with listen(proxy) as unit:
        received(unit, 4000)
    flooding.join(DEADLINE_S)
    assert not flooding.is_alive()
    assert "alerts: sent alert 48 of '', 1000000000 times: 0 took it" in log.lines()


def test_connections_are_recorded_and_told(proxy, unit, log):
    proxy.alert(48, b"a\nb")
    unit.close()
    record = ended(proxy)
    assert (record.number, record.listened, record.sent_bytes) == (1, True, 7)
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}\+00:00", record.time)
    proxy.stop()
    assert log.lines() == ["alerts: is listen", "alerts: #1 listens", "alerts: sent alert 48 of 'a\\x0ab': 1 took it",
                           f"alerts: #1 gone: {record.end}"]


@pytest.mark.parametrize("said, end", [
    (b"", "closed before a request"), (b"\x01", "closed by the unit"), (b"\x02", "unknown request 0x02"),
    (b"\x00\x01", "unknown request 0x00"), (b"\x01\x01", "more than a request")])
def test_what_a_unit_says_is_noticed(proxy, said, end):
    with connect(proxy) as unit:
        unit.sendall(said)
        unit.shutdown(socket.SHUT_WR)
        assert ended(proxy).end == end


@pytest.mark.parametrize("said", [b"\x02", b"\x01\x01"])
def test_connection_with_a_wrong_request_is_closed(proxy, said):
    with connect(proxy) as unit:
        unit.sendall(said)
        with pytest.raises(BenchError, match="no unit listens"):
            ended(proxy)
            proxy.alert(48, seconds=0)


def test_close_at_once_ends_by_itself(proxy):
    proxy.be(CLOSE_AT_ONCE, times=2)
    for number in (1, 2):
        with connect(proxy) as unit:
            assert received(unit, 1) == b""
        assert ended(proxy, number).end == "closed at once"
    with listen(proxy) as unit:
        proxy.alert(48)
        assert received(unit, 4) == message(48)
    assert proxy.status()["proxy"] == LISTEN


@pytest.mark.parametrize("mode, error", [(FULL, BlockingIOError), (REFUSE, ConnectionRefusedError),
                                         (ABSENT, FileNotFoundError)])
def test_nobody_gets_in(proxy, unit, mode, error):
    proxy.be(mode)
    assert received(unit, 1) == b""
    with pytest.raises(error):
        unix_sockets.connect(proxy.path, 0)
    assert proxy.status() == {"path": str(proxy.path), "proxy": mode, "connections": 1, "listening": 0}
    proxy.be(LISTEN)
    with listen(proxy) as again:
        proxy.alert(48)
        assert received(again, 4) == message(48)


def test_listen_again_is_a_restart_for_a_unit_that_comes_back_at_once(proxy, unit):
    proxy.wait_for(lambda records: records and records[0].listened, DEADLINE_S)
    restart = threading.Thread(target=proxy.be, args=(LISTEN,))
    restart.start()
    assert received(unit, 1) == b""
    with listen(proxy) as again:
        restart.join(DEADLINE_S)
        proxy.alert(48)
        assert received(again, 4) == message(48)
    assert proxy.records()[0].end == "closed here"


def test_never_close_is_refused(proxy):
    with pytest.raises(BenchError, match="^0 times is never$"):
        proxy.be(CLOSE_AT_ONCE, times=0)


def test_stop_ends_a_flood_that_nobody_reads(proxy, unit):
    flooding = threading.Thread(target=proxy.alert, args=(48,), kwargs={"times": 10 ** 9})
    flooding.start()
    proxy.wait_for(lambda records: records and records[0].listened, DEADLINE_S)
    received(unit, 4)
    proxy.stop()
    flooding.join(DEADLINE_S)
    assert not flooding.is_alive()
    assert not proxy.path.exists()
    assert not [thread for thread in threading.enumerate() if thread.name.startswith("bench-alerts")]


def test_socket_in_a_deep_folder_is_for_its_owner_only(tmp_path, log):
    path = tmp_path / ("deep" * 40) / "alerts.sock"
    path.parent.mkdir()
    proxy = AlertProxy(path, log)
    proxy.start()
    with listen(proxy) as unit:
        proxy.alert(48)
        assert received(unit, 4) == message(48)
    assert stat.S_IMODE(path.stat().st_mode) == 0o600
    proxy.stop()


@pytest.mark.parametrize("left", [LISTEN, FULL])
def test_path_that_another_process_serves_is_refused(proxy, log, left):
    proxy.be(left)
    with pytest.raises(BenchError, match=f"^another process serves {proxy.path}$"):
        AlertProxy(proxy.path, log).start()
    assert proxy.path.exists()


def test_path_of_another_file_is_refused_and_kept(tmp_path, log):
    (tmp_path / "file").write_text("kept")
    with pytest.raises(BenchError, match=f"^{tmp_path}/file is there and is no socket$"):
        AlertProxy(tmp_path / "file", log).start()
    assert (tmp_path / "file").read_text() == "kept"


def test_folder_that_cannot_be_made_is_told(tmp_path, log):
    (tmp_path / "file").touch()
    with pytest.raises(BenchError, match=f"^{tmp_path}/file/alerts.sock: File exists$"):
        AlertProxy(tmp_path / "file" / "alerts.sock", log).start()


def test_socket_that_was_left_behind_is_replaced(proxy, tmp_path, log):
    proxy.be(REFUSE)
    second = AlertProxy(proxy.path, log)
    second.start()
    listen(second).close()
    second.stop()


@pytest.fixture(name="shared", scope="module")
def fixture_shared(tmp_path_factory):
    """A bench whose alert socket is where a unit looks for it."""
    folder = tmp_path_factory.mktemp("alerts")
    with Bench(folder / "bench", alerts=folder / "run" / "adaptive" / "socket") as bench:
        assert bench.alerts.path == folder / "run" / "adaptive" / "socket"
        yield bench


@pytest.fixture(name="told")
def fixture_told(shared, tools):
    """Tells the bench: told(arguments...) returns its answer."""
    serving = control.Control(shared, lambda: None)

    def tell(*arguments, check=True):
        done = tools.run(PROGRAM, "tell", shared.directory, *arguments, "--json", check=check)
        return json.loads(done.stdout) if done.returncode == 0 else (done.returncode, done.stderr.decode())
    yield tell
    shared.alerts.be(LISTEN)
    serving.close()


def test_bench_serves_the_path_that_it_was_told(shared, told):
    with listen(shared.alerts) as unit:
        assert told("alert", "48", "a\nb") == {"taken": 1}
        assert received(unit, 7) == message(48, b"a\nb")
        assert told("status")["alerts"] == {"path": str(shared.alerts.path), "proxy": LISTEN, "connections": 1,
                                            "listening": 1}
    assert [record["listened"] for record in told("listeners")] == [True]


def test_alert_that_waits_holds_up_nobody(shared, told):
    taken = []
    command = {"command": "alert", "code": 48, "operation": "", "type": 2, "cut": None, "pieces": None, "flood": 1,
               "timeout": DEADLINE_S}
    waiting = threading.Thread(target=lambda: taken.append(control.tell(shared.directory, command)))
    waiting.start()
    assert told("status")["alerts"]["listening"] == 0
    with listen(shared.alerts) as unit:
        assert received(unit, 4) == message(48)
    waiting.join(DEADLINE_S)
    assert taken == [{"taken": 1}]


def test_tell_alert_takes_all_options(shared, told):
    with listen(shared.alerts) as unit:
        reading = threading.Thread(target=lambda: pieces.extend(unit.recv(100) for _ in range(4)))
        pieces = []
        reading.start()
        told("alert", "46", "\udcff", "--type", "3", "--flood", "2", "--pieces", "3", "--timeout", str(DEADLINE_S))
        reading.join(DEADLINE_S)
        assert pieces == [b"\x03\x00\x01", b"\xff\x2e"] * 2
        assert told("alert", "46", "--cut", "1") == {"taken": 1}
        assert received(unit, 10) == b"\x02"


def test_tell_proxy_changes_it(shared, told):
    assert told("proxy", "absent")["proxy"] == ABSENT
    assert not shared.alerts.path.exists()
    assert told("proxy", "close-at-once", "--times", "3")["proxy"] == CLOSE_AT_ONCE


@pytest.mark.parametrize("arguments, error", [
    (["alert", "256"], (1, "bench.py: alert 256: 0 to 255\n")),
    (["alert", "48", "--timeout", "0"], (1, "bench.py: no unit listens for alerts within 0.0 s\n")),
    (["proxy", "close-at-once", "--times", "0"], (1, "bench.py: 0 times is never\n")),
])
def test_tell_says_what_is_wrong(told, arguments, error):
    assert told(*arguments, check=False) == error
