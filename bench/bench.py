#!/usr/bin/python3
"""The bench's command line: `bench.py run`, then `bench.py tell DIR ...` from elsewhere. docs/bench.md tells more."""

import argparse
import json
import os
import pathlib
import select
import signal
import sys

sys.dont_write_bytecode = True
# The package's folder is first on the path of a script in it, and would hide the package behind this file.
sys.path[0] = str(pathlib.Path(__file__).resolve().parents[1])

# pylint: disable=wrong-import-position
from bench import commands, control
from bench.box import Bench
from bench.misbehaviours import TABLE
from bench.processes import BenchError

SUMMARY = """\
bench runs in {directory}
  configuration  {configuration}   (TSUC_HOST_CONFIG)
  root           {root}   (for the unit's trust-store/factory/ZORA.pem)
  download       {download}
  report         {report}
  ocsp           {ocsp}
  mod-ocsp       {mod_ocsp}
  broker         127.0.0.1:{port}
  alerts         {proxy}   (the TLS alert socket)
  container      {container}
tell it more:    {program} tell {directory} --help
"""
# As it was called: bench.py, or tsuc-bench where it is installed.
PROGRAM = pathlib.Path(sys.argv[0]).name
PARENT_ENDED = "the process that started it has ended"


def make_parser():
    parser = argparse.ArgumentParser(
        prog=PROGRAM, description="A backend in a box: certificates, OCSP responders, broker and HTTP(S) backend on "
        "loopback, which can misbehave.")
    subcommands = parser.add_subparsers(dest="action", required=True, metavar="COMMAND")
    add_run(subcommands)
    tell = subcommands.add_parser("tell", help="have a running bench do something, or ask it")
    tell.add_argument("directory", metavar="DIR", help="the bench's directory")
    commands.add_commands(tell)
    listing = subcommands.add_parser("misbehaviours", help="list what `tell DIR misbehave` knows")
    listing.add_argument("--json", action="store_true", help="in JSON")
    return parser


def add_run(subcommands):
    run = subcommands.add_parser("run", help="start everything and log what happens, until Ctrl-C or SIGTERM")
    run.add_argument("--directory", metavar="DIR", help="for keys, configuration and logs; certificates in it are kept "
                     "(default: a temporary one)")
    run.add_argument("--https", action="store_true", help="download and report by HTTPS")
    run.add_argument("--client-certificate", action="store_true", help="and only with a client's certificate")
    run.add_argument("--mqtt-tls", action="store_true", help="the broker speaks TLS")
    run.add_argument("--mqtt-password", action="store_true", help="the broker wants user and password")
    run.add_argument("--chain-length", type=int, default=2, metavar="N",
                     help="certificates of the signer's chain, 1 to 8 (default 2)")
    run.add_argument("--signed-by", choices=["delegate", "issuer"], default="delegate", help="who signs OCSP answers")
    run.add_argument("--first-port", type=int, default=0, metavar="PORT", help="five ports from here on (default: free "
                     "ones)")
    run.add_argument("--alerts", metavar="PATH", help="where the TLS alert socket is (default: in the directory)")


def check_run(parser, options):
    if not 1 <= options.chain_length <= 8:
        parser.error("--chain-length: 1 to 8")
    if options.client_certificate and not options.https:
        parser.error("--client-certificate needs --https")
    if options.first_port and not 1024 <= options.first_port <= 65531:
        parser.error("--first-port: 1024 to 65531")


class UntilTold:
    """Waits for the end: a signal, the end of the parent process, or `stop`."""

    def __init__(self):
        self._reading, self._writing = os.pipe2(os.O_CLOEXEC | os.O_NONBLOCK)
        self._reason = PARENT_ENDED
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, lambda received, _: self._end(f"on {signal.Signals(received).name}"))
        self._parent = os.getppid()

    def stop(self):
        self._end("as told")

    def _end(self, reason):
        self._reason = reason
        os.write(self._writing, b"x")

    def wait(self):
        """Returns why it is the end, in words."""
        self._wait()
        return self._reason

    def _wait(self):
        waiting = [self._reading]
        # A parent that is gone already, or the system's first process, does not count.
        if self._parent > 1:
            try:
                waiting.append(os.pidfd_open(self._parent))
            except ProcessLookupError:
                return
        select.select(waiting, [], [])


def run_bench(options):
    until = UntilTold()
    how = {key: value for key, value in vars(options).items() if key != "action"}
    try:
        with Bench(**how, streams=[sys.stdout]) as bench:
            told = control.Control(bench, until.stop)
            try:
                print(summary(bench.status()), flush=True)
                reason = until.wait()
            finally:
                told.close()
            bench.log.write("bench", f"ends, {reason}")
    except BrokenPipeError:
        pass
    return 0


def summary(status):
    urls = {name.replace("-", "_"): endpoint["url"] for name, endpoint in status["endpoints"].items()}
    return SUMMARY.format(**status, **urls, port=status["broker"]["port"],
                          proxy=status["alerts"]["path"], program=sys.argv[0])


def print_answer(answer, as_json):
    if as_json:
        print(json.dumps(answer, indent=2))
    elif isinstance(answer, list):
        for number, record in enumerate(answer, 1):
            print(f"{number}. " + record_line(record))
    else:
        for key, value in answer.items():
            print(f"{key}: {in_words(value)}")


def in_words(value):
    if value is None:
        return "none"
    return json.dumps(value) if isinstance(value, dict) else value


def record_line(record):
    """A request of a unit on one line; a status that a misbehaviour stood in for is told as such."""
    due = "(was due)" if record.get("misbehaviour") else ""
    return " ".join(f"{key}={value}{due if key == 'status' else ''}" for key, value in record.items()
                    if key not in ("headers", "body"))


def list_misbehaviours(as_json):
    if as_json:
        print(json.dumps({each.name: {"endpoints": each.endpoints, "summary": each.summary}
                          for each in TABLE.values()}, indent=2))
        return 0
    for each in TABLE.values():
        print(f"{each.name:28} {'all' if len(each.endpoints) == 4 else ' '.join(each.endpoints):17} {each.summary}")
    return 0


def main():
    parser = make_parser()
    options = parser.parse_args()
    try:
        if options.action == "run":
            check_run(parser, options)
            return run_bench(options)
        if options.action == "misbehaviours":
            return list_misbehaviours(options.json)
        commands.check(parser, options)
        told = {key: value for key, value in vars(options).items() if key not in ("action", "directory")}
        print_answer(control.tell(options.directory, told), options.json)
        return 0
    except BenchError as error:
        print(f"{PROGRAM}: {error}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main())
