#!/usr/bin/python3
"""Makes the keys and certificates that the tests read: make_pki.py OUTDIR. README.md names the files.

Nothing happens when OUTDIR was made less than a day ago by these very scripts; otherwise everything is made anew and
put in its place at once, so that a test sees a whole set or none.
"""

import fcntl
import hashlib
import pathlib
import sys
import tempfile
import time

HERE = pathlib.Path(__file__).resolve().parent
SOURCE = HERE.parents[1]
sys.path.append(str(SOURCE))

import chains
import costly
import hostile
import ocsp
import payload
import tls

STAMP = "made-by"
SCRIPTS = (SOURCE / "bench" / "authority.py", *sorted(HERE.glob("*.py")))
MAX_AGE_S = 24 * 3600


def script_version():
    digest = hashlib.sha256()
    for script in SCRIPTS:
        digest.update(script.read_bytes())
    return digest.hexdigest()


def is_fresh(out):
    try:
        stamp = out / STAMP
        return stamp.read_text() == script_version() and time.time() - stamp.stat().st_mtime < MAX_AGE_S
    except OSError:
        return False


def make(out):
    """Fills a folder beside `out`, the stamp last, and exchanges the two."""
    with tempfile.TemporaryDirectory(dir=out.parent, prefix=f".{out.name}-") as temporary:
        fresh = pathlib.Path(temporary) / "new"
        chains.write_all(fresh)
        hostile.write_all(fresh / "hostile")
        costly.write_all(fresh / "costly", fresh / "p256-3" / "root.pem")
        payload.write_all(fresh / "payload")
        ocsp.write_all(fresh / "ocsp")
        ocsp.write_signers(fresh / "signers")
        tls.write_all(fresh / "tls")
        (fresh / STAMP).write_text(script_version())
        if out.exists():
            out.rename(pathlib.Path(temporary) / "old")
        fresh.rename(out)


def main():
    if len(sys.argv) != 2 or sys.argv[1].startswith("-"):
        print("usage: make_pki.py OUTDIR", file=sys.stderr)
        return 2
    out = pathlib.Path(sys.argv[1]).absolute()
    out.parent.mkdir(parents=True, exist_ok=True)
    with open(out.with_name(f".{out.name}.lock"), "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not is_fresh(out):
            make(out)
    return 0


if __name__ == "__main__":
    sys.exit(main())
