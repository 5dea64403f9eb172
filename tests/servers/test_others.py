"""httpbin, and the addresses that can't be reached."""

import json

from testing import Started, connect, fetch, is_refused


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
