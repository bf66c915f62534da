"""Connections that fail before there is a request, and TLS that no client should accept."""

import ssl
import warnings

from bench.misbehaviour import DOWNLOAD, REPORT, Misbehaviour

TLS = (DOWNLOAD, REPORT)


def _serve_with(scene, context):
    """An honest exchange over a TLS that is none."""
    scene.peer.start_tls(context)
    request = scene.peer.read_request()
    response, *_ = scene.endpoint.service.answer(request, "served over bad TLS")
    scene.peer.send(response.bytes())


def _certificate(kind):
    return lambda scene: _serve_with(scene, scene.endpoint.service.pki.server_context(kind))


def _old_version(scene):
    context = scene.endpoint.service.pki.server_context()
    # Old versions need signatures that the library offers at its lowest level only.
    context.set_ciphers("ALL:@SECLEVEL=0")
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", DeprecationWarning)
        context.minimum_version = context.maximum_version = ssl.TLSVersion.TLSv1
    _serve_with(scene, context)


def _read_greeting(scene):
    scene.peer.stream.recv(1)


def _plain_answer(scene):
    _read_greeting(scene)
    scene.peer.send(b"HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n")


def _garbage(scene):
    _read_greeting(scene)
    scene.peer.send(bytes(range(256)))


def _cut(scene):
    _read_greeting(scene)
    scene.peer.cut()


def _reset(scene):
    _read_greeting(scene)
    scene.peer.reset()


def _alert(scene):
    _read_greeting(scene)
    # handshake_failure, fatal (RFC 5246 section 7.2).
    scene.peer.send(b"\x15\x03\x03\x00\x02\x02\x28")


def _no_goodbye(scene):
    content = scene.response.bytes()
    scene.peer.send(content[:-max(1, len(scene.response.body) // 2)])
    scene.peer.cut()


def _fault(name, summary, act, at_once=True):
    return Misbehaviour(name, summary, act, TLS, at_once=at_once, by_tls=True)


CONNECTION = [
    Misbehaviour("connect-silence", "accepts the connection and never reads or writes",
                 lambda scene: scene.peer.wait_until_gone(), at_once=True),
    Misbehaviour("connect-cut", "accepts the connection and closes it", lambda scene: scene.peer.cut(), at_once=True),
    Misbehaviour("connect-reset", "accepts the connection and resets it", lambda scene: scene.peer.reset(),
                 at_once=True),
    Misbehaviour("answer-unasked", "answers 200 before there is a request", lambda scene: scene.peer.send(
        b"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"), at_once=True),
]

TLS_FAULTS = [
    _fault("tls-wrong-name", "a certificate for another name", _certificate("server-wrong-name")),
    _fault("tls-expired", "a certificate that has expired", _certificate("server-expired")),
    _fault("tls-unknown-ca", "a certificate of an unknown CA", _certificate("server-unknown-ca")),
    _fault("tls-1.0", "TLS 1.0 and nothing newer", _old_version),
    _fault("tls-plain", "plain HTTP where TLS is due", _plain_answer),
    _fault("tls-garbage", "bytes that mean nothing in the handshake", _garbage),
    _fault("tls-alert", "a fatal alert in the handshake", _alert),
    _fault("tls-cut", "closes in the handshake", _cut),
    _fault("tls-reset", "resets the connection in the handshake", _reset),
    _fault("tls-no-goodbye", "half of the answer, closed without a word of TLS", _no_goodbye, at_once=False),
]
