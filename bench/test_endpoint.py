"""A listening port, with curl and bare sockets at the other end."""

import socket
import threading

import pytest

from bench.endpoint import Endpoint
from bench.messages import MAX_HEAD_BYTES, Response
from bench.misbehaviour import Misbehaviour

DEADLINE_S = 20


class Echo:
    """Answers with the request's own bytes."""

    def answer(self, request, behaviour):
        if request.target == "/fault":
            raise ValueError("fault")
        return Response(200, [], request.raw), f"{request.method} {request.target} {behaviour}", "200"


@pytest.fixture(name="endpoint")
def fixture_endpoint(log):
    endpoint = Endpoint("echo", log)
    endpoint.start(Echo())
    yield endpoint
    endpoint.stop()


def exchange(endpoint, content):
    """Sends bytes and returns all that comes back."""
    with socket.create_connection(("127.0.0.1", endpoint.port), DEADLINE_S) as connection:
        connection.sendall(content)
        received = b""
        while piece := connection.recv(65536):
            received += piece
        return received


def test_request_is_read_and_answered(endpoint, tools, log):
    code, output = tools.curl("-d", "body", f"http://127.0.0.1:{endpoint.port}/path")
    assert code == 0
    assert output.startswith(b"POST /path HTTP/1.1\r\n") and output.endswith(b"\r\n\r\nbody")
    assert log.lines() == ["echo: #1 POST /path None -> 200"]


def test_request_in_single_bytes_is_read(endpoint):
    with socket.create_connection(("127.0.0.1", endpoint.port), DEADLINE_S) as connection:
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        for byte in b"POST / HTTP/1.1\r\nContent-Length: 2\r\n\r\nab":
            connection.send(bytes([byte]))
        assert connection.recv(100).startswith(b"HTTP/1.1 200 OK\r\n")


@pytest.mark.parametrize("request_bytes, reason", [
    (b"nonsense\r\n\r\n", "request line 'nonsense'"),
    (b"GET / HTTP/1.1\r\n\r\n", "Content-Length missing"),
    (b"POST / HTTP/1.1\r\nContent-Length: 1\r\n\r\nabc", "2 bytes behind the body"),
    (b"POST / HTTP/1.1\r\nX: " + b"x" * MAX_HEAD_BYTES, f"head above {MAX_HEAD_BYTES} bytes"),
])
def test_bad_request_is_refused_and_told(endpoint, log, request_bytes, reason):
    assert exchange(endpoint, request_bytes).startswith(b"HTTP/1.1 400 Bad Request\r\n")
    assert log.lines() == [f"echo: #1 bad request: {reason} -> 400"]


def test_peer_that_says_nothing_is_told(endpoint, log):
    with socket.create_connection(("127.0.0.1", endpoint.port), DEADLINE_S) as connection:
        connection.shutdown(socket.SHUT_WR)
        assert connection.recv(1) == b""
    assert log.lines() == ["echo: #1 gone: closed before its request was whole"]


def test_misbehaviour_with_times_ends_by_itself(endpoint, tools, log):
    endpoint.misbehave(Misbehaviour("teapot", "", lambda scene: scene.peer.send(b"HTTP/1.1 418 x\r\n\r\n")), times=2)
    url = f"http://127.0.0.1:{endpoint.port}/"
    status = ["-d", "", "-o", "-", "-w", "%{http_code}", url]
    assert [tools.curl(*status)[1][-3:] for _ in range(3)] == [b"418", b"418", b"200"]
    assert log.lines() == ["echo: #1 [teapot] POST / teapot -> misbehaves (200 due)",
                           "echo: #2 [teapot] POST / teapot -> misbehaves (200 due)", "echo: #3 POST / None -> 200"]
    assert endpoint.behaviour() == (None, None)


def test_misbehaviour_at_once_reads_no_request(endpoint, log):
    endpoint.misbehave(Misbehaviour("hello", "", lambda scene: scene.peer.send(b"hello"), at_once=True))
    assert exchange(endpoint, b"") == b"hello"
    assert log.lines() == ["echo: #1 [hello] connected"]


def test_peer_that_leaves_before_an_answer_is_told(endpoint, log):
    endpoint.misbehave(Misbehaviour("silence", "", lambda scene: scene.peer.wait_until_gone()))
    with socket.create_connection(("127.0.0.1", endpoint.port), DEADLINE_S) as connection:
        connection.sendall(b"POST / HTTP/1.1\r\nContent-Length: 0\r\n\r\n")
        connection.shutdown(socket.SHUT_WR)
        assert connection.recv(1) == b""
    assert log.lines() == ["echo: #1 [silence] POST / silence -> misbehaves (200 due)",
                           "echo: #1 [silence] gone: closed the connection"]


def test_fault_of_the_bench_is_told(endpoint, log, monkeypatch):
    monkeypatch.setattr(threading, "excepthook", lambda _: None)
    assert exchange(endpoint, b"POST /fault HTTP/1.1\r\nContent-Length: 0\r\n\r\n") == b""
    assert log.lines() == ["echo: #1 the bench failed: ValueError('fault')"]


def test_stop_ends_silent_connections(log):
    endpoint = Endpoint("silent", log)
    endpoint.start(Echo())
    silent = threading.Event()

    def act(scene):
        silent.set()
        scene.peer.wait_until_gone()

    endpoint.misbehave(Misbehaviour("silence", "", act))
    with socket.create_connection(("127.0.0.1", endpoint.port), DEADLINE_S) as connection:
        connection.sendall(b"POST / HTTP/1.1\r\nContent-Length: 0\r\n\r\n")
        assert silent.wait(DEADLINE_S)
        endpoint.stop()
        assert connection.recv(1) == b""
    assert not [thread for thread in threading.enumerate() if thread.name.startswith("bench-silent")]
