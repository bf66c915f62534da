"""HTTP at its worst. The answer that was due is in scene.response; each says what becomes of it."""

import itertools
import time

from bench.messages import Response
from bench.misbehaviour import Misbehaviour

END = b"\r\n\r\n"
FLOOD_LINES = 20_000
HUGE_LINE = 1024 * 1024
BIG_BODY = 64 * 1024 * 1024
PIECE = b"x" * 65536
# An endless answer goes on for this long unless its reader goes away before.
ENDLESS_S = 600


def _as_is(content):
    """Sends these bytes in place of the answer."""
    return lambda scene: scene.peer.send(content)


def _answer(status, headers=(), body=b""):
    return lambda scene: scene.peer.send(Response(status, list(headers), body).bytes())


def _status_line(line):
    """The due answer with another status line."""
    def act(scene):
        scene.peer.send(line + b"\r\n" + scene.response.bytes().partition(b"\r\n")[2])
    return act


def _lines(*lines):
    """The due answer with further header lines, and without Content-Length."""
    def act(scene):
        scene.peer.send(scene.response.head(length=False, extra=lines) + END + scene.response.body)
    return act


def _length(amend):
    """The due answer with what amend(its length) says for Content-Length."""
    return lambda scene: _lines(f"Content-Length: {amend(len(scene.response.body))}")(scene)


def _until(mark, beyond=0):
    """A way to send the due answer up to `mark` and `beyond` bytes more."""
    def send(scene):
        before, found, behind = scene.response.bytes().partition(mark)
        scene.peer.send(before + (found + behind)[:beyond])
    return send


