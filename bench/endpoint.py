"""A listening port of the bench: reads requests, has them answered, and misbehaves when asked to."""

import socket
import threading
from dataclasses import dataclass

from bench.messages import BadRequest, Request, Response
from bench.peer import Peer, PeerGone

STOP_S = 10


@dataclass
class Scene:
    """What a misbehaviour acts in. Before the request was read, request and response are None."""

    endpoint: "Endpoint"
    peer: Peer
    request: Request = None
    response: Response = None


class Endpoint:
    """One listening port of 127.0.0.1, each connection on a thread of its own. Any thread.

    Connections wait until `start`. service: what answers. service.answer(request, behaviour) returns the response and,
    for the log, what was asked and what is answered; `behaviour` is the name of the misbehaviour that the response is
    going to meet, or None.
    tls: the context to serve HTTPS with, or None for HTTP.
    """

    def __init__(self, name, log, port=0):
        self.name = name
        self.service = None
        self.tls = None
        self._log = log
        self._lock = threading.Lock()
        self._misbehaviour = None
        self._times = None
        self._count = 0
        self._peers = {}
        self._stopping = False
        self._listener = socket.create_server(("127.0.0.1", port), backlog=128)
        self._thread = threading.Thread(target=self._accept, name=f"bench-{name}", daemon=True)

    def start(self, service, tls=None):
        self.service = service
        self.tls = tls
        self._thread.start()

    @property
    def port(self):
        return self._listener.getsockname()[1]

    def misbehave(self, misbehaviour, times=None):
        """The next `times` connections, or all of them, are served by `misbehaviour`; None: no more."""
        with self._lock:
            self._misbehaviour = misbehaviour
            self._times = times

    def behaviour(self):
        """(name of the misbehaviour or None, how often still or None)."""
        with self._lock:
            return (self._misbehaviour.name if self._misbehaviour else None, self._times)

    def connections(self):
        """How many connections there have been."""
        with self._lock:
            return self._count

    def stop(self):
        """Closes the port and ends every connection."""
        with self._lock:
            self._stopping = True
            serving = dict(self._peers)
        # Wakes accept, which a close alone does not.
        self._listener.shutdown(socket.SHUT_RDWR)
        if self._thread.is_alive():
            self._thread.join()
        self._listener.close()
        for thread, peer in serving.items():
            peer.abandon()
            thread.join(STOP_S)

    def _accept(self):
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                if self._stopping:
                    return
                continue
            self._start_serving(Peer(connection))

    def _start_serving(self, peer):
        with self._lock:
            if self._stopping:
                peer.cut()
                return
            self._count += 1
            arguments = (peer, self._count, self._next_misbehaviour())
            thread = threading.Thread(target=self._serve, args=arguments, name=f"bench-{self.name}-{self._count}",
                                      daemon=True)
            self._peers[thread] = peer
            thread.start()

    def _next_misbehaviour(self):
        current = self._misbehaviour
        if self._times is not None:
            self._times -= 1
            if self._times == 0:
                self._misbehaviour = self._times = None
        return current

    def _serve(self, peer, number, misbehaviour):
        what = f"#{number} " + (f"[{misbehaviour.name}] " if misbehaviour else "")
        try:
            self._exchange(peer, misbehaviour, what)
        except BadRequest as error:
            self._refuse(peer, what, error)
        except PeerGone as gone:
            self._log.write(self.name, f"{what}gone: {gone}")
        except Exception as error:  # pylint: disable=broad-except
            self._log.write(self.name, f"{what}the bench failed: {error!r}")
            raise
        finally:
            peer.close()
            with self._lock:
                del self._peers[threading.current_thread()]

    def _exchange(self, peer, misbehaviour, what):
        scene = Scene(self, peer)
        if misbehaviour and misbehaviour.at_once:
            self._log.write(self.name, what + "connected")
            misbehaviour.act(scene)
            return
        if self.tls:
            peer.start_tls(self.tls)
        scene.request = peer.read_request()
        scene.response, asked, due = self.service.answer(scene.request, misbehaviour.name if misbehaviour else None)
        self._log.write(self.name, f"{what}{asked} -> " + (f"misbehaves ({due} due)" if misbehaviour else due))
        if misbehaviour:
            misbehaviour.act(scene)
        else:
            peer.send(scene.response.bytes())

    def _refuse(self, peer, what, error):
        self._log.write(self.name, f"{what}bad request: {error} -> 400")
        try:
            peer.send(Response(400).bytes())
        except PeerGone:
            pass
