"""mosquitto, with mosquitto_sub as the unit."""

import time

import pytest

from bench.box import Bench
from bench.broker import JOB_TOPIC, PASSWORD, USERNAME
from bench.processes import STOP_S, BenchError


@pytest.fixture(name="secure", scope="module")
def fixture_secure(tmp_path_factory):
    with Bench(tmp_path_factory.mktemp("secure"), mqtt_tls=True, mqtt_password=True) as bench:
        yield bench


def subscribe(tools, bench, *arguments, seconds=10, **how):
    """mosquitto_sub of the job topic in a session that the broker keeps."""
    return tools.run("mosquitto_sub", "-h", "127.0.0.1", "-p", bench.broker.port, "-i", "unit", "-c", "-q", "1", "-t",
                     JOB_TOPIC, "-W", seconds, *arguments, **how)


def test_job_sent_while_the_unit_is_away_survives_a_killed_broker(bench, tools):
    subscribe(tools, bench, "-E")
    bench.publish_job("id-7")
    bench.broker.restart()
    bench.publish_job("id-8")
    bench.broker.kill()
    assert not bench.broker.running()
    bench.broker.start()
    received = subscribe(tools, bench, "-C", "2", "-N").stdout
    assert received == b"\x0a\x04id-7\x0a\x04id-8"
    decoded = tools.protoc("decode", "RUNACTTruststoreUpdateTSCJobV1", received[:6])
    assert decoded == b'container_id: "id-7"\n'


def test_job_that_was_published_is_on_disk(bench, tools):
    subscribe(tools, bench, "-E")
    for number in range(10):
        bench.publish_job(f"stored-{number}")
        assert f"stored-{number}".encode() in (bench.directory / "mosquitto.db").read_bytes()
    subscribe(tools, bench, "-C", "10")


def test_job_without_an_id_is_for_the_offered_container(bench, tools):
    subscribe(tools, bench, "-E")
    bench.publish_job()
    received = subscribe(tools, bench, "-C", "1", "-N").stdout
    assert received.endswith(bench.backend.offered()[1].encode())


def test_payload_is_published_as_it_is(bench, tools):
    subscribe(tools, bench, "-E")
    bench.publish_job(payload=b"\xff\x00\xff")
    assert subscribe(tools, bench, "-C", "1", "-N").stdout == b"\xff\x00\xff"


def test_broker_that_is_stopped_is_told_once(bench):
    before = len(bench.log.lines())
    bench.broker.stop()
    bench.broker.stop()
    bench.broker.start()
    assert bench.log.lines()[before:] == ["broker: stopped", "broker: started"]


def test_broker_that_is_down_takes_no_job(bench):
    bench.broker.kill()
    with pytest.raises(BenchError, match="Connection refused"):
        bench.publish_job("id-1")
    bench.broker.start()


def test_broker_that_is_frozen_says_nothing_until_it_is_thawed(bench, tools):
    bench.broker.freeze()
    assert subscribe(tools, bench, "-E", seconds=1, check=False).returncode != 0
    bench.broker.thaw()
    subscribe(tools, bench, "-E")


def test_broker_that_is_frozen_ends_with_the_bench(tmp_path):
    with Bench(tmp_path / "frozen") as bench:
        began = time.monotonic()
        bench.broker.freeze()
    assert time.monotonic() - began < STOP_S
    assert not bench.broker.running()


def test_broker_that_does_not_run_is_neither_frozen_nor_thawed(bench):
    bench.broker.stop()
    for each in (bench.broker.freeze, bench.broker.thaw):
        with pytest.raises(BenchError, match="broker does not run"):
            each()
    bench.broker.start()


def test_tls_and_password_are_wanted(secure, tools):
    ca = ["--cafile", secure.pki.path("server-ca")]
    assert subscribe(tools, secure, "-E", seconds=1, check=False).returncode != 0
    assert subscribe(tools, secure, *ca, "-E", check=False).returncode != 0
    subscribe(tools, secure, *ca, "-u", USERNAME, "-P", PASSWORD, "-E")
    secure.publish_job("id-1")
    assert subscribe(tools, secure, *ca, "-u", USERNAME, "-P", PASSWORD, "-C", "1", "-N").stdout == b"\x0a\x04id-1"
