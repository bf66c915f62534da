"""A machine of its own for each test that runs what pages say."""

import dataclasses
import json
import os
import pathlib
import subprocess
import sys

import pytest

from pages import SOURCE

HERE = pathlib.Path(__file__).resolve().parent
# What programs need of /etc to load, to resolve names, and to make certificates.
ETC = ("alternatives", "group", "hosts", "ld.so.cache", "localtime", "nsswitch.conf", "passwd", "protocols", "services",
       "ssl")


@pytest.fixture(name="sandbox")
def fixture_sandbox(build_dir, tmp_path):
    """Runs a session where a clone with a build is, as root of a machine of its own: /etc, /run, /srv, /tmp and
    /var/lib are the test's. A bench inside makes further sandboxes."""
    for folder in ("etc", "run", "srv", "tmp", "var/lib", "bin", "clone/build"):
        (tmp_path / folder).mkdir(parents=True)
    clone = tmp_path / "clone"
    for name in ("bench", "docs", "proto", "script", "tests"):
        (clone / name).symlink_to(SOURCE / name)
    (clone / "build" / "release").symlink_to(build_dir)
    binds = []
    for folder in ("etc", "run", "srv", "tmp", "var/lib"):
        binds += ["--bind", str(tmp_path / folder), f"/{folder}"]
    for name in ETC:
        if os.path.exists(f"/etc/{name}"):
            binds += ["--ro-bind", f"/etc/{name}", f"/etc/{name}"]
    command = ["bwrap", "--ro-bind", "/", "/", "--dev", "/dev", "--proc", "/proc", *binds,
               "--bind", str(clone), str(clone), "--ro-bind", str(tmp_path / "bin"), str(tmp_path / "bin"),
               "--ro-bind", str(SOURCE), str(SOURCE),
               "--bind", str(build_dir), str(build_dir), "--unshare-user", "--uid", "0", "--gid", "0",
               "--cap-add", "ALL", "--unshare-pid", "--unshare-net", "--die-with-parent", "--new-session"]
    environment = {name: value for name, value in os.environ.items() if not name.startswith("TSUC_")}
    environment |= {"PATH": f"{tmp_path / 'bin'}:{build_dir / 'bin'}:{os.environ['PATH']}", "HOME": str(clone)}

    def run(blocks, programs=None):
        """Blocks of pages, with further programs: their names and texts."""
        for name, text in (programs or {}).items():
            (tmp_path / "bin" / name).write_text(text)
            (tmp_path / "bin" / name).chmod(0o755)
        text = json.dumps([dataclasses.asdict(block) for block in blocks])
        return subprocess.run([*command, sys.executable, str(HERE / "session.py"), str(clone)], env=environment,
                              input=text, capture_output=True, check=False, text=True, timeout=250)
    return run
