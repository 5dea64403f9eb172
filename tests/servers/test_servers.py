#!/usr/bin/python3
"""Checks that each server behaves as README.md tells, and that none outlives its end."""

import sys

sys.dont_write_bytecode = True

import contextlib
import http.client
import json
import os
import signal
import socket
import ssl
import struct
import subprocess
import tempfile
import time
import unittest
from urllib.parse import urlsplit

import processes

HERE = os.path.dirname(os.path.abspath(__file__))
SERVERS = processes.python() + [os.path.join(HERE, "servers.py")]
LIMIT_S = 10


def servers(action, directory, *arguments, **options):
    return subprocess.run([*SERVERS, action, "--dir", directory, *arguments], timeout=60,
                          capture_output=True, text=True, **options)


def read_env(directory):
    with open(os.path.join(directory, "servers.env"), encoding="utf-8") as file:
        return dict(line.rstrip("\n").split("=", 1) for line in file)


def read_records(directory):
    with open(os.path.join(directory, "servers.pids"), encoding="utf-8") as file:
        return [processes.parse(line) for line in file]


def with_descendants(records):
    """The recorded processes and the children that these have of their own."""
    found = list(records)
    for record in found:
        with open(f"/proc/{record.pid}/task/{record.pid}/children", encoding="ascii") as file:
            for pid in map(int, file.read().split()):
                if pid not in [known.pid for known in found]:
                    found.append(processes.record(pid, f"child of {record.name}"))
    return found


def connect(url, timeout_s=LIMIT_S):
    parts = urlsplit(url)
    return socket.create_connection((parts.hostname, parts.port), timeout=timeout_s)


def is_refused(url):
    try:
        connect(url).close()
    except ConnectionRefusedError:
        return True
    return False


def wait_until(condition):
    deadline = time.monotonic() + LIMIT_S
    while time.monotonic() < deadline:
        if result := condition():
            return result
        time.sleep(0.01)
    raise AssertionError("waited in vain")


class Reply:
    def __init__(self, response):
        self.status = response.status
        self.headers = response.headers
        self.body = response.read()


def fetch(base, path, method="GET", body=None, headers=None, context=None):
    parts = urlsplit(base)
    if parts.scheme == "https":
        connection = http.client.HTTPSConnection(
            parts.hostname, parts.port, timeout=LIMIT_S, context=context)
    else:
        connection = http.client.HTTPConnection(parts.hostname, parts.port, timeout=LIMIT_S)
    with contextlib.closing(connection):
        connection.request(method, path, body=body, headers=headers or {})
        return Reply(connection.getresponse())


def send_raw(base, data):
    sock = connect(base)
    sock.sendall(data)
    return sock


def receive_all(sock):
    received = b""
    while data := sock.recv(65536):
        received += data
    return received


def raw(base, path):
    """All bytes of the reply until the server closes."""
    with send_raw(base, f"GET {path} HTTP/1.1\r\nHost: test\r\n\r\n".encode()) as sock:
        return receive_all(sock)


class Started(unittest.TestCase):
    """Runs the servers named in ONLY while its tests run."""

    ONLY = ""

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory(prefix="test servers ")
        cls.addClassCleanup(cls.folder.cleanup)
        result = servers("start", cls.folder.name, "--only", cls.ONLY)
        cls.addClassCleanup(servers, "stop", cls.folder.name)
        if result.returncode != 0:
            raise AssertionError(result.stderr)
        cls.keys = read_env(cls.folder.name)


