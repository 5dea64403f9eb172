#!/usr/bin/env python3
"""Configuring refuses a libcurl that can't do what the library relies on.

Each case is a made-up dependency folder that describes a libcurl by its CMake
package; the configuration must end with the reason.
"""

import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
PROTOCOLS = "http;https;ws;wss"
FEATURES = "SSL;HTTP2"


def configure(version, protocols, features):
    """What CMake says, in one line, when it meets such a libcurl."""
    with tempfile.TemporaryDirectory() as folder:
        deps = pathlib.Path(folder) / "deps"
        (deps / "include" / "curl").mkdir(parents=True)
        (deps / "include" / "curl" / "curl.h").touch()
        for name, text in {
            "CURL/CURLConfig.cmake": f'set(CURL_SUPPORTED_PROTOCOLS "{protocols}")\n'
                                     f'set(CURL_SUPPORTED_FEATURES "{features}")\n'
                                     "add_library(CURL::libcurl_static INTERFACE IMPORTED)\n",
            "CURL/CURLConfigVersion.cmake": f"set(PACKAGE_VERSION {version})\n"
                                            "set(PACKAGE_VERSION_COMPATIBLE TRUE)\n",
            "libuv/libuvConfig.cmake": "add_library(libuv::uv_a INTERFACE IMPORTED)\n",
        }.items():
            file = deps / "lib" / "cmake" / name
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(text)
        done = subprocess.run(
            ["cmake", "-G", "Ninja", "-S", SOURCE, "-B", pathlib.Path(folder) / "build",
             f"-DHTTP_INTERFACE_DEPS={deps}", "-DHTTP_INTERFACE_TESTS=OFF",
             "-DHTTP_INTERFACE_EXAMPLES=OFF"],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=60)
        return done.returncode, re.sub(r"\s+", " ", done.stdout)


class DependencyChecks(unittest.TestCase):
    def refused(self, reason, version="8.22.0", protocols=PROTOCOLS, features=FEATURES):
        code, said = configure(version, protocols, features)
        self.assertNotEqual(code, 0)
        self.assertIn(reason, said)

    def test_libcurl_before_8_20_is_refused(self):
        self.refused("libcurl 8.19.0 is too old, 8.20 is needed", version="8.19.0")

    def test_libcurl_without_ws_is_refused(self):
        self.refused("built without ws,", protocols="http;https;wss")

    def test_libcurl_without_wss_is_refused(self):
        self.refused("built without wss,", protocols="http;https;ws")

    def test_libcurl_without_tls_is_refused(self):
        self.refused("built without SSL,", features="HTTP2")

    def test_libcurl_without_http2_is_refused(self):
        self.refused("built without HTTP2,", features="SSL")

    def test_a_libcurl_that_has_all_is_accepted(self):
        code, said = configure("8.20.0", PROTOCOLS, FEATURES)
        self.assertEqual(code, 0, said)

    def test_missing_dependencies_name_the_command(self):
        with tempfile.TemporaryDirectory() as folder:
            done = subprocess.run(
                ["cmake", "-G", "Ninja", "-S", SOURCE, "-B", folder,
                 f"-DHTTP_INTERFACE_DEPS={folder}/nothing"],
                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=60)
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("run scripts/deps linux", re.sub(r"\s+", " ", done.stdout))


if __name__ == "__main__":
    sys.exit(unittest.main(verbosity=2))
