"""Nothing outlives its end, whichever way that comes."""

import contextlib
import os
import signal
import subprocess
import tempfile
import time
import unittest

import processes
from testing import (
    SERVERS, fetch, is_refused, read_env, read_records, send_raw, servers, wait_until,
    with_descendants)


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
                # The last thread of an ended process closes its sockets.
                wait_until(lambda url=url: is_refused(url))

    def test_stop_leaves_no_process_and_no_open_port(self):
        self.start()
        keys, records = read_env(self.folder), with_descendants(read_records(self.folder))
        self.assertEqual({"supervisor", "nginx", "hostile", "httpbin", "child of httpbin",
                          "websocket", "node", "libwebsockets", "libwebsockets-tls",
                          "websocket-peer"},
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
        self.start("--only", "hostile,unreachable", "--lifetime", "3")
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