def _half_of_the_body(scene):
    content = scene.response.bytes()
    body = len(content.partition(END)[2])
    scene.peer.send(content[:len(content) - max(1, body // 2)])


def _then(send, ending):
    """First one, then the other."""
    def act(scene):
        send(scene)
        ending(scene)
    return act


def _nothing(_):
    pass


def _cut(scene):
    scene.peer.cut()


def _reset(scene):
    scene.peer.reset()


def _silence(scene):
    scene.peer.wait_until_gone()


def _forever(first, pieces):
    def act(scene):
        first(scene)
        end = time.monotonic() + ENDLESS_S
        for piece in pieces():
            scene.peer.send(piece)
            if time.monotonic() > end:
                return
    return act


def _slow_status(scene):
    scene.peer.drip(scene.response.bytes())


def _slow_headers(scene):
    line, end, rest = scene.response.bytes().partition(b"\r\n")
    scene.peer.send(line + end)
    scene.peer.drip(rest)


def _slow_body(scene):
    head, _, body = scene.response.bytes().partition(END)
    scene.peer.send(head + END)
    scene.peer.drip(body)


def _pieces(scene):
    scene.peer.drip(scene.response.bytes(), seconds=0.002, size=97)


def _chunks(body, size=1000):
    parts = [body[start:start + size] for start in range(0, len(body), size)]
    return b"".join(b"%x\r\n%s\r\n" % (len(part), part) for part in parts) + b"0" + END


def _chunked(encode):
    def act(scene):
        head = scene.response.head(length=False, extra=["Transfer-Encoding: chunked"])
        scene.peer.send(head + END + encode(scene.response.body))
    return act


def _prefixed(prefix):
    return lambda scene: scene.peer.send(prefix + scene.response.bytes())


def _bare_line_feeds(scene):
    head, _, body = scene.response.bytes().partition(END)
    scene.peer.send(head.replace(b"\r\n", b"\n") + b"\n\n" + body)


def _no_end(scene):
    scene.peer.send(scene.response.head())


def _half_closed(scene):
    scene.peer.send(scene.response.bytes())
    scene.peer.finish_sending()
    scene.peer.wait_until_gone()


def _trailing(scene):
    scene.peer.send(scene.response.bytes() + b"HTTP/1.1 500 Internal Server Error" + END)


def _big_body(scene):
    scene.peer.send(Response(200).head(length=False, extra=[f"Content-Length: {BIG_BODY}"]) + END)
    for _ in range(BIG_BODY // len(PIECE)):
        scene.peer.send(PIECE)


def _head_200(scene):
    scene.peer.send(Response(200).head(length=False) + END)


def _status_200(scene):
    scene.peer.send(b"HTTP/1.1 200 OK\r\n")


def _open_line(scene):
    scene.peer.send(b"HTTP/1.1 200 OK\r\nX-Endless: ")


_STATUSES = [Misbehaviour(f"status-{status}", f"the status {status} without a body", _answer(status))
             for status in (201, 202, 204, 206, 300, 400, 401, 403, 404, 429, 500, 502, 503, 299, 999)]

_STATUS_LINES = [
    Misbehaviour("status-301", "a redirection to another server", _answer(301, [("Location", "http://127.0.0.1:9/")])),
    Misbehaviour("status-word", "a word in place of the status number", _status_line(b"HTTP/1.1 OK fine")),
    Misbehaviour("status-huge", "a status number of thirty digits", _status_line(b"HTTP/1.1 " + b"9" * 30 + b" OK")),
    Misbehaviour("status-negative", "a status number below 0", _status_line(b"HTTP/1.1 -20 OK")),
    Misbehaviour("status-missing", "a status line that ends behind the version", _status_line(b"HTTP/1.1")),
    Misbehaviour("status-no-reason", "a status line without a reason", _status_line(b"HTTP/1.1 204")),
    Misbehaviour("status-line-only", "a status line and nothing else, not even its end", _as_is(b"HTTP/1.1 204")),
    Misbehaviour("status-with-body", "the status 500 with a page", _answer(500, [("Content-Type", "text/html")],
                                                                          b"<h1>Internal Server Error</h1>")),
    Misbehaviour("http-word-only", "the four letters HTTP", _as_is(b"HTTP")),
    Misbehaviour("http-2", "the preface of another version", _status_line(b"HTTP/2 200")),
    Misbehaviour("no-status-line", "the body without a head", lambda scene: scene.peer.send(scene.response.body)),
    Misbehaviour("garbage", "bytes that mean nothing", _as_is(bytes(range(256)) * 16)),
    Misbehaviour("zeros", "a mebibyte of zero bytes", _as_is(bytes(1024 * 1024))),
    Misbehaviour("other-protocol", "the greeting of a mail server", _as_is(b"220 mail.example ESMTP\r\n")),
    Misbehaviour("line-breaks", "nothing but empty lines", _as_is(b"\r\n" * 1000)),
]

_ENDINGS = [
    Misbehaviour("silence", "reads the request and says nothing", _silence),
    Misbehaviour("silence-after-status", "says nothing behind the status line", _then(_until(b"\r\n", 2), _silence)),
    Misbehaviour("silence-in-headers", "says nothing in the middle of a header line",
                 _then(_until(b"Con", 3), _silence)),
    Misbehaviour("silence-in-body", "says nothing in the middle of the body", _then(_half_of_the_body, _silence)),
    Misbehaviour("silence-after-answer", "a good answer, and the connection stays open",
                 _then(lambda scene: scene.peer.send(scene.response.bytes()), _silence)),
    Misbehaviour("half-closed", "a good answer, then only its own direction is closed", _half_closed),
    Misbehaviour("cut-before-status", "closes without an answer", _cut),
    Misbehaviour("cut-in-status", "closes in the status line", _then(_as_is(b"HTTP/1."), _cut)),
    Misbehaviour("cut-after-status", "closes behind the status line", _then(_until(b"\r\n", 2), _cut)),
    Misbehaviour("cut-in-headers", "closes in a header line", _then(_until(b"Con", 3), _cut)),
    Misbehaviour("cut-before-body", "closes behind the head", _then(_until(END, 4), _cut)),
    Misbehaviour("cut-in-body", "closes in the body", _then(_half_of_the_body, _cut)),
    Misbehaviour("reset-before-status", "resets the connection without an answer", _reset),
    Misbehaviour("reset-in-status", "resets it in the status line", _then(_as_is(b"HTTP/1."), _reset)),
    Misbehaviour("reset-in-headers", "resets it in a header line", _then(_until(b"Con", 3), _reset)),
    Misbehaviour("reset-in-body", "resets it in the body", _then(_half_of_the_body, _reset)),
    Misbehaviour("reset-after-answer", "resets it behind a good answer",
                 _then(lambda scene: scene.peer.send(scene.response.bytes()), _reset)),
]

_TIMES_AND_SIZES = [
    Misbehaviour("slow-status", "a good answer, five bytes a second", _slow_status),
    Misbehaviour("slow-headers", "the status line, then five bytes a second", _slow_headers),
    Misbehaviour("slow-body", "the head, then five bytes a second", _slow_body),
    Misbehaviour("small-pieces", "a good answer in pieces of 97 bytes", _pieces),
    Misbehaviour("endless-headers", "header lines without end", _forever(_status_200, lambda: (
        b"X-%d: endless\r\n" % number for number in itertools.count()))),
    Misbehaviour("endless-header-line", "one header line without end", _forever(
        _open_line, lambda: itertools.repeat(PIECE))),
    Misbehaviour("endless-body", "a body without end", _forever(_head_200, lambda: itertools.repeat(PIECE))),
    Misbehaviour("endless-continue", "interim answers without end", _forever(_nothing, lambda: itertools.repeat(
        b"HTTP/1.1 100 Continue" + END))),
    Misbehaviour("endless-garbage", "bytes that mean nothing, without end", _forever(
        _nothing, lambda: itertools.repeat(bytes(range(256)) * 256))),
    Misbehaviour("big-body", f"a body of {BIG_BODY} bytes, as announced", _big_body),
]

_HEADERS = [
    Misbehaviour("length-missing", "a good answer without Content-Length", _lines()),
    Misbehaviour("length-too-large", "a Content-Length 100 above the body", _length(lambda length: length + 100)),
    Misbehaviour("length-too-small", "a Content-Length of half the body", _length(lambda length: length // 2)),
    Misbehaviour("length-zero", "a Content-Length of 0 with a body", _length(lambda _: 0)),
    Misbehaviour("length-huge", "a Content-Length of thirty digits", _length(lambda _: "9" * 30)),
    Misbehaviour("length-negative", "a Content-Length below 0", _length(lambda length: -length - 1)),
    Misbehaviour("length-word", "a Content-Length that is a word", _length(lambda _: "many")),
    Misbehaviour("length-twice", "two that contradict each other", _lines("Content-Length: 1", "Content-Length: 2")),
    Misbehaviour("chunked", "a good answer in chunks", _chunked(_chunks)),
    Misbehaviour("chunked-broken", "a chunk with a length that is none", _chunked(lambda body: b"zz\r\n" + body)),
    Misbehaviour("chunked-huge", "a chunk of 2^64 - 1 bytes", _chunked(lambda body: b"f" * 16 + b"\r\n" + body)),
    Misbehaviour("chunked-unended", "chunks without the last one", _chunked(lambda body: _chunks(body)[:-5])),
    Misbehaviour("compressed", "says gzip and sends what is none", _lines("Content-Encoding: gzip")),
    Misbehaviour("continue-first", "an interim answer before the good one", _prefixed(b"HTTP/1.1 100 Continue" + END)),
    Misbehaviour("line-break-first", "an empty line before the good answer", _prefixed(b"\r\n")),
    Misbehaviour("two-answers", "a second answer behind the good one", _trailing),
    Misbehaviour("header-flood", f"{FLOOD_LINES} header lines", lambda scene: _lines(
        *(f"X-{number}: {number}" for number in range(FLOOD_LINES)))(scene)),
    Misbehaviour("header-huge", f"a header line of {HUGE_LINE} bytes", lambda scene: _lines(
        "X-Huge: " + "h" * HUGE_LINE)(scene)),
    Misbehaviour("header-no-colon", "a header line without a colon", _lines("no colon here")),
    Misbehaviour("header-folded", "a header line that goes on in the next", _lines("X-Folded: one", "\t two")),
    Misbehaviour("header-zero-byte", "a zero byte in a header line", _lines("X-Zero: a\0b")),
    Misbehaviour("header-no-end", "a head without the empty line that ends it", _no_end),
    Misbehaviour("bare-line-feeds", "lines that end in line feeds only", _bare_line_feeds),
]

HTTP = [*_STATUSES, *_STATUS_LINES, *_ENDINGS, *_TIMES_AND_SIZES, *_HEADERS]
