"""nginx with a listener for plain HTTP, one for HTTP/2 and one for each kind of certificate."""

import hashlib
import os
import shutil
from typing import NamedTuple

from launcher import BACKLOG, StartError, has_ipv6

HERE = os.path.dirname(os.path.abspath(__file__))
FILE_SIZES = {"0": 0, "1": 1, "1k": 1 << 10, "64k": 1 << 16, "1m": 1 << 20, "16m": 1 << 24}
STATUS_CODES = (200, 201, 204, 400, 401, 403, 404, 410, 429, 500, 502, 503, 504)


class Listener(NamedTuple):
    key: str
    certificate: str = ""  # empty: plain HTTP
    http2: bool = False
    protocols: str = ""  # empty: TLS 1.2 and 1.3


LISTENERS = (
    Listener("HTTP_URL"),
    Listener("HTTPS_URL", "GOOD_CERT"),
    Listener("H2_URL", "GOOD_CERT", http2=True),
    Listener("HTTPS_EXPIRED_URL", "EXPIRED_CERT"),
    Listener("HTTPS_WRONG_HOST_URL", "WRONG_HOST_CERT"),
    Listener("HTTPS_SELF_SIGNED_URL", "SELF_SIGNED_CERT"),
    Listener("TLS12_URL", "GOOD_CERT", protocols="TLSv1.2"),
    Listener("TLS13_URL", "GOOD_CERT", protocols="TLSv1.3"),
)


def start(launcher):
    nginx = shutil.which("nginx", path=os.environ.get("PATH", "") + ":/usr/sbin:/usr/local/sbin")
    if not nginx:
        raise StartError("nginx is not installed (Debian package nginx-light)")
    shutil.rmtree(launcher.path("dav"), ignore_errors=True)  # uploads of an earlier run
    for name in ("nginx", "www/bytes", "www/big", "dav"):
        os.makedirs(launcher.path(name), exist_ok=True)
    _write_files(launcher.path("www"))
    for name in ("nginx-access.log", "nginx-error.log"):
        open(launcher.path(name), "wb").close()

    keys = {"WWW_DIR": launcher.path("www"), "DAV_DIR": launcher.path("dav"),
            "ACCESS_LOG": launcher.path("nginx-access.log")}
    blocks, ports = [], {}
    for listener in LISTENERS:
        addresses = launcher.reserve()
        ports[listener.key] = port = addresses[0][1]
        blocks.append(_server_block(launcher, listener, addresses))
        # TLS by name, so that the handshake carries it.
        keys[listener.key] = (f"https://localhost:{port}" if listener.certificate
                              else f"http://127.0.0.1:{port}")
    keys["HTTPS_IP_URL"] = f"https://127.0.0.1:{ports['HTTPS_URL']}"
    if has_ipv6():
        keys["HTTP6_URL"] = f"http://[::1]:{ports['HTTP_URL']}"

    _fill_in(launcher, "nginx.conf", {
        "USER": "user root;" if os.geteuid() == 0 else "", "LISTENERS": "\n".join(blocks)})
    _fill_in(launcher, "nginx_locations.conf", {
        "STATUS_LOCATIONS": "\n".join(_status_location(code) for code in STATUS_CODES)})
    launcher.spawn("nginx", [
        nginx, "-c", launcher.path("nginx", "nginx.conf"),
        "-p", launcher.path("nginx"), "-e", launcher.path("nginx-error.log")])
    launcher.expect_answer("nginx", ports["HTTP_URL"])
    return keys


def _write_files(www):
    """Bytes that look random, and are the same at every start."""
    for name, size in FILE_SIZES.items():
        with open(os.path.join(www, "bytes", name), "wb") as file:
            file.write(hashlib.shake_128(name.encode()).digest(size))
    with open(os.path.join(www, "big", "1g"), "wb") as file:
        file.truncate(1 << 30)  # sparse: zeros that take no space


def _server_block(launcher, listener, addresses):
    options = f" reuseport backlog={BACKLOG}" + (" ssl" if listener.certificate else "")
    options += " http2" if listener.http2 else ""
    lines = []
    for host, port in addresses:
        lines.append(f"listen {f'[{host}]' if ':' in host else host}:{port}{options};")
    if listener.certificate:
        certificate = launcher.certificates[f"{listener.certificate}_FILE"]
        key = launcher.certificates[f"{listener.certificate}_KEY_FILE"]
        lines += [f'ssl_certificate "{certificate}";', f'ssl_certificate_key "{key}";']
    if listener.protocols:
        lines.append(f"ssl_protocols {listener.protocols};")
    lines.append(f'include "{launcher.path("nginx", "nginx_locations.conf")}";')
    return "    server {\n" + "".join(f"        {line}\n" for line in lines) + "    }"


def _status_location(code):
    body = "" if code == 204 else f' "status {code}\\n"'
    return f"location = /status/{code} {{ default_type text/plain; return {code}{body}; }}"


def _fill_in(launcher, name, values):
    with open(os.path.join(HERE, f"{name}.in"), encoding="utf-8") as template:
        text = template.read()
    for key, value in {"DIR": launcher.directory, **values}.items():
        text = text.replace(f"@{key}@", value)
    with open(launcher.path("nginx", name), "w", encoding="utf-8") as file:
        file.write(text)
