"""Processes, named so that a recycled pid is never taken for one of ours.

A record is "pid start-time name"; the start time comes from the kernel.
Signals go through a pidfd, which can't come to mean another process.
"""

import ctypes
import os
import select
import signal
import sys
import time
from typing import NamedTuple

PR_SET_PDEATHSIG = 1
PR_SET_CHILD_SUBREAPER = 36

_libc = ctypes.CDLL(None, use_errno=True)


class Record(NamedTuple):
    pid: int
    started: int  # clock ticks since boot
    name: str

    def __str__(self):
        return f"{self.pid} {self.started} {self.name}"


def record(pid, name):
    return Record(pid, _start_time(pid), name)


def parse(line):
    pid, started, name = line.split()
    return Record(int(pid), int(started), name)


def is_running(rec):
    return rec.started != 0 and _start_time(rec.pid) == rec.started


def end(rec, first_signal, grace_s):
    """Signals one process, kills it after grace_s, and waits until it is gone."""
    try:
        pidfd = os.pidfd_open(rec.pid)
    except ProcessLookupError:
        return
    try:
        # Compared after the pidfd is open: from here on it is this process or none.
        if not is_running(rec):
            return
        for number, wait_s in ((first_signal, grace_s), (signal.SIGKILL, 5)):
            signal.pidfd_send_signal(pidfd, number)
            if select.select([pidfd], [], [], wait_s)[0]:
                return
        raise TimeoutError(f"{rec.name} (pid {rec.pid}) does not end")
    except ProcessLookupError:
        pass
    finally:
        os.close(pidfd)


def die_with_parent(parent):
    """Called in a child: the kernel kills it as soon as `parent` ends, however that ends."""
    _prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
    if os.getppid() != parent:  # it ended before the call above
        os._exit(1)


def adopt_orphans():
    """Grandchildren whose parent ends become children of this process."""
    _prctl(PR_SET_CHILD_SUBREAPER, 1)


def reap_all(timeout_s):
    """Waits until this process has no children; false if some are left."""
    deadline = time.monotonic() + timeout_s
    while time.monotonic() < deadline:
        try:
            if os.waitpid(-1, os.WNOHANG)[0] == 0:
                time.sleep(0.01)
        except ChildProcessError:
            return True
    return False


def python():
    """The interpreter that runs us, for children; it leaves no bytecode in the sources."""
    return [sys.executable, "-B"]


def _prctl(option, value):
    if _libc.prctl(option, ctypes.c_ulong(value), 0, 0, 0) != 0:
        raise OSError(ctypes.get_errno(), "prctl")


def _start_time(pid):
    """0 for a process that is gone or only waits to be reaped."""
    try:
        with open(f"/proc/{pid}/stat", encoding="ascii", errors="replace") as stat:
            fields = stat.read().rpartition(")")[2].split()
    except (FileNotFoundError, ProcessLookupError):
        return 0
    return 0 if fields[0] in "ZX" else int(fields[19])
