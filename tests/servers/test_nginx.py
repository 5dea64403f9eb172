"""Each listener and path of nginx."""

import contextlib
import http.client
import json
import os
import ssl
import struct
import time
from urllib.parse import urlsplit

from testing import LIMIT_S, Started, connect, fetch, send_raw, wait_until


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
