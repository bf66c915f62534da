"""A unit that listens for TLS alerts, against the bench's proxy at the path where units look for it."""

import datetime
import re
import signal
import threading
import time

import pytest

from bench.alerts import ABSENT, CLOSE_AT_ONCE, FULL, LISTEN, REFUSE, AlertProxy, message
from bench.log import EventLog

SOCKET = "var/run/adaptive/csc/tarn-uxds/socks-cdp/sockstlsalertifsocket"
LISTENER = "alert_listener"
ATTEMPT = "debug: SocksTlsAlertClient: Try to EstablishConnection to socks-cdp"
ESTABLISHED = "debug: SocksTlsAlertClient: Connection established to socks-cdp"
FAILED = "error: SocksTlsAlertClientConnector: Connection failed, code:  -1"
STARTED = "info: TlsAlerts: Connected to Socks-CDP!"
LOST = "debug: TlsAlerts: Socks-CDP Error, socks will start reconnecting"
CONNECT = [ATTEMPT, "debug: SocksTlsAlertClientConnector: Connection opened. Socket: N", ESTABLISHED]
END_OF_STREAM = "info: SocksTlsAlertClientCommunicator: EOF received (socket closed from other end)"
CLOSING = "debug: SocksTlsAlertClientCommunicator: Closing socket: N"
SOCKET_CLOSED = "info: SocksTlsAlertClientCommunicator: Socket closed"
BEGIN = [f"debug: SocksTlsAlertClientConnector: New connector: /{SOCKET}",
         "info: TlsAlerts: Setting Filter for 46", "info: TlsAlerts: Setting Filter for 48"]
ALERT = message(48, b"RUNA")
# A line that an attacker would like to see in the log of somebody else's error, colours and all.
FORGED = b"x\n2024-07-05T11:02:03.004Z error TU forged\r\x1b[31m\x00\xc2\x85\xff'"
ESCAPED = r"x\x0a2024-07-05T11:02:03.004Z error TU forged\x0d\x1b[31m\x00\xc2\x85\xff'"


@pytest.fixture(name="proxy")
def fixture_proxy(unit):
    proxy = AlertProxy(unit.root / SOCKET.removeprefix("var/"), EventLog())
    proxy.start()
    yield proxy
    proxy.stop()


@pytest.fixture(name="listener")
def fixture_listener(unit, proxy):
    """The program, listening."""
    running = start(unit)
    listens(proxy, 1)
    return running


def start(unit):
    unit.configure('[logging]\nlevel = "debug"\n')
    running = unit.start(LISTENER)
    running.wait_for(STARTED)
    return running


def listens(proxy, number):
    """Waits for the connection of this number to listen."""
    proxy.wait_for(lambda records: len(records) >= number and records[number - 1].listened)


def received(code, operation):
    """What is logged of an alert, whether or not anybody wants it."""
    return f"info: TlsAlerts: Received Alert: OperationId='{operation}', TlsAlertCode={code}"


def told(code, operation):
    """What the program's own callback logs of an alert."""
    return f"info: {LISTENER}: {code} {operation}"


def end(running):
    """Ends the program, which has to succeed. Returns its log with N for the numbers of sockets."""
    code, log = running.end()
    assert code == 0, log
    return [re.sub(r"(?<=ocket: )\d+$", "N", line) for line in log]


def without(log, *lines):
    """A log without these lines, each of which must be there: other threads wrote them."""
    for line in lines:
        log.remove(line)
    return log


def test_alerts_are_told_and_the_whole_log_is_as_expected(proxy, listener):
    for code, operation in ((46, b"a"), (40, b"b"), (48, b"")):
        assert proxy.alert(code, operation) == 1
    listener.wait_for(told(48, ""))
    log = without(end(listener), STARTED)
    assert log[:len(BEGIN + CONNECT)] == BEGIN + CONNECT
    assert [line for line in log if line.startswith("info: ") and line != SOCKET_CLOSED] == [
        *BEGIN[1:], received(46, "a"), told(46, "a"), received(40, "b"), received(48, ""), told(48, "")]
    proxy.wait_for(lambda records: records[0].end == "closed by the unit")


@pytest.mark.parametrize("size", [None, 1, 3], ids=["in one write", "byte by byte", "in threes"])
def test_two_alerts_are_told_in_order(proxy, listener, size):
    assert proxy.send(message(46, b"first") + message(48, b"second"), size=size) == 1
    listener.wait_for(told(48, "second"))
    log = end(listener)
    assert [line for line in log if "first" in line or "second" in line] == [
        received(46, "first"), told(46, "first"), received(48, "second"), told(48, "second")]