class NginxTest(Started):
    ONLY = "nginx"

    def setUp(self):
        self.url = self.keys["HTTP_URL"]
        self.trusting = ssl.create_default_context(cafile=self.keys["CA_FILE"])

    def log_lines(self, uri):
        with open(self.keys["ACCESS_LOG"], encoding="utf-8") as log:
            return [line for line in map(json.loads, log) if line["uri"] == uri]

    def test_hello_by_ipv4_and_ipv6(self):
        for key in ("HTTP_URL", "HTTP6_URL"):
            reply = fetch(self.keys[key], "/hello")
            self.assertEqual((200, b"hello from nginx\n"), (reply.status, reply.body))
            self.assertEqual("text/plain", reply.headers["Content-Type"])

    def test_empty(self):
        reply = fetch(self.url, "/empty")
        self.assertEqual((200, "0", b""), (reply.status, reply.headers["Content-Length"], reply.body))

    def test_files(self):
        for name, size in (("0", 0), ("1", 1), ("1k", 1024), ("64k", 65536), ("1m", 1 << 20),
                           ("16m", 16 << 20)):
            body = fetch(self.url, f"/bytes/{name}").body
            with open(os.path.join(self.keys["WWW_DIR"], "bytes", name), "rb") as file:
                self.assertTrue(body == file.read(), name)
            self.assertEqual(size, len(body))

    def test_big_file_is_sparse(self):
        self.assertEqual(str(1 << 30), fetch(self.url, "/big/1g", "HEAD").headers["Content-Length"])
        self.assertLess(os.stat(os.path.join(self.keys["WWW_DIR"], "big/1g")).st_blocks, 1000)

    def test_status(self):
        for code in (200, 201, 204, 400, 401, 403, 404, 410, 429, 500, 502, 503, 504):
            reply = fetch(self.url, f"/status/{code}")
            body = b"" if code == 204 else b"status %d\n" % code
            self.assertEqual((code, body), (reply.status, reply.body))

    def test_redirect(self):
        reply = fetch(self.url, "/redirect")
        self.assertEqual((302, "/hello"), (reply.status, reply.headers["Location"]))

    def test_echo_method(self):
        for method in ("GET", "POST", "PUT", "DELETE", "PATCH", "OPTIONS"):
            reply = fetch(self.url, "/echo-method", method, body=b"body" if method == "POST" else None)
            self.assertEqual(method.encode() + b"\n", reply.body)

    def test_echo_header(self):
        reply = fetch(self.url, "/echo-header", headers={"X-Test": "value", "User-Agent": "agent"})
        self.assertIn(b"X-Test: value\n", reply.body)
        self.assertIn(b"User-Agent: agent\n", reply.body)

    def test_dav_put_get_delete(self):
        content = bytes(range(256)) * 8192
        reply = fetch(self.url, "/dav/folder/file", "PUT", body=content)
        self.assertEqual(201, reply.status)
        path = os.path.join(self.keys["DAV_DIR"], "folder", "file")
        with open(path, "rb") as file:
            self.assertEqual(content, file.read())
        self.assertEqual(content, fetch(self.url, "/dav/folder/file").body)
        self.assertEqual(204, fetch(self.url, "/dav/folder/file", "DELETE").status)
        self.assertFalse(os.path.exists(path))

    def test_dav_put_chunked(self):
        reply = fetch(self.url, "/dav/chunked", "PUT", body=iter([b"one ", b"two"]))
        self.assertEqual(201, reply.status)
        self.assertEqual(b"one two", fetch(self.url, "/dav/chunked").body)

    def test_slow(self):
        with send_raw(self.url, b"GET /slow HTTP/1.1\r\nHost: test\r\n\r\n") as sock:
            end = time.monotonic() + 1.5
            received = 0
            with contextlib.suppress(TimeoutError):
                while (left := end - time.monotonic()) > 0:
                    sock.settimeout(left)
                    received += len(sock.recv(65536))
        self.assertGreater(received, 0)
        self.assertLess(received, 8192)

    def test_log_tells_connections_apart(self):
        parts = urlsplit(self.url)
        for _ in range(2):
            with contextlib.closing(
                    http.client.HTTPConnection(parts.hostname, parts.port, timeout=LIMIT_S)) as kept:
                for _ in range(3):
                    kept.request("GET", "/hello?logged")
                    kept.getresponse().read()
        lines = wait_until(lambda: len(found := self.log_lines("/hello?logged")) >= 6 and found)
        self.assertEqual(6, len(lines))
        self.assertEqual(2, len({line["connection"] for line in lines}))
        self.assertEqual([1, 2, 3, 1, 2, 3], [line["request"] for line in lines])
        self.assertEqual(("HTTP/1.1", "GET", 200, 17, parts.port), tuple(
            lines[0][field] for field in ("protocol", "method", "status", "bytes", "port")))

    def test_tls_by_name_and_address(self):
        for key in ("HTTPS_URL", "HTTPS_IP_URL"):
            self.assertEqual(b"hello from nginx\n",
                             fetch(self.keys[key], "/hello", context=self.trusting).body)

    def test_bad_certificates_are_refused_with_their_reason(self):
        for key, code in (("HTTPS_EXPIRED_URL", 10), ("HTTPS_WRONG_HOST_URL", 62),
                          ("HTTPS_SELF_SIGNED_URL", 18)):
            with self.assertRaises(ssl.SSLCertVerificationError) as caught:
                fetch(self.keys[key], "/hello", context=self.trusting)
            self.assertEqual(code, caught.exception.verify_code, key)

    def test_bad_certificates_serve_those_who_do_not_verify(self):
        context = ssl._create_unverified_context()
        for key in ("HTTPS_EXPIRED_URL", "HTTPS_WRONG_HOST_URL", "HTTPS_SELF_SIGNED_URL"):
            self.assertEqual(200, fetch(self.keys[key], "/hello", context=context).status, key)

    def test_other_authority_vouches_for_nobody(self):
        other = ssl.create_default_context(cafile=self.keys["OTHER_CA_FILE"])
        with self.assertRaises(ssl.SSLCertVerificationError) as caught:
            fetch(self.keys["HTTPS_URL"], "/hello", context=other)
        self.assertEqual(20, caught.exception.verify_code)

    def test_tls_versions(self):
        v12, v13 = ssl.TLSVersion.TLSv1_2, ssl.TLSVersion.TLSv1_3
        for key, version, works in (
                ("HTTPS_URL", v12, True), ("HTTPS_URL", v13, True), ("TLS12_URL", v12, True),
                ("TLS12_URL", v13, False), ("TLS13_URL", v12, False), ("TLS13_URL", v13, True)):
            context = ssl.create_default_context(cafile=self.keys["CA_FILE"])
            context.minimum_version = context.maximum_version = version
            with self.subTest(key=key, version=version):
                if works:
                    self.assertEqual(200, fetch(self.keys[key], "/hello", context=context).status)
                else:
                    with self.assertRaises(ssl.SSLError):
                        fetch(self.keys[key], "/hello", context=context)

    def test_http2_only_at_its_own_url(self):
        context = ssl.create_default_context(cafile=self.keys["CA_FILE"])
        context.set_alpn_protocols(["h2", "http/1.1"])
        for key, protocol in (("H2_URL", "h2"), ("HTTPS_URL", "http/1.1")):
            with context.wrap_socket(connect(self.keys[key]), server_hostname="localhost") as sock:
                self.assertEqual(protocol, sock.selected_alpn_protocol())

    def test_http2_request(self):
        context = ssl.create_default_context(cafile=self.keys["CA_FILE"])
        context.set_alpn_protocols(["h2"])
        # :method GET, :scheme https, :path and :authority as plain literals.
        fields = b"\x82\x87\x04\x09/hello?h2\x01\x09localhost"
        settings, headers = 4, 1
        end_stream, end_headers = 1, 4
        with context.wrap_socket(connect(self.keys["H2_URL"]), server_hostname="localhost") as sock:
            sock.sendall(b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n" + h2_frame(settings, 0, 0, b"")
                         + h2_frame(headers, end_stream | end_headers, 1, fields))
            received = b""
            while b"hello from nginx\n" not in received:
                data = sock.recv(65536)
                self.assertTrue(data, received)
                received += data
        lines = wait_until(lambda: self.log_lines("/hello?h2"))
        self.assertEqual(("HTTP/2.0", "GET", 200), tuple(
            lines[0][field] for field in ("protocol", "method", "status")))


