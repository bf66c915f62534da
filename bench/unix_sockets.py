"""Unix stream sockets in folders of any depth: a socket's address holds a path of 107 bytes only."""

import contextlib
import os
import pathlib
import socket


@contextlib.contextmanager
def _short(path):
    """A short way to `path`, through a descriptor of its folder."""
    path = pathlib.Path(path)
    folder = os.open(path.parent, os.O_PATH | os.O_DIRECTORY | os.O_CLOEXEC)
    try:
        yield f"/proc/self/fd/{folder}/{path.name}"
    finally:
        os.close(folder)


def listen(path):
    """A listening socket at `path`, in place of one that is left there."""
    path = pathlib.Path(path)
    path.unlink(missing_ok=True)
    listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    with _short(path) as address:
        listener.bind(address)
    path.chmod(0o600)
    listener.listen()
    return listener


def connect(path, seconds):
    """A connection to `path` with a time limit on every operation. Raises OSError."""
    connection = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    connection.settimeout(seconds)
    try:
        with _short(path) as address:
            connection.connect(address)
    except OSError:
        connection.close()
        raise
    return connection
