"""prepare-switches readies the switches file and is fooled by nothing that stands in its place."""

import os
import re
import stat
import subprocess

import pytest

import confinement

PREPARE = confinement.PACKAGING / "libexec" / "prepare-switches"
SOURCE = confinement.PACKAGING.parent / "src" / "TruststoreUpdateClient" / "DevelopmentTools.cpp"
KEYS = re.findall(r'^    \{"([\w-]+)", (?:true|false),', SOURCE.read_text(), re.MULTILINE)
STRANGER = 64999


@pytest.fixture(name="folder")
def fixture_folder(tmp_path):
    folder = tmp_path / "switches"
    folder.mkdir()
    folder.chmod(0o1775)
    return folder


def prepare(folder, expected=0):
    done = subprocess.run([PREPARE, folder], capture_output=True, check=False, text=True, timeout=60)
    assert done.returncode == expected, done.stderr
    return done.stderr


def switches(path):
    lines = (line.partition(";")[0] for line in path.read_text().splitlines())
    return {key.strip(): value.strip() for key, _, value in (line.partition("=") for line in lines if "=" in line)}


def assert_fresh(folder):
    """An ordinary file of the caller's with every switch off, and nothing else."""
    status = (folder / "config.cfg").lstat()
    assert (stat.filemode(status.st_mode), status.st_uid, status.st_nlink) == ("-rw-r--r--", os.geteuid(), 1)
    assert list(switches(folder / "config.cfg").items()) == [(key, "false") for key in KEYS]
    assert os.listdir(folder) == ["config.cfg"]


def test_without_a_file_every_switch_of_the_daemon_is_off(folder):
    assert len(KEYS) == 10
    prepare(folder)
    assert_fresh(folder)


@pytest.mark.parametrize("key", ["OcspDisable", "ConnectionRetryTestMode"])
@pytest.mark.parametrize("line", ["{}=true", "{} = true", "{}\t=\ttrue ; why", "{} and more = true", "{} =true=", "{}=\n{}=true"])
def test_however_it_is_written_the_switch_is_off(folder, key, line):
    (folder / "config.cfg").write_text("a = 1\n" + line.format(key, key) + "\nno-check-all = true")
    prepare(folder)
    text = (folder / "config.cfg").read_text()
    assert re.sub(rf"({key} = false\n)+", "SWITCH\n", text) == "a = 1\nSWITCH\nno-check-all = true"


@pytest.mark.parametrize("line", ["no-check-ocsp = true", "xOcspDisable = true", "OcspDisabled = true", " OcspDisable = true",
                                  "; OcspDisable = true", "OcspDisable ; = true", "OcspDisable", "a = OcspDisable = true"])
def test_other_lines_stay(folder, line):
    (folder / "config.cfg").write_text(line + "\n")
    prepare(folder)
    assert (folder / "config.cfg").read_text() == line + "\n"


def test_the_file_is_a_new_one_each_time(folder):
    prepare(folder)
    with open(folder / "config.cfg", encoding="ascii") as held:
        prepare(folder)
        assert os.fstat(held.fileno()).st_nlink == 0


@pytest.mark.parametrize("target", ["file", "folder", "nowhere", "config.cfg"])
def test_a_link_is_replaced_and_not_followed(folder, tmp_path, target):
    secret = tmp_path / "file"
    secret.write_text("no-check-all = true\n")
    (tmp_path / "folder").mkdir()
    (folder / "config.cfg").symlink_to(folder / target if target == "config.cfg" else tmp_path / target)
    prepare(folder)
    assert_fresh(folder)
    assert secret.read_text() == "no-check-all = true\n"
    assert os.listdir(tmp_path / "folder") == []


def test_another_name_of_a_file_is_neither_read_nor_written(folder, tmp_path):
    (tmp_path / "file").write_text("no-check-all = true\n")
    os.link(tmp_path / "file", folder / "config.cfg")
    prepare(folder)
    assert_fresh(folder)
    assert (tmp_path / "file").read_text() == "no-check-all = true\n"


@pytest.mark.parametrize("make", [os.mkdir, os.mkfifo], ids=["folder", "pipe"])
def test_what_is_no_file_is_replaced(folder, make):
    make(folder / "config.cfg")
    prepare(folder)
    assert_fresh(folder)


def test_what_is_in_a_planted_folder_goes_and_what_it_leads_to_stays(folder, tmp_path):
    (tmp_path / "kept").mkdir()
    (tmp_path / "kept" / "file").write_text("")
    (folder / "config.cfg").mkdir()
    (folder / "config.cfg" / "link").symlink_to(tmp_path / "kept")
    prepare(folder)
    assert_fresh(folder)
    assert (tmp_path / "kept" / "file").exists()


@pytest.mark.parametrize("mode", [0o664, 0o646, 0o666])
def test_a_file_that_others_may_write_is_not_believed(folder, mode):
    (folder / "config.cfg").write_text("no-check-all = true\n")
    (folder / "config.cfg").chmod(mode)
    prepare(folder)
    assert_fresh(folder)


def test_somebody_elses_file_is_not_believed(folder):
    if os.geteuid() != 0:
        pytest.skip("only root can give a file to another user")
    (folder / "config.cfg").write_text("no-check-all = true\n")
    os.chown(folder / "config.cfg", STRANGER, STRANGER)
    prepare(folder)
    assert_fresh(folder)


@pytest.mark.parametrize("mode", [0o775, 0o777, 0o757])
def test_a_folder_in_which_others_may_replace_files_is_refused(folder, mode):
    folder.chmod(mode)
    assert "others may replace files in it" in prepare(folder, 1)
    assert os.listdir(folder) == []


@pytest.mark.parametrize("mode", [0o755, 0o1777, 0o1775, 0o700])
def test_a_folder_of_which_nobody_can_take_files_is_used(folder, mode):
    folder.chmod(mode)
    prepare(folder)
    assert_fresh(folder)


def test_somebody_elses_folder_is_refused(folder):
    if os.geteuid() != 0:
        pytest.skip("only root can give a folder to another user")
    os.chown(folder, STRANGER, STRANGER)
    assert "is not root's" in prepare(folder, 1)


def test_no_folder_or_a_link_to_one_is_refused(folder, tmp_path):
    (tmp_path / "link").symlink_to(folder)
    for path in (tmp_path / "link", tmp_path / "nowhere", PREPARE):
        assert "is no folder" in prepare(path, 1)
    assert os.listdir(folder) == []


def test_help_tells_its_use():
    done = subprocess.run([PREPARE, "-h"], capture_output=True, check=True, text=True)
    assert done.stdout.startswith("usage: prepare-switches [FOLDER]")
    assert subprocess.run([PREPARE, "a", "b"], capture_output=True, check=False).returncode == 2
