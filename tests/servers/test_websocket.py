"""The WebSocket peers, with python3-websockets as the client."""

import asyncio
import ssl
import threading
import urllib.request

import websockets

from testing import LIMIT_S, Started


def talk(url, *messages, tls=None, subprotocols=None, answers=None):
    """What a peer says to these messages: as many answers as asked for."""
    async def conversation():
        async with websockets.connect(url, ssl=tls, subprotocols=subprotocols) as connection:
            for message in messages:
                await connection.send(message)
            return [await connection.recv() for _ in range(answers or len(messages))]

    return asyncio.run(asyncio.wait_for(conversation(), LIMIT_S))


def ending(url):
    """The messages until the end, and the code that the connection ended with."""
    async def conversation():
        heard = []
        async with websockets.connect(url) as connection:
            try:
                while True:
                    heard.append(await connection.recv())
            except websockets.ConnectionClosed:
                return heard, connection.close_code

    return asyncio.run(asyncio.wait_for(conversation(), LIMIT_S))


class WebSocketServerTest(Started):
    ONLY = "websocket"

    def test_echo(self):
        url = self.keys["WS_URL"] + "/echo"
        self.assertEqual(["ready", "text", b"bytes"], talk(url, "text", b"bytes", answers=3))

    def test_echo_over_tls(self):
        tls = ssl.create_default_context(cafile=self.keys["CA_FILE"])
        self.assertEqual(["ready", "text"],
                         talk(self.keys["WSS_URL"] + "/echo", "text", tls=tls, answers=2))

    def test_order(self):
        url = self.keys["WS_URL"] + "/order?every=2"
        self.assertEqual(["ready", "2"], talk(url, "0", "1", answers=2))
        self.assertEqual(["ready", "got 1 instead of 0"], talk(url, "1", answers=2))

    def test_send(self):
        self.assertEqual(["0", "1"], talk(self.keys["WS_URL"] + "/send?n=2", answers=2))
        body = (bytes(range(251)) * 2)[:300]
        self.assertEqual([body], talk(self.keys["WS_URL"] + "/send?size=300", answers=1))

    def test_ping_and_close(self):
        self.assertEqual(["pong received"], talk(self.keys["WS_URL"] + "/ping", answers=1))
        self.assertEqual(([], 4001), ending(self.keys["WS_URL"] + "/close?code=4001&reason=bye"))

    def test_libwebsockets(self):
        url = self.keys["LIBWEBSOCKETS_URL"]
        self.assertEqual(["text"], talk(url, "text", subprotocols=["lws-mirror-protocol"]))


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
