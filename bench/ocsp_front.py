"""The OCSP endpoints: they pass each request on to the `openssl ocsp` of the CA that it means."""

import collections

from cryptography.x509 import ocsp

from bench.messages import Response

KEPT_CHECKS = 1000
OCSP_TYPE = "application/ocsp-request"
# version v1, which is the default (RFC 6960 section 4.1.1).
DEFAULT_VERSION = bytes.fromhex("a003020100")
SEQUENCE = 0x30


class OcspFront:
    """One endpoint for all issuing CAs. Any thread."""

    def __init__(self, pki, responders):
        self.pki = pki
        self._responders = responders
        self._checks = collections.deque(maxlen=KEPT_CHECKS)

    def checks(self):
        """The names of the certificates asked for so far, oldest first."""
        return list(self._checks)

    def answer(self, request, _):
        if request.method != "POST":
            return Response(405), request.method, "405"
        if request.header("Content-Type") != OCSP_TYPE:
            return Response(415), f"content type {request.header('Content-Type')}", "415"
        member, issuer, _ = self.subject_of(request)
        self._checks.append(member or "unknown")
        asked = f"POST about {member or 'an unknown certificate'} of {issuer.name if issuer else 'nobody'}"
        if issuer is None:
            return Response(404), asked, "404"
        try:
            answer = self._responders[issuer.name].ask(request.raw)
        except OSError:
            answer = b""
        if not answer:
            return Response(as_it_came=b""), asked, "nothing: its responder does not run"
        head, _, body = answer.partition(b"\r\n\r\n")
        status = int(head.split(b" ")[1])
        response = Response(status, [("Content-Type", "application/ocsp-response")], body, as_it_came=answer)
        return response, asked, f"{status} {len(body)} bytes"

    def subject_of(self, request):
        """(name, issuer, certificate) that a request is about, as far as they are known."""
        try:
            return self.pki.subject_of(ocsp.load_der_ocsp_request(_without_default_version(request.body)))
        except ValueError:
            return None, None, None


def _without_default_version(body):
    """A short request as DER wants it: clients tell the default version though it should be left out (X.690 section
    11.5), responders take that, and the library that reads the request here does not."""
    if body[4:9] != DEFAULT_VERSION:
        return body
    shorter = [length - len(DEFAULT_VERSION) for length in (body[1], body[3])]
    return bytes([SEQUENCE, shorter[0], SEQUENCE, shorter[1]]) + body[9:]
