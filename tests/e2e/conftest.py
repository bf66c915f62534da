"""Each test gets a unit of its own."""

import subprocess

import pytest

import full_disk
from daemon import Daemon
from unit import Unit


def pytest_configure(config):
    config.addinivalue_line("markers", "long: takes longer than a few others together")


def pytest_collection_modifyitems(items):
    """Spreads the long tests over all: workers are given tests in rows, and should not be given these in one."""
    long = [item for item in items if item.get_closest_marker("long")]
    others = [item for item in items if not item.get_closest_marker("long")]
    row = len(others) // max(1, len(long))
    items[:] = [each for number, item in enumerate(long) for each in (item, *others[number * row:(number + 1) * row])]
    items += others[len(long) * row:]


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
