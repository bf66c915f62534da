"""What Debian's own checker says of the packages."""

import re
import subprocess


def test_lintian_finds_no_error_and_no_warning(packages):
    command = ["lintian", "--allow-root", "--fail-on", "error,warning",
               *(package.path for package in packages.values())]
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    assert (done.returncode, done.stdout) == (0, "")


def test_each_override_has_a_reason(source):
    for path in (source / "packaging" / "debian").glob("*.lintian-overrides"):
        assert re.fullmatch(r"(?:(?:# .+\n)+[a-z-]+: [a-z-]+.*\n)+", path.read_text()), path.name


def test_maintainer_scripts_are_plain_shell(source):
    for name in ("postinst", "prerm", "postrm"):
        path = source / "packaging" / "debian" / name
        subprocess.run(["dash", "-n", path], check=True)
        assert "set -e\n" in path.read_text()
