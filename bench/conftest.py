"""What the bench's own tests share."""

import os
import pathlib
import subprocess

import pytest

from bench.box import Bench
from bench.log import EventLog

SOURCE = pathlib.Path(__file__).resolve().parents[1]
DEADLINE_S = 20


class Tools:
    """Programs that nobody here wrote."""

    @staticmethod
    def run(*command, check=True, **how):
        """Runs one with a deadline and returns what became of it, output as bytes."""
        environment = {**os.environ, "no_proxy": "*"}
        return subprocess.run([str(word) for word in command], capture_output=True, check=check, timeout=DEADLINE_S,
                              env=environment, **how)

    def curl(self, *arguments, seconds=DEADLINE_S, body=None):
        """curl with `body` as its standard input: (exit code, standard output)."""
        done = self.run("curl", "--silent", "--show-error", "--max-time", seconds, *arguments, check=False, input=body)
        return done.returncode, done.stdout

    def protoc(self, direction, message, content):
        """protoc --encode or --decode of one of the messages."""
        return self.run("protoc", f"--{direction}=domain.backend.proto.{message}", f"--proto_path={SOURCE / 'proto'}",
                        *(path.name for path in (SOURCE / "proto").glob("*.proto")), input=content).stdout

    def download(self, bench, *arguments, body=b"", seconds=DEADLINE_S, token=None):
        """A download as a unit makes it: (exit code, answer's body)."""
        return self.curl("--data-binary", "@-", "-H", f"Authorization: Bearer {token or bench.backend.token}",
                         "-H", "Content-Type: application/RUNA_CO_TruststoreUpdateRequestTSC_v1+proto",
                         "-H", "Accept: application/RUNA_CT_TruststoreUpdateResponseTSC_v1+proto",
                         *arguments, bench.url("download"), seconds=seconds, body=body)


@pytest.fixture(name="tools", scope="session")
def fixture_tools():
    return Tools()


@pytest.fixture(name="log")
def fixture_log():
    return EventLog()


@pytest.fixture(name="plain", scope="module")
def fixture_plain(tmp_path_factory):
    """A bench for the tests of one file, by HTTP, with a chain of three."""
    with Bench(tmp_path_factory.mktemp("bench"), chain_length=3) as bench:
        yield bench


@pytest.fixture(name="bench")
def fixture_bench(plain):
    """The bench of this file, without what the test before told it."""
    yield plain
    plain.behave()
    for member in ("signer", "ca-1", "ca-2"):
        plain.unrevoke(member)
    failed = [line for line in plain.log.lines() if "the bench failed" in line]
    assert not failed
