"""The process that owns all servers: starts them, waits for the end, ends them.

It records the pid of itself and of each child before anything else can go
wrong, so that `stop` finds them. Its children die with it.
"""

import os
import resource
import signal
import time
import traceback

import certificates
import hostile_server
import httpbin_server
import launcher
import libwebsockets_server
import nginx_server
import node_server
import processes
import unreachable
import websocket_peer
import websocket_server

# Each entry's start(launcher) returns the keys for servers.env.
REGISTRY = {
    "nginx": nginx_server.start,
    "hostile": hostile_server.start,
    "unreachable": unreachable.start,
    "httpbin": httpbin_server.start,
    "websocket": websocket_server.start,
    "node": node_server.start,
    "libwebsockets": libwebsockets_server.start,
    "websocket-peer": websocket_peer.start,
}

START_LIMIT_S = 20
_SIGNALS = {signal.SIGTERM, signal.SIGINT, signal.SIGCHLD}


def pids_file(directory):
    return os.path.join(directory, "servers.pids")


def env_file(directory):
    return os.path.join(directory, "servers.env")


def supervise(directory, names, lifetime_s, report):
    """Runs until a signal, the end of a child or of the lifetime.

    `report` is called once: with "ready", or with the reason for the failure.
    """
    signal.pthread_sigmask(signal.SIG_BLOCK, _SIGNALS)
    processes.adopt_orphans()
    _raise_descriptor_limit()

    records = []

    def on_spawn(record):
        records.append(record)
        write_atomically(pids_file(directory), "".join(f"{record}\n" for record in records))

    on_spawn(processes.record(os.getpid(), "supervisor"))
    asked_to_stop = False
    servers = None
    try:
        made = certificates.create(os.path.join(directory, "certs"))
        servers = launcher.Launcher(directory, made, on_spawn)
        keys = dict(made)
        for name in names:
            keys.update(REGISTRY[name](servers))
        servers.wait_for_answers(time.monotonic() + START_LIMIT_S)
        write_atomically(env_file(directory), "".join(f"{key}={keys[key]}\n" for key in sorted(keys)))
        report("ready")
        asked_to_stop = _wait_for_end(servers, lifetime_s)
    except Exception as error:  # whatever it is, the caller is told and nothing stays behind
        traceback.print_exc()
        report(f"{type(error).__name__}: {error}")
    finally:
        if servers:
            servers.end_children()
        if not processes.reap_all(5):
            print("some processes did not end", flush=True)
        remove(env_file(directory))
        # Left in place after an end that nobody asked for: `stop` then says so.
        if asked_to_stop:
            remove(pids_file(directory))


def write_atomically(path, text):
    with open(f"{path}.new", "w", encoding="utf-8") as file:
        file.write(text)
    os.replace(f"{path}.new", path)


def remove(path):
    try:
        os.remove(path)
    except FileNotFoundError:
        pass


def _wait_for_end(servers, lifetime_s):
    """True when a signal asked for it."""
    end_of_life = time.monotonic() + lifetime_s
    while (left := end_of_life - time.monotonic()) > 0:
        got = signal.sigtimedwait(_SIGNALS, left)
        if got and got.si_signo != signal.SIGCHLD:
            return True
        servers.check_children()
    print("the lifetime is over", flush=True)
    return False


def _raise_descriptor_limit():
    """As high as we may: nginx needs one descriptor a connection and one a file."""
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    for wanted in (max(hard, 65536), hard):
        try:
            resource.setrlimit(resource.RLIMIT_NOFILE, (wanted, max(hard, wanted)))
            return
        except (OSError, ValueError):
            continue
