"""What a running bench can be told: the command line of `bench.py tell`, and what each command does."""

import dataclasses
import os
import pathlib

from bench import alerts, containers
from bench.misbehaviour import ENDPOINTS
from bench.processes import BenchError

WAIT_S = 60
# Commands that wait for units.
WAITING = ("reports", "alert")
BROKER_ACTIONS = ("kill", "stop", "start", "restart", "freeze", "thaw")
# What a file is offered as when it holds no id.
NAMELESS = "FILE"


def _path(text):
    """A path that means the same in the bench's process."""
    return str(pathlib.Path(text).absolute())


def add_commands(parser):
    """Adds the commands to `tell`'s parser."""
    commands = parser.add_subparsers(dest="command", required=True, metavar="COMMAND")

    def add(name, text):
        command = commands.add_parser(name, help=text, description=text)
        command.add_argument("--json", action="store_true", help="answer in JSON")
        return command

    _add_containers(add)
    _add_trouble(add)
    _add_alerts(add)
    _add_questions(add)
    add("stop", "end the bench")


def _add_containers(add):
    command = add("container", "offer a container for download")
    command.add_argument("kind", choices=["new", "same", "old", "none", "file"], help="new; same (id and time of the "
                         "present one); old (thirty days); none; file: as --file says")
    command.add_argument("--id", help="its id in place of one made of its time; of a file, in place of the one in it")
    command.add_argument("--bundle", action="append", default=[], metavar="NAME=FILE",
                         help="the certificates of a PEM file for a bundle; again for more")
    command.add_argument("--file", type=_path, help="offer this file as it is")
    command = add("job", "publish a job")
    what = command.add_mutually_exclusive_group()
    what.add_argument("id", nargs="?", help="the container's id (default: of the offered one)")
    what.add_argument("--payload", type=_path, metavar="FILE", help="publish this file as it is")
    add("token", "another token, at the backend and in the unit's file").add_argument("token")


def _add_trouble(add):
    for name, text in (("revoke", "revoke a certificate: signer, ca-1 ..."), ("unrevoke", "make it good again"),
                       ("forget", "the responder does not know it any more")):
        add(name, text).add_argument("name")
    command = add("misbehave", "serve an endpoint's connections badly")
    command.add_argument("endpoint", choices=ENDPOINTS)
    command.add_argument("name", help="a name that `bench.py misbehaviours` lists")
    command.add_argument("--times", type=int, help="only the next N connections")
    add("behave", "end a misbehaviour").add_argument("endpoint", nargs="?", choices=ENDPOINTS)
    add("broker", "what becomes of mosquitto").add_argument("what", choices=BROKER_ACTIONS)
    command = add("responder", "what becomes of a CA's openssl ocsp")
    command.add_argument("ca", help="root, ca-1 ...")
    command.add_argument("what", choices=["kill", "restart"])
    command.add_argument("--signed-by", choices=["delegate", "issuer"], help="who signs from now on")


def _add_alerts(add):
    command = add("alert", "tell the units that listen of a TLS alert")
    command.add_argument("code", type=int, help="its description, 0 to 255: 46 certificate_unknown, 48 unknown_ca ...")
    command.add_argument("operation", nargs="?", default="", help="the operation's id (default: empty)")
    command.add_argument("--type", type=int, default=alerts.ALERT, metavar="N", help="the message's type byte "
                         f"(default {alerts.ALERT}: units know no other)")
    command.add_argument("--cut", type=int, metavar="N", help="close the connections behind the first N bytes")
    command.add_argument("--pieces", type=int, metavar="N",
                         help="N bytes at a time, each when the ones before were read")
    command.add_argument("--flood", type=int, default=1, metavar="N", help="N times, as fast as it goes")
    command.add_argument("--timeout", type=float, default=alerts.WAIT_S, metavar="S",
                         help=f"wait so long for a unit that listens (default {alerts.WAIT_S})")
    command = add("proxy", "what becomes of the alert socket; every connection ends")
    command.add_argument("mode", choices=alerts.MODES, help="listen: anew; close-at-once: connections as they come; "
                         "full: nobody gets in; refuse: nobody listens; absent: no socket")
    command.add_argument("--times", type=int, default=1, help="close-at-once: so many (default 1), then listen")


