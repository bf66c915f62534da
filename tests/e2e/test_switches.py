"""The switches file is a way past every check: as the package lays it out, the daemon's user cannot change it."""

import os
import pathlib
import signal
import stat
import subprocess

import pytest

import confinement
from bench import containers
from daemon import MARKER_PATH, READY
from unit import PROGRAM, RUN_DIR, STATE_DIR

USER_ID = int(confinement.USER)
AS_USER = ("setpriv", f"--reuid={USER_ID}", f"--regid={USER_ID}", "--clear-groups", "--bounding-set=-all", "--inh-caps=-all",
           "--no-new-privs", "env", "LD_LIBRARY_PATH=/mnt/lib", f"/mnt/bin/{PROGRAM}")
PREPARE = confinement.PACKAGING / "libexec" / "prepare-switches"
NOT_WRITTEN = "\033[1;31mOption '{}' could not be written: Operation not permitted\033[0m"
RESET = "\033[1;32mOption '{}' value changed to 'false'\033[0m"
RESET_SWITCHES = [RESET.format("ConnectionRetryTestMode"), RESET.format("OcspDisable")]


class InstalledUnit:
    """A unit whose files belong to whom the package gives them, and whose daemon runs as its own user."""

    def __init__(self, unit, pki):
        self.unit = unit
        self.signer = containers.Signer.load(pki / "p256-3")
        self.certificate = (pki / "payload" / "00.der").read_bytes()
        unit.provision_root((pki / "root.pem").read_bytes())
        confinement.boot(unit.root, USER_ID)
        subprocess.run([PREPARE, unit.root / RUN_DIR], check=True)

    def command(self, *arguments, is_service=False):
        """The daemon's, with the folders that the service has or all of them: what stands in the way then is only whose
        the files are."""
        folders = [*confinement.folders(self.unit.root), "--ro-bind", str(self.unit.switches_path), confinement.SWITCHES]
        return self.unit.command(*AS_USER, *arguments, options=[
            *(folders if is_service else []), "--ro-bind", str(self.unit.build_dir), "/mnt"])

    def run(self, *arguments, **how):
        done = subprocess.run(self.command(*arguments, **how), stdin=subprocess.DEVNULL, capture_output=True, check=False,
                              timeout=60, env={**os.environ, **confinement.environment()}, umask=confinement.umask())
        assert done.returncode == 0, done.stderr.decode()
        return done.stdout.decode().splitlines(), done.stderr.decode()

    def install(self, *arguments, **how):
        text = containers.build(self.signer, {"WEB": [self.certificate]}, ts="2026-01-02T03:04:05", container_id="TSC-1")
        (self.unit.root / "tmp" / "container.tsc").write_text(text)
        return self.run("-f", "/tmp/container.tsc", *arguments, **how)

    def switch_on(self, key):
        """As root does for a test."""
        path = self.unit.switches_path
        path.write_text("".join(f"{key} = true\n" if line.startswith(key) else line
                                for line in path.read_text().splitlines(keepends=True)))


@pytest.fixture(name="installed")
def fixture_installed(unit, pki):
    if os.geteuid() != 0:
        pytest.skip("only root can give files to another user")
    return InstalledUnit(unit, pki)


def state(path):
    status = path.lstat()
    return status.st_ino, status.st_uid, stat.filemode(status.st_mode), path.read_text()


def test_prepared_switches_are_roots_and_off(installed):
    _, owner, mode, _ = state(installed.unit.switches_path)
    assert (owner, mode) == (0, "-rw-r--r--")
    assert set(installed.unit.switches().values()) == {"false"}


@pytest.mark.parametrize("is_service", [False, True])
def test_the_daemons_user_cannot_switch_off_a_check(installed, is_service):
    before = state(installed.unit.switches_path)
    stdout, _ = installed.run("-m", "1111111", is_service=is_service)
    assert stdout == [NOT_WRITTEN.format(key) for key in installed.unit.switches() if key.startswith("no-check")]
    stdout, stderr = installed.install(is_service=is_service)
    assert stdout == [NOT_WRITTEN.format("OcspDisable"), *RESET_SWITCHES]
    assert "ERROR" in stderr
    stdout, _ = installed.install("-m", "1111111", is_service=is_service)
    assert stdout[0] == NOT_WRITTEN.format("OcspDisable")
    assert len(stdout) == 8
    assert state(installed.unit.switches_path) == before
    assert installed.unit.store() == {}
    assert list((installed.unit.root / RUN_DIR).glob("config.cfg?*")) == []


@pytest.mark.parametrize("is_service", [False, True])
def test_what_root_switches_off_the_daemon_obeys_and_its_records_and_bundles_are_written(installed, is_service):
    installed.switch_on("no-check-ocsp")
    stdout, stderr = installed.install(is_service=is_service)
    assert stdout[-2:] == RESET_SWITCHES
    assert installed.unit.records()[0] == "TSC-1", stderr
    assert installed.unit.stored_records()[0] == "TSC-1"
    assert list(installed.unit.store()) == ["WEB"]
    path = installed.unit.root / STATE_DIR / "trust-store"
    assert (path / "factory" / "ZORA.pem").exists()
    assert (path / "installed" / "WEB.pem").stat().st_uid == USER_ID


def test_switches_of_a_killed_test_run_are_off_at_the_next_start(installed):
    for key in ("OcspDisable", "ConnectionRetryTestMode", "no-check-signcertcn"):
        installed.switch_on(key)
    subprocess.run([PREPARE, installed.unit.root / RUN_DIR], check=True)
    on = [key for key, value in installed.unit.switches().items() if value == "true"]
    assert on == ["no-check-signcertcn"]
    assert (state(installed.unit.switches_path)[1:3]) == (0, "-rw-r--r--")


@pytest.mark.parametrize("path", [RUN_DIR / "config.cfg", STATE_DIR / "trust-store" / "factory",
                                  STATE_DIR / "trust-store" / "factory" / "ZORA.pem"], ids=str)
def test_the_daemons_user_can_neither_move_nor_remove_what_is_roots(installed, path):
    code = "import os, sys\nfor how in (lambda p: os.rename(p, p + 'x'), os.remove, lambda p: open(p, 'a'), os.rmdir):\n" \
           "    try: how(sys.argv[1])\n    except OSError: continue\n    sys.exit('done')"
    before = installed.unit.root / path
    command = installed.unit.command(*AS_USER[:-3], "/usr/bin/python3", "-c", code, f"/{path}")
    subprocess.run(command, check=True)
    assert before.exists()


def test_the_service_starts_clears_the_marker_and_ends_in_order(installed):
    marker = installed.unit.root / MARKER_PATH
    marker.write_text("1")
    process = subprocess.Popen(installed.command(is_service=True), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, env={**os.environ, **confinement.environment()}, text=True)
    with process:
        assert any(READY.removeprefix("info: ") in line for line in process.stderr)
        children = pathlib.Path(f"/proc/{process.pid}/task/{process.pid}/children").read_text().split()
        os.kill(int(children[0]), signal.SIGTERM)
        stdout = process.communicate(timeout=60)[0].splitlines()
    assert (process.returncode, stdout, marker.read_text()) == (0, RESET_SWITCHES, "0")
