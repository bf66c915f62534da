"""What the maintainer scripts do where something fails: nobody but root may keep dpkg from its work."""

import os
import subprocess

import pytest

SYSTEM = ("systemd-sysusers", "systemd-tmpfiles", "deb-systemd-helper", "deb-systemd-invoke", "systemctl")


@pytest.fixture(name="run")
def fixture_run(source, tmp_path):
    """Runs a script for a root below `tmp_path`, with stand-ins for the system's programs, of which some fail."""
    (tmp_path / "bin").mkdir()

    def run(script, *arguments, failing=()):
        for name in SYSTEM:
            stand_in = tmp_path / "bin" / name
            stand_in.write_text(f"#!/bin/sh\nexit {int(name in failing)}\n")
            stand_in.chmod(0o755)
        return subprocess.run([source / "packaging" / "debian" / script, *arguments], check=False, timeout=60, env={
            **os.environ, "PATH": f"{tmp_path}/bin:{os.environ['PATH']}", "DPKG_ROOT": str(tmp_path)}).returncode

    return run


@pytest.mark.parametrize("action", [["configure", ""], ["configure", "0.1.0-1"], ["abort-upgrade", "2"], ["abort-remove"],
                                    ["abort-deconfigure", "in-favour", "a", "1"]])
def test_what_is_planted_in_tmp_does_not_fail_the_installation(run, action):
    """systemd-tmpfiles fails where the marker should be and is not."""
    assert run("postinst", *action, failing=("systemd-tmpfiles",)) == 0


def test_without_a_user_the_installation_fails(run):
    assert run("postinst", "configure", "", failing=("systemd-sysusers",)) != 0


def test_what_is_planted_in_tmp_does_not_fail_the_purge(run, tmp_path):
    (tmp_path / "tmp" / "truststoreupdate_success").mkdir(parents=True)
    (tmp_path / "var/lib/truststore-update-client/persistency").mkdir(parents=True)
    assert run("postrm", "purge") == 0
    assert os.listdir(tmp_path / "var/lib") == []


@pytest.mark.parametrize("action", [["remove"], ["upgrade", "2"], ["failed-upgrade", "2"], ["abort-install"],
                                    ["abort-upgrade", "2"], ["disappear", "other", "1"]])
def test_only_purge_takes_the_store_away(run, tmp_path, action):
    store = tmp_path / "var/lib/truststore-update-client/trust-store"
    store.mkdir(parents=True)
    assert run("postrm", *action) == 0
    assert store.exists()
