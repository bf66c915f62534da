"""What a misbehaviour is."""

from collections.abc import Callable
from dataclasses import dataclass

DOWNLOAD, REPORT, OCSP, MOD_OCSP = "download", "report", "ocsp", "mod-ocsp"
ENDPOINTS = (DOWNLOAD, REPORT, OCSP, MOD_OCSP)


@dataclass(frozen=True)
class Misbehaviour:
    """A way to serve a connection badly. `act` takes a Scene and may leave the connection open: it is closed then.

    at_once: acts on the new connection, before TLS and before a request is read. by_tls: only where TLS is due.
    """

    name: str
    summary: str
    act: Callable
    endpoints: tuple = ENDPOINTS
    at_once: bool = False
    by_tls: bool = False
