"""httpbin under gunicorn: an independent HTTP server with many behaviours."""

import importlib.util
import os
import shutil

from launcher import StartError, port_of

HERE = os.path.dirname(os.path.abspath(__file__))


def start(launcher):
    gunicorn = shutil.which("gunicorn", path="/usr/bin:" + os.environ.get("PATH", ""))
    if not gunicorn:
        raise StartError("httpbin: gunicorn is not installed (Debian package gunicorn)")
    if not importlib.util.find_spec("httpbin"):
        raise StartError("httpbin: the module is not installed (Debian package python3-httpbin)")
    sock = launcher.listen()
    port = port_of(sock)
    launcher.spawn("httpbin", [
        gunicorn, "--config", os.path.join(HERE, "gunicorn_config.py"),
        "--bind", f"fd://{sock.fileno()}", "httpbin:app"], [sock],
        env={"PYTHONPATH": HERE, "PYTHONDONTWRITEBYTECODE": "1"})
    launcher.expect_answer("httpbin", port)
    return {"HTTPBIN_URL": f"http://127.0.0.1:{port}"}
