"""A unit of its own for each test: the real daemon with its fixed paths, inside bwrap, touching nothing of the machine.

Inside, /run, /tmp, /var/lib and /etc are folders of the test; the build folder is there (coverage data is written into
it) and the rest of the machine is read only. The daemon has no more rights than the service's unit file gives it
(confinement.py). Works as root or not, and any number at a time.
"""

import contextlib
import copy
import os
import pathlib
import re
import shutil
import sqlite3
import stat
import subprocess
import urllib.parse

import confinement
from running import DEADLINE_S, Result, Running

PROGRAM = "truststore-update-client"
RUN_DIR = pathlib.PurePosixPath("run/csc/config/truststore-update-client")
STATE_DIR = pathlib.PurePosixPath("var/lib/truststore-update-client")
RECORD_KEYS = ("truststore-container-id", "truststore-timestamp")
FOLDERS = ("run", "tmp", "etc", "var/lib")
# What a program needs of /etc to load, to tell the time and to resolve names.
ETC = ("group", "hosts", "ld.so.cache", "localtime", "nsswitch.conf", "passwd", "protocols", "services")

DEFAULT_SWITCHES = """\
; Please Do not put an empty line, Do not put space between values. Option -m used only for 'no-check-xxx' flags.
;
TestModeEnabled             = true      ; Testability feature: Enables the test mode (Test logging, Test files, etch)
ConnectionRetryTestMode     = false     ; Enable Test Mode for Connection Retry
OcspDisable                 = false     ; Disable OCSP for testing with customized certificates
no-check-replayprotection   = false     ; Do not check if the time stamp of the received container is newer than the \
current one
no-check-timestampfuture    = false     ; Do not check if the time stamp of the received container does NOT lie more \
than one day in the future
no-check-signcertpath       = false     ; Do not check the certification path of the signing public key given in the \
"x5c" header
no-check-signcertcn         = false     ; Do not check if the public key used for signing has a pre-defined Common Name
no-check-tscsignature       = false     ; Do not check the JSON Web Signature
no-check-ocsp               = false     ; Do not care about the OCSP check result
no-check-all                = false     ; disable all before-mentioned checks
;            """


def sanitizers(build_dir):
    """The sanitizers of a build; empty for none."""
    cache = (pathlib.Path(build_dir) / "CMakeCache.txt").read_text()
    return re.search("^TSUC_SANITIZE:STRING=(.*)$", cache, re.MULTILINE)[1]


def _environment(further):
    environment = {**os.environ, **confinement.environment(), **(further or {})}
    for name in ("TSUC_HOST_CONFIG", "NOTIFY_SOCKET", "JOURNAL_STREAM"):
        if name not in (further or {}):
            environment.pop(name, None)
    return environment


def _sockets(folder, names):
    return [name for name in names if stat.S_ISSOCK(os.lstat(os.path.join(folder, name)).st_mode)]


