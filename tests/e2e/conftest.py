"""Each test gets a unit of its own."""

import pytest

from unit import Unit


@pytest.fixture(name="unit")
def fixture_unit(tmp_path, build_dir):
    unit = Unit(tmp_path / "unit", build_dir)
    yield unit
    unit.close()
