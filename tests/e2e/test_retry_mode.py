"""The mode for testers of retries (-r): it tells them when to take the connection away, and when to give it back."""

import re

import pytest

from daemon import REPORT_ENDED, RETRYING
from unit import DEFAULT_SWITCHES

OPTION = "error: ***** Testability Option: {} Retry: {} socks-sandbox now"


@pytest.mark.long
def test_retry_mode_tells_of_the_first_download_and_of_the_first_report(daemon):
    """Takes its time: twice the five seconds that a tester has, and one retry."""
    daemon.install("TSC-1")
    daemon.unit.write_switches(re.sub("^OcspDisable .*$", "OcspDisable = true", DEFAULT_SWITCHES, flags=re.MULTILINE))
    daemon.offer("TSC-2")
    daemon.bench.misbehave("download", "reset-before-status", times=1)
    daemon.start_online("-r")
    daemon.bench.publish_job()
    daemon.running.wait_for(REPORT_ENDED)
    log = daemon.end()
    told = [line for line in log if "Testability Option" in line or line == RETRYING or line.startswith("info: Got Token")]
    download, report = (f"info: Got Token for 'RUNA-TruststoreUpdate.{each}'" for each in ("CORequestTSC",
                                                                                          "COReportTSCStatus"))
    assert told == [
        download, OPTION.format("Container", "Kill"), OPTION.format("Container", "Re-start"), RETRYING, download,
        report, OPTION.format("Status Report", "Kill"), OPTION.format("Status Report", "Re-start")]
    assert daemon.reports() == [("STATUS_CODE_SUCCESS", "")]
    assert daemon.unit.records()[0] == "TSC-2"
