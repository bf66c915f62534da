"""The service's unit file is in effect for the daemon in these tests, and what it forbids is out of its reach."""

import ctypes

import pytest

import confinement
from daemon import MARKER_PATH, READY, process_status
from unit import PROGRAM, RUN_DIR, STATE_DIR, sanitizers

PYTHON = "/usr/bin/python3"
# AUDIT_ARCH_AARCH64
ARM64 = 0xC00000B7
# What the C library and the host libraries call there; the older forms of many of them do not exist.
ARM64_CALLS = """
    accept4 bind brk clock_gettime clock_nanosleep clone close connect dup dup3 epoll_create1 epoll_ctl epoll_pwait
    eventfd2 execve exit exit_group faccessat fcntl fdatasync fstat fsync ftruncate futex getdents64 getegid geteuid
    getgid getpeername getpid getrandom getsockname getsockopt gettid gettimeofday getuid inotify_add_watch
    inotify_init1 inotify_rm_watch ioctl listen lseek madvise mkdirat mmap mprotect munmap nanosleep newfstatat openat
    pipe2 ppoll prctl pread64 prlimit64 pselect6 pwrite64 read readlinkat readv recvfrom recvmsg renameat rseq
    rt_sigaction rt_sigprocmask rt_sigreturn sched_getaffinity sched_yield sendmmsg sendmsg sendto set_robust_list
    set_tid_address setsockopt shutdown sigaltstack socket socketpair statfs statx sysinfo tgkill umask uname unlinkat
    write writev
""".split()
FORBIDDEN = {
    "a namespace": "import ctypes; ctypes.CDLL(None).unshare(0x20000)",
    "a namespace of a child": "import ctypes, os; ctypes.CDLL(None).syscall({'x86_64': 56, 'aarch64': 220}[os.uname().machine], 0x20000011, "
                              "0, 0, 0, 0)",
    "memory to write and execute": "import mmap; mmap.mmap(-1, 4096, prot=7)",
    "an owner": "import os; os.chown('/run/truststore-update-client', -1, -1)",
    "a user": "import os; os.setuid(os.getuid())",
    "a set-user-id file": "import os; os.chmod('/run/truststore-update-client', 0o4755)",
    "a link": "import os; os.symlink('a', '/run/truststore-update-client/b')",
    "a raw packet": "import socket; socket.socket(socket.AF_PACKET, socket.SOCK_RAW)",
    "the kernel's messages": "import socket; socket.socket(socket.AF_NETLINK, socket.SOCK_RAW)",
    "a mount": "import ctypes; ctypes.CDLL(None).mount(b'a', b'/mnt', b'tmpfs', 0, None)",
    "a debugger": "import ctypes; ctypes.CDLL(None).ptrace(0, 0, 0, 0)",
    "the clock": "import time; time.clock_settime(0, 0)",
    "another program's memory": "import ctypes; ctypes.CDLL(None).process_vm_readv(1, 0, 0, 0, 0, 0)",
    "the scheduler": "import os; os.setpriority(os.PRIO_PROCESS, 0, 5)",
}
WRITE = "import sys; open(sys.argv[1], 'a').close()"


def confined(unit, code, *arguments):
    """Runs Python in place of the daemon."""
    return unit.run(within=(PYTHON, "-c", code, *arguments))


@pytest.fixture(name="filtered")
def fixture_filtered(unit, build_dir):
    if sanitizers(build_dir):
        pytest.skip("the runtime of a sanitizer makes calls of its own")
    return unit


def test_the_tests_own_means_work(filtered):
    assert confined(filtered, "import ctypes, mmap, os, socket, time; mmap.mmap(-1, 4096); os.getpid()").returncode == 0


@pytest.mark.parametrize("code", FORBIDDEN.values(), ids=FORBIDDEN)
def test_a_system_call_that_is_not_allowed_kills(filtered, code):
    with pytest.raises(AssertionError, match="a system call that the service may not make"):
        confined(filtered, code)


def test_no_file_can_be_written_but_those_of_the_unit_file(unit):
    for path in ("/etc/hosts", "/tmp/new", "/run/new", "/var/lib/new", f"/{STATE_DIR}/new", "/run/csc/new", "/home/new",
                 f"/{STATE_DIR}/trust-store/factory/ZORA.pem"):
        assert "Read-only file system" in confined(unit, WRITE, path).stderr, path
    for path in (f"/{STATE_DIR}/trust-store/installed/new", f"/{STATE_DIR}/persistency/new", f"/{RUN_DIR}/new",
                 "/run/truststore-update-client/new", f"/{MARKER_PATH}"):
        assert confined(unit, WRITE, path).stderr == "", path


def test_the_daemon_is_a_user_without_rights(unit):
    running = unit.start(PROGRAM)
    running.wait_for(READY)
    status = process_status(f"/proc/{running.pid}/status")
    assert [status[key] for key in ("CapInh", "CapPrm", "CapEff", "CapBnd", "CapAmb")] == ["0" * 16] * 5
    assert (status["NoNewPrivs"], status["Umask"]) == ("1", "0077")
    assert status["Seccomp"] == ("0" if sanitizers(unit.build_dir) else "2")


def test_the_filter_allows_what_is_called_on_arm64():
    library = ctypes.CDLL("libseccomp.so.2")
    names = [name for name in ARM64_CALLS
             if library.seccomp_syscall_resolve_name_arch(ctypes.c_uint32(ARM64), name.encode()) < 0]
    assert names == []
    assert sorted(set(ARM64_CALLS) - confinement.allowed_calls()) == []


def test_files_for_others_are_readable_whatever_the_umask(daemon):
    daemon.unit.write_switches()
    daemon.install("TSC-1")
    root = daemon.unit.root
    modes = {path.name: oct(path.stat().st_mode & 0o777) for path in (root / STATE_DIR / "trust-store").rglob("*")
             if "factory" not in path.parts}
    assert modes.pop("installed") == "0o755"
    assert modes and set(modes.values()) == {"0o644"}
    assert oct((root / RUN_DIR / "Truststore_Container_ID").stat().st_mode & 0o777) == "0o644"
    assert oct((root / MARKER_PATH).stat().st_mode & 0o777) == "0o644"
