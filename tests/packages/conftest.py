"""The packages of the build folder, as they are and unpacked."""

import pathlib
import subprocess

import pytest

PACKAGES = ("truststore-update-client", "truststore-update-client-tools", "truststore-update-client-bench")


class Package:
    """A package file: what dpkg-deb tells of it, and its files in a folder."""

    def __init__(self, path, folder):
        self.path, self.root = path, folder
        subprocess.run(["dpkg-deb", "--extract", path, folder], check=True)

    def field(self, name):
        return self._deb("--field", self.path, name).strip()

    def control(self, name):
        """A file of the control archive."""
        return self._deb("--info", self.path, name)

    def listing(self):
        """Mode and owner of each entry, by its path."""
        rows = [line.split(maxsplit=5) for line in self._deb("--contents", self.path).splitlines()]
        return {row[5].partition(" -> ")[0].removeprefix("."): (row[0], row[1]) for row in rows}

    def files(self):
        return [path for path in self.root.rglob("*") if path.is_file() and not path.is_symlink()]

    def programs(self):
        """Programs and libraries of the ELF format."""
        return [path for path in self.files() if path.read_bytes()[:4] == b"\x7fELF"]

    @staticmethod
    def _deb(*arguments):
        return subprocess.run(["dpkg-deb", *map(str, arguments)], check=True, capture_output=True, text=True).stdout


@pytest.fixture(name="packages", scope="session")
def fixture_packages(build_dir, tmp_path_factory):
    """The packages by name. packaging/make-packages made them: ctest runs it first."""
    found = {}
    for name in PACKAGES:
        paths = list(pathlib.Path(build_dir, "packages").glob(f"{name}_*.deb"))
        assert len(paths) == 1, f"packages named {name}: {paths}; packaging/make-packages BUILD makes them"
        found[name] = Package(paths[0], tmp_path_factory.mktemp(name))
    return found


@pytest.fixture(name="source", scope="session")
def fixture_source():
    """The root of the source tree."""
    return pathlib.Path(__file__).resolve().parents[2]


@pytest.fixture(name="daemon_package")
def fixture_daemon_package(packages):
    return packages["truststore-update-client"]


@pytest.fixture(name="root", scope="session")
def fixture_root(packages, tmp_path_factory):
    """All packages unpacked into one folder, as on a machine."""
    folder = tmp_path_factory.mktemp("root")
    for package in packages.values():
        subprocess.run(["dpkg-deb", "--extract", package.path, folder], check=True)
    return folder
