"""The host platform's configuration for a unit that talks to the bench."""

import json

from bench.broker import PASSWORD, USERNAME
from bench.misbehaviour import DOWNLOAD, MOD_OCSP, OCSP, REPORT

SERVICES = {
    "RUNA-TruststoreUpdate.CORequestTSC": DOWNLOAD,
    "RUNA-TruststoreUpdate.COReportTSCStatus": REPORT,
    "RUNA-TruststoreOCSP.COOCSPRequest": OCSP,
    "RUNA-TruststoreOCSP.COModOCSPRequest": MOD_OCSP,
}


def write(bench):
    """Writes host-platform.toml and the files that it names."""
    write_token(bench)
    tables = [_mqtt(bench), *(_service(bench, service, endpoint) for service, endpoint in SERVICES.items())]
    bench.config_path.write_text("\n".join(tables))


def write_token(bench):
    (bench.directory / "token").write_text(bench.backend.token + "\n")


def _table(header, entries):
    """A TOML table. JSON's strings and numbers are TOML's, too."""
    lines = [f"{key} = {json.dumps(value, ensure_ascii=False)}" for key, value in entries.items()]
    return "\n".join([f"[{header}]", *lines, ""])


def _mqtt(bench):
    entries = {"host": "127.0.0.1", "port": bench.broker.port, "client_id": "bench-unit", "keep_alive_s": 60}
    if bench.broker.tls:
        entries["ca_file"] = str(bench.pki.path("server-ca"))
    if bench.broker.password:
        password = bench.directory / "mqtt-password"
        password.write_text(PASSWORD + "\n")
        entries |= {"username": USERNAME, "password_file": str(password)}
    return _table("mqtt", entries)


def _service(bench, service, endpoint):
    entries = {"url": bench.url(endpoint)}
    if endpoint in (DOWNLOAD, REPORT):
        entries["token_file"] = str(bench.directory / "token")
    if bench.endpoints[endpoint].tls:
        entries["ca_file"] = str(bench.pki.path("server-ca"))
        if bench.client_certificate:
            client = bench.pki.client()
            entries |= {"cert_file": str(bench.pki.path(client)), "key_file": str(bench.pki.key_path(client))}
    return _table(f'service."{service}"', entries)
