"""SIGTERM at any instant from when it is caught to the last line of the log.

TSUC_SIGTERMS: how many lives are ended so, in all; `script/check e2e` ends 500.
"""

import os
import random
import signal
import time

import pytest

from daemon import REPORT_ENDED, TERMINATED, TERMINATING, process_status
from running import DEADLINE_S

SEED = 20240705
PARTS = 4
LIVES = int(os.environ.get("TSUC_SIGTERMS", "24")) // PARTS
CAUGHT = 1 << (signal.SIGTERM - 1)


def await_handler(running):
    """Returns as soon as SIGTERM is caught: what comes before is the system's to end."""
    deadline = time.monotonic() + DEADLINE_S
    while not int(process_status(f"/proc/{running.pid}/status")["SigCgt"], 16) & CAUGHT:
        assert time.monotonic() < deadline


def whole_life(daemon):
    """An update from its start to its end. Returns its seconds to the end of its report, and from there."""
    running = daemon.start()
    await_handler(running)
    began = time.monotonic()
    running.wait_for(REPORT_ENDED)
    reported = time.monotonic()
    daemon.end()
    return reported - began, time.monotonic() - reported


@pytest.mark.long
@pytest.mark.parametrize("part", range(PARTS))
def test_sigterm_at_any_instant_ends_it_in_order(daemon, part):
    daemon.offer("TSC-2")
    daemon.configure(broker=part % 2 == 0)
    chance = random.Random(SEED + part)
    work_s, end_s = whole_life(daemon)
    for life in range(LIVES):
        daemon.unit.empty()
        running = daemon.start()
        await_handler(running)
        # While a worker is at work, its end is looked for once a second.
        instants = [chance.uniform(0, work_s), chance.uniform(0, chance.choice((end_s, 1)))][:chance.choice((1, 2))]
        for instant in instants:
            running.ended_within(instant)
            running.send_signal(signal.SIGTERM)
        code, log = running.wait()
        assert code == 0, (life, instants, log)
        assert (log.count(TERMINATING), log.count(TERMINATED)) == (1, 1), (life, instants, log)