def test_connection_that_ends_at_any_byte_of_an_alert_is_made_anew(proxy, listener):
    for cut in range(len(ALERT)):
        proxy.send(ALERT[:cut], close=True)
        listener.wait_for(LOST, cut + 1)
        listens(proxy, cut + 2)
    proxy.send(ALERT)
    listener.wait_for(told(48, "RUNA"))
    expected = BEGIN + (CONNECT + [END_OF_STREAM, LOST, CLOSING]) * len(ALERT) + CONNECT + [
        received(48, "RUNA"), told(48, "RUNA")]
    log = without(end(listener), STARTED)
    assert log[:len(expected)] == expected
    assert not [line for line in log[len(expected):] if line not in (SOCKET_CLOSED, CLOSING)]


@pytest.mark.parametrize("kind", [0, 1, 3, 255])
def test_another_type_is_a_lost_connection(proxy, listener, kind):
    proxy.alert(48, b"RUNA", kind=kind)
    listens(proxy, 2)
    proxy.alert(48, b"after")
    listener.wait_for(told(48, "after"))
    log = end(listener)
    assert log.count(LOST) == 1
    assert received(48, "RUNA") not in log
    proxy.wait_for(lambda records: records[0].end not in (None, "closed here"))


def test_proxy_that_starts_again_is_found_at_once(proxy, listener):
    began = time.monotonic()
    for number in range(2, 6):
        proxy.be(LISTEN)
        listens(proxy, number)
    assert time.monotonic() - began < 9
    proxy.alert(46, b"a")
    listener.wait_for(told(46, "a"))
    assert end(listener).count(LOST) == 4


def test_proxy_that_closes_every_connection_is_tried_again(proxy, listener):
    proxy.be(CLOSE_AT_ONCE, times=50)
    listens(proxy, 52)
    proxy.alert(46, b"a")
    listener.wait_for(told(46, "a"))
    log = end(listener)
    assert log.count(ESTABLISHED) == 52
    assert FAILED not in log


@pytest.mark.long
def test_without_a_proxy_the_next_attempt_comes_after_ten_seconds(unit, proxy):
    proxy.be(ABSENT)
    listener = start(unit)
    listener.wait_for(FAILED)
    proxy.be(LISTEN)
    listener.wait_for(ESTABLISHED)
    # Less than two pauses, on a busy machine too.
    assert 9.9 <= seconds_between(listener, FAILED, ESTABLISHED) < 19.9
    log = without(end(listener), STARTED)
    assert log[:len(BEGIN) + 2] == BEGIN + [ATTEMPT, FAILED]
    assert log[len(BEGIN) + 2:][:len(CONNECT)] == CONNECT


def seconds_between(running, first, second):
    """The time between two lines of a log, by their own stamps."""
    stamps = [datetime.datetime.fromisoformat(line.split()[0].removesuffix("Z"))
              for wanted in (first, second) for line in running.lines() if line.endswith(wanted.partition(": ")[2])]
    return (stamps[1] - stamps[0]).total_seconds()


@pytest.mark.parametrize("mode", [ABSENT, REFUSE, FULL])
def test_unit_that_waits_for_the_proxy_ends_at_once(unit, proxy, mode):
    proxy.be(mode)
    listener = start(unit)
    listener.wait_for(FAILED)
    began = time.monotonic()
    log = without(end(listener), STARTED)
    assert time.monotonic() - began < 9
    assert log == BEGIN + [ATTEMPT, FAILED]


def test_unit_ends_in_the_middle_of_a_flood(proxy, listener):
    taken = []
    flood = threading.Thread(target=lambda: taken.append(proxy.alert(48, b"RUNA", times=10 ** 9)))
    flood.start()
    listener.wait_for(told(48, "RUNA"), 1000)
    began = time.monotonic()
    end(listener)
    assert time.monotonic() - began < 9
    flood.join(30)
    assert taken == [0]


def test_unit_that_a_signal_interrupts_goes_on_listening(proxy, listener):
    for number in (1, 2, 3):
        listener.send_signal(signal.SIGSTOP)
        listener.send_signal(signal.SIGCONT)
        proxy.alert(48, str(number).encode())
        listener.wait_for(told(48, str(number)))
    assert LOST not in end(listener)


def test_operation_forges_no_line(proxy, listener):
    proxy.alert(48, FORGED)
    listener.wait_for(told(48, ESCAPED))
    log = end(listener)
    assert [line for line in log if "forged" in line] == [received(48, ESCAPED), told(48, ESCAPED)]
    assert not [line for line in log if line.startswith("error")]


def test_longest_operation_is_one_line(proxy, listener):
    proxy.alert(46, b"x" * 65535)
    proxy.alert(48, b"after")
    listener.wait_for(told(48, "after"))
    end(listener)
    lines = [line for line in listener.lines() if "xxx" in line]
    assert [(len(line), line.endswith("x [cut]")) for line in lines] == [(4095, True)] * 2
