"""A Debian with nothing on it but its base, in a folder, for root: made once a build folder, copied for each test."""

import pathlib
import shutil
import subprocess

import pytest

HERE = pathlib.Path(__file__).resolve().parent
SOURCE = HERE.parents[1]
PACKAGES = "/root/packages"
ENVIRONMENT = {"PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/root",
               "LC_ALL": "C.UTF-8", "DEBIAN_FRONTEND": "noninteractive"}
DEADLINE_S = 900


def mirrors():
    """The sources that apt is set up with, of this machine's release: address, suite and component."""
    release = {line.partition("=")[0]: line.partition("=")[2].strip('"')
               for line in pathlib.Path("/etc/os-release").read_text().splitlines()}["VERSION_CODENAME"]
    command = ["apt-get", "indextargets", "--format", "$(REPO_URI) $(RELEASE) $(COMPONENT)", "Created-By: Packages"]
    rows = subprocess.run(command, check=True, capture_output=True, text=True).stdout.splitlines()
    found = [tuple(row.split()) for row in dict.fromkeys(rows)]
    found = [(uri, suite, component) for uri, suite, component in found
             if component == "main" and suite in (release, f"{release}-updates", f"{release}-security")]
    assert any(suite == release for _, suite, _ in found), f"apt knows no mirror of {release}"
    return release, found


def make_base(folder):
    """Makes the system, and tells its apt what this machine's apt is told about ways to its mirrors."""
    release, sources = mirrors()
    address = next(uri for uri, suite, _ in sources if suite == release)
    unfinished = folder.with_name(folder.name + ".new")
    shutil.rmtree(unfinished, ignore_errors=True)
    subprocess.run(["debootstrap", "--variant=minbase", release, unfinished, address], check=True, timeout=DEADLINE_S,
                   stdout=subprocess.DEVNULL)
    (unfinished / "etc/apt/sources.list").write_text("".join(f"deb {' '.join(source)}\n" for source in sources))
    ways = subprocess.run(["apt-config", "dump", "--format", '%F "%v";%n', "Acquire"], check=True, capture_output=True,
                          text=True).stdout
    (unfinished / "etc/apt/apt.conf.d/90machine").write_text(
        "".join(line + "\n" for line in ways.splitlines() if "proxy" in line.lower()))
    unfinished.rename(folder)


class BareSystem:
    """A copy of the base. Commands run as root in it, in a process namespace of their own that ends with them."""

    def __init__(self, root, build_dir):
        self.root, self.build_dir = root, build_dir
        shutil.copy(HERE / "systemctl", root / "usr/local/sbin/systemctl")
        # Maintainer scripts find it, too.
        (root / "etc/apt/apt.conf.d/91path").write_text(f'DPkg::Path "{ENVIRONMENT["PATH"]}";\n')
        for name in ("resolv.conf", "hosts"):
            shutil.copy(pathlib.Path("/etc") / name, root / "etc" / name)
        self.put_packages(build_dir / "packages")

    def put_packages(self, folder):
        """Has these package files, and no others, in the folder of the packages."""
        target = self.root / PACKAGES[1:]
        shutil.rmtree(target, ignore_errors=True)
        target.mkdir()
        for path in folder.glob("*.deb"):
            shutil.copy(path, target)

    def sandbox(self):
        """Begins a command that sees this machine's files, its own processes and the system's /proc and /dev."""
        return ["bwrap", "--dev-bind", "/", "/", "--bind", self.root, self.root, "--proc", "/proc", "--dev",
                self.root / "dev", "--proc", self.root / "proc", "--unshare-pid", "--die-with-parent",
                "--cap-add", "ALL"]

    def run(self, script):
        """Runs a script of bash in the folder of the packages; returns what it shows. Fails with it."""
        command = [*self.sandbox(), "chroot", self.root, "bash", "-euo", "pipefail", "-c", f"cd {PACKAGES}\n{script}"]
        done = subprocess.run(list(map(str, command)), env=ENVIRONMENT, stdin=subprocess.DEVNULL, text=True,
                              check=False, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=DEADLINE_S)
        assert done.returncode == 0, f"{script}\n{done.stdout[-6000:]}"
        return done.stdout

    def path(self, name):
        """A file of the system as this machine sees it."""
        return self.root / name.lstrip("/")

    def listing(self, *without):
        """Every path of the system, but for those below `without`."""
        skipped = tuple(str(self.path(name)) for name in without)
        return {str(path.relative_to(self.root)) for path in self.root.rglob("*") if not str(path).startswith(skipped)}


@pytest.fixture(name="bare_system")
def fixture_bare_system(build_dir):
    folder = build_dir / "bare-system"
    folder.mkdir(exist_ok=True)
    base, copy = folder / "base", folder / "copy"
    if not base.exists():
        make_base(base)
    shutil.rmtree(copy, ignore_errors=True)
    subprocess.run(["cp", "--archive", "--reflink=auto", base, copy], check=True)
    yield BareSystem(copy, build_dir)
    shutil.rmtree(copy)
