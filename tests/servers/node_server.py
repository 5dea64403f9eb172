"""A second WebSocket peer that keeps to the protocol: Node's ws, over ws and wss."""

import os
import shutil

from launcher import StartError, port_of

FOLDER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "node")


def start(launcher):
    program = shutil.which("node")
    if not program:
        raise StartError("node is not installed (Debian package nodejs)")
    if not os.path.isdir(os.path.join(FOLDER, "node_modules", "ws")):
        raise StartError("Node's ws is not installed (npm ci --prefix tests/servers/node)")
    plain, secure = launcher.listen(), launcher.listen()
    ports = port_of(plain), port_of(secure)
    launcher.spawn("node", [
        program, os.path.join(FOLDER, "server.js"), str(plain.fileno()), str(secure.fileno()),
        launcher.certificates["GOOD_CERT_FILE"], launcher.certificates["GOOD_CERT_KEY_FILE"]],
        [plain, secure])
    launcher.expect_answer("node", ports[0])
    return {"NODE_WS_URL": f"ws://127.0.0.1:{ports[0]}",
            "NODE_WSS_URL": f"wss://localhost:{ports[1]}"}