class Unit:
    """One unit: what survives a power loss, what does not, and the daemon."""

    def __init__(self, root, build_dir):
        self.root = pathlib.Path(root)
        self.build_dir = pathlib.Path(build_dir)
        self._started = []
        for folder in ("etc", "tmp"):
            (self.root / folder).mkdir(parents=True)
        confinement.boot(self.root)
        for name in ETC:
            source = pathlib.Path("/etc") / name
            if source.exists():
                shutil.copy(source, self.root / "etc" / name)

    @property
    def switches_path(self):
        return self.root / RUN_DIR / "config.cfg"

    @property
    def store_dir(self):
        return self.root / STATE_DIR / "trust-store"

    def copy(self, root):
        """Another unit in the same state, in place of what is at `root`; sockets stay behind."""
        shutil.rmtree(root, ignore_errors=True)
        shutil.copytree(self.root, root, symlinks=True, ignore=_sockets)
        copied = copy.copy(self)
        copied.root = pathlib.Path(root)
        copied._started = []
        return copied

    def command(self, *program, options=()):
        """`program` inside the unit, with all rights that there are; `options` are further ones of bwrap."""
        binds = []
        for inside in FOLDERS:
            binds += ["--bind", str(self.root / inside), f"/{inside}"]
        return ["bwrap", "--ro-bind", "/", "/", "--dev", "/dev", "--proc", "/proc", *binds,
                "--bind", str(self.build_dir), str(self.build_dir), "--die-with-parent", "--new-session",
                "--chdir", "/", *options, *program]

    @contextlib.contextmanager
    def _started_as(self, program, is_confined, options):
        """The beginning of a command for bwrap, and what else its process is to be started with: the daemon runs
        confined, other programs do not."""
        if program != PROGRAM or not is_confined:
            yield self.command(options=options), {}
            return
        # Last: until then further folders can be mounted there.
        read_only = [option for inside in FOLDERS for option in ("--remount-ro", f"/{inside}")]
        start = self.command(options=[*confinement.folders(self.root), *options, *read_only, *confinement.rights()])
        if sanitizers(self.build_dir):
            # The runtime of a sanitizer makes calls of its own.
            yield start, {"umask": confinement.umask()}
            return
        with confinement.filter_file() as file:
            yield [*start, "--seccomp", str(file)], {"umask": confinement.umask(), "pass_fds": [file]}

    def run(self, *arguments, program=PROGRAM, env=None, within=(), options=(), is_confined=True):
        """Runs the daemon, or another `program`, to its end, `within` a command that runs another. The unit's time zone
        is UTC. is_confined: with no more rights than the service has; else with all."""
        command = [*within, str(self.build_dir / "bin" / program), *arguments]
        with self._started_as(program, is_confined, options) as (start, how):
            done = subprocess.run([*start, *command], env=_environment(env), stdin=subprocess.DEVNULL,
                                  capture_output=True, check=False, timeout=DEADLINE_S, **how)
        assert done.returncode != confinement.KILLED, f"a system call that the service may not make: {done.stderr}"
        return Result(done.returncode, done.stdout.decode(), done.stderr.decode())

    def start(self, program, *arguments, env=None, within=(), options=(), is_confined=True):
        """Starts a program, `within` a command that becomes it in the end. It works until its Running or this unit is
        closed. is_confined: as for run."""
        command = [*within, str(self.build_dir / "bin" / program), *arguments]
        stdout = self.root / f"stdout-{len(self._started)}"
        with self._started_as(program, is_confined, options) as (start, how):
            self._started.append(Running(lambda *further: [*start, *further, *command], _environment(env), stdout,
                                         "thread" in sanitizers(self.build_dir), **how))
        return self._started[-1]

    def close(self):
        """Ends what was started and still runs."""
        codes = [each.close() for each in self._started]
        assert confinement.KILLED not in codes, "a system call that the service may not make"

    def install(self, container, *arguments, **how):
        """Gives the daemon a container's text with -f; `how` is for run."""
        (self.root / "tmp" / "container.tsc").write_text(container)
        return self.run("-f", "/tmp/container.tsc", *arguments, **how)

    def reboot(self):
        """Empties what lives in memory, and makes what the system makes at every start."""
        for folder in ("run", "tmp"):
            shutil.rmtree(self.root / folder)
        (self.root / "tmp").mkdir()
        confinement.boot(self.root)

    def empty(self):
        """Takes away whatever was installed, as if nothing ever had been."""
        shutil.rmtree(self.store_dir / "installed", ignore_errors=True)
        for folder in (STATE_DIR / "persistency", RUN_DIR):
            # The folders stay: a process at work has them mounted.
            for path in (self.root / folder).iterdir():
                path.unlink()

    def configure(self, text):
        """Writes the host platform's configuration."""
        path = self.root / "etc" / PROGRAM / "host-platform.toml"
        path.parent.mkdir(exist_ok=True)
        path.write_text(text)

    def write_switches(self, text=DEFAULT_SWITCHES):
        self.switches_path.write_text(text)

    def switches(self):
        """The switches file: key to value, comments left out."""
        lines = (line.partition(";")[0] for line in self.switches_path.read_text().splitlines())
        pairs = (line.split("=", 1) for line in lines if "=" in line)
        return {key.strip(): value.strip() for key, value in pairs}

    def provision_root(self, pem, name="ZORA"):
        """Puts a bundle where the factory would."""
        (self.store_dir / "factory" / f"{name}.pem").write_bytes(pem)

    def store(self):
        """The installed bundles: name to PEM text."""
        return {urllib.parse.unquote(path.stem): path.read_text()
                for path in sorted((self.store_dir / "installed").glob("*.pem"))}

    def records(self):
        """The installed container's id and timestamp as their files tell; None for a missing file."""
        return tuple(path.read_text() if path.exists() else None
                     for path in (self.root / RUN_DIR / "Truststore_Container_ID",
                                  self.root / RUN_DIR / "Truststore_Header_Timestamp"))

    def stored_records(self):
        """The same two as the persistency tells."""
        database = sqlite3.connect(self.root / STATE_DIR / "persistency" / "FileStoragePort.db")
        with contextlib.closing(database):
            values = dict(database.execute("SELECT key, value FROM record"))
        for key in RECORD_KEYS:
            assert len(values[key]) == values[key + "-size"], values
        return tuple(values[key].decode() for key in RECORD_KEYS)
