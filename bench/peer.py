"""One connection of a bench server, with the ways to end it well and badly."""

import select
import socket
import ssl
import struct
import time

from bench.messages import MAX_HEAD_BYTES, BadRequest, Request, body_length, parse_head

READ_S = 120
LINGER_S = 2
CHUNK = 64 * 1024


class PeerGone(Exception):
    """The other side closed the connection, or the bench is ending."""


class Peer:
    """A connection, used by the thread that serves it; `abandon` is for others."""

    def __init__(self, connection):
        connection.settimeout(READ_S)
        self.raw = connection
        self.stream = connection

    def start_tls(self, context):
        """Raises PeerGone with the reason when the handshake fails."""
        try:
            # The plain socket is empty from here on; `abandon` has to find the new one during the handshake.
            self.stream = self.raw = context.wrap_socket(self.raw, server_side=True, suppress_ragged_eofs=False,
                                                         do_handshake_on_connect=False)
            self.stream.do_handshake()
        except (OSError, ValueError) as error:
            raise PeerGone(f"TLS handshake: {getattr(error, 'reason', None) or error}") from None

    def read_request(self):
        """The next request. Raises BadRequest, and PeerGone when there is none."""
        try:
            return self._read_request()
        except EOFError:
            raise PeerGone("closed before its request was whole") from None

    def _read_request(self):
        received = self._read_until(b"\r\n\r\n")
        head, _, body = received.partition(b"\r\n\r\n")
        method, target, version, headers = parse_head(head)
        length = body_length(headers)
        while len(body) < length:
            body += self._receive()
        if len(body) > length:
            raise BadRequest(f"{len(body) - length} bytes behind the body")
        return Request(method, target, version, headers, body, head + b"\r\n\r\n" + body)

    def _read_until(self, mark):
        received = b""
        while mark not in received:
            if len(received) > MAX_HEAD_BYTES:
                raise BadRequest(f"head above {MAX_HEAD_BYTES} bytes")
            received += self._receive()
        return received

    def _receive(self):
        """Raises EOFError at the end of what the other side sends."""
        try:
            received = self.stream.recv(CHUNK)
        except (OSError, ValueError) as error:
            raise PeerGone(f"while reading: {error}") from None
        if not received:
            raise EOFError
        return received

    def send(self, content):
        try:
            self.stream.sendall(content)
        except (OSError, ValueError) as error:
            raise PeerGone(f"while writing: {error}") from None

    def wait_until_gone(self, seconds=None):
        """Says nothing until the other side closes: raises PeerGone then. Returns after `seconds` when given."""
        if self.raw.fileno() < 0:
            raise PeerGone("closed here")
        deadline = None if seconds is None else time.monotonic() + seconds
        ends = select.poll()
        ends.register(self.raw.fileno(), select.POLLIN | select.POLLRDHUP)
        while ends.poll(None if deadline is None else max(0, deadline - time.monotonic()) * 1000):
            try:
                self._receive()
            except EOFError:
                raise PeerGone("closed the connection") from None

    def drip(self, content, seconds=0.2, size=1):
        """Sends `content` in pieces of `size` bytes with pauses of `seconds`."""
        for position in range(0, len(content), size):
            self.send(content[position:position + size])
            self.wait_until_gone(seconds)

    def reset(self):
        """Ends the connection by a TCP reset."""
        try:
            self.raw.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        except OSError:
            pass
        self.raw.close()

    def cut(self):
        """Ends the connection without a word of TLS."""
        self._shut_down(socket.SHUT_RDWR)
        self.raw.close()

    def close(self):
        """Ends the connection as good servers do: says so, and gives the other side time to take everything."""
        if self.raw.fileno() < 0:
            return
        if isinstance(self.stream, ssl.SSLSocket):
            self._say_goodbye()
        self.finish_sending()
        try:
            self.wait_until_gone(LINGER_S)
        except PeerGone:
            pass
        self.cut()

    def _say_goodbye(self):
        """Sends TLS's close_notify (RFC 8446 section 6.1) without waiting for the other side's."""
        try:
            select.select([], [self.stream], [], LINGER_S)
            self.stream.settimeout(0)
            self.stream.unwrap()
        except (OSError, ValueError):
            pass

    def finish_sending(self):
        """Nothing more comes; what the other side sends is still taken."""
        self._shut_down(socket.SHUT_WR)

    def abandon(self):
        """Wakes the thread that serves this connection; it ends with PeerGone."""
        self._shut_down(socket.SHUT_RDWR)

    def _shut_down(self, how):
        try:
            # Of the plain socket: an SSLSocket's own shutdown forgets its TLS state under a thread that uses it.
            socket.socket.shutdown(self.raw, how)
        except OSError:
            pass
