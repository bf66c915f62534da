"""The service's unit file: systemd accepts it, and nothing is open in it that docs/service.md does not explain."""

import pathlib
import re
import shutil
import subprocess

import pytest

import confinement

MARKER_UNIT = confinement.UNIT_FILE.with_name("truststore-update-client-marker.service")
DOCS = confinement.PACKAGING.parent / "docs" / "service.md"
CONFIG_HEADER = confinement.PACKAGING.parent / "platform" / "host" / "config" / "HostConfig.h"
EXPOSURE_LIMIT = 1.3
PROGRAMS = ("usr/sbin/truststore-update-client", "usr/lib/truststore-update-client/prepare-marker",
            "usr/lib/truststore-update-client/prepare-switches", "usr/bin/systemd-tmpfiles")


def analyzed(*arguments):
    return subprocess.run(["systemd-analyze", *arguments], capture_output=True, check=False, text=True)


@pytest.fixture(name="security", scope="module")
def fixture_security():
    done = analyzed("--no-pager", "security", "--offline=true", str(confinement.UNIT_FILE))
    assert done.returncode == 0, done.stderr
    return done.stdout


def explained():
    section = DOCS.read_text().split("## What is open, and why")[1].split("\n## ")[0]
    return {match[1].replace("\\|", "|") for match in re.finditer(r"^\| `(.*?)` \|", section, re.MULTILINE)}


def test_exposure_is_within_the_limit(security):
    exposure = float(re.search(r"Overall exposure level for \S+: (\d+\.\d)", security)[1])
    assert exposure <= EXPOSURE_LIMIT


def test_each_cross_is_explained_and_no_other(security):
    crosses = {line.split()[1] for line in security.splitlines() if line.startswith("✗")}
    assert crosses == explained()


def test_systemd_accepts_it(tmp_path):
    for program in PROGRAMS:
        path = tmp_path / program
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text("#!/bin/sh\n")
        path.chmod(0o755)
    units = tmp_path / "usr" / "lib" / "systemd" / "system"
    units.mkdir(parents=True)
    for unit in (confinement.UNIT_FILE, MARKER_UNIT):
        shutil.copy(unit, units)
    for target in ("time-sync", "network", "sysinit", "basic", "shutdown", "multi-user"):
        shutil.copy(pathlib.Path("/usr/lib/systemd/system", f"{target}.target"), units)
    done = analyzed(f"--root={tmp_path}", "--man=no", "verify", confinement.UNIT_FILE.name)
    told = [line for line in done.stderr.splitlines() if "truststore-update-client" in line]
    assert (done.returncode, told) == (0, []), done.stderr


def seconds(key):
    return int(confinement.settings()[key][0].removesuffix("s"))


def test_it_may_take_longer_to_stop_than_an_exchange():
    exchange = re.search(r"std::chrono::seconds duration\{(\d+)\}", CONFIG_HEADER.read_text())
    assert seconds("TimeoutStopSec") > int(exchange[1])


def test_it_is_started_for_ever_with_the_clock_set_and_once_a_day():
    found = confinement.settings()
    assert (found["Restart"], found["StartLimitIntervalSec"], found["RuntimeMaxSec"]) == (["always"], ["0"], ["24h"])
    assert found["Environment"] == ["TZ=UTC"]
    assert "time-sync.target" in found["After"][0].split() and "time-sync.target" in found["Wants"]


def test_the_marker_is_made_ready_first_however_often_the_service_starts():
    found = confinement.settings()
    assert MARKER_UNIT.name in found["Wants"] and MARKER_UNIT.name in found["After"]
    marker = confinement.settings(MARKER_UNIT)
    assert (marker["Type"], marker["StartLimitIntervalSec"]) == (["oneshot"], ["0"])
    # What stands as done is not done again.
    assert "RemainAfterExit" not in marker
