"""What starts an update and what does not: each case as a whole life, its log compared line by line with a transcript.

The files of transcripts/ are what the cases of this file say; transcript.py tells how to read them.
"""

import pytest

import transcript
from daemon import CONNECTION, NOT_CONNECTED, REPORT_ENDED, UPDATE_ENDED, Daemon

JOB, EMPTY, UNKNOWN_CA = "RENEWAL_REASON_JOB", "RENEWAL_REASON_EMPTYTS", "RENEWAL_REASON_UNKNOWNCA"
SUCCESS = "STATUS_CODE_SUCCESS"
IGNORED = "info: MQTT Message Ignored"
UP_TO_DATE = "info: Container is up-to-date"
NEWER_SECONDS = "1767409445"


@pytest.fixture(name="installed")
def fixture_installed(daemon):
    """A unit with container TSC-1, whose backend offers TSC-2."""
    daemon.install("TSC-1")
    daemon.offer("TSC-2")
    return daemon


@pytest.fixture(name="empty")
def fixture_empty(daemon):
    """A unit without a container, whose backend offers TSC-2."""
    daemon.offer("TSC-2")
    return daemon


def await_update(daemon, count=1):
    """Waits for the end of an update and of its report."""
    daemon.running.wait_for(REPORT_ENDED, count)
    daemon.running.wait_for(UPDATE_ENDED, count)


def is_updated(daemon, *requests):
    """Whether these requests, and one report of success for each, have brought TSC-2 to the unit."""
    return (daemon.requests() == list(requests) and daemon.reports() == [(SUCCESS, "")] * len(requests)
            and daemon.unit.records() == ("TSC-2", NEWER_SECONDS) and sorted(daemon.unit.store()) == ["FLEET", "WEB"]
            and daemon.marker() == "1")


def check(daemon, name):
    """Ends the process; its whole log has to be transcripts/`name`.txt."""
    transcript.check(name, daemon.end(), daemon.names())


def test_job_for_a_newer_container_updates_the_unit(installed):
    installed.start_online()
    assert installed.marker() == "0"
    installed.bench.publish_job()
    installed.await_sleep()
    await_update(installed)
    assert is_updated(installed, (JOB, "", "TSC-1"))
    check(installed, "job")


def test_job_for_the_installed_container_is_answered_without_a_download(installed):
    installed.start_online()
    installed.bench.publish_job("TSC-1")
    installed.await_sleep()
    installed.running.wait_for(REPORT_ENDED)
    assert installed.requests() == []
    assert installed.reports() == [(SUCCESS, "TSC-1")]
    assert installed.marker() == "0"
    check(installed, "job_up_to_date")


def test_second_job_is_ignored(installed):
    installed.start_online()
    for container_id in ("TSC-1", "TSC-2"):
        installed.bench.publish_job(container_id)
        installed.await_sleep()
        installed.running.wait_for(REPORT_ENDED)
    check(installed, "second_job")
    assert (installed.requests(), installed.reports()) == ([], [(SUCCESS, "TSC-1")])


def test_empty_store_at_the_start_is_filled(empty):
    empty.start_offline()
    empty.running.wait_for(NOT_CONNECTED)
    empty.go_online()
    await_update(empty)
    assert is_updated(empty, (EMPTY, "", ""))
    check(empty, "empty_store")


def test_store_that_is_empty_at_a_resume_is_filled(installed):
    installed.start_online()
    installed.control("state", "kPrepSD")
    installed.await_sleep()
    installed.unit.empty()
    installed.control("state", "kOn")
    installed.await_sleep()
    await_update(installed)
    assert is_updated(installed, (EMPTY, "", ""))
    check(installed, "empty_store_at_resume")


@pytest.mark.parametrize("code", [46, 48])
def test_alert_updates_the_unit(installed, code):
    installed.start_online()
    installed.alert(code, "RUNA-Weather.COForecast")
    installed.await_sleep()
    await_update(installed)
    assert is_updated(installed, (UNKNOWN_CA, "RUNA-Weather.COForecast", "TSC-1"))
    check(installed, f"alert_{code}")


def test_alerts_after_an_update_are_ignored(installed):
    installed.start_online()
    installed.alert(48, "RUNA-Weather.COForecast")
    installed.await_sleep()
    await_update(installed)
    for code in (46, 48):
        installed.alert(code, "RUNA-Weather.COForecast")
        installed.await_sleep()
    check(installed, "alert_ignored")
    assert is_updated(installed, (UNKNOWN_CA, "RUNA-Weather.COForecast", "TSC-1"))


def test_alert_of_another_code_starts_nothing(installed):
    installed.start_online()
    installed.alert(47, "RUNA-Weather.COForecast")
    installed.running.wait_for("info: TlsAlerts: Received Alert: OperationId='RUNA-Weather.COForecast', TlsAlertCode=47")
    check(installed, "alert_47")
    assert (installed.requests(), installed.reports()) == ([], [])


def test_job_after_a_factory_reset_updates_the_unit_again(installed):
    installed.bench.new_container("none")
    installed.start_offline("-reset")
    installed.running.wait_for(NOT_CONNECTED)
    installed.go_online()
    await_update(installed)
    assert (installed.requests(), installed.reports()) == ([(EMPTY, "", "")], [(SUCCESS, "")])
    installed.offer("TSC-2")
    installed.bench.publish_job()
    installed.await_sleep()
    await_update(installed, 2)
    assert is_updated(installed, (EMPTY, "", ""), (JOB, "", ""))
    check(installed, "reset_then_job")


def test_rejected_session_leaves_the_unit_idle(unit, tmp_path):
    with Daemon(unit, tmp_path / "bench", mqtt_password=True) as daemon:
        (daemon.bench.directory / "mqtt-password").write_text("wrong\n")
        daemon.install("TSC-1")
        daemon.start_offline()
        daemon.bench.broker.thaw()
        daemon.await_sleep()
        assert daemon.status()["session"] == {"status": 3, "name": "rejected"}
        daemon.alert(48, "RUNA-Weather.COForecast")
        daemon.await_sleep()
        check(daemon, "rejected")
        assert (daemon.requests(), daemon.reports()) == ([], [])


def test_update_waits_for_a_usable_connection(installed):
    installed.start_online()
    installed.control("connection", "4")
    installed.running.wait_for(CONNECTION.format(4))
    installed.bench.publish_job()
    installed.await_sleep()
    installed.running.wait_for(NOT_CONNECTED)
    installed.control("connection", "1")
    installed.running.wait_for(NOT_CONNECTED, 2)
    assert installed.requests() == []
    installed.control("connection", "2")
    installed.await_sleep()
    await_update(installed)
    assert is_updated(installed, (JOB, "", "TSC-1"))
    check(installed, "connection_held")