def _add_questions(add):
    command = add("reports", "show the status reports of units")
    command.add_argument("--wait", type=int, default=0, metavar="N", help="wait until there are N")
    command.add_argument("--timeout", type=float, default=WAIT_S, metavar="S", help=f"for so long (default {WAIT_S})")
    add("requests", "show the download requests of units; the status of one that was served badly is the one that "
        "was due")
    add("listeners", "show the connections to the alert socket")
    add("status", "show addresses, processes, certificates and misbehaviours")


def check(parser, options):
    """What the parser cannot see by itself: ends the program by parser.error."""
    if options.command == "container" and (options.kind == "file") != bool(options.file):
        parser.error("container file needs --file FILE, and nothing else takes it")


def run(bench, told):
    """Does what `told` (the parsed options as a dictionary) says; returns plain values. Raises BenchError."""
    return _COMMANDS[told["command"]](bench, told)


def _container(bench, told):
    if told["kind"] == "file":
        text = _text(told["file"])
        return {"container_id": bench.offer_text(text, told["id"] or containers.container_id(text) or NAMELESS)}
    bundles = _bundles(told["bundle"])
    return {"container_id": bench.new_container(told["kind"], container_id=told["id"], bundles=bundles)}


def _text(path):
    try:
        return pathlib.Path(path).read_text(encoding="ascii")
    except (OSError, UnicodeDecodeError) as error:
        raise BenchError(f"{path}: {error}") from None


def _bundles(arguments):
    bundles = {}
    for argument in arguments:
        name, equals, path = argument.partition("=")
        if not equals:
            raise BenchError(f"--bundle {argument}: not NAME=FILE")
        try:
            bundles.setdefault(name, []).extend(containers.certificates(path))
        except (OSError, ValueError) as error:
            raise BenchError(f"--bundle {argument}: {error}") from None
    return bundles


def _job(bench, told):
    payload = pathlib.Path(told["payload"]).read_bytes() if told["payload"] else None
    bench.publish_job(told["id"], payload=payload)
    return {}


def _misbehave(bench, told):
    bench.misbehave(told["endpoint"], told["name"], told["times"])
    return {}


def _behave(bench, told):
    bench.behave(told["endpoint"])
    return {}


def _broker(bench, told):
    getattr(bench.broker, told["what"])()
    return {"running": bench.broker.running()}


def _responder(bench, told):
    responder = bench.responders.get(told["ca"])
    if responder is None:
        raise BenchError(f"no CA '{told['ca']}'; there are {', '.join(bench.responders)}")
    if told["what"] == "kill":
        responder.kill()
    else:
        responder.restart(told["signed_by"])
    return {}


def _set_state(operation):
    def command(bench, told):
        getattr(bench, operation)(told["name"])
        return bench.pki.states()
    return command


def _token(bench, told):
    bench.set_token(told["token"])
    return {}


def _reports(bench, told):
    reports = bench.wait_for_reports(told["wait"], told["timeout"])
    return [record.as_json() for record in reports]


def _requests(bench, _):
    return [record.as_json() for record in bench.requests()]


def _alert(bench, told):
    how = {"kind": told["type"], "cut": told["cut"], "pieces": told["pieces"], "times": told["flood"]}
    return {"taken": bench.alerts.alert(told["code"], os.fsencode(told["operation"]), seconds=told["timeout"], **how)}


def _proxy(bench, told):
    bench.alerts.be(told["mode"], told["times"])
    return bench.alerts.status()


def _listeners(bench, _):
    return [dataclasses.asdict(record) for record in bench.alerts.records()]


def _status(bench, _):
    return bench.status()


_COMMANDS = {"container": _container, "job": _job, "misbehave": _misbehave, "behave": _behave, "broker": _broker,
             "responder": _responder, "token": _token, "reports": _reports, "requests": _requests, "status": _status,
             "alert": _alert, "proxy": _proxy, "listeners": _listeners,
             "stop": lambda bench, _: {},
             **{operation: _set_state(operation) for operation in ("revoke", "unrevoke", "forget")}}
