"""A WebSocket peer that keeps to the protocol: python3-websockets, over ws and wss."""

import argparse
import asyncio
import importlib.util
import os
import socket
import ssl
from urllib.parse import parse_qs, urlsplit

import processes
from launcher import StartError, port_of

CHUNK = bytes(range(251))  # what generated messages repeat: a prime length shifts against any buffer


def start(launcher):
    if not importlib.util.find_spec("websockets"):
        raise StartError("the module websockets is not installed (Debian package python3-websockets)")
    plain, secure = launcher.listen(), launcher.listen()
    ports = port_of(plain), port_of(secure)
    launcher.spawn("websocket", processes.python() + [
        os.path.abspath(__file__), "--plain-fd", str(plain.fileno()),
        "--secure-fd", str(secure.fileno()),
        "--certificate", launcher.certificates["GOOD_CERT_FILE"],
        "--key", launcher.certificates["GOOD_CERT_KEY_FILE"]], [plain, secure])
    launcher.expect_answer("websocket", ports[0])
    return {"WS_URL": f"ws://127.0.0.1:{ports[0]}", "WSS_URL": f"wss://localhost:{ports[1]}"}


async def echo(connection, _query):
    await connection.send("ready")
    async for message in connection:
        await connection.send(message)


async def order(connection, query):
    """Wants 0, 1, 2 and so on; tells after each `every` how far they came in order."""
    every = int(query.get("every", "1000"))
    await connection.send("ready")
    expected = 0
    async for message in connection:
        if message != str(expected):
            await connection.send(f"got {message[:20]} instead of {expected}")
            return
        expected += 1
        if expected % every == 0:
            await connection.send(str(expected))


async def send(connection, query):
    """n messages of `size` bytes; without a size, the numbers 0, 1, 2 and so on."""
    count, size = int(query.get("n", "1")), query.get("size")
    body = (CHUNK * (int(size or 0) // len(CHUNK) + 1))[:int(size or 0)]
    for number in range(count):
        await connection.send(str(number) if size is None else body)
    await connection.wait_closed()


async def ping(connection, _query):
    await (await connection.ping(b"are you there"))
    await connection.send("pong received")
    await connection.wait_closed()


async def close(connection, query):
    await connection.close(int(query.get("code", "1000")), query.get("reason", ""))


async def closed(connection, query):
    """Answers with the code and reason that the connection named `key` was closed with."""
    ended = _ended.setdefault(query["key"], asyncio.get_running_loop().create_future())
    if urlsplit(connection.path).path == "/closed":
        await connection.send(await ended)
        return
    await connection.send("ready")
    await connection.wait_closed()
    ended.set_result(f"{connection.close_code} {connection.close_reason}")


_ended = {}
BEHAVIOURS = {"/echo": echo, "/order": order, "/send": send, "/ping": ping, "/close": close,
              "/watched": closed, "/closed": closed}


async def handle(connection, path):
    url = urlsplit(path)
    query = {name: values[0] for name, values in parse_qs(url.query).items()}
    await BEHAVIOURS[url.path](connection, query)


async def serve(plain, secure, context):
    from websockets.legacy.server import serve as serve_websocket
    options = {"max_size": None, "compression": None, "ping_interval": None, "max_queue": None,
               "close_timeout": 1}
    await serve_websocket(handle, sock=plain, **options)
    await serve_websocket(handle, sock=secure, ssl=context, **options)
    await asyncio.Future()


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--plain-fd", type=int, required=True)
    parser.add_argument("--secure-fd", type=int, required=True)
    parser.add_argument("--certificate", required=True)
    parser.add_argument("--key", required=True)
    arguments = parser.parse_args()
    tls = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    tls.load_cert_chain(arguments.certificate, arguments.key)
    asyncio.run(serve(socket.socket(fileno=arguments.plain_fd),
                      socket.socket(fileno=arguments.secure_fd), tls))
