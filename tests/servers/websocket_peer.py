"""A WebSocket server that breaks the protocol on purpose, as the path of the request asks.

SCRIPTS is the table of what it sends; README.md lists the behaviours that take more.
"""

import argparse
import asyncio
import contextlib
import os
import socket
import struct
import sys

import processes
from gate import Gate
from http_message import BadRequest, HEAD_LIMIT, read_request, reply
from launcher import port_of
from websocket_frames import (BINARY, CLOSE, CONTINUATION, PING, PONG, TEXT, FrameReader, frame,
                              upgrade)

RECEIVE_BUFFER = 64 << 10  # small: a client that sends to a peer that doesn't read soon notices
END_LIMIT_S = 20


def start(launcher):
    sock = launcher.listen()
    port = port_of(sock)
    launcher.spawn("websocket-peer", processes.python() + [
        os.path.abspath(__file__), "--fd", str(sock.fileno())], [sock])
    launcher.expect_answer("websocket-peer", port)
    return {"WS_PEER_URL": f"ws://127.0.0.1:{port}", "WS_PEER_HTTP_URL": f"http://127.0.0.1:{port}"}


RESET = object()  # ends a script with RST instead of FIN

# What is sent once the connection is open; then the peer closes it and waits for the client.
SCRIPTS = {
    # Fragments
    "/fragments": [frame(TEXT, b"one ", fin=False), frame(CONTINUATION, b"two ", fin=False),
                   frame(CONTINUATION, b"three")],
    "/fragments-two": [frame(TEXT, b"one ", fin=False), frame(CONTINUATION, b"two")],
    "/fragments-one-by-one": [frame(TEXT, b"a", fin=False), frame(CONTINUATION, b"b", fin=False),
                              frame(CONTINUATION, b"c")],
    "/fragments-empty": [frame(TEXT, b"", fin=False), frame(CONTINUATION, b"", fin=False),
                         frame(CONTINUATION, b"")],
    "/fragments-empty-final": [frame(BINARY, b"data", fin=False), frame(CONTINUATION, b"")],
    "/fragments-empty-first": [frame(TEXT, b"", fin=False), frame(CONTINUATION, b"data")],
    "/fragments-empty-outside": [frame(TEXT, b"", fin=False),
                                 frame(CONTINUATION, b"data", fin=False), frame(CONTINUATION, b"")],
    "/fragments-ping-between": [frame(TEXT, b"one ", fin=False), frame(PING, b"ping"),
                                frame(CONTINUATION, b"two")],
    "/fragments-pong-between": [frame(TEXT, b"one ", fin=False), frame(PONG, b"pong"),
                                frame(CONTINUATION, b"two")],
    "/fragments-close-between": [frame(TEXT, b"one ", fin=False),
                                 frame(CLOSE, struct.pack("!H", 1000)),
                                 frame(CONTINUATION, b"two")],
    "/fragments-new-text-between": [frame(TEXT, b"one ", fin=False), frame(TEXT, b"new"),
                                    frame(CONTINUATION, b"two")],
    "/continuation-of-nothing": [frame(CONTINUATION, b"lost"), frame(TEXT, b"after")],
    # Whole messages at the edge
    "/empty-text": [frame(TEXT), frame(TEXT, b"after")],
    "/empty-binary": [frame(BINARY), frame(TEXT, b"after")],
    "/bad-utf8": [frame(TEXT, b"\xff\xfe"), frame(TEXT, b"after")],
    "/long-form-of-a-short-length": [b"\x81\x7e\x00\x05short", frame(TEXT, b"after")],
    "/two-in-one": [frame(TEXT, b"first") + frame(BINARY, b"second")],
    "/ping": [frame(PING, b"ping"), frame(TEXT, b"after")],
    "/pong-unasked": [frame(PONG, b"unasked"), frame(TEXT, b"after")],
    # Frames that must not be
    "/reserved-bit-1": [frame(TEXT, b"x", reserved=4), frame(TEXT, b"after")],
    "/reserved-bit-2": [frame(TEXT, b"x", reserved=2), frame(TEXT, b"after")],
    "/reserved-bit-3": [frame(TEXT, b"x", reserved=1), frame(TEXT, b"after")],
    "/reserved-opcode-3": [frame(3, b"x"), frame(TEXT, b"after")],
    "/reserved-opcode-11": [frame(11, b"x"), frame(TEXT, b"after")],
    "/masked": [frame(TEXT, b"masked", mask=b"mask"), frame(TEXT, b"after")],
    "/ping-of-126-bytes": [frame(PING, b"p" * 126), frame(TEXT, b"after")],
    "/close-of-126-bytes": [frame(CLOSE, struct.pack("!H", 1000) + b"c" * 124),
                            frame(TEXT, b"after")],
    "/ping-in-fragments": [frame(PING, b"p", fin=False), frame(CONTINUATION, b"q"),
                           frame(TEXT, b"after")],
    "/length-beyond-63-bits": [b"\x82\x7f" + b"\xff" * 8 + b"x", frame(TEXT, b"after")],
    "/noise": [frame(TEXT, b"before"), b"\x00" * 64],
    # Connections that end
    "/half-a-frame": [frame(TEXT, b"half", length=100)],
    "/half-a-frame-reset": [frame(TEXT, b"half", length=100), RESET],
    "/half-a-head": [frame(TEXT, b"before"), b"\x81"],
    "/no-close-frame": [frame(TEXT, b"before")],
    "/close": [frame(CLOSE, struct.pack("!H", 1000) + b"bye")],
    "/close-without-code": [frame(CLOSE)],
    "/close-with-half-a-code": [frame(CLOSE, b"\x03")],
    "/close-with-reserved-code": [frame(CLOSE, struct.pack("!H", 1005))],
    "/close-twice": [frame(CLOSE, struct.pack("!H", 1000)), frame(CLOSE, struct.pack("!H", 1001))],
    "/ping-after-close": [frame(CLOSE, struct.pack("!H", 1000)), frame(PING, b"late")],
    "/text-after-close": [frame(CLOSE, struct.pack("!H", 1000)), frame(TEXT, b"after")],
}


