"""The commands of the pages do what the pages say: each section's are run as a reader would paste them."""

import json
import os
import pathlib
import re
import socketserver
import subprocess
import threading

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
