"""Each test gets a unit of its own."""

import subprocess

import pytest

import full_disk
from daemon import Daemon
from unit import Unit


@pytest.fixture(name="unit")
def fixture_unit(tmp_path, build_dir):
    unit = Unit(tmp_path / "unit", build_dir)
    yield unit
    unit.close()


@pytest.fixture(name="daemon")
def fixture_daemon(unit, tmp_path):
    """A unit with a bench of its own."""
    with Daemon(unit, tmp_path / "bench") as daemon:
        yield daemon


@pytest.fixture(name="mounting", scope="session")
def fixture_mounting():
    """Skips where the system refuses user namespaces."""
    command = ("bwrap", "--ro-bind", "/", "/", *full_disk.MOUNTING, "mount", "-t", "tmpfs", "tmpfs", "/mnt")
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, check=False, timeout=60)
    if done.returncode != 0:
        pytest.skip(f"bwrap is refused here: {done.stderr.decode().strip()}")
