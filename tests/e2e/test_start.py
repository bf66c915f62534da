"""However whoever starts the daemon has left its streams, signals and limits, it does its work and ends with 0."""

import os
import resource

import pytest

from daemon import DAY, MOMENT, READY, REPORT_ENDED
from running import LOG_LINE
from unit import PROGRAM

WITHOUT_STREAMS = ("sh", "-c", 'exec "$@" <&- >&- 2>&-', "sh")
SIGTERM_BLOCKED = ("/usr/bin/python3", "-c", """\
import os, signal, sys
signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGTERM])
os.execv(sys.argv[1], sys.argv[1:])
""")
READER_GONE = ("/usr/bin/python3", "-c", """\
import os, signal, sys
signal.signal(signal.SIGPIPE, signal.SIG_DFL)
reading, writing = os.pipe()
os.dup2(writing, 1)
os.close(reading)
os.execv(sys.argv[1], sys.argv[1:])
""")


def test_each_line_of_the_log_bears_the_application_id(unit):
    lines = [LOG_LINE.fullmatch(line) for line in unit.run("-f", "/tmp/nowhere.tsc").stderr.splitlines()]
    assert {line["application"] for line in lines} == {"TU"}


def test_with_sigterm_blocked_it_can_still_be_ended(unit):
    running = unit.start(PROGRAM, within=SIGTERM_BLOCKED)
    running.wait_for(READY)
    code, log = running.end()
    assert code == 0, log


@pytest.mark.parametrize("arguments", [["-h"], ["-m", "11"], ["-f", "/tmp/nowhere.tsc"]], ids=" ".join)
def test_without_a_reader_of_its_output_it_ends_with_0(unit, arguments):
    unit.write_switches()
    assert unit.run(*arguments, within=READER_GONE).returncode == 0


def test_without_input_and_output_it_works_on_none(unit):
    running = unit.start(PROGRAM, within=("sh", "-c", 'exec "$@" <&- >&-', "sh"))
    running.wait_for(READY)
    assert [os.readlink(f"/proc/{running.pid}/fd/{stream}") for stream in (0, 1)] == ["/dev/null"] * 2
    assert running.end()[0] == 0


# The first files that it opens would be its standard streams, the log of the installation in one of them.
def test_without_standard_streams_no_other_file_takes_their_place(daemon):
    daemon.unit.write_switches()
    text, _ = daemon.bench.backend.make(daemon.bench.pki, container_id="TSC-1", moment=MOMENT)
    result = daemon.unit.install(text, within=WITHOUT_STREAMS)
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")
    assert (daemon.unit.records()[0], daemon.unit.stored_records()[0]) == ("TSC-1", "TSC-1")
    files = [path for path in daemon.unit.root.rglob("*") if path.is_file()]
    assert not [path for path in files if b"Trust Store Update" in path.read_bytes()]


def test_where_no_file_may_grow_any_more_an_update_fails_in_order(daemon):
    daemon.install("TSC-1")
    daemon.offer("TSC-2")
    daemon.start_online()
    resource.prlimit(daemon.running.pid, resource.RLIMIT_FSIZE, (0, resource.RLIM_INFINITY))
    daemon.bench.publish_job()
    daemon.running.wait_for(REPORT_ENDED)
    daemon.end()
    assert daemon.reports() == [("STATUS_CODE_TSC_ROLLBACK", "")]
    daemon.install("TSC-2", MOMENT + DAY)
