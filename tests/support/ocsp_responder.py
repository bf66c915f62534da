#!/usr/bin/python3
"""Runs `openssl ocsp` for a test: ocsp_responder.py OPTION... with the options of that command but for its port.

openssl takes no address to listen on. It runs in a network namespace of its own, and this script passes on what comes
to a free port of 127.0.0.1, whose number it writes to standard output when openssl is ready. Ends with its parent.
"""

import os
import socket
import subprocess
import sys
import threading

INNER = "--inner"
PORT = 2560
READY = b"waiting for OCSP client connections"


def copy(source, target):
    """Passes on what `source` sends until it sends no more."""
    try:
        while content := source.recv(65536):
            target.sendall(content)
        target.shutdown(socket.SHUT_WR)
    except OSError:
        pass  # the other direction notices as well, and ends


def relay(client):
    with client, socket.create_connection(("127.0.0.1", PORT)) as server:
        threading.Thread(target=copy, args=(client, server), daemon=True).start()
        copy(server, client)


def outer(options):
    listener = socket.create_server(("127.0.0.1", 0))
    listener.set_inheritable(True)
    os.execvp("bwrap", ["bwrap", "--dev-bind", "/", "/", "--unshare-net", "--unshare-pid", "--die-with-parent",
                        sys.executable, __file__, INNER, str(listener.fileno()), *options])


def inner(descriptor, options):
    # Made before, the listener still belongs to the network outside.
    listener = socket.socket(fileno=int(descriptor))
    openssl = subprocess.Popen(["openssl", "ocsp", "-port", str(PORT), *options],
                               stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    while READY not in (line := openssl.stderr.readline()):
        if not line:
            return f"openssl ended with {openssl.wait()}"
    threading.Thread(target=openssl.stderr.read, daemon=True).start()
    print(listener.getsockname()[1], flush=True)
    while True:
        threading.Thread(target=relay, args=(listener.accept()[0],), daemon=True).start()


if __name__ == "__main__":
    arguments = sys.argv[1:]
    sys.exit(inner(arguments[1], arguments[2:]) if arguments[:1] == [INNER] else outer(arguments))
