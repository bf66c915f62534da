"""Each test gets a unit of its own."""

import pytest

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
