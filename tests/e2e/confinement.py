"""What the service's unit file allows the daemon, applied by bwrap: the tests run it as systemd would.

Where systemd lets a forbidden system call fail, here it kills: a call that the daemon needs and the unit file forgot
cannot go unnoticed. Read from the unit file, and so in effect here: ReadWritePaths=, ReadOnlyPaths=, UMask=,
Environment=, SystemCallFilter=, SystemCallArchitectures=, RestrictAddressFamilies=, RestrictNamespaces=,
RestrictSUIDSGID=, MemoryDenyWriteExecute= and NoNewPrivileges=; the empty CapabilityBoundingSet= and a user who is not
root besides.
"""

import collections
import contextlib
import errno
import functools
import os
import pathlib
import signal
import socket
import stat
import subprocess
import tempfile

import seccomp

PACKAGING = pathlib.Path(__file__).resolve().parents[2] / "packaging"
UNIT_FILE = PACKAGING / "systemd" / "truststore-update-client.service"
TMPFILES = PACKAGING / "tmpfiles.d" / "truststore-update-client.conf"
SWITCHES = "/run/csc/config/truststore-update-client/config.cfg"
# Of whoever the daemon is inside, as long as it is not root.
USER = "64999"
KILLED = 128 + signal.SIGSYS
NAMESPACES = 0x7E020000  # every CLONE_NEW… flag of clone
CHANGES_OWNER = stat.S_ISUID | stat.S_ISGID
PROT_WRITE, PROT_EXEC = 2, 4
# Newer forms of calls, whose arguments a filter cannot look at: they count as missing, as they do with systemd.
MISSING = ("clone3", "openat2", "fchmodat2")
# What RestrictNamespaces= and MemoryDenyWriteExecute= forbid whatever the arguments.
NEVER = ("setns", "unshare", "pkey_mprotect", "shmat")


def settings(path=UNIT_FILE):
    """The unit file: key to values, in their order. An empty value takes away what stood before it."""
    found = collections.defaultdict(list)
    for line in pathlib.Path(path).read_text().splitlines():
        key, equals, value = line.partition("=")
        if not equals or line.startswith(("#", ";")):
            continue
        found[key].append(value)
        if not value:
            found[key] = []
    return dict(found)


def expanded(names):
    """System calls of a list of names and sets such as @file-system."""
    calls = set()
    for name in names:
        if not name.startswith("@"):
            calls.add(name)
            continue
        listed = subprocess.run(["systemd-analyze", "syscall-filter", name], capture_output=True, check=True, text=True)
        inside = [line.strip() for line in listed.stdout.splitlines()[1:]]
        calls |= expanded(each for each in inside if each and not each.startswith("#"))
    return calls


@functools.lru_cache
def allowed_calls():
    """The names of the system calls that the unit file allows, on whatever machine."""
    allowed = set()
    for value in settings()["SystemCallFilter"]:
        if value.startswith("~"):
            allowed -= expanded(value[1:].split())
        else:
            allowed |= expanded(value.split())
    return frozenset(allowed)


def _without(argument, bits):
    return seccomp.Arg(argument, seccomp.MASKED_EQ, bits, 0)


def _by_arguments():
    """(system call, condition): allowed where one of its conditions holds."""
    families = settings()["RestrictAddressFamilies"][0].split()
    return [
        *(("socket", seccomp.Arg(0, seccomp.EQ, int(getattr(socket, family)))) for family in families),
        ("clone", _without(0, NAMESPACES)),
        ("chmod", _without(1, CHANGES_OWNER)),
        ("fchmod", _without(1, CHANGES_OWNER)),
        ("fchmodat", _without(2, CHANGES_OWNER)),
        ("mprotect", _without(2, PROT_EXEC)),
        ("mmap", _without(2, PROT_EXEC)),
        ("mmap", _without(2, PROT_WRITE)),
    ]


@functools.lru_cache
def filter_program():
    """The filter as the kernel takes it: what is not allowed kills the process."""
    rules = seccomp.SyscallFilter(seccomp.KILL_PROCESS)
    rules.set_attr(seccomp.Attr.ACT_BADARCH, seccomp.KILL_PROCESS)
    conditions = _by_arguments()
    for name in sorted(allowed_calls() - {*MISSING, *NEVER, *(name for name, _ in conditions)}):
        # The sets hold the calls of all machines, also some that are newer than the library.
        with contextlib.suppress(RuntimeError):
            rules.add_rule(seccomp.ALLOW, name)
    for name, condition in conditions:
        rules.add_rule(seccomp.ALLOW, name, condition)
    for name in MISSING:
        with contextlib.suppress(RuntimeError):
            rules.add_rule(seccomp.ERRNO(errno.ENOSYS), name)
    with tempfile.TemporaryFile() as file:
        rules.export_bpf(file)
        file.seek(0)
        return file.read()


@functools.lru_cache
def _another_user():
    """Options of bwrap for a user who is not root and has no rights; none where the system refuses user namespaces to
    root. Others than root are such a user already."""
    if os.geteuid() != 0:
        return []
    options = ["--unshare-user", "--uid", USER, "--gid", USER]
    probe = ["bwrap", "--ro-bind", "/", "/", *options, "true"]
    works = subprocess.run(probe, stdin=subprocess.DEVNULL, capture_output=True, check=False).returncode == 0
    return options if works else []


def boot(root, user=None):
    """Makes in `root` what systemd-tmpfiles makes when the machine starts: all of it owned by whoever calls, or by root
    and the daemon's `user`, whom only root can give something."""
    for line in TMPFILES.read_text().splitlines():
        if not line.startswith(("d ", "f ")):
            continue
        kind, path, mode, owner, group, _, *text = line.split(maxsplit=6)
        inside = pathlib.Path(root) / path.lstrip("/")
        if kind == "d":
            inside.mkdir(parents=True, exist_ok=True)
        elif not inside.exists():
            inside.write_text(*text)
        if user is not None:
            os.chown(inside, *(0 if name == "root" else user for name in (owner, group)))
        inside.chmod(int(mode, 8))


def folders(root):
    """Options of bwrap for what the service may write to of the unit's files in `root`, which are at their places already.
    The switches are left to the tests: an option such as -f, which the service never has, changes them."""
    root = pathlib.Path(root)
    options = []
    for key, how in (("ReadWritePaths", "--bind"), ("ReadOnlyPaths", "--ro-bind")):
        for path in settings()[key]:
            is_optional, path = path.startswith("-"), path.lstrip("-")
            if path.startswith("/dev/"):
                options += ["--tmpfs", path, "--remount-ro", path]
                continue
            # A unit makes all of its /run read only at the end, as folders in it still have to be mounted.
            if path in (SWITCHES, "/run") or (is_optional and not (root / path[1:]).exists()):
                continue
            options += [how, str(root / path[1:]), path]
    return options


def rights():
    """Options of bwrap that leave the daemon none."""
    return ["--cap-drop", "ALL", *_another_user()]


def environment():
    """What the service adds to the environment."""
    return dict(entry.split("=", 1) for entry in settings()["Environment"])


def umask():
    return int(settings()["UMask"][0], 8)


@contextlib.contextmanager
def filter_file():
    """A descriptor from which the filter can be read once."""
    with tempfile.TemporaryFile() as file:
        file.write(filter_program())
        file.seek(0)
        yield file.fileno()
