"""The WebSocket peers, with python3-websockets as the client."""

import asyncio
import ssl
import threading
import urllib.request

import websockets

from testing import LIMIT_S, Started, send_raw


def talk(url, *messages, tls=None, subprotocols=None, answers=None):
    """What a peer says to these messages: as many answers as asked for."""
    async def conversation():
        async with websockets.connect(url, ssl=tls, subprotocols=subprotocols) as connection:
            for message in messages:
                await connection.send(message)
            return [await connection.recv() for _ in range(answers or len(messages))]

    return asyncio.run(asyncio.wait_for(conversation(), LIMIT_S))


def ending(url, *messages):
    """What a peer says until the end, and the code that the connection ended with."""
    async def conversation():
        heard = []
        async with websockets.connect(url) as connection:
            for message in messages:
                await connection.send(message)
            try:
                while True:
                    heard.append(await connection.recv())
            except websockets.ConnectionClosed:
                return heard, connection.close_code

    return asyncio.run(asyncio.wait_for(conversation(), LIMIT_S))


class KeeperOfTheProtocol:
    """What both servers of the same paths must do; a subclass names its keys."""

    URL = SECURE_URL = ""

    def url(self, path):
        return self.keys[self.URL] + path

    def test_echo(self):
        self.assertEqual(["ready", "text", b"bytes"],
                         talk(self.url("/echo"), "text", b"bytes", answers=3))

    def test_echo_over_tls(self):
        tls = ssl.create_default_context(cafile=self.keys["CA_FILE"])
        self.assertEqual(["ready", "text"],
                         talk(self.keys[self.SECURE_URL] + "/echo", "text", tls=tls, answers=2))

    def test_order(self):
        url = self.url("/order?every=2")
        self.assertEqual(["ready", "2"], talk(url, "0", "1", answers=2))
        self.assertEqual(["ready", "got 1 instead of 0"], talk(url, "1", answers=2))
        self.assertEqual((["ready", "got x instead of 0"], 1000), ending(url, "x"))

    def test_send(self):
        self.assertEqual(["0", "1"], talk(self.url("/send?n=2"), answers=2))
        body = (bytes(range(251)) * 2)[:300]
        self.assertEqual([body], talk(self.url("/send?size=300"), answers=1))

    def test_ping_and_close(self):
        self.assertEqual(["pong received"], talk(self.url("/ping"), answers=1))
        self.assertEqual(([], 4001), ending(self.url("/close?code=4001&reason=bye")))

    def test_watched(self):
        talk(self.url("/watched?key=k"), answers=1)
        self.assertEqual(["1000 "], talk(self.url("/closed?key=k"), answers=1))


class WebSocketServerTest(KeeperOfTheProtocol, Started):
    ONLY = "websocket"
    URL, SECURE_URL = "WS_URL", "WSS_URL"


class NodeTest(KeeperOfTheProtocol, Started):
    ONLY = "node"
    URL, SECURE_URL = "NODE_WS_URL", "NODE_WSS_URL"

    def test_deaf(self):
        request = ("GET /deaf HTTP/1.1\r\nHost: test\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
                   "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: AAAAAAAAAAAAAAAAAAAAAA==\r\n\r\n")
        with send_raw(self.keys[self.URL], request.encode()) as sock:
            self.assertIn(b" 101 ", sock.recv(4096))
            sock.settimeout(1)
            with self.assertRaises(TimeoutError):
                sock.sendall(bytes(64 << 20))


class LibwebsocketsTest(Started):
    ONLY = "libwebsockets"
    MIRROR = ["lws-mirror-protocol"]

    def test_mirror(self):
        self.assertEqual(["text"], talk(self.keys["LIBWEBSOCKETS_URL"], "text",
                                        subprotocols=self.MIRROR))

    def test_mirror_over_tls(self):
        tls = ssl.create_default_context(cafile=self.keys["CA_FILE"])
        self.assertEqual(["text"], talk(self.keys["LIBWEBSOCKETS_TLS_URL"], "text", tls=tls,
                                        subprotocols=self.MIRROR))

    def test_counter(self):
        self.assertEqual(["0", "1"], talk(self.keys["LIBWEBSOCKETS_URL"], answers=2,
                                          subprotocols=["dumb-increment-protocol"]))


class WebSocketPeerTest(Started):
    ONLY = "websocket-peer"

    def test_a_keeper_of_the_protocol_hears_fragments_in_order(self):
        self.assertEqual((["one two three"], 1006), ending(self.keys["WS_PEER_URL"] + "/fragments"))

    def test_a_keeper_of_the_protocol_refuses_what_is_broken(self):
        for path in ("/reserved-bit-1", "/reserved-opcode-3", "/masked", "/ping-of-126-bytes",
                     "/continuation-of-nothing", "/bad-utf8", "/noise"):
            self.assertNotIn("after", ending(self.keys["WS_PEER_URL"] + path)[0], path)

    def test_stall_answers_once_released(self):
        def release():
            url = self.keys["WS_PEER_HTTP_URL"]
            for action in ("count?min=1&key=k", "release?key=k"):
                with urllib.request.urlopen(f"{url}/{action}", timeout=LIMIT_S) as answer:
                    answer.read()

        thread = threading.Thread(target=release)
        thread.start()
        try:
            self.assertEqual(["ready", "open", "tick", b"1 4 text"],
                             talk(self.keys["WS_PEER_URL"] + "/stall?key=k", "text", answers=4))
        finally:
            thread.join(LIMIT_S)
