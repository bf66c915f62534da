"""What the backend hears of updates, and what other applications do: once for each update that has ended."""

import pytest

from daemon import MOMENT, REPORT_ENDED, RETRYING, UPDATE_ENDED
from running import STATUS

SUCCESS, DOWNLOAD_ERROR = "STATUS_CODE_SUCCESS", "STATUS_CODE_DOWNLOAD_ERROR"
ACTIVE = "info: Status Report already active."


@pytest.fixture(name="installed")
def fixture_installed(daemon):
    """A unit with container TSC-1, whose backend offers TSC-2."""
    daemon.install("TSC-1")
    daemon.offer("TSC-2")
    return daemon


def update(daemon):
    """A whole life with one job."""
    daemon.start_online()
    daemon.bench.publish_job("TSC-2")
    daemon.running.wait_for(UPDATE_ENDED)
    daemon.running.wait_for(REPORT_ENDED)
    return daemon.end()


def test_successful_installation_reports_an_empty_container_id(installed):
    update(installed)
    assert installed.reports() == [(SUCCESS, "")]


def test_job_for_the_installed_container_reports_success_with_its_id(installed):
    installed.start_online()
    installed.bench.publish_job("TSC-1")
    installed.running.wait_for(REPORT_ENDED)
    installed.end()
    assert installed.reports() == [(SUCCESS, "TSC-1")]


def test_backend_without_a_new_container_hears_of_success_with_the_installed_id(installed):
    installed.bench.new_container("none")
    update(installed)
    assert installed.reports() == [(SUCCESS, "TSC-1")]
    assert installed.marker() == "0"


def test_refused_container_is_reported_with_its_status_and_no_id(installed):
    installed.bench.revoke("signer")
    update(installed)
    assert installed.reports() == [("STATUS_CODE_CERT_DECODE_ERROR", "")]
    assert installed.unit.records()[0] == "TSC-1"
    assert installed.marker() == "0"


def test_status_without_a_name_is_reported_as_its_number(installed):
    installed.offer("TSC-2", bundles={"WEB": [b"no certificate"]})
    log = update(installed)
    assert installed.reports() == [("13", "")]
    assert STATUS + "13" in log


def test_container_of_the_installed_ones_time_is_reported_with_its_own_id(installed):
    installed.offer("TSC-2", moment=MOMENT)
    update(installed)
    assert installed.reports() == [(DOWNLOAD_ERROR, "TSC-2")]
    assert installed.unit.records()[0] == "TSC-1"


@pytest.mark.long
def test_report_whose_answer_was_lost_is_sent_again_and_then_no_more(installed):
    installed.bench.misbehave("report", "cut-before-status", times=1)
    log = update(installed)
    assert installed.reports() == [(SUCCESS, "")] * 2
    assert [record.misbehaviour for record in installed.bench.reports()] == ["cut-before-status", None]
    assert log.count(RETRYING) == 1


def test_no_second_report_while_another_is_under_way(daemon):
    daemon.offer("TSC-2")
    daemon.bench.misbehave("report", "status-503")
    daemon.start_online("-reset")
    daemon.running.wait_for(RETRYING)
    daemon.bench.publish_job("TSC-2")
    daemon.running.wait_for(ACTIVE)
    log = daemon.end()
    assert daemon.reports() == [(SUCCESS, "")]
    assert REPORT_ENDED in log


def test_other_applications_are_told_of_an_installation_until_the_next_start(installed):
    installed.start_online()
    assert installed.marker() == "0"
    installed.bench.publish_job()
    installed.running.wait_for(REPORT_ENDED)
    assert installed.marker() == "1"
    installed.end()
    assert installed.marker() == "1"
    installed.start_online()
    assert installed.marker() == "0"
