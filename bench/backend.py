"""What the backend answers: containers for download, and status reports taken."""

import collections
import dataclasses
import datetime
import threading

from google.protobuf.message import DecodeError

from bench import containers, schema
from bench.messages import Response

KEPT_RECORDS = 1000
DOWNLOAD_PATH = "/tsc/container"
REPORT_PATH = "/tsc/report"
REQUEST_TYPE = "application/RUNA_CO_TruststoreUpdateRequestTSC_v1+proto"
RESPONSE_TYPE = "application/RUNA_CT_TruststoreUpdateResponseTSC_v1+proto"
REPORT_TYPE = "application/RUNA_CO_TruststoreUpdateReportTSCStatus_v1+proto"
# Reasons of a unit that says that it does not have what its container id tells.
NEEDS_ANYWAY = ("RENEWAL_REASON_UPDATEFAILED", "RENEWAL_REASON_EMPTYTS")


@dataclasses.dataclass
class Record:
    """One request of a unit. `status` is what it was answered, or what was due when it met a `misbehaviour`."""

    time: str
    endpoint: str
    container_id: str
    headers: list
    body: bytes
    raw: bytes
    status: int
    misbehaviour: str = None
    status_code: int = None
    status_name: str = None
    reason: str = None
    operation_type_id: str = None

    def as_json(self):
        """What a person asks for, as plain values; the bytes of the body in hexadecimal."""
        kept = {key: value for key, value in dataclasses.asdict(self).items() if value is not None and key != "raw"}
        return kept | {"headers": dict(self.headers), "body": self.body.hex()}


class Backend:
    """Containers and records. Any thread; `changed` is notified at every new record."""

    def __init__(self, token):
        self.changed = threading.Condition()
        self._token = token
        self._container = None
        self._last_time = None
        self._records = collections.deque(maxlen=KEPT_RECORDS)

    @property
    def token(self):
        with self.changed:
            return self._token

    @token.setter
    def token(self, token):
        with self.changed:
            self._token = token

    def offer(self, container, container_id):
        """From now on downloads bring this text; None: there is nothing to download."""
        with self.changed:
            self._container = None if container is None else (container, container_id)

    def offered(self):
        """(text, id) of the container, or None."""
        with self.changed:
            return self._container

    def moment(self, kind):
        """Moment, and id where it is not made of it, of a container of this kind: arguments for `make`."""
        if kind == "old":
            return {"moment": datetime.datetime.now(datetime.timezone.utc) - datetime.timedelta(days=30)}
        if kind == "same" and self._last_time is not None:
            return {"moment": self._last_time, "container_id": self.offered()[1] if self.offered() else None}
        return {}

    def next_moment(self):
        """The time for a new container: now, and later than any before."""
        with self.changed:
            moment = datetime.datetime.now(datetime.timezone.utc).replace(microsecond=0)
            if self._last_time is not None:
                moment = max(moment, self._last_time + datetime.timedelta(seconds=1))
            self._last_time = moment
            return moment

    def make(self, pki, *, leaf="signer", moment=None, container_id=None, bundles=None, **how):
        """(text, id) of a container; by default of this moment, by the signer, with bundles WEB and FLEET."""
        moment = moment or self.next_moment()
        container_id = moment.strftime("TSC-%Y%m%dT%H%M%S") if container_id is None else container_id
        certificates = pki.bundle_certificates()
        bundles = bundles or {"WEB": certificates, "FLEET": certificates[:1]}
        text = containers.build(pki.signer(leaf), bundles, ts=containers.timestamp(moment), container_id=container_id,
                                **how)
        return text, container_id

    def records(self, endpoint):
        """Requests to download or report so far, oldest first."""
        with self.changed:
            return [record for record in self._records if record.endpoint == endpoint]

    def wait_for(self, condition, seconds):
        """Waits until condition() holds after some request; False when it did not in time."""
        with self.changed:
            return self.changed.wait_for(condition, seconds)

    def keep(self, request, endpoint, behaviour, response, **facts):
        time = datetime.datetime.now().isoformat(timespec="milliseconds")
        record = Record(time, endpoint, headers=request.headers, body=request.body, raw=request.raw,
                        status=response.status, misbehaviour=behaviour, **facts)
        with self.changed:
            self._records.append(record)
            self.changed.notify_all()

    def refusal(self, request, path, content_type, accept=None):
        """Why a request is not answered as it wants: a status and words; (None, None) when nothing is wrong."""
        if request.target != path:
            return 404, f"no such path {request.target}"
        if request.method != "POST":
            return 405, f"method {request.method}"
        if request.header("Authorization") != f"Bearer {self.token}":
            return 401, "wrong token" if request.header("Authorization") else "no token"
        if request.header("Content-Type") != content_type:
            return 415, f"content type {request.header('Content-Type')}"
        if accept and request.header("Accept") != accept:
            return 400, f"accepts {request.header('Accept')}"
        return None, None


def parsed(message, body):
    """Whether `body` could be read into `message`."""
    try:
        message.ParseFromString(body)
    except DecodeError:
        return False
    return True


class Download:
    """The endpoint that containers come from."""

    def __init__(self, backend, pki):
        self.backend = backend
        self.pki = pki

    def answer(self, request, behaviour):
        status, words = self.backend.refusal(request, DOWNLOAD_PATH, REQUEST_TYPE, RESPONSE_TYPE)
        message = schema.download_request()
        if not status and not parsed(message, request.body):
            status, words = 400, "body is no download request"
        reason = schema.enum_name(message, "renewal_reason")
        response = Response(status) if status else self._response(message, reason)
        self.backend.keep(request, "download", behaviour, response, container_id=message.container_id, reason=reason,
                          operation_type_id=message.operation_type_id)
        asked = words or f"{reason} has '{message.container_id}' for '{message.operation_type_id}'"
        return response, f"{request.method} {asked}", f"{response.status} {len(response.body)} bytes"

    def _response(self, message, reason):
        offered = self.backend.offered()
        if offered is None or (offered[1] == message.container_id and reason not in NEEDS_ANYWAY):
            return Response(204)
        return self.with_container(offered[0])

    @staticmethod
    def with_container(text):
        return Response(200, [("Content-Type", RESPONSE_TYPE)], schema.download_response(text).SerializeToString())


class Report:
    """The endpoint that status reports go to."""

    def __init__(self, backend, pki):
        self.backend = backend
        self.pki = pki

    def answer(self, request, behaviour):
        status, words = self.backend.refusal(request, REPORT_PATH, REPORT_TYPE)
        message = schema.status_report()
        if not status and not parsed(message, request.body):
            status, words = 400, "body is no status report"
        response = Response(status or 204)
        name = schema.enum_name(message, "status_code")
        self.backend.keep(request, "report", behaviour, response, container_id=message.container_id,
                          status_code=message.status_code, status_name=name)
        told = words or f"{message.status_code} {name} for '{message.container_id}'"
        return response, f"{request.method} {told}", f"{response.status}"
