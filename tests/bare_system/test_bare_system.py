"""From a bare Debian, our package files and apt's mirror to a unit that updates itself, and back: what the
documentation says, word for word, and what becomes of files on the way."""

import dataclasses
import hashlib
import json
import pathlib
import subprocess
import sys

from conftest import DEADLINE_S, ENVIRONMENT, HERE, PACKAGES, SOURCE

sys.path.insert(0, str(SOURCE / "tests" / "docs"))

# pylint: disable=wrong-import-position
from pages import PAGES, Block, bare_system as blocks_for_a_bare_system

USER = "truststore-update-client"
STATE = f"/var/lib/{USER}"
CONFIGURATION = f"/etc/{USER}/host-platform.toml"
INSTALLED = f"{STATE}/trust-store/installed"
MARKER = "/tmp/truststoreupdate_success"
# What apt, dpkg and systemd keep for themselves, and what the test brings.
OTHERS = ("/var/lib/dpkg", "/var/lib/apt", "/var/cache", "/var/log", "/root", "/srv", "/proc", "/dev",
          "/run/bare-system.pid")
# Whose, how, and what for: as the first start finds it.
FOLDERS = {
    f"{STATE}/trust-store/factory": "root:root 755",
    INSTALLED: f"{USER}:{USER} 755",
    f"{STATE}/persistency": f"{USER}:{USER} 755",
    f"/run/csc/config/{USER}": f"root:{USER} 1775",
    MARKER: f"{USER}:{USER} 644",
}
UPDATE = f"""
tsuc-bench run --directory /srv/bench >/srv/bench.log 2>&1 &
until grep -q "tell it more:" /srv/bench.log; do sleep 0.1; done
install -m 644 /srv/bench/pki/root.pem {STATE}/trust-store/factory/ZORA.pem
cat /srv/bench/host-platform.toml >> {CONFIGURATION}
systemctl start {USER}
tsuc-bench tell /srv/bench reports --wait 1
systemctl stop {USER}
tsuc-bench tell /srv/bench stop
"""


def digests(system, *folders):
    """The content of every file below folders."""
    paths = [path for folder in folders for path in system.path(folder).rglob("*") if path.is_file()]
    return {path: hashlib.sha256(path.read_bytes()).hexdigest() for path in paths}


def test_documentation_leads_from_a_bare_system_to_an_update_and_back(bare_system):
    blocks = [block for page in PAGES for block in blocks_for_a_bare_system(page)]
    assert len([block for block in blocks if "apt" in block.text]) >= 3
    # Where systemd runs; the stand-in does what is asked of it.
    bare_system.path("/run/systemd/system").mkdir(parents=True)
    blocks.insert(0, Block("", 0, "", "sh", f"cd {PACKAGES}; apt-get update -q\n"))
    command = [*bare_system.sandbox(), HERE / "session_in_root.py", bare_system.root, str(DEADLINE_S)]
    done = subprocess.run(list(map(str, command)), input=json.dumps([dataclasses.asdict(block) for block in blocks]),
                          env=ENVIRONMENT, capture_output=True, text=True, check=False, cwd="/",
                          timeout=DEADLINE_S + 60)
    journal = bare_system.path("/var/log/truststore-update-client.journal")
    told = journal.read_text() if journal.exists() else done.stderr
    assert done.stdout == "done\n", done.stdout + told[-4000:]
    left = [path for path in bare_system.listing(*OTHERS) if "truststore" in path or path.startswith("run/csc")]
    assert left == []


def test_packages_come_stay_and_go_without_systemd(bare_system):
    bare_system.path("/usr/sbin/policy-rc.d").write_text("#!/bin/sh\nexit 101\n")
    bare_system.path("/usr/sbin/policy-rc.d").chmod(0o755)
    bare_system.run("apt-get update -q; apt-get install -qy --no-install-recommends ./*.deb")
    check_installed(bare_system)
    bare_system.run(f"apt-get purge -qy '{USER}*'")
    before = bare_system.listing(*OTHERS)
    assert [path for path in before if "truststore" in path or path.startswith("run/csc")] == []

    bare_system.run("apt-get install -qy --no-install-recommends ./*.deb")
    check_starts_with_the_example(bare_system)
    assert "status_code=0 " in bare_system.run(UPDATE)
    kept = digests(bare_system, STATE, f"/etc/{USER}")
    assert len([path for path in kept if path.parent == bare_system.path(INSTALLED)]) > 0

    check_upgrade(bare_system, kept)
    bare_system.run(f"apt-get remove -qy '{USER}*'")
    assert not bare_system.path(f"/usr/sbin/{USER}").exists()
    assert digests(bare_system, STATE, f"/etc/{USER}") == kept
    bare_system.run("apt-get install -qy --no-install-recommends ./*.deb")
    assert digests(bare_system, STATE, f"/etc/{USER}") == kept
    bare_system.run(f"apt-get purge -qy '{USER}*'")
    assert bare_system.listing(*OTHERS) == before


def check_installed(system):
    told = system.run(f"stat -c '%n=%U:%G %a' {' '.join(FOLDERS)}").splitlines()
    assert dict(line.split("=", 1) for line in told) == FOLDERS
    assert system.run(f"getent passwd {USER}").endswith(":/usr/sbin/nologin\n")
    # Where systemd is not even installed, its helper notes what is to be enabled.
    assert system.path(f"/var/lib/systemd/deb-systemd-helper-enabled/multi-user.target.wants/{USER}.service").exists()
    assert system.run("dpkg --audit") == ""
    assert system.run(f"dpkg --verify {USER} {USER}-tools {USER}-bench") == ""


def check_starts_with_the_example(system):
    system.run(f"systemctl start {USER}; tsuc-platformctl status; systemctl stop {USER}")
    journal = system.path("/var/log/truststore-update-client.journal").read_text()
    assert "Truststore Update Client Ready" in journal
    assert "host-platform.toml:" not in journal


def check_upgrade(system, kept):
    """To a package with a higher revision; the configuration in it is the same, so nobody is asked."""
    newer = system.build_dir / "bare-system" / "newer"
    subprocess.run([SOURCE / "packaging" / "make-packages", system.build_dir, newer, "2"], check=True)
    system.put_packages(newer)
    system.run("apt-get install -qy --no-install-recommends ./*.deb")
    assert system.run(f"dpkg-query -W -f '${{Version}}' {USER}").endswith("-2")
    assert digests(system, STATE, f"/etc/{USER}") == kept
    assert pathlib.Path(CONFIGURATION).name in {path.name for path in kept}
