#!/usr/bin/python3
"""A unit installs a container made of this machine's CA certificates: demo.py BUILD_DIR (script/demo runs it).

Each step says what is done and what is to come of it; the first one that comes out otherwise ends the demo with 1.
"""

import datetime
import pathlib
import subprocess
import sys
import tempfile

SOURCE = pathlib.Path(__file__).resolve().parents[2]
sys.path += [str(SOURCE), str(SOURCE / "tests" / "e2e")]

from bench import authority, containers
from server import CURL_OK, CURL_PEER_NOT_TRUSTED, Server
from unit import Unit

REAL_CAS = pathlib.Path("/usr/share/ca-certificates/mozilla")
STATUS_LINE = "info: Send Update Status to the Device Platform: "
INSTALLED = "STATUS_CODE_SUCCESS"
ALREADY_INSTALLED = "STATUS_CODE_DOWNLOAD_ERROR"
OLDER = "STATUS_CODE_TSC_ROLLBACK"
SIGNATURE_WRONG = "STATUS_CODE_CERT_DECODE_ERROR"
COMMON_NAME_WRONG = "STATUS_CODE_UNEXPECTED_ERROR"


class NotAsTold(Exception):
    """A step came out otherwise."""


class Demo:
    """The steps, on files of one folder."""

    def __init__(self, folder, build_dir):
        self.folder = folder
        self.tsc = build_dir / "bin" / "tsc"
        self.unit = Unit(folder / "unit", build_dir)
        self.server_ca = authority.issue(authority.name("Demo Fleet CA"))
        self.root = authority.issue(authority.name("Demo Signer Root"))
        self.count = 0

    def step(self, text):
        self.count += 1
        print(f"\n{self.count}. {text}", flush=True)

    @staticmethod
    def check(told, condition, details=""):
        if not condition:
            raise NotAsTold(f"{told}\n{details}")
        print(f"   as told: {told}", flush=True)

    def make_signers(self):
        self.step("A signer PKI: a root, an intermediate and two signers, one of them with a wrong Common Name.")
        intermediate = authority.issue(authority.name("Demo Signer CA"), issuer=self.root)
        for folder, common_name in (("signer", authority.SIGNER_CN), ("wrong-signer", "OTHER TSC Signer")):
            leaf = authority.issue(authority.name(common_name), issuer=intermediate, ca=False)
            authority.write_chain(self.folder / folder, leaf, [intermediate], [self.root])
        print("   Demo Signer Root > Demo Signer CA > " + authority.SIGNER_CN)

    def prepare_unit(self):
        self.step("A fresh unit: the root is provisioned as trust-store/factory/ZORA.pem, nothing is installed.")
        self.unit.provision_root(self.root.pem())
        self.run_tsc("switches", "--init", "--file", self.unit.switches_path)
        self.check("no bundle installed", self.unit.store() == {})

    def run_tsc(self, *arguments):
        done = subprocess.run([self.tsc, *map(str, arguments)], capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise NotAsTold(f"tsc {arguments[0]} ends with {done.returncode}\n{done.stderr}")
        print("   tsc: " + done.stdout.strip())

    def make_bundles(self):
        self.step("Bundles of the real CA certificates of this machine; the fleet's own CA joins the last one.")
        files = sorted(REAL_CAS.glob("*.crt"))
        middle = len(files) // 2
        bundles = {"WEB_A": files[:middle], "WEB_B": files[middle:], "FLEET": files[:3]}
        arguments = []
        for name, members in bundles.items():
            path = self.folder / f"{name}.pem"
            own = self.server_ca.pem() if name == "FLEET" else b""
            path.write_bytes(b"".join(member.read_bytes() for member in members) + own)
            arguments += ["--bundle", f"{name}={path}"]
            print(f"   {name}: {len(members) + bool(own)} certificates")
        self.check("this machine has CA certificates", len(files) > 20)
        return arguments

    def create(self, file, container_id, moment, bundles, signer="signer"):
        path = self.folder / file
        keys = self.folder / signer
        check = ["--no-check"] if signer != "signer" else []
        self.run_tsc("create", "--key", keys / "leaf.key.pem", "--chain", keys / "chain.pem", "--id", container_id,
                     "--timestamp", containers.timestamp(moment), "-o", path, *check, *bundles)
        return path.read_text()

    def give(self, container, status, meaning):
        """Gives the unit a container with -f and checks the status that it tells."""
        result = self.unit.install(container)
        for line in result.log():
            print(f"   | {line}")
        told = [line for line in result.log() if line.startswith(STATUS_LINE)]
        self.check(f"{meaning}: {status}", result.returncode == 0 and told == [STATUS_LINE + status], result.stderr)

    def refuse(self, container, status, meaning):
        """As give, and nothing may change."""
        before = self.unit.store(), self.unit.records()
        self.give(container, status, meaning)
        self.check("trust store and records are as before", (self.unit.store(), self.unit.records()) == before)

    def start_server(self):
        leaf = authority.issue(authority.name("server"), issuer=self.server_ca, ca=False,
                               extensions=[authority.server_names(address="127.0.0.1")])
        authority.write(self.folder / "server.pem", leaf.pem())
        authority.write_key(self.folder / "server.key", leaf.key)
        return Server(self.folder / "server.pem", self.folder / "server.key")

    def run(self):
        now = datetime.datetime.now(datetime.timezone.utc)
        self.make_signers()
        self.prepare_unit()
        bundles = self.make_bundles()
        with self.start_server() as server:
            self.step("A TLS server with a certificate of the fleet's CA; curl trusts what the unit has: its factory.")
            factory = self.unit.store_dir / "factory" / "ZORA.pem"
            self.check("curl refuses the server", server.curl(factory) == CURL_PEER_NOT_TRUSTED)

            self.step("A container of today is made and installed with -f.")
            today = self.create("today.tsc", "demo-2", now, bundles)
            self.give(today, INSTALLED, "installed")
            self.check("three bundles installed", list(self.unit.store()) == ["FLEET", "WEB_A", "WEB_B"])
            self.check("id and timestamp recorded", self.unit.records() == ("demo-2", str(int(now.timestamp()))))

            self.step("The same TLS client again, with the installed bundles.")
            installed = self.unit.store_dir / "installed"
            self.check("curl accepts the server with FLEET", server.curl(installed / "FLEET.pem") == CURL_OK)
            self.check("curl refuses it with WEB_A", server.curl(installed / "WEB_A.pem") == CURL_PEER_NOT_TRUSTED)

            self.refusals(today, now, bundles)
            self.check("curl still accepts the server", server.curl(installed / "FLEET.pem") == CURL_OK)

    def refusals(self, today, now, bundles):
        hour = datetime.timedelta(hours=1)
        self.step("The same container again.")
        self.refuse(today, ALREADY_INSTALLED, "already installed")
        self.step("A container that is an hour older.")
        self.refuse(self.create("older.tsc", "demo-1", now - hour, bundles), OLDER, "older")
        self.step("A newer container, one character of its payload changed.")
        newer = self.create("newer.tsc", "demo-3", now + hour, bundles)
        self.refuse(containers.tampered(newer), SIGNATURE_WRONG, "signature wrong")
        self.step("A newer container by the signer with the wrong Common Name.")
        wrong = self.create("wrong.tsc", "demo-4", now + hour, bundles, "wrong-signer")
        self.refuse(wrong, COMMON_NAME_WRONG, "Common Name wrong")


def main():
    build_dir = pathlib.Path(sys.argv[1]).resolve()
    with tempfile.TemporaryDirectory(prefix="tsuc-demo-") as folder:
        try:
            Demo(pathlib.Path(folder), build_dir).run()
        except NotAsTold as failure:
            print(f"\nNOT AS TOLD: {failure}", file=sys.stderr)
            return 1
    print("\nEvery step came out as told.")
    return 0


if __name__ == "__main__":
    sys.exit(main())
