"""The packages for a 64-bit Arm unit (script/package arm64): what they are, and that the daemon as packaged works, in the
emulator."""

import pathlib
import re
import shutil
import subprocess

import pytest

from unit import Unit

SOURCE = pathlib.Path(__file__).resolve().parents[2]
SYSROOT = SOURCE / "build" / "sysroot-arm64"
EMULATOR = shutil.which("qemu-aarch64") or shutil.which("qemu-aarch64-static")
NAME = "truststore-update-client"
PACKAGES = (NAME, f"{NAME}-tools")
READY = "info: Truststore Update Client Ready"


def output(*command):
    return subprocess.run([str(word) for word in command], check=True, capture_output=True, text=True).stdout


@pytest.fixture(name="archives", scope="session")
def fixture_archives(build_dir):
    return {name: build_dir / "packages" / path.name
            for name in PACKAGES for path in (build_dir / "packages").glob(f"{name}_*.deb")}


@pytest.fixture(name="root", scope="session")
def fixture_root(build_dir, archives):
    """Both packages unpacked into one folder, inside the build folder: a unit sees that one."""
    folder = build_dir / "unpacked-packages"
    shutil.rmtree(folder, ignore_errors=True)
    for archive in archives.values():
        output("dpkg-deb", "--extract", archive, folder)
    yield folder
    shutil.rmtree(folder)


@pytest.fixture(name="unit")
def fixture_unit(tmp_path, build_dir):
    unit = Unit(tmp_path / "unit", build_dir)
    yield unit
    unit.close()


@pytest.fixture(name="emulated")
def fixture_emulated():
    """How a unit runs an Arm program."""
    return {"within": [EMULATOR, "-L", str(SYSROOT)], "options": ["--ro-bind", str(SYSROOT), str(SYSROOT)]}


def test_packages_are_for_arm64(archives):
    assert {name: output("dpkg-deb", "--field", archive, "Architecture").strip()
            for name, archive in archives.items()} == dict.fromkeys(PACKAGES, "arm64")


@pytest.mark.parametrize("name", PACKAGES)
def test_packages_depend_on_what_the_sysroot_has(archives, name):
    depends = output("dpkg-deb", "--field", archives[name], "Depends")
    libraries = re.findall(r"(lib[^ ,]+) \(>= ", depends)
    assert {"libbotan-2-19", "libc6", "libstdc++6"} <= set(libraries)
    output("dpkg-query", f"--admindir={SYSROOT}/var/lib/dpkg", "--status", *libraries)


def test_programs_are_for_arm64_and_sign_return_addresses(root):
    programs = [path for path in root.rglob("*") if path.is_file() and not path.is_symlink()
                and path.read_bytes()[:4] == b"\x7fELF"]
    assert len(programs) == 13
    for path in programs:
        assert re.search(r"Machine:\s+AArch64", output("readelf", "--file-header", path)), path
        assert "paciasp" in output("aarch64-linux-gnu-objdump", "--disassemble", path), path


@pytest.mark.parametrize("program", ["usr/sbin/truststore-update-client", "usr/bin/tsc", "usr/bin/tsuc-platformctl"])
def test_help_is_told(unit, root, emulated, program):
    told = unit.run("-h", program=root / program, **emulated)
    assert told.returncode == 0 and told.stdout + told.stderr


def test_daemon_becomes_ready_and_ends_on_sigterm(unit, root, emulated):
    daemon = unit.start(root / "usr/sbin" / NAME, **emulated)
    daemon.wait_for(READY)
    code, log = daemon.end()
    assert code == 0, log
