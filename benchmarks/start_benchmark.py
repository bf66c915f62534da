#!/usr/bin/python3
"""What a start takes, from the process' first instruction to the line that tells that the daemon is ready.

    start_benchmark.py [BUILD]

BUILD is the build folder (default: build/release). Each run starts the daemon in a sandbox, on a unit with an installed
container of 150 of this machine's CA certificates and a backend on loopback, and reads the processor time of all of its
threads when the line comes. The floor is a process with the same shared libraries that does nothing. Both figures have
in them what the sandbox is built with. Prints medians, the ratio to the floor, and that to the goal. Exit 1 when it
is above the goal.
"""

import pathlib
import statistics
import sys
import tempfile
import time

sys.dont_write_bytecode = True
SOURCE = pathlib.Path(__file__).resolve().parents[1]
sys.path[:0] = [str(SOURCE), str(SOURCE / "tests" / "e2e")]

# pylint: disable=wrong-import-position
from bench import containers
from bench.box import Bench
from unit import PROGRAM, Unit

RUNS = 20
GOAL_MS = 50
CERTIFICATES = 150
SYSTEM_CERTIFICATES = "/etc/ssl/certs/ca-certificates.crt"
READY = "info: Truststore Update Client Ready"
FLOOR_PROGRAM = "loaded_libraries"
LOADED = "loaded"
# What the log goes to, and what stands in the configuration for that.
LOGS = {"standard error": "", "DLT too, no DLT daemon": '[logging]\nsinks = ["stderr", "dlt"]\n'}


def processor_ms(pid):
    """Processor time of all threads of a process so far, ended ones too: its CPU-time clock (clock_getcpuclockid)."""
    return 1000 * time.clock_gettime(~pid << 3 | 2)


def measure(unit, program, line, options):
    """Processor time and time of the clock, in ms, from the start of a program to a line of its log."""
    begun = time.perf_counter()
    running = unit.start(program, options=options, is_confined=False)
    try:
        running.wait_for(line)
        taken = processor_ms(running.pid)
        return taken, 1000 * (time.perf_counter() - begun)
    finally:
        running.end()


def installed_unit(folder, build, bench):
    system = containers.certificates(SYSTEM_CERTIFICATES)
    bundle = [system[number % len(system)] for number in range(CERTIFICATES)]
    unit = Unit(folder / "unit", build)
    unit.write_switches("OcspDisable = true\n")
    unit.provision_root(bench.root_path.read_bytes())
    unit.install(bench.backend.make(bench.pki, bundles={"WEB": bundle})[0])
    if list(unit.store()) != ["WEB"]:
        raise RuntimeError("nothing was installed")
    unit.write_switches()
    return unit


def main():
    build = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else SOURCE / "build" / "release").resolve()
    taken = {"the floor": [], **{name: [] for name in LOGS}}
    with tempfile.TemporaryDirectory(prefix="tsuc-start-") as name, Bench(f"{name}/bench") as bench:
        unit = installed_unit(pathlib.Path(name), build, bench)
        options = ["--ro-bind", str(bench.directory), str(bench.directory)]
        for _ in range(RUNS):
            taken["the floor"].append(measure(unit, FLOOR_PROGRAM, LOADED, options))
            for log, configuration in LOGS.items():
                unit.configure(configuration + bench.config_path.read_text())
                taken[log].append(measure(unit, PROGRAM, READY, options))
    print(f"{RUNS} starts, medians (least to most)         processor time ms        by the clock ms")
    for title, figures in taken.items():
        columns = [f"{statistics.median(each):8.1f} ({min(each):5.1f} to {max(each):5.1f})" for each in zip(*figures)]
        print(f"  {title:36} {' '.join(columns)}")
    floor, daemon = (statistics.median(each for each, _ in taken[title]) for title in ("the floor", "standard error"))
    print(f"ratio to the floor {daemon / floor:.2f}; to the goal of {GOAL_MS} ms {daemon / GOAL_MS:.2f}, at most 1")
    return 0 if daemon <= GOAL_MS else 1


if __name__ == "__main__":
    sys.exit(main())
