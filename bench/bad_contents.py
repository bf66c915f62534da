"""Downloads with an honest HTTP answer and a bad content."""

import datetime

from bench import containers, schema
from bench.backend import RESPONSE_TYPE
from bench.messages import Response
from bench.misbehaviour import DOWNLOAD, Misbehaviour


def _send_body(scene, body):
    scene.peer.send(Response(200, [("Content-Type", RESPONSE_TYPE)], body).bytes())


def _body(body):
    return lambda scene: _send_body(scene, body)


def _broken(amend):
    """The message of a fresh container, its bytes amended."""
    return lambda scene: _send_body(scene, amend(schema.download_response(_fresh(scene)).SerializeToString()))


def _container(make):
    """A good message with the container's text that make(scene) returns."""
    return lambda scene: scene.peer.send(scene.endpoint.service.with_container(make(scene)).bytes())


def _fresh(scene, **how):
    service = scene.endpoint.service
    return service.backend.make(service.pki, **how)[0]


def _moved(**offset):
    """A container of a moment that far from now."""
    def make(scene):
        now = datetime.datetime.now(datetime.timezone.utc).replace(microsecond=0)
        return _fresh(scene, moment=now + datetime.timedelta(**offset))
    return make


def _by(leaf):
    return lambda scene: _fresh(scene, leaf=leaf)


def _signature_of_another(scene):
    first, second = _fresh(scene), _fresh(scene)
    return first.rpartition(".")[0] + "." + second.rpartition(".")[2]


def _signed_by_stranger(scene):
    """The true signer's chain with a stranger's signature."""
    pki = scene.endpoint.service.pki
    stranger = pki.signer("stranger")
    return _fresh(scene, sign=lambda _, data: containers.sign_with_cryptography(stranger, data))


def _first_half(scene):
    text = _fresh(scene)
    return text[:len(text) // 2]


def _without_id(scene):
    return _fresh(scene, container_id="")


def _with_bundle(certificate):
    return lambda scene: _fresh(scene, bundles={"WEB": [certificate]})


def _no_content_with_body(scene):
    scene.peer.send(b"HTTP/1.1 204 No Content\r\nConnection: close\r\n\r\n" + scene.response.body)


_VARINT_MAX = b"\xff\xff\xff\xff\xff\xff\xff\xff\xff\x01"

_MESSAGES = [
    ("proto-empty", "a message without a container", _body(b"")),
    ("proto-garbage", "bytes that are no message", _body(b"\xff" * 512)),
    ("proto-text", "a web page in place of a message", _body(b"<html><body>Log in first</body></html>")),
    ("proto-truncated", "the first half of a message", _broken(lambda body: body[:len(body) // 2])),
    ("proto-length-huge", "a field of 2^64 - 1 bytes", _body(b"\x0a" + _VARINT_MAX + b"x")),
    ("proto-varint-endless", "a number that does not end", _body(b"\x0a" + b"\xff" * 64)),
    ("proto-wrong-type", "the container's field as a number", _body(b"\x08\x2a")),
    ("proto-unknown-fields", "a good message with fields that nobody knows", _broken(
        lambda body: b"\x9a\x06\x03abc" + body + b"\xa0\x06\x01")),
    ("proto-twice", "the container's field twice, the good one last", _broken(lambda body: b"\x0a\x03abc" + body)),
    ("proto-no-text", "a container that is no UTF-8", _body(b"\x0a\x04\xff\xfe\xfd\xfc")),
    ("proto-nested", "groups in groups, 20,000 deep", _body(b"\x13" * 20_000)),
    ("no-content-with-body", "the status 204 with a body", _no_content_with_body),
]

_CONTAINERS = [
    ("container-empty", "an empty container", _container(lambda scene: "")),
    ("container-garbage", "a container that is none", _container(lambda scene: "not a container")),
    ("container-truncated", "the first half of a container", _container(_first_half)),
    ("container-tampered", "a container with a byte of its payload changed", _container(
        lambda scene: containers.tampered(_fresh(scene)))),
    ("container-other-signature", "a container with another one's signature", _container(_signature_of_another)),
    ("container-wrong-key", "the signer's chain, the signature by another key", _container(_signed_by_stranger)),
    ("container-stranger", "a container by a signer of an unknown root", _container(_by("stranger"))),
    ("container-wrong-cn", "a container by a signer of the wrong name", _container(_by("wrong-cn"))),
    ("container-expired", "a container by a signer that has expired", _container(_by("expired"))),
    ("container-revoked", "a container by a signer that is revoked", _container(_by("retired"))),
    ("container-older", "a container of thirty days ago", _container(_moved(days=-30))),
    ("container-future", "a container of the day after tomorrow", _container(_moved(days=2))),
    ("container-no-id", "a container with an empty id", _container(_without_id)),
    ("container-wrong-algorithm", "a container that says RS256", _container(lambda scene: _fresh(scene, alg="RS256"))),
    ("container-bad-certificate", "a bundle's certificate that is none", _container(_with_bundle(b"no certificate"))),
]

CONTENTS = [Misbehaviour(name, summary, act, (DOWNLOAD,)) for name, summary, act in _MESSAGES + _CONTAINERS]
