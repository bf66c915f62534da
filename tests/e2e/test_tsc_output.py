"""What the tool does when nobody can take its answer."""

import os
import subprocess

import pytest


@pytest.mark.parametrize("arguments", [["--help"], ["switches", "--json"], ["switches", "--init"]], ids=" ".join)
def test_standard_output_that_takes_nothing_ends_with_three(build_dir, tmp_path, arguments):
    if arguments[0] == "switches":
        arguments = [*arguments, "--file", tmp_path / "config.cfg"]
    (tmp_path / "read-only").touch()
    with open(tmp_path / "read-only", "rb") as read_only:
        done = subprocess.run([build_dir / "bin" / "tsc", *arguments], stdout=read_only, stderr=subprocess.PIPE,
                              text=True, check=False, timeout=60)
    assert (done.returncode, done.stderr.splitlines()[-1]) == (3, "tsc: standard output: cannot be written")


def test_reader_that_has_gone_ends_with_three(build_dir):
    reading, writing = os.pipe()
    os.close(reading)
    with open(writing, "wb") as pipe:
        done = subprocess.run([build_dir / "bin" / "tsc", "--help"], stdout=pipe, stderr=subprocess.PIPE, text=True,
                              check=False, timeout=60)
    assert (done.returncode, done.stderr) == (3, "tsc: standard output: cannot be written\n")
