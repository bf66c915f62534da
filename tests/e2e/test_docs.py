"""The commands of the pages do what the pages say: each section's are run as a reader would paste them."""

import json
import os
import pathlib
import re
import socketserver
import subprocess
import threading
import time

import pytest
from cryptography.hazmat.primitives.asymmetric.utils import encode_dss_signature

from daemon import ALERTS_PATH, SUBSCRIBED, TERMINATED
from running import DEADLINE_S

SOURCE = pathlib.Path(__file__).resolve().parents[2]
DOCS = SOURCE / "docs"
BASH = ("/usr/bin/bash", "-euo", "pipefail", "-c")


def blocks(page, section):
    """The shell blocks of a page's section."""
    text = (DOCS / page).read_text()
    found = re.search(rf"^## {re.escape(section)}\n(.*?)(?=^## |\Z)", text, re.DOTALL | re.MULTILINE)
    assert found, f"{page} has no section '{section}'"
    found = re.findall(r"^```sh\n(.*?)^```$", found[1], re.DOTALL | re.MULTILINE)
    assert found, f"section '{section}' of {page} has no commands"
    return found


def commands(page, section):
    """All of them, one after the other."""
    return "".join(blocks(page, section))


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


@pytest.mark.parametrize("r, s", [(1, 2 ** 255), (2 ** 256 - 1, 0x0A), (2 ** 247, 2 ** 248 - 1)])
def test_numbers_of_a_signature_by_hand_have_32_bytes_each(paste, tmp_path, r, s):
    (tmp_path / "any.der").write_bytes(encode_dss_signature(r, s))
    function = re.search(r"^r_and_s\(\) \{.*?^\}\n", commands("container-format.md", "By hand"),
                         re.DOTALL | re.MULTILINE)[0]
    assert paste(function + "r_and_s any.der") == r.to_bytes(32, "big") + s.to_bytes(32, "big")


class ControlClient(socketserver.StreamRequestHandler):
    """Answers as the page on the host platform tells, and keeps what was asked."""

    def handle(self):
        for line in self.rfile:
            request = json.loads(line)
            self.server.asked.append(request)
            self.wfile.write(json.dumps(self.answer(request)).encode() + b"\n")

    @staticmethod
    def answer(request):
        if request["command"] == "status":
            return {"ok": True, "status": status_of_the_page()}
        if request["command"] == "state":
            return {"ok": True, "state": request["state"], "sequence": 3}
        return {"ok": True, "state": 2, "held": request["state"] != "auto"}


def status_of_the_page():
    """The example of the status' parts."""
    section = (DOCS / "host-platform.md").read_text().partition("## Control socket\n")[2]
    block = re.search(r"^```json\n(.*?)^```$", section, re.DOTALL | re.MULTILINE)
    return json.loads(block[1])


@pytest.fixture(name="process")
def fixture_process(tmp_path, monkeypatch):
    """Something that serves a control socket, which the configuration names."""
    (tmp_path / "host.toml").write_text(f'[control]\nsocket = "{tmp_path}/control.sock"\n')
    monkeypatch.setenv("TSUC_HOST_CONFIG", str(tmp_path / "host.toml"))
    with socketserver.ThreadingUnixStreamServer(str(tmp_path / "control.sock"), ControlClient) as server:
        server.asked = []
        thread = threading.Thread(target=server.serve_forever)
        thread.start()
        yield server
        server.shutdown()
        thread.join()


def test_examples_of_the_control_tool_ask_what_the_page_of_the_socket_tells(process, paste):
    told = paste(commands("platformctl.md", "Examples")).decode()
    assert told.endswith("kPrepSD confirmed (3)\nkOn confirmed (3)\nconnection state 2, held\n"
                         "connection state 2, following the broker\n")
    assert process.asked == [{"command": "status"}, {"command": "status"},
                             {"command": "state", "state": "kPrepSD"}, {"command": "state", "state": "kOn"},
                             {"command": "connection", "state": 4}, {"command": "connection", "state": "auto"}]


def test_status_of_the_page_is_shown_whole(process, paste):
    assert json.loads(paste("tsuc-platformctl status --json")) == status_of_the_page()
    told = paste("tsuc-platformctl status").decode()
    assert "-" not in [line.split()[-1] for line in told.splitlines()]
    assert len(process.asked) == 2


