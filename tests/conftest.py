"""What all Python tests share: the test certificates and where the programs under test are."""

import os
import pathlib
import subprocess
import sys

import pytest

TESTS = pathlib.Path(__file__).resolve().parent
SOURCE = TESTS.parent
sys.path.insert(0, str(SOURCE))
sys.path.insert(0, str(TESTS / "e2e"))


@pytest.fixture(name="build_dir", scope="session")
def fixture_build_dir():
    """The build folder that TSUC_BUILD_DIR names; without it the release preset's."""
    return pathlib.Path(os.environ.get("TSUC_BUILD_DIR", SOURCE / "build" / "release")).resolve()


@pytest.fixture(name="pki", scope="session")
def fixture_pki(build_dir):
    """The folder of make_pki.py; ctest makes it and names it, a run by hand makes it here."""
    if made := os.environ.get("TSUC_TEST_PKI"):
        return pathlib.Path(made)
    folder = build_dir / "test-pki"
    subprocess.run([str(TESTS / "pki" / "make_pki.py"), str(folder)], check=True)
    return folder
