"""Every program and library is built with what Debian hardens with, and nothing of it got lost on the way."""

import json
import os
import pathlib
import re
import shlex
import subprocess

import pytest

# Of Debian's own flags: how it tells debug information and folders (ours are others), a lower level of fortification,
# and what -Wformat=2 -Werror covers.
OTHERWISE = ("-g", "-ffile-prefix-map", "-D_FORTIFY_SOURCE=2", "-Wformat", "-Werror=format-security")


def readelf(path, *options):
    return subprocess.run(["readelf", "--wide", *options, path], check=True, capture_output=True, text=True,
                          env={**os.environ, "LC_ALL": "C"}).stdout


@pytest.fixture(name="programs", scope="session")
def fixture_programs(packages):
    found = {path.name: path for package in packages.values() for path in package.programs()}
    assert len(found) == 13
    return found


@pytest.fixture(name="commands", scope="session")
def fixture_commands(build_dir):
    """How the sources of the packaged programs were compiled."""
    entries = json.loads((build_dir / "compile_commands.json").read_text())
    asked = subprocess.run(["ninja", "-C", build_dir, "-t", "inputs", "package_contents"], check=True,
                           capture_output=True, text=True).stdout.splitlines()
    sources = {str(build_dir / name) if not name.startswith("/") else name for name in asked}
    found = [entry for entry in entries if str(pathlib.Path(build_dir, entry["file"])) in sources]
    assert len(found) > 100
    return [shlex.split(entry["command"]) for entry in found]


def test_all_are_position_independent(programs):
    for name, path in programs.items():
        assert re.search(r"Type:\s+DYN", readelf(path, "--file-header")), name
    for name in ("truststore-update-client", "tsc", "tsuc-platformctl"):
        assert re.search(r"FLAGS_1\).*\bPIE\b", readelf(programs[name], "--dynamic")), name


def test_all_are_bound_at_start_and_read_only_then(programs):
    for name, path in programs.items():
        assert re.search(r"\(FLAGS\).*BIND_NOW", readelf(path, "--dynamic")), name
        assert "GNU_RELRO" in readelf(path, "--program-headers"), name


def test_no_memory_is_to_be_written_and_executed(programs):
    for name, path in programs.items():
        segments = [line.split() for line in readelf(path, "--program-headers").splitlines()
                    if re.match(r"\s+(LOAD|GNU_STACK)\s", line)]
        flags = [" ".join(fields[6:-1]) for fields in segments]
        assert len(flags) >= 2 and not [each for each in flags if "W" in each and "E" in each], f"{name}: {flags}"


def test_libraries_are_found_where_the_package_has_them_only(programs):
    for name, path in programs.items():
        expected = "$ORIGIN" if name.endswith(".so") else "$ORIGIN/../lib/truststore-update-client"
        assert re.findall(r"\((?:RUNPATH|RPATH)\).*\[(.*)\]", readelf(path, "--dynamic")) in ([expected], []), name


def test_all_are_stripped(programs):
    for name, path in programs.items():
        assert not re.search(r"\.(debug_|symtab|comment)", readelf(path, "--sections")), name


def test_stacks_are_protected(programs):
    for name, path in programs.items():
        if name != "libara_exec.so":
            assert "__stack_chk_fail" in readelf(path, "--dyn-syms"), name


def test_compilers_recorded_the_flags_in_each_unit(programs, build_dir):
    """What is packaged is what stands in the build folder, whose debug information tells the flags in effect."""
    built = {path.name: path for folder in ("bin", "lib") for path in (build_dir / folder).iterdir()}
    for name, path in programs.items():
        notes = readelf(path, "--notes")
        assert "Build ID" in notes and notes == readelf(built[name], "--notes"), name
        information = readelf(built[name], "--debug-dump=info", "--dwarf-depth=1")
        units = re.findall(r"DW_AT_producer.*(GNU C\+\+.*)", information)
        assert units
        for flag in ("-O2", "-fstack-clash-protection", "-fstack-protector-strong"):
            assert [unit for unit in units if flag not in unit.split()] == [], f"{name}: {flag}"


def test_all_sources_are_compiled_with_debians_flags(commands):
    debian = subprocess.run(["dpkg-buildflags", "--get", "CPPFLAGS"], capture_output=True, text=True, check=True,
                            env={**os.environ, "DEB_BUILD_MAINT_OPTIONS": "hardening=+all"}).stdout
    debian += subprocess.run(["dpkg-buildflags", "--get", "CXXFLAGS"], capture_output=True, text=True, check=True,
                             env={**os.environ, "DEB_BUILD_MAINT_OPTIONS": "hardening=+all"}).stdout
    wanted = {flag for flag in debian.split() if not flag.startswith(OTHERWISE)}
    assert "-fstack-protector-strong" in wanted
    for command in commands:
        assert wanted | {"-Wformat=2", "-Werror", "-fstack-clash-protection", "-D_FORTIFY_SOURCE=3"} <= set(command)


def test_the_c_library_takes_the_third_level_of_fortification(commands):
    command = next(command for command in commands if command[-1].endswith("main.cpp"))
    flags = [flag for flag in command[1:] if re.match(r"-(O|D|f|std)", flag)]
    compiler = next(word for word in command if word.endswith("g++"))
    macros = subprocess.run([compiler, *flags, "-dM", "-E", "-x", "c++", "-include", "cstdio", "-"], input="",
                            check=True, capture_output=True, text=True).stdout
    assert "#define __USE_FORTIFY_LEVEL 3\n" in macros


def test_checked_calls_are_used(programs):
    found = {name for name, path in programs.items() if re.search(r"__(snprintf|recv|memcpy|read)_chk@",
                                                                  readelf(path, "--dyn-syms"))}
    assert {"tsc", "tsuc-platformctl", "libhost_control.so"} <= found
