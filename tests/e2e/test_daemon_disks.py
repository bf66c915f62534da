"""The daemon on disks that are full or read only: it says so, loses nothing that it need not, and its next start heals."""

import shutil

import pytest

import full_disk
from bench import containers
from daemon import MARKER_PATH
from running import STATUS
from unit import RUN_DIR, STATE_DIR

SENT = "info: Update Status was sent successfully."
STORE = f"/{STATE_DIR}/trust-store/installed"
LOCK = f"/{STATE_DIR}/persistency/work.lock: Read-only file system"
ID_FILE = f"/var/{RUN_DIR}/Truststore_Container_ID"
TIMESTAMP_FILE = f"/var/{RUN_DIR}/Truststore_Header_Timestamp"
STORAGE = "error: PersistantFileStorage: "
# Units of these tests have no supervision file.
UNSUPERVISED = ("error: IniFileReader: Reading file /etc/truststore-update-client-phm.ini failed: No such file or directory",
                "error: ProcessLifecycleAdapter::Reading application configuration failed for truststore-update-client")
SYSTEM_CERTIFICATES = "/etc/ssl/certs/ca-certificates.crt"


@pytest.fixture(name="updating")
def fixture_updating(daemon):
    """A unit with TSC-OLD, and a job for TSC-NEW that waits for it."""
    daemon.unit.write_switches()
    daemon.install("TSC-OLD")
    daemon.offer("TSC-NEW")
    daemon.configure(level="info")
    daemon.bench.publish_job(retain=True)
    return daemon


def update(daemon, **how):
    """Starts the daemon and waits for its report. Returns it with the error lines so far."""
    daemon.start(**how)
    daemon.running.wait_for(SENT)
    return daemon.reports()[-1], [line for line in daemon.running.log()
                                  if line.startswith("error: ") and line not in UNSUPERVISED]


def assert_next_start_heals(daemon):
    """With room, or where it may write, the next start is up to date without a hand."""
    daemon.end()
    daemon.start()
    daemon.running.wait_for(SENT)
    assert daemon.reports()[-1] == ("STATUS_CODE_SUCCESS", "")
    assert STATUS + "SUCCESS" in daemon.end()
    assert (daemon.unit.stored_records()[0], daemon.unit.records()[0]) == ("TSC-NEW", "TSC-NEW")
    assert daemon.unit.store() != {}
    assert daemon.marker() == "1"


@pytest.mark.usefixtures("mounting")
def test_on_a_full_disk_a_bundle_without_room_leaves_an_empty_store_that_is_known_as_such(updating):
    certificates = containers.certificates(SYSTEM_CERTIFICATES)
    updating.offer("TSC-NEW", bundles={"LARGE": certificates})
    on_full_disk = ("sh", "-c", full_disk.FILL + 'exec "$@"', "sh", f"/{STATE_DIR}", "/tmp/filled")
    report, errors = update(updating, within=on_full_disk, options=full_disk.MOUNTING, is_confined=False)
    assert full_disk.NO_ROOM in (updating.unit.root / "tmp" / "filled").read_text()
    folder = updating.unit.root / STATE_DIR
    shutil.rmtree(folder)
    shutil.copytree(f"/proc/{updating.running.pid}/root/mnt", folder, ignore=shutil.ignore_patterns(full_disk.FILLER))
    assert report == ("10", "")
    assert errors == [f"error: libtruststore: cannot install bundle LARGE: {STORE}/LARGE.pem: No space left on device",
                      "error: ERROR: Certification bundle LARGE could not be installed!",
                      "error: ERROR: Certificate group update failed!"]
    assert (updating.unit.store(), updating.unit.stored_records()) == ({}, ("", "0"))
    assert_next_start_heals(updating)


def test_on_a_read_only_disk_nothing_is_installed_and_nothing_lost(updating):
    store = updating.unit.store()
    options = ["--ro-bind", str(updating.unit.root / STATE_DIR), f"/{STATE_DIR}"]
    report, errors = update(updating, options=options)
    assert report == ("STATUS_CODE_TSC_ROLLBACK", "")
    unknown = [f"{STORAGE}Cannot read key 'truststore-timestamp': {LOCK}"]
    assert errors == [*unknown,
                      f"{STORAGE}Cannot read key 'truststore-container-id': {LOCK}",
                      "error: Failed to load Container ID from persistent file storage.",
                      *unknown,
                      "error: Failed to load Timestamp from persistent file storage.",
                      *unknown,
                      "error: ERROR: The installed Timestamp is unknown: no container is newer!",
                      "error: ERROR: Timestamp in the new container is older than the timestamp in the installed "
                      "container!"]
    assert (updating.unit.store(), updating.unit.stored_records()[0]) == (store, "TSC-OLD")
    assert_next_start_heals(updating)


def test_where_records_cannot_be_written_no_container_counts_as_installed(updating):
    options = ["--ro-bind", str(updating.unit.root / "run" / "csc"), "/run/csc"]
    report, errors = update(updating, options=options)
    assert report == ("14", "")
    read_only = ": Read-only file system"
    assert errors == [f"{STORAGE}Cannot write file '{ID_FILE}'{read_only}",
                      "error: Failed to load Container ID from persistent file storage.",
                      f"{STORAGE}Cannot write file '{TIMESTAMP_FILE}'{read_only}",
                      "error: Failed to load Timestamp from persistent file storage.",
                      f"error: Cannot write '{ID_FILE}'{read_only}",
                      "error: ERROR: Failed to store Container ID to persistent file storage!",
                      "error: ERROR: Clearing the Container Id failed",
                      f"error: Cannot write '{TIMESTAMP_FILE}'{read_only}",
                      "error: ERROR: Failed to store Timestamp to persistent file storage!",
                      "error: ERROR: Clearing the Timestamp failed"]
    assert updating.unit.store() == {}
    assert_next_start_heals(updating)


def test_a_marker_that_cannot_be_written_is_told_and_stops_nothing(updating):
    marker = updating.unit.root / MARKER_PATH
    marker.unlink()
    marker.mkdir()
    report, errors = update(updating)
    assert report == ("STATUS_CODE_SUCCESS", "")
    assert errors == 2 * ["error: Error sending Update Notification to other applications!"]
    assert updating.unit.records()[0] == "TSC-NEW"
