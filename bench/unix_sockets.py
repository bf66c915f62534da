"""Unix sockets in folders of any depth: a socket's address holds a path of 107 bytes only."""

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


def bind(path, kind=socket.SOCK_STREAM):
    """A socket at `path`, in place of one that is left there. Nobody gets into a stream socket before it listens."""
    path = pathlib.Path(path)
    path.unlink(missing_ok=True)
    bound = socket.socket(socket.AF_UNIX, kind)
    try:
        with _short(path) as address:
            bound.bind(address)
        path.chmod(0o600)
    except OSError:
        bound.close()
        raise
    return bound


def listen(path, backlog=128):
    """A listening socket at `path`, in place of one that is left there."""
    listener = bind(path)
    listener.listen(backlog)
    return listener


def connect(path, seconds, kind=socket.SOCK_STREAM):
    """A connection to `path` with a time limit on every operation. Raises OSError; with 0 seconds BlockingIOError when
    the listener's queue is full."""
    connection = socket.socket(socket.AF_UNIX, kind)
    connection.settimeout(seconds)
    try:
        with _short(path) as address:
            connection.connect(address)
    except OSError:
        connection.close()
        raise
    return connection


def served(path):
    """Whether a process listens at `path`."""
    try:
        connect(path, 0).close()
    except BlockingIOError:
        return True
    except OSError:
        return False
    return True
