"""The tool's messages and those of the bench, each read by the other side."""

import subprocess

import pytest

from bench import schema


@pytest.fixture(name="tsc")
def fixture_tsc(build_dir):
    def run(*arguments, **how):
        return subprocess.run([build_dir / "bin" / "tsc", *arguments], capture_output=True, check=False, timeout=60,
                              **how)
    return run


@pytest.mark.parametrize("container_id", ["TSC-1", "ü", "x" * 100])
def test_job_on_standard_output_is_that_of_the_backend(tsc, container_id):
    done = tsc("job", "--id", container_id)
    assert (done.returncode, done.stderr) == (0, b"")
    assert done.stdout == schema.job(container_id).SerializeToString()


def test_report_on_standard_input_is_read(tsc):
    message = schema.status_report()
    message.status_code, message.container_id = 13, "TSC-1"
    done = tsc("report", input=message.SerializeToString())
    assert (done.returncode, done.stdout, done.stderr) == (0, b"status    13 unknown\ncontainer TSC-1\n", b"")


def test_endless_standard_input_ends_at_the_bound(tsc):
    with open("/dev/zero", "rb") as endless:
        done = tsc("report", "-", stdin=endless)
    assert (done.returncode, done.stderr) == (3, b"tsc report: /dev/stdin: File too large\n")


def test_standard_input_that_is_no_report_is_refused(tsc):
    done = tsc("report", input=b"\xff")
    assert (done.returncode, done.stderr) == (1, b"tsc report: /dev/stdin: no status report\n")
