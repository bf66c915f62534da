"""An update that is killed before any of its system calls, or that finds its disk full, and the next start after it."""

import shutil
import signal
import subprocess

import pytest

from bench import containers
from unit import RUN_DIR, STATE_DIR

STATUS = "info: Send Update Status to the Device Platform: STATUS_CODE_"
ALREADY_INSTALLED = "DOWNLOAD_ERROR"
OLDER, OLD, NEW = "2025-01-02T03:04:05", "2026-01-02T03:04:05", "2026-01-02T03:04:06"
NEW_SECONDS = "1767323046"
# What changes the disk or makes a change last. Between two of SQLite's writes to a page nothing else happens.
CALLS = ("rename", "fsync", "fdatasync", "mkdir", "unlink", "unlinkat", "rmdir")
MOST_CALLS = 60
KILLED = 128 + signal.SIGKILL
# A unit whose processes may mount.
MOUNTING = ("--unshare-user", "--uid", "0", "--gid", "0", "--cap-add", "CAP_SYS_ADMIN")
# Runs a command with folder $1 on a file system without a free block, and leaves that folder's contents in $2.
ON_FULL_DISK = """
set -e
folder=$1 after=$2
shift 2
mount -t tmpfs -o size=512k tmpfs /mnt
cp -a "$folder/." /mnt
cat /dev/zero > /mnt/filler 2> "$after.filled" || true
mount --bind /mnt "$folder"
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
    assert status_of(unit.install(container(OLD, "TSC-OLD", "A", "B"))) == "SUCCESS"
    unit.write_switches()
    return unit


@pytest.fixture(name="tracing", scope="module")
def fixture_tracing():
    """Skips where the system lets nobody trace."""
    require("strace", "-qq", "-e", "trace=none", "true")


@pytest.fixture(name="mounting", scope="module")
def fixture_mounting():
    """Skips where the system refuses user namespaces."""
    require("bwrap", "--ro-bind", "/", "/", *MOUNTING, "mount", "-t", "tmpfs", "tmpfs", "/mnt")


def require(*command):
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, check=False, timeout=60)
    if done.returncode != 0:
        pytest.skip(f"{command[0]} is refused here: {done.stderr.decode().strip()}")


def status_of(result):
    return [line for line in result.log() if line.startswith(STATUS)][-1].removeprefix(STATUS)


def was_killed(unit, update, call, count):
    """Installs and kills the daemon before its `count`th `call`, if it makes so many."""
    # LeakSanitizer traces, too, and fails where it is traced already.
    strace = ("env", "ASAN_OPTIONS=detect_leaks=0", "strace", "-f", "-qq", "-o", "/tmp/trace", "-e", f"trace={call}",
              "-e", f"inject={call}:signal=KILL:when={count}")
    result = unit.install(update, within=strace)
    assert result.returncode in (0, KILLED), result.stderr
    return result.returncode == KILLED


def install_on_full_disk(unit, folder, container):
    """Installs with the unit's `folder` on a full disk. Returns the log."""
    script = ("sh", "-c", ON_FULL_DISK, "sh", f"/{folder}", "/tmp/after")
    result = unit.install(container, within=script, options=MOUNTING)
    assert "No space left on device" in (unit.root / "tmp" / "after.filled").read_text(), result.stderr
    shutil.rmtree(unit.root / folder)
    shutil.move(unit.root / "tmp" / "after", unit.root / folder)
    return result.log()


@pytest.mark.usefixtures("tracing")
@pytest.mark.parametrize("call", CALLS)
def test_killed_before_a_system_call_the_next_start_completes_the_update(installed, container, tmp_path, call):
    update = container(NEW, "TSC-NEW", "B", "C")
    count = 1
    while was_killed(unit := installed.copy(tmp_path / "killed"), update, call, count):
        unit.reboot()
        unit.write_switches()
        assert status_of(unit.install(update)) in ("SUCCESS", ALREADY_INSTALLED), count
        assert sorted(unit.store()) == ["B", "C"], count
        count += 1
        assert count <= MOST_CALLS
    assert count > 1
    assert unit.records() == ("TSC-NEW", NEW_SECONDS)


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
