#!/usr/bin/python3
"""Runs a server that listens on every address, inside a network namespace of its own, and passes connections on to it.

responder_relay.py SOCKET PORT COMMAND...: `openssl ocsp` takes no address to listen on. In a namespace it is reachable
by nobody but through the Unix socket SOCKET.
"""

import socket
import subprocess
import sys
import threading

SILENCE_S = 60
CHUNK = 64 * 1024


def copy(source, target):
    """Passes on what `source` sends until it sends no more."""
    try:
        while content := source.recv(CHUNK):
            target.sendall(content)
        target.shutdown(socket.SHUT_WR)
    except OSError:
        # The other direction notices as well, and ends.
        pass


def relay(client, port):
    with client:
        client.settimeout(SILENCE_S)
        try:
            server = socket.create_connection(("127.0.0.1", port), SILENCE_S)
        except OSError:
            return
        with server:
            requests = threading.Thread(target=copy, args=(client, server), daemon=True)
            requests.start()
            copy(server, client)


def main():
    path, port, *command = sys.argv[1:]
    listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    listener.bind(path)
    listener.listen()
    server = subprocess.Popen(command)

    def accept():
        while True:
            client, _ = listener.accept()
            threading.Thread(target=relay, args=(client, int(port)), daemon=True).start()

    threading.Thread(target=accept, daemon=True).start()
    return server.wait()


if __name__ == "__main__":
    sys.exit(main())
