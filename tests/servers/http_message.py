"""Reads HTTP/1.1 requests and writes replies, leaving each byte in the caller's hand."""

import asyncio
import http
from urllib.parse import parse_qsl, urlsplit

HEAD_LIMIT = 1 << 20
BODY_LIMIT = 256 << 20
READ_LIMIT_S = 60


class BadRequest(Exception):
    """The client sent what we can't read."""


class Request:
    """One request. The body is still unread; read_body() takes it."""

    def __init__(self, raw_head, reader, writer):
        self.raw_head = raw_head
        lines = raw_head.decode("latin-1").split("\r\n")
        try:
            self.method, target, self.version = lines[0].split(" ")
        except ValueError:
            raise BadRequest("request line") from None
        url = urlsplit(target)
        self.path = url.path
        self.query = dict(parse_qsl(url.query, keep_blank_values=True))
        self.headers = {}
        for line in filter(None, lines[1:]):
            name, _, value = line.partition(":")
            self.headers[name.strip().lower()] = value.strip()
        self._reader = reader
        self._writer = writer

    def number(self, name, default, most):
        """A number from the query."""
        text = self.query.get(name, str(default))
        if not (text.isascii() and text.isdigit()) or int(text) > most:
            raise BadRequest(f"{name} is a number up to {most}")
        return int(text)

    async def read_body(self, ask_always=False):
        """Sends 100 Continue first if the client asked for it, or always."""
        if ask_always or self.headers.get("expect", "").lower() == "100-continue":
            self._writer.write(b"HTTP/1.1 100 Continue\r\n\r\n")
        return await asyncio.wait_for(self._read_body(), READ_LIMIT_S)

    async def _read_body(self):
        if self.headers.get("transfer-encoding", "").lower() == "chunked":
            return await self._read_chunks()
        length = self.headers.get("content-length", "0")
        if not (length.isascii() and length.isdigit()) or int(length) > BODY_LIMIT:
            raise BadRequest("Content-Length")
        return await self._reader.readexactly(int(length))

    async def _read_chunks(self):
        body = bytearray()
        while len(body) <= BODY_LIMIT:
            try:
                size = int((await self._reader.readline()).split(b";")[0], 16)
            except ValueError:
                raise BadRequest("chunk size") from None
            if size == 0:
                while (await self._reader.readline()).strip():
                    pass  # trailers
                return bytes(body)
            body += await self._reader.readexactly(size)
            await self._reader.readexactly(2)
        raise BadRequest("body too large")


async def read_request(reader, writer):
    """None if the peer closes without a request."""
    try:
        raw = await asyncio.wait_for(reader.readuntil(b"\r\n\r\n"), READ_LIMIT_S)
    except asyncio.IncompleteReadError:
        return None
    return Request(raw, reader, writer)


def head(status, *header_lines):
    """A reply's head; the connection ends with the reply."""
    try:
        reason = http.HTTPStatus(status).phrase
    except ValueError:
        reason = "Unnamed"
    lines = [f"HTTP/1.1 {status} {reason}", "Connection: close", *header_lines, "", ""]
    return "\r\n".join(lines).encode("latin-1")


def reply(request, body, *header_lines, status=200):
    """A whole reply, without the body where HTTP wants none."""
    body = body.encode() if isinstance(body, str) else body
    if status in (204, 304):
        return head(status, *header_lines)
    start = head(status, f"Content-Length: {len(body)}", *header_lines)
    return start if request.method == "HEAD" else start + body