def h2_frame(kind, flags, stream, payload):
    return struct.pack("!I", len(payload))[1:] + struct.pack("!BBI", kind, flags, stream) + payload


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


class UnreachableTest(Started):
    ONLY = "unreachable"

    def test_refused(self):
        for _ in range(3):
            self.assertTrue(is_refused(self.keys["REFUSED_URL"]))

    def test_stall(self):
        for _ in range(3):
            with self.assertRaises(TimeoutError):
                connect(self.keys["STALL_URL"], timeout_s=1.5)


class HttpbinTest(Started):
    ONLY = "httpbin"

    def test_get_and_post(self):
        url = self.keys["HTTPBIN_URL"]
        self.assertEqual({"a": "1"}, json.loads(fetch(url, "/get?a=1").body)["args"])
        self.assertEqual("text", json.loads(fetch(url, "/post", "POST", body="text").body)["data"])


class LifecycleTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="test servers ")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.addCleanup(servers, "stop", self.folder)

    def start(self, *arguments):
        result = servers("start", self.folder, *arguments)
        self.assertEqual((0, "", ""), (result.returncode, result.stdout, result.stderr))

    def assert_gone(self, records, keys):
        wait_until(lambda: not any(map(processes.is_running, records)))
        for key, url in keys.items():
            if key.endswith("_URL"):
                self.assertTrue(is_refused(url), key)

    def test_stop_leaves_no_process_and_no_open_port(self):
        self.start()
        keys, records = read_env(self.folder), with_descendants(read_records(self.folder))
        self.assertEqual({"supervisor", "nginx", "hostile", "httpbin", "child of httpbin"},
                         {record.name for record in records})
        self.assertTrue(all(map(processes.is_running, records)))
        self.assertEqual(0, servers("stop", self.folder).returncode)
        self.assertFalse([record for record in records if processes.is_running(record)])
        self.assert_gone(records, keys)
        self.assertFalse(os.path.exists(os.path.join(self.folder, "servers.env")))

    def test_stop_again_is_no_error(self):
        self.assertEqual(0, servers("stop", self.folder).returncode)
        self.assertEqual(0, servers("stop", os.path.join(self.folder, "no such folder")).returncode)

    def test_stop_does_not_wait_for_busy_servers(self):
        self.start("--only", "nginx,hostile,httpbin")
        keys = read_env(self.folder)
        for key, path in (("HTTP_URL", "/slow"), ("HOSTILE_URL", "/silence"),
                          ("HTTPBIN_URL", "/delay/10")):
            sock = send_raw(keys[key], f"GET {path} HTTP/1.1\r\nHost: test\r\n\r\n".encode())
            self.addCleanup(sock.close)
        records = with_descendants(read_records(self.folder))
        started = time.monotonic()
        self.assertEqual(0, servers("stop", self.folder).returncode)
        self.assertLess(time.monotonic() - started, 8)
        self.assertFalse([record for record in records if processes.is_running(record)])

    def test_start_ends_the_servers_of_the_start_before(self):
        self.start("--only", "hostile")
        before = read_env(self.folder), read_records(self.folder)
        self.start("--only", "hostile")
        self.assertFalse(any(map(processes.is_running, before[1])))
        self.assertEqual(200, fetch(read_env(self.folder)["HOSTILE_URL"], "/status/200").status)

    def test_only_starts_what_it_names(self):
        self.start("--only", "hostile")
        self.assertIn("HOSTILE_URL", read_env(self.folder))
        self.assertNotIn("HTTP_URL", read_env(self.folder))
        result = servers("start", self.folder, "--only", "nosuch")
        self.assertEqual(2, result.returncode)
        self.assertIn("no server 'nosuch'", result.stderr)

    def test_failed_start_says_why_and_leaves_nothing(self):
        # nginx can't make its folder; the hostile server runs by then.
        with open(os.path.join(self.folder, "www"), "wb"):
            pass
        result = servers("start", self.folder, "--only", "hostile,nginx")
        self.assertEqual(1, result.returncode)
        self.assertEqual(1, len(result.stderr.splitlines()), result.stderr)
        self.assertIn("www", result.stderr)
        self.assertFalse(os.path.exists(os.path.join(self.folder, "servers.env")))
        self.assertFalse(os.path.exists(os.path.join(self.folder, "servers.pids")))
        self.assertFalse(processes_naming(self.folder))

    def test_children_die_with_a_killed_supervisor(self):
        self.start()
        keys, records = read_env(self.folder), with_descendants(read_records(self.folder))
        processes.end(records[0], signal.SIGKILL, grace_s=5)
        self.assert_gone(records, keys)
        result = servers("stop", self.folder)
        self.assertEqual(1, result.returncode)
        self.assertIn("ended early", result.stderr)
        self.assertEqual(0, servers("stop", self.folder).returncode)

    def test_lost_server_ends_all(self):
        self.start("--only", "nginx,hostile")
        keys, records = read_env(self.folder), read_records(self.folder)
        processes.end(records[2], signal.SIGKILL, grace_s=5)
        self.assert_gone(records, keys)
        with open(os.path.join(self.folder, "supervisor.log"), encoding="utf-8") as log:
            self.assertIn("hostile ended with code -9", log.read())
        self.assertEqual(1, servers("stop", self.folder).returncode)

    def test_lifetime_ends_all(self):
        self.start("--only", "hostile,unreachable", "--lifetime", "1.5")
        keys, records = read_env(self.folder), read_records(self.folder)
        self.assert_gone(records, keys)
        self.assertEqual(1, servers("stop", self.folder).returncode)

    def test_recycled_pid_is_left_alone(self):
        bystander = subprocess.Popen(["sleep", "30"])
        self.addCleanup(bystander.wait, 5)
        self.addCleanup(bystander.kill)
        rec = processes.record(bystander.pid, "supervisor")
        with open(os.path.join(self.folder, "servers.pids"), "w", encoding="ascii") as file:
            file.write(f"{rec._replace(started=rec.started - 1)}\n")
        servers("stop", self.folder)
        self.assertIsNone(bystander.poll())

    def test_run_hands_over_the_env_file_and_the_exit_code(self):
        command = 'grep -q "^HOSTILE_URL=http" "$HTTP_INTERFACE_TEST_SERVERS" && exit 7'
        result = servers("run", self.folder, "--only", "hostile", "--", "sh", "-c", command)
        self.assertEqual((7, ""), (result.returncode, result.stderr))
        self.assertFalse(os.path.exists(os.path.join(self.folder, "servers.pids")))
        result = servers("run", self.folder, "--only", "hostile", "--", "true")
        self.assertEqual(0, result.returncode)
        result = servers("run", self.folder, "--only", "hostile", "--", "no-such-command")
        self.assertEqual(1, result.returncode)
        self.assertIn("no-such-command", result.stderr)

    def test_ended_run_ends_command_and_servers(self):
        for number in (signal.SIGTERM, signal.SIGKILL):
            pid_file = os.path.join(self.folder, f"command-{number}.pid")
            runner = subprocess.Popen(
                [*SERVERS, "run", "--dir", self.folder, "--only", "hostile", "--", "sh", "-c",
                 'echo $$ >"$0.new" && mv "$0.new" "$0" && exec sleep 30', pid_file])
            self.addCleanup(runner.wait, 5)
            self.addCleanup(runner.kill)
            wait_until(lambda: os.path.exists(pid_file))
            with open(pid_file, encoding="ascii") as file:
                records = read_records(self.folder) + [
                    processes.record(int(file.read()), "command")]
            runner.send_signal(number)
            runner.wait(20)
            with self.subTest(number=number):
                self.assert_gone(records, {})


def processes_naming(text):
    """Command lines of the running processes that mention `text`."""
    found = []
    for pid in filter(str.isdigit, os.listdir("/proc")):
        with contextlib.suppress(OSError):
            with open(f"/proc/{pid}/cmdline", "rb") as file:
                if text.encode() in (command := file.read()):
                    found.append(command)
    return found


if __name__ == "__main__":
    unittest.main()
