"""What the self-checks share: control of servers.py and a plain client."""

import contextlib
import http.client
import os
import socket
import subprocess
import tempfile
import time
import unittest
from urllib.parse import urlsplit

import processes

HERE = os.path.dirname(os.path.abspath(__file__))
SERVERS = processes.python() + [os.path.join(HERE, "servers.py")]
LIMIT_S = 10


def servers(action, directory, *arguments, **options):
    return subprocess.run([*SERVERS, action, "--dir", directory, *arguments], timeout=60,
                          capture_output=True, text=True, **options)


def read_env(directory):
    with open(os.path.join(directory, "servers.env"), encoding="utf-8") as file:
        return dict(line.rstrip("\n").split("=", 1) for line in file)


def read_records(directory):
    with open(os.path.join(directory, "servers.pids"), encoding="utf-8") as file:
        return [processes.parse(line) for line in file]


def with_descendants(records):
    """The recorded processes and the children that these have of their own."""
    found = list(records)
    for record in found:
        with open(f"/proc/{record.pid}/task/{record.pid}/children", encoding="ascii") as file:
            for pid in map(int, file.read().split()):
                if pid not in [known.pid for known in found]:
                    found.append(processes.record(pid, f"child of {record.name}"))
    return found


def connect(url, timeout_s=LIMIT_S):
    parts = urlsplit(url)
    return socket.create_connection((parts.hostname, parts.port), timeout=timeout_s)


def is_refused(url):
    try:
        connect(url).close()
    except ConnectionRefusedError:
        return True
    return False


def wait_until(condition):
    deadline = time.monotonic() + LIMIT_S
    while time.monotonic() < deadline:
        if result := condition():
            return result
        time.sleep(0.01)
    raise AssertionError("waited in vain")


class Reply:
    def __init__(self, response):
        self.status = response.status
        self.headers = response.headers
        self.body = response.read()


def fetch(base, path, method="GET", body=None, headers=None, context=None):
    parts = urlsplit(base)
    if parts.scheme == "https":
        connection = http.client.HTTPSConnection(
            parts.hostname, parts.port, timeout=LIMIT_S, context=context)
    else:
        connection = http.client.HTTPConnection(parts.hostname, parts.port, timeout=LIMIT_S)
    with contextlib.closing(connection):
        connection.request(method, path, body=body, headers=headers or {})
        return Reply(connection.getresponse())


def send_raw(base, data):
    sock = connect(base)
    sock.sendall(data)
    return sock


def receive_all(sock):
    received = b""
    while data := sock.recv(65536):
        received += data
    return received


def raw(base, path):
    """All bytes of the reply until the server closes."""
    with send_raw(base, f"GET {path} HTTP/1.1\r\nHost: test\r\n\r\n".encode()) as sock:
        return receive_all(sock)


class Started(unittest.TestCase):
    """Runs the servers named in ONLY while its tests run."""

    ONLY = ""

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory(prefix="test servers ")
        cls.addClassCleanup(cls.folder.cleanup)
        result = servers("start", cls.folder.name, "--only", cls.ONLY)
        cls.addClassCleanup(servers, "stop", cls.folder.name)
        if result.returncode != 0:
            raise AssertionError(result.stderr)
        cls.keys = read_env(cls.folder.name)
