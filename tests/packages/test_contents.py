"""What the packages hold, and what they say of themselves."""

import re
import subprocess

import pytest

DOC = "/usr/share/doc"
DAEMON_FILES = """\
/etc/truststore-update-client-phm.ini
/etc/truststore-update-client/host-platform.toml
/lib/systemd/system/truststore-update-client-marker.service
/lib/systemd/system/truststore-update-client.service
/usr/lib/sysusers.d/truststore-update-client.conf
/usr/lib/tmpfiles.d/truststore-update-client.conf
/usr/lib/truststore-update-client/libLumoConnectorShared.so
/usr/lib/truststore-update-client/libara_exec.so
/usr/lib/truststore-update-client/libara_per.so
/usr/lib/truststore-update-client/libara_phm.so
/usr/lib/truststore-update-client/libara_stm.so
/usr/lib/truststore-update-client/libaralog.so
/usr/lib/truststore-update-client/libhost_config.so
/usr/lib/truststore-update-client/libhost_control.so
/usr/lib/truststore-update-client/libtruststore.so
/usr/lib/truststore-update-client/libwork_lock_host.so
/usr/lib/truststore-update-client/prepare-marker
/usr/lib/truststore-update-client/prepare-switches
/usr/sbin/truststore-update-client
/usr/share/bash-completion/completions/truststore-update-client
/usr/share/doc/truststore-update-client/truststore-update-client.spdx.json
/usr/share/man/man5/truststore-update-client.toml.5.gz
/usr/share/man/man8/truststore-update-client.8.gz
""".splitlines()
TOOLS_FILES = """\
/usr/bin/tsc
/usr/bin/tsuc-platformctl
/usr/share/bash-completion/completions/tsc
/usr/share/bash-completion/completions/tsuc-platformctl
/usr/share/man/man1/tsc.1.gz
/usr/share/man/man1/tsuc-platformctl.1.gz
""".splitlines()
EXPECTED = {"truststore-update-client": DAEMON_FILES, "truststore-update-client-tools": TOOLS_FILES}
MOST_KIB = 4096


def common_files(name):
    """What each package has of its own."""
    return [f"{DOC}/{name}/changelog.Debian.gz", f"{DOC}/{name}/changelog.gz", f"{DOC}/{name}/copyright",
            f"/usr/share/lintian/overrides/{name}"]


@pytest.mark.parametrize("name", EXPECTED)
def test_files_are_these_and_no_others(packages, name):
    found = [path for path in packages[name].listing() if not path.endswith("/")]
    assert sorted(found) == sorted(EXPECTED[name] + common_files(name))


def test_bench_has_all_its_modules_and_schemas_and_no_tests(packages, source):
    found = {path for path in packages["truststore-update-client-bench"].listing() if not path.endswith("/")}
    source = source
    modules = {path.name for path in (source / "bench").glob("*.py")
               if not path.name.startswith("test_") and path.name != "conftest.py"}
    schemas = {path.name for path in (source / "proto").glob("*.proto")}
    data = "/usr/share/truststore-update-client"
    assert found == {*(f"{data}/bench/{name}" for name in modules), *(f"{data}/proto/{name}" for name in schemas),
                     "/usr/bin/tsuc-bench", "/usr/share/bash-completion/completions/tsuc-bench",
                     "/usr/share/man/man1/tsuc-bench.1.gz", *common_files("truststore-update-client-bench")}


def test_everything_is_roots_and_nobody_else_may_write(packages):
    for package in packages.values():
        for path, (mode, owner) in package.listing().items():
            assert owner == "root/root", path
            assert mode[0] == "l" or mode[5] == mode[8] == "-", f"{path}: {mode}"
            assert "s" not in mode and "t" not in mode, f"{path}: {mode}"


def test_only_programs_are_executable(packages):
    executable = {path for package in packages.values() for path, (mode, _) in package.listing().items()
                  if mode.startswith("-") and "x" in mode}
    assert executable == {"/usr/sbin/truststore-update-client", "/usr/bin/tsc", "/usr/bin/tsuc-platformctl",
                          "/usr/lib/truststore-update-client/prepare-marker",
                          "/usr/lib/truststore-update-client/prepare-switches",
                          "/usr/share/truststore-update-client/bench/bench.py"}


def test_daemon_package_is_small(daemon_package):
    assert int(daemon_package.field("Installed-Size")) < MOST_KIB
    assert sum(path.stat().st_size for path in daemon_package.files()) < MOST_KIB * 1024


def test_files_of_etc_are_conffiles(daemon_package):
    listed = [path for path in daemon_package.listing() if path.startswith("/etc/") and not path.endswith("/")]
    assert sorted(daemon_package.control("conffiles").splitlines()) == sorted(listed)


def test_checksums_are_of_all_files(packages):
    for package in packages.values():
        sums = package.control("md5sums")
        subprocess.run(["md5sum", "--check", "--quiet", "--strict", "-"], input=sums, text=True, check=True,
                       cwd=package.root)
        assert len(sums.splitlines()) == len(package.files())


def test_no_file_names_a_folder_of_the_building_machine(packages, source):
    folder = str(source).encode()
    for package in packages.values():
        assert [path for path in package.files() if folder in path.read_bytes()] == []


def test_tools_need_the_daemon_package_of_their_version(packages, daemon_package):
    needed = packages["truststore-update-client-tools"].field("Depends").split(", ")
    assert f"truststore-update-client (= {daemon_package.field('Version')})" in needed


def test_versions_are_that_of_the_changelog(packages, source):
    changelog = source / "packaging" / "debian" / "changelog"
    version = re.match(r"truststore-update-client \((\S+)\)", changelog.read_text())[1]
    assert {package.field("Version") for package in packages.values()} == {version}


def test_libraries_are_named_by_what_they_are_linked_with(daemon_package):
    needed = re.findall(r"[^ ,]+", re.sub(r"\([^)]*\)", "", daemon_package.field("Depends")))
    for library in ("libbotan-2-19", "libc6", "libmosquitto1", "libprotobuf-lite32", "libsqlite3-0", "libssl3"):
        assert library in needed


def test_each_service_of_the_example_is_known_to_the_client(daemon_package, source):
    """A name that is spelled another way would be a service that nobody asks for."""
    text = (daemon_package.root / "etc/truststore-update-client/host-platform.toml").read_text()
    named = re.findall(r'^# \[service\."(.+)"\]', text, re.MULTILINE)
    constants = (source / "src/TruststoreUpdateClient/Constants.h").read_text()
    assert len(named) == 4
    assert [name for name in named if f'"{name}"' not in constants] == []
