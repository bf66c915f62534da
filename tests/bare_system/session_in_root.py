#!/usr/bin/python3
"""Runs the blocks of pages (tests/docs/pages.py) as root in the folder ROOT, whose /proc and /dev are there already."""

import json
import pathlib
import sys

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "docs"))

# pylint: disable=wrong-import-position
import session

if __name__ == "__main__":
    session.SHELL = ["chroot", sys.argv[1], *session.SHELL]
    session.DEADLINE_S = float(sys.argv[2])
    failure = session.run(json.load(sys.stdin))
    print(failure or "done")
    sys.exit(1 if failure else 0)
