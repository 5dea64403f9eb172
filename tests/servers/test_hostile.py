"""Each path of the hostile server."""

import contextlib
import http.client
import socket
import time

from testing import LIMIT_S, Started, fetch, raw, receive_all, send_raw, wait_until


class HostileTest(Started):
    ONLY = "hostile"

    def setUp(self):
        self.url = self.keys["HOSTILE_URL"]

    def test_close(self):
        self.assertEqual(b"", raw(self.url, "/close"))

    def test_reset_comes_after_part_of_the_body(self):
        with send_raw(self.url, b"GET /reset HTTP/1.1\r\nHost: test\r\n\r\n") as sock:
            received = b""
            with self.assertRaises(ConnectionResetError):
                while data := sock.recv(65536):
                    received += data
        head, _, body = received.partition(b"\r\n\r\n")
        self.assertIn(b"Content-Length: 1000", head)
        self.assertEqual(b"x" * 10, body)

    def test_truncated_and_lying_length(self):
        for path, length in (("/truncated", b"1000"), ("/lying-length", b"%d" % 2**40)):
            head, _, body = raw(self.url, path).partition(b"\r\n\r\n")
            self.assertIn(b"Content-Length: " + length, head)
            self.assertEqual(b"x" * 10, body)

    def test_half_header(self):
        received = raw(self.url, "/half-header")
        self.assertTrue(received.startswith(b"HTTP/1.1 200 OK\r\n"))
        self.assertFalse(received.endswith(b"\r\n"))

    def test_garbage(self):
        received = raw(self.url, "/garbage")
        self.assertTrue(received)
        self.assertNotIn(b"HTTP/", received)

    def test_bad_chunk(self):
        with self.assertRaises(http.client.IncompleteRead) as caught:
            fetch(self.url, "/bad-chunk")
        self.assertEqual(b"hello", caught.exception.partial)

    def test_huge_header(self):
        lines = raw(self.url, "/huge-header").split(b"\r\n")
        self.assertGreater(max(map(len, lines)), 200 << 10)

    def test_silence_lasts_until_the_peer_closes(self):
        with send_raw(self.url, b"GET /silence HTTP/1.1\r\nHost: test\r\n\r\n") as sock:
            sock.settimeout(0.5)
            with self.assertRaises(TimeoutError):
                sock.recv(1)
            sock.settimeout(LIMIT_S)
            sock.shutdown(socket.SHUT_WR)
            self.assertEqual(b"", sock.recv(1))

    def test_drip(self):
        with send_raw(self.url, b"GET /drip?n=3&ms=200 HTTP/1.1\r\nHost: test\r\n\r\n") as sock:
            received = b""
            pieces = []
            while data := sock.recv(65536):
                received += data
                pieces.append(time.monotonic())
        self.assertTrue(received.endswith(b"\r\n\r\n..."))
        self.assertGreater(pieces[-1] - pieces[0], 0.35)

    def test_drip_is_one_byte_a_second_by_default(self):
        started = time.monotonic()
        self.assertEqual(b".", fetch(self.url, "/drip?n=1").body)
        self.assertGreater(time.monotonic() - started, 0.95)

    def test_slow_start(self):
        started = time.monotonic()
        self.assertEqual(200, fetch(self.url, "/slow-start?ms=300").status)
        self.assertGreater(time.monotonic() - started, 0.29)

    def test_hold_answers_after_release(self):
        waiting = [send_raw(self.url, b"GET /hold?key=a HTTP/1.1\r\nHost: test\r\n\r\n")
                   for _ in range(2)]
        self.assertEqual(b"2", fetch(self.url, "/count?key=a&min=2").body)
        self.assertEqual(b"0", fetch(self.url, "/count?key=b").body)
        self.assertEqual(b"0", fetch(self.url, "/release?key=b").body)
        waiting[0].settimeout(0.2)
        with self.assertRaises(TimeoutError):
            waiting[0].recv(1)
        waiting[0].settimeout(LIMIT_S)
        self.assertEqual(b"2", fetch(self.url, "/release?key=a").body)
        for sock in waiting:
            with sock:
                self.assertTrue(receive_all(sock).endswith(b"\r\n\r\nreleased\n"))
        self.assertEqual(b"0", fetch(self.url, "/count?key=a").body)

    def test_hold_does_not_count_who_has_left(self):
        with send_raw(self.url, b"GET /hold?key=left HTTP/1.1\r\nHost: test\r\n\r\n"):
            self.assertEqual(b"1", fetch(self.url, "/count?key=left&min=1").body)
        wait_until(lambda: fetch(self.url, "/count?key=left").body == b"0")

    def test_no_length(self):
        head, _, body = raw(self.url, "/no-length").partition(b"\r\n\r\n")
        self.assertNotIn(b"Content-Length", head)
        self.assertEqual(b"the end of the connection ends this\n", body)

    def test_chunked(self):
        self.assertEqual(b"chunk 0\nchunk 1\nchunk 2\n", fetch(self.url, "/chunked").body)
        self.assertEqual(b"".join(b"chunk %d\n" % n for n in range(500)),
                         fetch(self.url, "/chunked?n=500").body)
        self.assertEqual(b"", fetch(self.url, "/chunked?n=0").body)

    def test_post_echo(self):
        for body in (b"", b"\x00binary\xff", bytes(range(256)) * 20000):
            reply = fetch(self.url, "/post-echo", "POST", body=body,
                          headers={"Content-Type": "application/x-test"})
            self.assertEqual(body, reply.body)
            self.assertEqual(str(len(body)), reply.headers["X-Body-Length"])
            self.assertEqual("application/x-test", reply.headers["Content-Type"])

    def test_post_echo_chunked(self):
        reply = fetch(self.url, "/post-echo", "POST", body=iter([b"one ", b"two"]))
        self.assertEqual(b"one two", reply.body)

    def test_continue_comes_before_the_body_is_sent(self):
        for path, expect in (("/continue", b""), ("/continue", b"Expect: 100-continue\r\n"),
                             ("/post-echo", b"Expect: 100-continue\r\n")):
            with send_raw(self.url, b"POST %s HTTP/1.1\r\nHost: test\r\nContent-Length: 4\r\n%s\r\n"
                          % (path.encode(), expect)) as sock:
                interim = b"HTTP/1.1 100 Continue\r\n\r\n"
                self.assertEqual(interim, sock.recv(len(interim)))
                sock.sendall(b"body")
                self.assertTrue(receive_all(sock).endswith(b"\r\n\r\nbody"))

    def test_headers_come_back_byte_for_byte(self):
        request = b"GET /headers?q HTTP/1.1\r\nHost: test\r\nx-CaSe:  odd spaces \r\n\r\n"
        with send_raw(self.url, request) as sock:
            self.assertEqual(request, receive_all(sock).partition(b"\r\n\r\n")[2])

    def test_status(self):
        for code in (200, 204, 304, 404, 418, 500, 599):
            self.assertEqual(code, fetch(self.url, f"/status/{code}").status)
        self.assertEqual(400, fetch(self.url, "/status/100").status)

    def test_bad_numbers_and_paths_are_refused(self):
        for path in ("/drip?n=x", "/drip?n=-1", "/chunked?n=100001"):
            self.assertEqual(400, fetch(self.url, path).status)
        self.assertEqual(404, fetch(self.url, "/unknown").status)

    def test_broken_requests_do_not_end_the_server(self):
        for data in (b"\x00\r\n\r\n", b"GET / HTTP/1.1\r\n", b"a" * (2 << 20),
                     b"POST /post-echo HTTP/1.1\r\nContent-Length: 9\r\n\r\n1"):
            with contextlib.suppress(OSError):
                with send_raw(self.url, data) as sock:
                    sock.shutdown(socket.SHUT_WR)
                    receive_all(sock)
        self.assertEqual(200, fetch(self.url, "/status/200").status)

    def test_head_has_no_body(self):
        reply = fetch(self.url, "/status/200", "HEAD")
        self.assertEqual(("11", b""), (reply.headers["Content-Length"], reply.body))
