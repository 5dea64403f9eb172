"""WebSocket frames and the opening handshake, byte by byte, so that each may be wrong."""

import base64
import hashlib
import struct

TEXT, BINARY, CLOSE, PING, PONG, CONTINUATION = 1, 2, 8, 9, 10, 0


def frame(opcode, payload=b"", fin=True, reserved=0, mask=None, length=None):
    """A frame of a server; `length` announces another length than the payload has."""
    length = len(payload) if length is None else length
    masked = 0x80 if mask else 0
    head = bytes([(0x80 if fin else 0) | reserved << 4 | opcode])
    if length > 65535:
        head += bytes([masked | 127]) + struct.pack("!Q", length)
    elif length > 125:
        head += bytes([masked | 126]) + struct.pack("!H", length)
    else:
        head += bytes([masked | length])
    return head + (mask + masking(payload, mask) if mask else payload)


def masking(data, mask):
    return bytes(byte ^ mask[index % 4] for index, byte in enumerate(data))


def accept_key(key):
    return base64.b64encode(hashlib.sha1(
        (key + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11").encode()).digest()).decode()


def upgrade(request, *header_lines, key=None):
    """The answer that opens the connection."""
    key = accept_key(request.headers["sec-websocket-key"]) if key is None else key
    lines = ["HTTP/1.1 101 Switching Protocols", "Upgrade: websocket", "Connection: Upgrade",
             f"Sec-WebSocket-Accept: {key}", *header_lines, "", ""]
    return "\r\n".join(lines).encode("latin-1")


class FrameReader:
    """Takes the client's frames apart as its bytes come in."""

    def __init__(self):
        self._bytes = b""

    def feed(self, data):
        """The frames (opcode, payload) that `data` completes."""
        self._bytes += data
        while (taken := self._next()) is not None:
            yield taken

    def _next(self):
        data = self._bytes
        if len(data) < 2:
            return None
        size, at = data[1] & 0x7f, 2
        if size > 125:
            form = "!H" if size == 126 else "!Q"
            at += struct.calcsize(form)
            if len(data) < at:
                return None
            size = struct.unpack_from(form, data, 2)[0]
        if len(data) < at + 4 + size:
            return None
        mask, payload = data[at:at + 4], data[at + 4:at + 4 + size]
        self._bytes = data[at + 4 + size:]
        repeated = int.from_bytes((mask * (size // 4 + 1))[:size], "big")
        clear = (int.from_bytes(payload, "big") ^ repeated).to_bytes(size, "big")
        return data[0] & 0x0f, clear
