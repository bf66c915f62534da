"""HTTP messages as the bench's servers read and write them."""

from dataclasses import dataclass, field

MAX_HEAD_BYTES = 64 * 1024
MAX_BODY_BYTES = 1024 * 1024
REASONS = {200: "OK", 201: "Created", 202: "Accepted", 204: "No Content", 300: "Multiple Choices",
           301: "Moved Permanently", 400: "Bad Request", 401: "Unauthorized", 403: "Forbidden", 404: "Not Found",
           405: "Method Not Allowed", 415: "Unsupported Media Type", 429: "Too Many Requests",
           500: "Internal Server Error", 502: "Bad Gateway", 503: "Service Unavailable"}


class BadRequest(Exception):
    """Why a request is none."""


@dataclass
class Request:
    """A request; `raw` is all of its bytes as they came."""

    method: str
    target: str
    version: str
    headers: list
    body: bytes
    raw: bytes

    def header(self, name):
        """The value of the first header `name`, or None."""
        return next((value for key, value in self.headers if key.lower() == name.lower()), None)


@dataclass
class Response:
    """A response. `as_it_came` are the bytes of one that another program made."""

    status: int = 200
    headers: list = field(default_factory=list)
    body: bytes = b""
    as_it_came: bytes = None

    def head(self, *, length=True, extra=()):
        """Status line and header lines without the empty line that ends them. length False: without Content-Length."""
        lines = [f"HTTP/1.1 {self.status} {REASONS.get(self.status, 'Unnamed')}"]
        lines += [f"{key}: {value}" for key, value in self.headers]
        if length and self.status != 204:
            lines.append(f"Content-Length: {len(self.body)}")
        lines += ["Connection: close", *extra]
        return "\r\n".join(lines).encode()

    def bytes(self):
        return self.as_it_came if self.as_it_came is not None else self.head() + b"\r\n\r\n" + self.body


def parse_head(head):
    """Method, target, version and headers of a request's head (RFC 9112 sections 3 and 5). Raises BadRequest."""
    request_line, *lines = head.decode("latin-1").split("\r\n")
    words = request_line.split(" ")
    if len(words) != 3 or not words[1] or words[2] not in ("HTTP/1.0", "HTTP/1.1"):
        raise BadRequest(f"request line '{request_line}'")
    headers = []
    for line in lines:
        name, colon, value = line.partition(":")
        if not colon or not name or name != name.strip():
            raise BadRequest(f"header line '{line}'")
        headers.append((name, value.strip()))
    return (*words, headers)


def body_length(headers):
    """What Content-Length says. Raises BadRequest without one that is usable."""
    values = [value for name, value in headers if name.lower() == "content-length"]
    if len(values) != 1 or not values[0].isdigit() or int(values[0]) > MAX_BODY_BYTES:
        raise BadRequest(f"Content-Length {', '.join(values) or 'missing'}")
    return int(values[0])
