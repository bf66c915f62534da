"""Reading requests and writing answers."""

import pytest

from bench.messages import MAX_BODY_BYTES, BadRequest, Response, body_length, parse_head


def test_parse_head_tells_method_target_version_and_headers():
    head = b"POST /path?x HTTP/1.1\r\nHost: a:80\r\nEmpty:\r\nAccept:  b "
    assert parse_head(head) == ("POST", "/path?x", "HTTP/1.1", [("Host", "a:80"), ("Empty", ""), ("Accept", "b")])


@pytest.mark.parametrize("head", [
    b"", b"POST", b"POST /", b"POST  / HTTP/1.1", b"POST / HTTP/1.1 x", b"POST / HTTP/2", b"POST / http/1.1",
    b"POST / HTTP/1.1\r\nno colon", b"POST / HTTP/1.1\r\n: no name", b"POST / HTTP/1.1\r\nName : value",
    b"POST / HTTP/1.1\r\n folded: line", b"POST / HTTP/1.1\n"])
def test_parse_head_refuses(head):
    with pytest.raises(BadRequest):
        parse_head(head)


@pytest.mark.parametrize("value, length", [("0", 0), ("27", 27), (str(MAX_BODY_BYTES), MAX_BODY_BYTES)])
def test_body_length_accepts(value, length):
    assert body_length([("content-LENGTH", value)]) == length


@pytest.mark.parametrize("values", [[], ["1", "1"], ["-1"], ["+1"], ["1,2"], [""], ["many"], [str(MAX_BODY_BYTES + 1)]])
def test_body_length_refuses(values):
    with pytest.raises(BadRequest):
        body_length([("Content-Length", value) for value in values])


def test_response_is_written_line_by_line():
    assert Response(200, [("Content-Type", "text/plain")], b"abc").bytes() == (
        b"HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 3\r\nConnection: close\r\n\r\nabc")


def test_response_204_has_no_length():
    assert Response(204).bytes() == b"HTTP/1.1 204 No Content\r\nConnection: close\r\n\r\n"
