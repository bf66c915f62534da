"""Download and report, with curl and protoc as the unit."""

import pytest

from bench import containers
from bench.backend import REPORT_TYPE

REQUEST = "RUNACOTruststoreUpdateRequestTSCV1"
RESPONSE = "RUNACTTruststoreUpdateResponseTSCV1"
REPORT = "RUNACOTruststoreUpdateReportTSCStatusV1"


def fields(container_id="", reason="RENEWAL_REASON_JOB", operation="op"):
    return f'renewal_reason: {reason} container_id: "{container_id}" operation_type_id: "{operation}"'.encode()


def status(*arguments, tools, bench, body=b"", **how):
    return tools.download(bench, "-o", "-", "-w", "%{http_code}", *arguments, body=body, **how)[1][-3:]


def report(tools, bench, body, *arguments):
    return tools.curl("--data-binary", "@-", "-o", "-", "-w", "%{http_code}", "-H", "Authorization: Bearer bench-token",
                      "-H", f"Content-Type: {REPORT_TYPE}", *arguments, bench.url("report"), body=body)[1]


def test_download_brings_a_container_that_openssl_verifies(bench, tools):
    container_id = bench.new_container()
    code, body = tools.download(bench, body=tools.protoc("encode", REQUEST, fields()))
    assert code == 0
    decoded = tools.protoc("decode", RESPONSE, body).decode()
    text = decoded.removeprefix('trust_store_container: "').rstrip().removesuffix('"')
    assert (text, container_id) == bench.backend.offered()
    bench.pki.folder.joinpath("leaf.pem").write_bytes(bench.pki.path("signer").read_bytes())
    assert containers.verify_with_openssl(text, bench.pki.folder / "leaf.pem")
    assert containers.verify(text, bench.root_path.read_bytes()).container_id == container_id


def test_unit_that_has_it_gets_204_unless_it_lost_it(bench, tools):
    container_id = bench.new_container()
    for reason, expected in (("JOB", b"204"), ("UNKNOWNCA", b"204"), ("EMPTYTS", b"200"), ("UPDATEFAILED", b"200")):
        body = tools.protoc("encode", REQUEST, fields(container_id, f"RENEWAL_REASON_{reason}"))
        assert status(tools=tools, bench=bench, body=body) == expected, reason
    assert [record.reason for record in bench.requests()[-4:]] == [
        f"RENEWAL_REASON_{reason}" for reason in ("JOB", "UNKNOWNCA", "EMPTYTS", "UPDATEFAILED")]


def test_nothing_offered_is_204(bench, tools):
    bench.new_container("none")
    assert status(tools=tools, bench=bench) == b"204"


def test_new_same_old_differ_as_their_names_tell(bench):
    made = {}
    for kind in ("new", "same", "old"):
        bench.new_container(kind)
        made[kind] = containers.verify(bench.backend.offered()[0], bench.root_path.read_bytes())
    assert (made["same"].timestamp, made["same"].container_id) == (made["new"].timestamp, made["new"].container_id)
    assert made["old"].timestamp < made["new"].timestamp
    before = made["new"].timestamp
    for _ in range(3):
        bench.new_container()
        held = containers.verify(bench.backend.offered()[0], bench.root_path.read_bytes())
        assert held.timestamp > before
        before = held.timestamp


@pytest.mark.parametrize("arguments, expected", [
    (["-H", "Content-Type: text/html"], b"415"), (["-H", "Accept: text/html"], b"400"), (["-X", "PUT"], b"405"),
    (["-H", "Authorization:"], b"401"), (["-H", "Authorization: Bearer wrong"], b"401"),
])
def test_download_refuses(bench, tools, arguments, expected):
    headers = {"Content-Type": "application/RUNA_CO_TruststoreUpdateRequestTSC_v1+proto",
               "Accept": "application/RUNA_CT_TruststoreUpdateResponseTSC_v1+proto",
               "Authorization": f"Bearer {bench.backend.token}"}
    if arguments[0] == "-H":
        headers.pop(arguments[1].partition(":")[0])
    kept = [word for key, value in headers.items() for word in ("-H", f"{key}: {value}")]
    code = tools.curl("-d", "", "-o", "-", "-w", "%{http_code}", *kept, *arguments, bench.url("download"))[1][-3:]
    assert code == expected


def test_body_that_is_no_message_is_400(bench, tools):
    assert status(tools=tools, bench=bench, body=b"\xff") == b"400"


def test_token_can_change_while_the_bench_runs(bench, tools):
    bench.set_token("another")
    assert (bench.directory / "token").read_text() == "another\n"
    assert status(tools=tools, bench=bench, token="bench-token") == b"401"
    assert status(tools=tools, bench=bench, token="another") == b"200"
    bench.set_token("bench-token")


def test_report_is_recorded_as_it_came(bench, tools):
    body = tools.protoc("encode", REPORT, b'status_code: STATUS_CODE_TSC_ROLLBACK container_id: "id-1"')
    assert report(tools, bench, body) == b"204"
    record = bench.reports()[-1]
    assert (record.status_code, record.status_name, record.container_id) == (6, "STATUS_CODE_TSC_ROLLBACK", "id-1")
    assert record.body == body
    assert record.raw.startswith(b"POST /tsc/report HTTP/1.1\r\n") and record.raw.endswith(b"\r\n\r\n" + body)
    assert bench.log.lines()[-1].endswith("POST 6 STATUS_CODE_TSC_ROLLBACK for 'id-1' -> 204")


def test_report_with_a_number_of_no_name_keeps_it(bench, tools):
    assert report(tools, bench, b"\x08\x0d") == b"204"
    assert (bench.reports()[-1].status_code, bench.reports()[-1].status_name) == (13, "13")


def test_records_tell_the_misbehaviour_they_met(bench, tools):
    bench.misbehave("report", "status-500", times=1)
    assert report(tools, bench, b"") == b"500"
    assert bench.reports()[-1].misbehaviour == "status-500"
    assert bench.log.lines()[-1].endswith("[status-500] POST 0 STATUS_CODE_SUCCESS for '' -> misbehaves (204 due)")


def test_token_never_stands_in_the_log(bench, tools):
    status(tools=tools, bench=bench, token="secret-token")
    assert not [line for line in bench.log.lines() if "secret-token" in line]
