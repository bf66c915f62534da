"""The messages between unit and backend, as Python classes that protoc makes of proto/*.proto when first needed."""

import functools
import importlib
import pathlib
import subprocess
import sys
import tempfile

PROTO = pathlib.Path(__file__).resolve().parents[1] / "proto"


@functools.cache
def _modules():
    files = sorted(PROTO.glob("*.proto"))
    with tempfile.TemporaryDirectory(prefix="tsuc-bench-proto-") as folder:
        command = ["protoc", f"--proto_path={PROTO}", f"--python_out={folder}", *map(str, files)]
        subprocess.run(command, check=True)
        sys.path.insert(0, folder)
        try:
            return {path.stem: importlib.import_module(f"{path.stem}_pb2") for path in files}
        finally:
            sys.path.remove(folder)


def download_request():
    return _modules()["RUNA_CO_TruststoreUpdateRequestTSC_v1"].RUNACOTruststoreUpdateRequestTSCV1()


def download_response(container):
    """The message with a container's text."""
    message = _modules()["RUNA_CT_TruststoreUpdateResponseTSC_v1"].RUNACTTruststoreUpdateResponseTSCV1()
    message.trust_store_container = container
    return message


def status_report():
    return _modules()["RUNA_CO_TruststoreUpdateReportTSCStatus_v1"].RUNACOTruststoreUpdateReportTSCStatusV1()


def job(container_id):
    """The message that tells a unit which container to install."""
    message = _modules()["RUNA_CT_TruststoreUpdateTSCJob_v1"].RUNACTTruststoreUpdateTSCJobV1()
    message.container_id = container_id
    return message


def enum_name(message, field):
    """The name of an enum field's value, or its number when it has none."""
    value = getattr(message, field)
    found = message.DESCRIPTOR.fields_by_name[field].enum_type.values_by_number.get(value)
    return found.name if found else str(value)