class Machine:
    """A machine that is given to a unit: a page's commands, as root types them into several terminals.

    The bench is outside of the sandbox, which it could not make another one in; the folder of both has one path.
    """

    def __init__(self, unit, folder):
        self.unit = unit
        self.folder = folder
        self.folder.mkdir()
        self.bench = None

    def _text(self, text):
        """Commands of a page with this test's paths."""
        for named, here in (("/tmp/bench", self.folder / "bench"), ("build/release", self.unit.build_dir),
                            ("bench/bench.py ", f"{SOURCE / 'bench' / 'bench.py'} ")):
            text = text.replace(named, str(here))
        return text.strip()

    def _options(self):
        shown = (SOURCE / "bench", SOURCE / "proto")
        return ["--bind", str(self.folder), str(self.folder),
                *(option for path in shown for option in ("--ro-bind", str(path), str(path)))]

    def start_bench(self, text):
        """Returns when the bench has told what it runs."""
        text = self._text(text).replace(f"/var/{ALERTS_PATH}", str(self.unit.root / ALERTS_PATH))
        assert str(self.unit.root) in text
        self.bench = subprocess.Popen([*BASH, f"exec {text}"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                      text=True)
        assert any(line.startswith("tell it more:") for line in self.bench.stdout)

    def start(self, text):
        """Starts the daemon in a terminal of its own."""
        # More of the log than a reader gets by default, since the test has to know when it has its topic.
        self._log_all()
        # The shell's place is taken: a signal is for the daemon.
        running = self.unit.start(*BASH, f"exec env {self._text(text)}", options=self._options())
        running.wait_for(SUBSCRIBED)
        return running

    def _log_all(self):
        path = self.folder / "bench" / "host-platform.toml"
        text = path.read_text()
        if not text.startswith("[logging]"):
            path.write_text('[logging]\nlevel = "debug"\n\n' + text)

    def run(self, text):
        """Runs commands to their end; all have to succeed. Returns what they say, and the log of the last."""
        text = f"cd {self.folder}\n{self._text(text)}"
        result = self.unit.run(*BASH[1:], text, program=BASH[0], options=self._options())
        assert result.returncode == 0, result.stderr
        return result

    def close(self):
        if self.bench:
            self.bench.terminate()
            self.bench.communicate(timeout=DEADLINE_S)


@pytest.fixture(name="machine")
def fixture_machine(unit, tmp_path):
    machine = Machine(unit, tmp_path / "machine")
    yield machine
    machine.close()


def last_report(told):
    """The status that `tell ... reports` shows last."""
    return re.findall(r"status_name=(\w+)", told)[-1]


def test_unit_against_the_bench_does_what_the_page_tells(machine):
    bench, provision, daemon, look, job, alert, revocation, own, by_file = blocks("bench.md", "A unit against it")
    machine.start_bench(bench)
    machine.run(provision)
    running = machine.start(daemon)
    told = machine.run(look).stdout
    assert last_report(told) == "STATUS_CODE_SUCCESS"
    assert "FLEET.pem\nWEB.pem\n" in told
    assert "application  running\n" in told
    for text, expected in ((job, "SUCCESS"), (alert, "SUCCESS"), (revocation, "CERT_DECODE_ERROR")):
        code, log = running.end()
        assert (code, TERMINATED in log) == (0, True)
        running = machine.start(daemon)
        told = machine.run(text).stdout
        assert last_report(told) == f"STATUS_CODE_{expected}"
    assert re.findall(r"reason=RENEWAL_REASON_(\w+)", told) == ["EMPTYTS", "JOB", "UNKNOWNCA", "JOB"]
    running.end()
    # The bench has made its containers in less time than they are apart: this one has to be newer all the same.
    machine.run(own.replace("--id TSC-MINE", f"--id TSC-MINE --timestamp {int(time.time()) + 3600}"))
    assert "info: Send Update Status to the Device Platform: STATUS_CODE_SUCCESS" in machine.run(by_file).log()


def test_container_from_a_file_is_installed_and_undone_as_the_readme_tells(machine, paste):
    _, _, install, undo = blocks("../README.md", "Try it by hand, without installing")
    paste(f"cd {machine.folder}\n" + commands("tsc.md", "A signer of your own") + "cp root.pem ZORA.pem")
    result = machine.run(install)
    assert "info: Send Update Status to the Device Platform: STATUS_CODE_SUCCESS" in result.log()
    assert result.stdout.endswith("WEB.pem\n")
    machine.run(undo)
    assert machine.unit.store() == {}
    assert not any(path.exists() for path in (machine.unit.switches_path, machine.unit.store_dir))
