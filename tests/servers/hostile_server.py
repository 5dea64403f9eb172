"""A server that misbehaves on purpose, as the path of the request asks.

One request a connection. Well-behaved paths are here too where a test must see
the exact bytes of a request or hold an answer back; README.md lists them all.
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
from http_message import BadRequest, HEAD_LIMIT, head, read_request, reply
from launcher import BACKLOG, port_of

TEXT = "Content-Type: text/plain"


def start(launcher):
    sock = launcher.listen()
    port = port_of(sock)
    launcher.spawn("hostile", processes.python() + [
        os.path.abspath(__file__), "--fd", str(sock.fileno())], [sock])
    launcher.expect_answer("hostile", port)
    return {"HOSTILE_URL": f"http://127.0.0.1:{port}"}


class Connection:
    """One client and its request; each behaviour is a method below."""

    def __init__(self, request, reader, writer, gates):
        self.request = request
        self.reader = reader
        self.writer = writer
        self.gates = gates

    async def send(self, data):
        """Returns once the kernel has it all."""
        self.writer.write(data)
        await self.writer.drain()

    async def reply(self, body, *header_lines, status=200):
        await self.send(reply(self.request, body, *header_lines, status=status))

    async def peer_closes(self):
        while await self.reader.read(65536):
            pass

    # Answers that break off

    async def close(self):
        pass

    async def reset(self):
        await self.send(head(200, "Content-Length: 1000") + b"x" * 10)
        # With a linger time of zero, closing sends RST instead of FIN.
        self.writer.get_extra_info("socket").setsockopt(
            socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.writer.transport.abort()

    async def truncated(self):
        await self.send(head(200, "Content-Length: 1000") + b"x" * 10)

    async def lying_length(self):
        await self.send(head(200, f"Content-Length: {1 << 40}") + b"x" * 10)

    async def half_header(self):
        await self.send(b"HTTP/1.1 200 OK\r\nContent-Le")

    async def half_status_line(self):
        await self.send(b"HTTP/1.1 20")

    # Answers that are not HTTP

    async def garbage(self):
        await self.send(b"\x00\x01\x02 this is not HTTP \xff\xfe\r\n\r\n")

    async def bad_chunk(self):
        await self.send(head(200, "Transfer-Encoding: chunked") + b"5\r\nhello\r\nxyz\r\nworld\r\n")

    async def huge_header(self):
        await self.reply("ok", "X-Huge: " + "h" * (200 << 10))

    # Answers that take their time

    async def silence(self):
        await self.peer_closes()

    async def drip(self):
        count = self.request.number("n", 10, most=3600)
        interval_s = self.request.number("ms", 1000, most=60000) / 1000
        await self.send(head(200, f"Content-Length: {count}"))
        for _ in range(count):
            await asyncio.sleep(interval_s)
            await self.send(b".")

    async def slow_start(self):
        await asyncio.sleep(self.request.number("ms", 1000, most=60000) / 1000)
        await self.reply("slow start\n", TEXT)

    # Answers that wait for another request

    async def hold(self):
        if await self.gate().wait(self.peer_closes()):
            await self.reply("released\n", TEXT)

    async def release(self):
        await self.reply(str(await self.gate().release()), TEXT)

    async def count(self):
        least = self.request.number("min", 0, most=100000)
        try:
            await asyncio.wait_for(self.gate().at_least(least), 10)
        except asyncio.TimeoutError:
            await self.reply(str(self.gate().waiting), TEXT, status=504)
        else:
            await self.reply(str(self.gate().waiting), TEXT)

    def gate(self):
        return self.gates.setdefault(self.request.query.get("key", ""), Gate())

    # Well-behaved answers

    async def no_length(self):
        await self.send(head(200, TEXT) + b"the end of the connection ends this\n")

    async def chunked(self):
        count = self.request.number("n", 3, most=100000)
        await self.send(head(200, TEXT, "Transfer-Encoding: chunked"))
        for index in range(count):
            chunk = b"chunk %d\n" % index
            await self.send(b"%x\r\n%s\r\n" % (len(chunk), chunk))
        await self.send(b"0\r\n\r\n")

    async def post_echo(self):
        await self.echo(await self.request.read_body())

    async def continue_(self):
        await self.echo(await self.request.read_body(ask_always=True))

    async def echo(self, body):
        await self.reply(body, f"X-Body-Length: {len(body)}",
                         "Content-Type: " + self.request.headers.get("content-type", ""))

    async def headers(self):
        await self.request.read_body()
        await self.reply(self.request.raw_head, TEXT)

    async def status(self):
        await self.request.read_body()
        code = self.request.path.rpartition("/")[2]
        if not (len(code) == 3 and code.isascii() and code.isdigit() and "200" <= code <= "599"):
            raise BadRequest("a status is between 200 and 599")
        await self.reply(f"status {code}\n", TEXT, status=int(code))

    async def not_found(self):
        await self.reply("no such behaviour\n", TEXT, status=404)


BEHAVIOURS = {
    "/close": Connection.close,
    "/reset": Connection.reset,
    "/truncated": Connection.truncated,
    "/lying-length": Connection.lying_length,
    "/half-header": Connection.half_header,
    "/half-status-line": Connection.half_status_line,
    "/garbage": Connection.garbage,
    "/bad-chunk": Connection.bad_chunk,
    "/huge-header": Connection.huge_header,
    "/silence": Connection.silence,
    "/drip": Connection.drip,
    "/slow-start": Connection.slow_start,
    "/hold": Connection.hold,
    "/release": Connection.release,
    "/count": Connection.count,
    "/no-length": Connection.no_length,
    "/chunked": Connection.chunked,
    "/post-echo": Connection.post_echo,
    "/continue": Connection.continue_,
    "/headers": Connection.headers,
}


async def handle(reader, writer, gates):
    # drain() then waits until the kernel has everything: what follows comes after it.
    writer.transport.set_write_buffer_limits(high=0)
    try:
        if request := await read_request(reader, writer):
            connection = Connection(request, reader, writer, gates)
            behave = (Connection.status if request.path.startswith("/status/")
                      else BEHAVIOURS.get(request.path, Connection.not_found))
            try:
                await behave(connection)
            except BadRequest as error:
                await connection.reply(f"{error}\n", TEXT, status=400)
    except (OSError, EOFError, BadRequest, asyncio.TimeoutError, asyncio.LimitOverrunError) as error:
        print(f"connection ended: {error!r}", file=sys.stderr, flush=True)
    finally:
        writer.close()
        with contextlib.suppress(OSError):
            await writer.wait_closed()


async def serve(sock):
    gates = {}
    server = await asyncio.start_server(
        lambda reader, writer: handle(reader, writer, gates), sock=sock,
        limit=HEAD_LIMIT, backlog=BACKLOG)
    await server.serve_forever()


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--fd", type=int, required=True)
    asyncio.run(serve(socket.socket(fileno=parser.parse_args().fd)))