class Connection:
    """One client; each behaviour below has its path in BEHAVIOURS."""

    def __init__(self, request, reader, writer, gates):
        self.request = request
        self.reader = reader
        self.writer = writer
        self.gates = gates

    async def send(self, data):
        self.writer.write(data)
        await self.writer.drain()

    async def open(self, *header_lines, key=None):
        await self.send(upgrade(self.request, *header_lines, key=key))

    async def finish(self):
        """Ends our half and waits for the client, so that nothing sent is lost."""
        self.writer.write_eof()
        with contextlib.suppress(asyncio.TimeoutError):
            await asyncio.wait_for(self.peer_closes(), END_LIMIT_S)

    async def peer_closes(self):
        while await self.reader.read(65536):
            pass

    def reset(self):
        self.writer.get_extra_info("socket").setsockopt(
            socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.writer.transport.abort()

    async def script(self):
        await self.open()
        for part in SCRIPTS[self.request.path]:
            if part is RESET:
                return self.reset()
            await self.send(part)
        await self.finish()

    # Handshakes

    async def early(self):
        """The first message in the same packet as the handshake."""
        await self.send(upgrade(self.request) + frame(TEXT, b"early"))
        await self.finish()

    async def wrong_key(self):
        await self.open(key="d3Jvbmc=")
        await self.send(frame(TEXT, b"after"))
        await self.finish()

    async def no_key(self):
        await self.send(b"HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\n"
                        b"Connection: Upgrade\r\n\r\n" + frame(TEXT, b"after"))
        await self.finish()

    async def no_upgrade_header(self):
        await self.send(b"HTTP/1.1 101 Switching Protocols\r\n\r\n" + frame(TEXT, b"after"))
        await self.finish()

    async def extension(self):
        await self.open("Sec-WebSocket-Extensions: permessage-deflate")
        await self.send(frame(TEXT, b"after"))
        await self.finish()

    async def protocol(self):
        await self.open("Sec-WebSocket-Protocol: unasked")
        await self.send(frame(TEXT, b"after"))
        await self.finish()

    async def refuse(self):
        await self.send(reply(self.request, "not here\n", status=self.request.number("status", 403, 599)))
        await self.finish()

    async def half_handshake(self):
        await self.send(b"HTTP/1.1 101 Switching Protocols\r\nUpgr")
        await self.finish()

    async def handshake_reset(self):
        self.reset()

    # Time

    async def slow(self):
        """A byte at a time."""
        await self.open()
        for byte in frame(TEXT, b"slow") + frame(BINARY, b"b" * 130) + frame(CLOSE, b"\x03\xe8"):
            await self.send(bytes([byte]))
            await asyncio.sleep(0.001)
        await self.finish()

    async def ping_flood(self):
        await self.open()
        for _ in range(100):
            await self.send(frame(PING) * 100)
        await self.send(frame(TEXT, b"after"))
        await self.finish()

    async def handshake_held(self):
        """Opens when /release with the same key is asked for, then echoes."""
        await self.gate().wait(self.peer_closes_never())
        await self.open()
        await self.echo()

    async def peer_closes_never(self):
        await asyncio.Future()

    # Peers that don't read

    async def stall(self):
        """Reads only once /release is asked for; then answers every message with what it got.

        It sends a tick for everything that it reads, since a client that waits for room may
        need something to wake it.
        """
        await self.open()
        await self.send(frame(TEXT, b"ready"))
        await self.gate().wait(self.peer_closes_never())
        await self.echo(tick=True)

    async def echo(self, tick=False):
        await self.send(frame(TEXT, b"open"))
        frames = FrameReader()
        while data := await self.reader.read(65536):
            if tick:
                await self.send(frame(TEXT, b"tick"))
            for opcode, payload in frames.feed(data):
                if opcode == CLOSE:
                    return await self.send(frame(CLOSE, payload))
                answer = b"%d %d " % (opcode, len(payload)) + payload[:100]
                await self.send(frame(BINARY, answer))

    async def vanish(self):
        """Resets the connection upon the first message."""
        await self.open()
        await self.send(frame(TEXT, b"ready"))
        await self.reader.read(1)
        self.reset()

    async def release(self):
        await self.send(reply(self.request, str(await self.gate().release())))

    async def count(self):
        await self.gate().at_least(self.request.number("min", 0, most=1000))
        await self.send(reply(self.request, str(self.gate().waiting)))

    def gate(self):
        return self.gates.setdefault(self.request.query.get("key", ""), Gate())

    async def not_found(self):
        await self.send(reply(self.request, "no such behaviour\n", status=404))


BEHAVIOURS = {
    "/early": Connection.early,
    "/wrong-key": Connection.wrong_key,
    "/no-key": Connection.no_key,
    "/no-upgrade-header": Connection.no_upgrade_header,
    "/extension-unasked": Connection.extension,
    "/protocol-unasked": Connection.protocol,
    "/refuse": Connection.refuse,
    "/half-handshake": Connection.half_handshake,
    "/handshake-reset": Connection.handshake_reset,
    "/slow": Connection.slow,
    "/ping-flood": Connection.ping_flood,
    "/handshake-held": Connection.handshake_held,
    "/stall": Connection.stall,
    "/vanish": Connection.vanish,
    "/release": Connection.release,
    "/count": Connection.count,
}


async def handle(reader, writer, gates):
    writer.transport.set_write_buffer_limits(high=0)
    writer.get_extra_info("socket").setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    try:
        if request := await read_request(reader, writer):
            behave = (Connection.script if request.path in SCRIPTS
                      else BEHAVIOURS.get(request.path, Connection.not_found))
            await behave(Connection(request, reader, writer, gates))
    except (OSError, EOFError, BadRequest, asyncio.TimeoutError, asyncio.LimitOverrunError) as error:
        print(f"connection ended: {error!r}", file=sys.stderr, flush=True)
    finally:
        writer.close()
        with contextlib.suppress(OSError):
            await writer.wait_closed()


async def serve(sock):
    sock.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, RECEIVE_BUFFER)
    gates = {}
    server = await asyncio.start_server(
        lambda reader, writer: handle(reader, writer, gates), sock=sock, limit=HEAD_LIMIT)
    await server.serve_forever()


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--fd", type=int, required=True)
    asyncio.run(serve(socket.socket(fileno=parser.parse_args().fd)))
