"""A third WebSocket peer that keeps to the protocol: libwebsockets-test-server, over ws and wss."""

import os
import shutil

from launcher import StartError, port_of


def start(launcher):
    program = shutil.which("libwebsockets-test-server", path="/usr/bin:" + os.environ.get("PATH", ""))
    if not program:
        raise StartError("libwebsockets-test-server is not installed (Debian package of that name)")
    plain = _spawn(launcher, "libwebsockets", [program])
    secure = _spawn(launcher, "libwebsockets-tls", [
        program, "--ssl", f"--ssl-cert={launcher.certificates['GOOD_CERT_FILE']}",
        f"--ssl-key={launcher.certificates['GOOD_CERT_KEY_FILE']}"], secure=True)
    return {"LIBWEBSOCKETS_URL": f"ws://127.0.0.1:{plain}",
            "LIBWEBSOCKETS_TLS_URL": f"wss://localhost:{secure}"}


def _spawn(launcher, name, argv, secure=False):
    # It neither takes a socket nor shares a port, so the port is free for a moment.
    sock = launcher.listen()
    port = port_of(sock)
    sock.close()
    launcher.spawn(name, [*argv, f"--port={port}", "--interface=lo"])
    launcher.expect_answer(name, port, secure)
    return port
