"""An update by -f that loses power at any of its calls that change files, or finds its disk full, and the next one."""

import shutil

import pytest

import full_disk
import power_loss
from bench import containers
from power_loss import KILLED
from unit import RUN_DIR, STATE_DIR

STATUS = "info: Send Update Status to the Device Platform: STATUS_CODE_"
ALREADY_INSTALLED = "DOWNLOAD_ERROR"
OLDER, OLD, NEW = "2025-01-02T03:04:05", "2026-01-02T03:04:05", "2026-01-02T03:04:06"
NEW_SECONDS = "1767323046"
# Runs a command on a full disk, and leaves in $1 what it has there then.
ON_FULL_DISK = full_disk.FILL + """
after=$1
shift
"$@" || true
rm /mnt/filler
mkdir "$after"
cp -a /mnt/. "$after"
"""


@pytest.fixture(name="container")
def fixture_container(pki):
    """Builds containers: container(timestamp, id, bundle names...)."""
    signer = containers.Signer.load(pki / "p256-3")
    certificate = (pki / "payload" / "00.der").read_bytes()

    def build(ts, container_id, *names):
        return containers.build(signer, {name: [certificate] for name in names}, ts=ts, container_id=container_id)
    return build


@pytest.fixture(name="installed")
def fixture_installed(unit, pki, container):
    """A unit on which a container with the bundles A and B is installed, and whose next -f is free."""
    unit.write_switches()
    unit.provision_root((pki / "root.pem").read_bytes())
    assert unit.install(container(OLD, "TSC-OLD", "A", "B")).status() == "SUCCESS"
    unit.write_switches()
    return unit


def install_on_full_disk(unit, folder, container):
    """Installs with the unit's `folder` on a full disk. Returns the log."""
    script = ("sh", "-c", ON_FULL_DISK, "sh", f"/{folder}", "/tmp/filled", "/tmp/after")
    result = unit.install(container, within=script, options=full_disk.MOUNTING, is_confined=False)
    assert full_disk.NO_ROOM in (unit.root / "tmp" / "filled").read_text(), result.stderr
    shutil.rmtree(unit.root / folder)
    shutil.move(unit.root / "tmp" / "after", unit.root / folder)
    return result.log()


@pytest.mark.long
def test_killed_at_any_call_that_changes_files_the_next_start_completes_the_update(installed, container, tmp_path):
    update = container(NEW, "TSC-NEW", "B", "C")
    whole = installed.copy(tmp_path / "whole")
    whole.install(update, options=power_loss.counting(whole))

    def check(call):
        unit = installed.copy(tmp_path / f"killed-{call}")
        assert unit.install(update, options=power_loss.at(unit, call)).returncode == KILLED
        unit.reboot()
        unit.write_switches()
        assert unit.install(update).status() in ("SUCCESS", ALREADY_INSTALLED)
        assert (sorted(unit.store()), unit.stored_records()) == (["B", "C"], ("TSC-NEW", NEW_SECONDS))

    power_loss.assert_no_case_fails(check, power_loss.sample(power_loss.calls(whole)))


@pytest.mark.usefixtures("mounting")
@pytest.mark.parametrize("ts", [OLD, NEW])
def test_on_a_full_disk_the_trust_store_and_its_records_stay_of_one_mind(installed, container, ts):
    log = install_on_full_disk(installed, STATE_DIR, container(ts, "TSC-OLD", "A", "B"))
    assert [line for line in log if line.startswith(STATUS)]
    installed.write_switches()
    installed.install(container(OLD, "TSC-OLD", "A", "B"))
    assert sorted(installed.store()) == ["A", "B"], log


@pytest.mark.usefixtures("mounting")
def test_with_full_memory_an_older_container_is_still_refused(installed, container):
    # -f cannot switch this off itself while there is no room for the file.
    installed.write_switches(installed.switches_path.read_text().replace("OcspDisable                 = false",
                                                                         "OcspDisable                 = true "))
    install_on_full_disk(installed, RUN_DIR, container(OLDER, "TSC-OLDER", "OLDER"))
    assert sorted(installed.store()) == ["A", "B"]
