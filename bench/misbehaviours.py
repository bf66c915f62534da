"""The table of all misbehaviours: `bench.py misbehaviours` prints it."""

from bench.bad_contents import CONTENTS
from bench.bad_http import HTTP
from bench.bad_ocsp import OCSP_FAULTS
from bench.bad_tls import CONNECTION, TLS_FAULTS
from bench.processes import BenchError

TABLE = {each.name: each for each in [*HTTP, *CONNECTION, *TLS_FAULTS, *CONTENTS, *OCSP_FAULTS]}


def find(name, endpoint):
    """The misbehaviour `name`. Raises BenchError when there is none or when it is not for this endpoint."""
    if name not in TABLE:
        raise BenchError(f"no misbehaviour '{name}'; `bench.py misbehaviours` lists them")
    if endpoint not in TABLE[name].endpoints:
        raise BenchError(f"'{name}' is for {', '.join(TABLE[name].endpoints)}, not for {endpoint}")
    return TABLE[name]
