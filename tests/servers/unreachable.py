"""Addresses that no connection can be made to: one refuses, one never answers."""

import select
import socket

from launcher import StartError, port_of


def start(launcher):
    refusing = _bound()  # bound but not listening: refused, and nobody else can take the port
    stalled, fillers = _full_queue()
    launcher.hold(refusing, stalled, *fillers)
    return {"REFUSED_URL": f"http://127.0.0.1:{port_of(refusing)}",
            "STALL_URL": f"http://127.0.0.1:{port_of(stalled)}"}


def _full_queue():
    """A listening socket whose queue is full: the kernel drops further attempts to connect.

    A client then repeats its attempt for about two minutes before it gives up.
    """
    listener = _bound()
    listener.listen(0)
    fillers = []
    for _ in range(10):
        filler = socket.socket()
        filler.setblocking(False)
        filler.connect_ex(listener.getsockname())
        fillers.append(filler)
        if not select.select([], [filler], [], 0.1)[1]:
            return listener, fillers
    raise StartError("unreachable: the queue of a listening socket does not fill up")


def _bound():
    sock = socket.socket()
    sock.bind(("127.0.0.1", 0))
    return sock
