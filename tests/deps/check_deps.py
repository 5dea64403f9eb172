#!/usr/bin/env python3
"""Checks scripts/deps on a copy of it that builds three toy libraries.

The copy has pins, recipes and patches of its own; package archives and
download pages are a server on 127.0.0.1.
"""
import functools
import hashlib
import http.server
import os
import pathlib
import select
import shutil
import signal
import subprocess
import tarfile
import tempfile
import threading
import time
import unittest

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
LIBRARIES = ("libuv", "nghttp2", "curl")
TIME_LIMIT_S = 60

# Counts its runs, and stops half-way while the file `block` exists: it says so
# through one pipe and waits at another.
RECIPE = """
set -euo pipefail
mkdir -p "$WORK/prefix"
echo {name} >>"$ROOT/runs"
if [[ -e $ROOT/block ]]; then
  touch "$WORK/prefix/half-built"
  echo halfway >"$ROOT/halfway"
  read -r _ <"$ROOT/go-on"
fi
cp "$WORK/source/text" "$WORK/prefix/{name}.txt"
"""


class QuietHandler(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *_):
        pass


class DepsTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="check_deps.")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.checkout = self.folder / "checkout"
        self.distfiles = self.folder / "distfiles"
        self.site = self.folder / "site"
        for made in (self.distfiles, self.site, self.checkout / "deps/recipes",
                     self.checkout / "deps/patches", self.checkout / "scripts"):
            made.mkdir(parents=True)
        for copied in ("scripts/deps", "scripts/lib.sh", "deps/cache.sh",
                       "deps/fetch.sh", "deps/recipes/common.sh"):
            shutil.copy(REPOSITORY / copied, self.checkout / copied)
        self.start_server()
        self.write_apt_settings("sources.list", f"deb {self.address}/mirror stable main\n")
        self.write_pins()

    def start_server(self):
        handler = functools.partial(QuietHandler, directory=str(self.site))
        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
        thread = threading.Thread(target=server.serve_forever)
        thread.start()
        self.addCleanup(thread.join)
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        self.address = f"http://127.0.0.1:{server.server_port}"

    def write_apt_settings(self, name, text):
        etc = self.folder / "apt"
        shutil.rmtree(etc, ignore_errors=True)
        (etc / "sources.list.d").mkdir(parents=True)
        (etc / name).write_text(text)
        (self.folder / "apt.conf").write_text(
            f'Dir::Etc::SourceList "{etc}/sources.list";\n'
            f'Dir::Etc::SourceParts "{etc}/sources.list.d";\n'
            'Acquire::http::Proxy::127.0.0.1 "DIRECT";\n')

    def write_pins(self):
        lines = []
        for name in LIBRARIES:
            archive = self.distfiles / f"{name}.tar.gz"
            source = self.folder / f"{name}-1.0"
            source.mkdir()
            (source / "text").write_text(f"text of {name}\n")
            with tarfile.open(archive, "w:gz") as tar:
                tar.add(source, source.name)
            digest = hashlib.sha256(archive.read_bytes()).hexdigest()
            lines.append(f"{name} 1.0 {digest} {name}.tar.gz pool/{name} "
                         f"{self.address}/maker/{name}.tar.gz\n")
            (self.checkout / f"deps/recipes/{name}.sh").write_text(RECIPE.format(name=name))
        (self.checkout / "deps/sources.txt").write_text("".join(lines))

    def environment(self, **changes):
        return {**os.environ, "HTTP_INTERFACE_CACHE": str(self.folder / "cache"),
                "HTTP_INTERFACE_DISTFILES": str(self.distfiles),
                "APT_CONFIG": str(self.folder / "apt.conf"), "LC_ALL": "C", **changes}

    def start(self, *platforms, **changes):
        return subprocess.Popen(
            [self.checkout / "scripts/deps", *platforms], env=self.environment(**changes),
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            text=True, start_new_session=True)

    def finish(self, process):
        try:
            output, _ = process.communicate(timeout=TIME_LIMIT_S)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.communicate()
            raise
        return process.returncode, output.splitlines()

    def run_deps(self, *platforms, **changes):
        return self.finish(self.start(*(platforms or ("linux",)), **changes))

    def assert_built(self, outcome):
        status, lines = outcome
        self.assertEqual(status, 0, lines)
        prefix = self.checkout / "build/deps/linux"
        self.assertEqual({path.name: path.read_text() for path in prefix.iterdir()},
                         {f"{name}.txt": f"text of {name}\n" for name in LIBRARIES})

    def assert_refused_in_one_line(self, outcome, *parts):
        status, lines = outcome
        self.assertNotEqual(status, 0)
        self.assertEqual(len(lines), 1, lines)
        for part in parts:
            self.assertIn(part, lines[0])
        self.assertFalse((self.checkout / "build/deps/linux").exists())

    def runs(self):
        return (self.checkout / "runs").read_text().split()

    def move_archives_to(self, folder):
        for name in LIBRARIES:
            target = self.site / folder.format(name=name)
            target.mkdir(parents=True, exist_ok=True)
            shutil.move(self.distfiles / f"{name}.tar.gz", target)

    def test_sources_from_the_folder_for_archives(self):
        self.assert_built(self.run_deps())

    def test_sources_from_an_archive_of_a_list_file(self):
        self.move_archives_to("mirror/pool/{name}")
        self.assert_built(self.run_deps())

    def test_sources_from_an_archive_of_a_sources_file(self):
        self.write_apt_settings("sources.list.d/local.sources",
                                f"Types: deb\nURIs: {self.address}/absent {self.address}/mirror\n"
                                "Suites: stable\nComponents: main\n")
        self.move_archives_to("mirror/pool/{name}")
        self.assert_built(self.run_deps())

    def test_sources_from_the_makers_page(self):
        self.move_archives_to("maker")
        self.assert_built(self.run_deps(HTTP_INTERFACE_DISTFILES=""))

    def test_either_of_two_pinned_sums_is_good(self):
        pins = self.checkout / "deps/sources.txt"
        for bare, changed in (("libuv 1.0 ", f"libuv 1.0 {'0' * 64},"),
                              (" curl.tar.gz ", f",{'0' * 64} curl.tar.gz ")):
            self.assertIn(bare, pins.read_text())
            pins.write_text(pins.read_text().replace(bare, changed))
        self.assert_built(self.run_deps())

    def test_wrong_sum_is_one_line_that_names_file_and_place(self):
        archive = self.distfiles / "libuv.tar.gz"
        archive.write_bytes(archive.read_bytes() + b"\0")
        self.assert_refused_in_one_line(self.run_deps(), "libuv.tar.gz", "SHA-256", str(archive))

    def test_wrong_sum_of_a_download_is_refused(self):
        self.move_archives_to("mirror/pool/{name}")
        archive = self.site / "mirror/pool/libuv/libuv.tar.gz"
        archive.write_bytes(b"<html>not found</html>")
        self.assert_refused_in_one_line(self.run_deps(), "libuv.tar.gz", "SHA-256",
                                        f"{self.address}/mirror/pool/libuv/libuv.tar.gz")

    def test_damaged_archive_in_the_cache_is_fetched_again(self):
        self.assert_built(self.run_deps())
        archive = self.folder / "cache/archives/curl.tar.gz"
        archive.write_bytes(b"damaged")
        with open(self.checkout / "deps/recipes/curl.sh", "a", encoding="ascii") as recipe:
            recipe.write(": another key\n")
        self.assert_built(self.run_deps())

    def test_missing_source_is_one_line_that_names_what_was_tried(self):
        (self.distfiles / "libuv.tar.gz").unlink()
        self.assert_refused_in_one_line(self.run_deps(), "libuv.tar.gz",
                                        str(self.distfiles / "libuv.tar.gz"),
                                        f"{self.address}/mirror/pool/libuv/libuv.tar.gz",
                                        f"{self.address}/maker/libuv.tar.gz")

    def test_unknown_platform_is_refused(self):
        self.assert_refused_in_one_line(self.run_deps("linux", "amiga"), "amiga", "linux-tsan")

    def test_patch_that_does_not_fit_is_named(self):
        (self.checkout / "deps/patches/libuv-1-text.patch").write_text(
            "Reason.\n\n--- a/text\n+++ b/text\n@@ -1 +1 @@\n-another text\n+new text\n")
        self.assert_refused_in_one_line(self.run_deps(), "libuv-1-text.patch", "libuv 1.0")

    def test_new_patch_builds_only_its_own_library(self):
        self.assert_built(self.run_deps())
        (self.checkout / "deps/patches/curl-1-text.patch").write_text(
            "Reason.\n\n--- a/text\n+++ b/text\n@@ -1 +1 @@\n-text of curl\n+new text\n")
        status, lines = self.run_deps()
        self.assertEqual(status, 0, lines)
        self.assertEqual((self.checkout / "build/deps/linux/curl.txt").read_text(), "new text\n")
        self.assertEqual(self.runs(), [*LIBRARIES, "curl"])

    def test_second_run_builds_nothing_and_takes_seconds(self):
        self.assert_built(self.run_deps())
        shutil.rmtree(self.distfiles)
        start = time.monotonic()
        self.assert_built(self.run_deps())
        self.assertLess(time.monotonic() - start, 10)
        self.assertEqual(self.runs(), list(LIBRARIES))

    def test_interrupted_build_is_never_used(self):
        os.mkfifo(self.checkout / "halfway")
        os.mkfifo(self.checkout / "go-on")
        (self.checkout / "block").touch()
        halfway = os.open(self.checkout / "halfway", os.O_RDWR)
        self.addCleanup(os.close, halfway)
        process = self.start("linux")
        self.addCleanup(process.stdout.close)
        self.assertTrue(select.select([halfway], [], [], TIME_LIMIT_S)[0])
        os.killpg(process.pid, signal.SIGKILL)
        process.wait(TIME_LIMIT_S)
        self.assertFalse((self.checkout / "build/deps/linux").exists())
        (self.checkout / "block").unlink()
        self.assert_built(self.run_deps())
        self.assertEqual(self.runs(), ["libuv", *LIBRARIES])

    def test_runs_at_once_build_each_library_once(self):
        processes = [self.start("linux") for _ in range(3)]
        for outcome in [self.finish(process) for process in processes]:
            self.assert_built(outcome)
        self.assertEqual(self.runs(), list(LIBRARIES))


if __name__ == "__main__":
    unittest.main()
