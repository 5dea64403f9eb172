"""What a server module gets: sockets to listen on, children to run, a folder.

A module starts its servers in `start(launcher)` and returns the keys that tell
tests where they are. It listens before it spawns and hands the socket over, or,
for a program that wants to bind itself, reserves the port: in neither case can
another program take the port in between.
"""

import contextlib
import http.client
import os
import resource
import signal
import socket
import ssl
import subprocess
import time

import processes

BACKLOG = 4096


class StartError(Exception):
    """A server can't be started; the text says which and why."""


class Launcher:
    def __init__(self, directory, certificates, on_spawn):
        self.directory = directory
        self.certificates = certificates
        self._on_spawn = on_spawn
        self._children = {}
        self._held = []
        self._expected = []

    def path(self, *names):
        return os.path.join(self.directory, *names)

    def listen(self):
        """A socket listening on a free port of 127.0.0.1, to be handed to spawn()."""
        sock = _bound("127.0.0.1")
        sock.listen(BACKLOG)
        sock.setblocking(False)
        return sock

    def reserve(self):
        """Addresses (host, port) for a child that binds them itself, with SO_REUSEPORT.

        127.0.0.1 and ::1 with the same port, so that `localhost` reaches the child as well;
        only the first on a machine without IPv6. A reserved socket doesn't listen and so
        takes no connection away from the child.
        """
        for _ in range(50):
            ipv4 = _bound("127.0.0.1", share=True)
            try:
                held = [ipv4, _bound("::1", port_of(ipv4), share=True)] if has_ipv6() else [ipv4]
            except OSError:
                ipv4.close()
                continue
            self.hold(*held)
            return [sock.getsockname()[:2] for sock in held]
        raise StartError("no port is free on both 127.0.0.1 and ::1")

    def hold(self, *sockets):
        """Keeps sockets open until everything stops."""
        self._held.extend(sockets)

    def spawn(self, name, argv, sockets=(), env=None):
        """Runs one child, gives it the sockets under the same numbers and closes ours."""
        parent = os.getpid()

        def prepare():
            processes.die_with_parent(parent)
            signal.pthread_sigmask(signal.SIG_SETMASK, [])
            most = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
            resource.setrlimit(resource.RLIMIT_NOFILE, (most, most))

        with open(self.path(f"{name}.log"), "wb") as log:
            child = subprocess.Popen(
                argv, stdin=subprocess.DEVNULL, stdout=log, stderr=log, preexec_fn=prepare,
                pass_fds=[sock.fileno() for sock in sockets], env={**os.environ, **(env or {})})
        self._children[name] = child
        self._on_spawn(processes.record(child.pid, name))
        for sock in sockets:
            sock.close()

    def expect_answer(self, name, port, secure=False):
        """The start is complete only when this port of 127.0.0.1 answers an HTTP(S) request."""
        self._expected.append((name, port, secure))

    def wait_for_answers(self, deadline):
        for name, port, secure in self._expected:
            while not _answers(port, secure):
                self.check_children()
                if time.monotonic() > deadline:
                    raise StartError(f"{name} does not answer on port {port}")
                time.sleep(0.01)
        self.check_children()

    def check_children(self):
        for name, child in self._children.items():
            if child.poll() is not None:
                raise StartError(f"{name} ended with code {child.returncode}: {self._last_line(name)}")

    def end_children(self):
        """Kills: they keep nothing that a graceful end would save."""
        for child in self._children.values():
            child.kill()
        for child in self._children.values():
            child.wait(5)
        for sock in self._held:
            sock.close()

    def _last_line(self, name):
        with open(self.path(f"{name}.log"), encoding="utf-8", errors="replace") as log:
            return (log.read().strip().splitlines() or ["no output"])[-1]


def port_of(sock):
    return sock.getsockname()[1]


def has_ipv6():
    try:
        _bound("::1").close()
    except OSError:
        return False
    return True


def _bound(host, port=0, share=False):
    sock = socket.socket(socket.AF_INET6 if ":" in host else socket.AF_INET, socket.SOCK_STREAM)
    try:
        if share:
            sock.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEPORT, 1)
        sock.bind((host, port))
    except OSError:
        sock.close()
        raise
    return sock


def _answers(port, secure):
    # A certificate is for the tests to look at, not for us.
    connection = (http.client.HTTPSConnection("127.0.0.1", port, timeout=1,
                                              context=ssl._create_unverified_context())
                  if secure else http.client.HTTPConnection("127.0.0.1", port, timeout=1))
    with contextlib.closing(connection):
        try:
            connection.request("GET", "/")
            return connection.getresponse().status > 0
        except (OSError, http.client.HTTPException):
            return False
