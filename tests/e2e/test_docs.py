"""The commands of the pages do what the pages say: each section's are run as a reader would paste them."""

import os
import pathlib
import re
import subprocess

import pytest
from cryptography.hazmat.primitives.asymmetric.utils import encode_dss_signature

DOCS = pathlib.Path(__file__).resolve().parents[2] / "docs"


def commands(page, section):
    """The shell blocks of a page's section, one after the other."""
    text = (DOCS / page).read_text()
    found = re.search(rf"^## {re.escape(section)}\n(.*?)(?=^## |\Z)", text, re.DOTALL | re.MULTILINE)
    assert found, f"{page} has no section '{section}'"
    blocks = re.findall(r"^```sh\n(.*?)^```$", found[1], re.DOTALL | re.MULTILINE)
    assert blocks, f"section '{section}' of {page} has no commands"
    return "".join(blocks)


@pytest.fixture(name="paste")
def fixture_paste(build_dir, tmp_path):
    """Runs commands in the test's folder; the first that fails ends them and the test."""
    environment = {**os.environ, "PATH": f"{build_dir / 'bin'}:{os.environ['PATH']}"}

    def run(text):
        done = subprocess.run(["bash", "-euo", "pipefail", "-c", text], cwd=tmp_path, env=environment,
                              stdin=subprocess.DEVNULL, capture_output=True, check=False, timeout=60)
        assert done.returncode == 0, done.stderr.decode()
        return done.stdout
    return run


ACCEPTED = b"status 0 (STATUS_CODE_SUCCESS): a unit would install it\n"


def test_a_signer_of_your_own_makes_a_container_that_a_unit_takes(paste):
    told = paste(commands("tsc.md", "A signer of your own"))
    assert told.startswith(b"container.tsc: container TSC-BENCH-1 of ")
    assert b"KALVIRON Bench Signer" in told
    assert told.endswith(ACCEPTED)


def test_a_container_made_by_hand_is_one_that_a_unit_takes(paste):
    paste(commands("tsc.md", "A signer of your own"))
    assert paste(commands("container-format.md", "By hand")).endswith(ACCEPTED)


@pytest.mark.parametrize("r, s", [(1, 2 ** 255), (2 ** 256 - 1, 0x0A), (2 ** 247, 2 ** 248 - 1)])
def test_numbers_of_a_signature_by_hand_have_32_bytes_each(paste, tmp_path, r, s):
    (tmp_path / "any.der").write_bytes(encode_dss_signature(r, s))
    function = re.search(r"^r_and_s\(\) \{.*?^\}\n", commands("container-format.md", "By hand"),
                         re.DOTALL | re.MULTILINE)[0]
    assert paste(function + "r_and_s any.der") == r.to_bytes(32, "big") + s.to_bytes(32, "big")
