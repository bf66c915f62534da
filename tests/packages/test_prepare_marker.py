"""prepare-marker readies the marker of an update, whatever others have put in its place."""

import os
import pwd
import stat
import subprocess

import pytest

import confinement

PREPARE = confinement.PACKAGING / "libexec" / "prepare-marker"
ME = pwd.getpwuid(os.geteuid()).pw_name
STRANGER = 64999


@pytest.fixture(name="marker")
def fixture_marker(tmp_path):
    folder = tmp_path / "tmp"
    folder.mkdir()
    return folder / "marker"


def prepare(marker, user=ME, expected=0):
    done = subprocess.run([PREPARE, marker, user], capture_output=True, check=False, text=True, timeout=60)
    assert done.returncode == expected, done.stderr


def assert_fresh(marker):
    status = marker.lstat()
    assert (stat.filemode(status.st_mode), status.st_uid, status.st_nlink) == ("-rw-r--r--", os.geteuid(), 1)
    assert marker.read_text() == "0"
    assert os.listdir(marker.parent) == [marker.name]


def test_without_a_marker_it_is_made(marker):
    prepare(marker)
    assert_fresh(marker)


def test_the_users_own_marker_stays(marker):
    marker.write_text("1")
    before = marker.stat()
    prepare(marker)
    assert marker.stat() == before
    assert marker.read_text() == "1"


@pytest.mark.parametrize("target", ["file", "folder", "nowhere", "tmp/marker", ""])
def test_a_link_is_replaced_and_not_followed(marker, tmp_path, target):
    (tmp_path / "file").write_text("kept")
    (tmp_path / "folder").mkdir()
    marker.symlink_to(tmp_path / target)
    prepare(marker)
    assert_fresh(marker)
    assert (tmp_path / "file").read_text() == "kept"
    assert os.listdir(tmp_path / "folder") == []


def test_another_name_of_a_file_is_replaced(marker, tmp_path):
    (tmp_path / "file").write_text("kept")
    os.link(tmp_path / "file", marker)
    prepare(marker)
    assert_fresh(marker)
    assert (tmp_path / "file").read_text() == "kept"


@pytest.mark.parametrize("make", [os.mkdir, os.mkfifo], ids=["folder", "pipe"])
def test_what_is_no_file_is_replaced(marker, make):
    make(marker)
    prepare(marker)
    assert_fresh(marker)


def test_what_a_planted_folder_leads_to_stays(marker, tmp_path):
    (tmp_path / "kept").mkdir()
    (tmp_path / "kept" / "file").write_text("")
    marker.mkdir()
    (marker / "link").symlink_to(tmp_path / "kept")
    prepare(marker)
    assert_fresh(marker)
    assert (tmp_path / "kept" / "file").exists()


def test_somebody_elses_file_is_replaced_while_he_holds_it(marker):
    if os.geteuid() != 0:
        pytest.skip("only root can give a file to another user")
    marker.write_text("0")
    os.chown(marker, STRANGER, STRANGER)
    with open(marker, "a", encoding="ascii") as held:
        prepare(marker)
        held.write("1")
    assert_fresh(marker)


def test_without_the_user_no_link_stays(marker):
    marker.symlink_to("/")
    prepare(marker, "nobody-of-that-name", 1)
    assert os.listdir(marker.parent) == []


def test_help_tells_its_use():
    done = subprocess.run([PREPARE, "-h"], capture_output=True, check=True, text=True)
    assert done.stdout.startswith("usage: prepare-marker [FILE [USER]]")
    assert subprocess.run([PREPARE, "a", "b", "c"], capture_output=True, check=False).returncode == 2
