#!/usr/bin/python3
"""Starts and stops the local servers that the tests talk to.

    servers.py start --dir D [--only nginx,hostile] [--lifetime SECONDS]
    servers.py stop --dir D
    servers.py run --dir D [--only ...] -- COMMAND...

`start` returns when every server answers, and D/servers.env then tells tests
where they are, one KEY=VALUE a line. When it fails, nothing is left running.
"""

import sys

sys.dont_write_bytecode = True

import argparse
import contextlib
import fcntl
import os
import select
import signal
import subprocess

import processes

try:
    from supervisor import REGISTRY, START_LIMIT_S, env_file, pids_file, remove, supervise
except ModuleNotFoundError as error:
    sys.exit(f"servers.py: {error}; it needs Debian's /usr/bin/python3 and python3-cryptography")


def start(directory, names, lifetime_s, tied=False):
    """The error text, or None once all servers answer. Tied servers end with this process."""
    parent = os.getpid()
    with _locked(directory):
        _end_recorded(directory)
        ready_in, ready_out = os.pipe()
        with open(os.path.join(directory, "supervisor.log"), "wb") as log:
            supervisor = subprocess.Popen(
                processes.python() + [os.path.abspath(__file__), "supervise", "--dir", directory,
                                      "--only", ",".join(names), "--lifetime", str(lifetime_s),
                                      "--ready-fd", str(ready_out)],
                stdin=subprocess.DEVNULL, stdout=log, stderr=log, pass_fds=[ready_out],
                start_new_session=True,
                preexec_fn=(lambda: processes.die_with_parent(parent)) if tied else None)
        os.close(ready_out)
        with os.fdopen(ready_in, encoding="utf-8") as ready:
            told = select.select([ready], [], [], START_LIMIT_S + 10)[0]
            answer = ready.read().strip() if told else "the supervisor does not answer"
        if answer == "ready":
            supervisor.returncode = 0  # it lives on; keeps Popen from warning about it
            return None
        try:
            supervisor.wait(15)
        except subprocess.TimeoutExpired:
            supervisor.kill()
            supervisor.wait(5)
        _end_recorded(directory)
        return answer or f"the supervisor ended without a word, see {directory}/supervisor.log"


def stop(directory):
    """The error text, or None; stopping what doesn't run is no error."""
    if not os.path.isdir(directory):
        return None
    with _locked(directory):
        return _end_recorded(directory)


def run(directory, names, lifetime_s, command):
    """The exit code of the command."""
    def on_signal(number, _frame):
        raise SystemExit(128 + number)

    signal.signal(signal.SIGTERM, on_signal)
    signal.signal(signal.SIGINT, on_signal)
    parent = os.getpid()
    child = None
    try:
        if error := start(directory, names, lifetime_s, tied=True):
            return _failed(error)
        child = subprocess.Popen(
            command, env={**os.environ, "HTTP_INTERFACE_TEST_SERVERS": env_file(directory)},
            preexec_fn=lambda: processes.die_with_parent(parent))
        code = child.wait(lifetime_s)
        code = code if code >= 0 else 128 - code
    except (OSError, subprocess.TimeoutExpired) as error:
        code = _failed(error)
    finally:
        if child and child.poll() is None:
            child.terminate()
            try:
                child.wait(10)
            except subprocess.TimeoutExpired:
                child.kill()
                child.wait(5)
        stop_error = stop(directory)
    if stop_error:
        return code or _failed(stop_error)
    return code


@contextlib.contextmanager
def _locked(directory):
    """Two calls for the same folder take turns."""
    os.makedirs(directory, exist_ok=True)
    with open(os.path.join(directory, "servers.lock"), "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


def _end_recorded(directory):
    """Ends what the last start recorded; tells if it had ended before anyone asked."""
    try:
        with open(pids_file(directory), encoding="utf-8") as file:
            supervisor, *children = [processes.parse(line) for line in file]
    except FileNotFoundError:
        return None
    ended_early = not processes.is_running(supervisor)
    processes.end(supervisor, signal.SIGTERM, grace_s=15)
    for child in children:  # none is left unless the supervisor had to be killed
        processes.end(child, signal.SIGKILL, grace_s=5)
    remove(env_file(directory))
    remove(pids_file(directory))
    return f"the servers had ended early, see {directory}/supervisor.log" if ended_early else None


def _failed(error):
    print(f"servers.py: {error}", file=sys.stderr)
    return 1


def _server_names(text):
    names = text.split(",")
    for name in names:
        if name not in REGISTRY:
            raise argparse.ArgumentTypeError(f"no server {name!r}; there are {', '.join(REGISTRY)}")
    return names


def _arguments():
    parser = argparse.ArgumentParser(description="Local servers for the tests.")
    commands = parser.add_subparsers(dest="action", required=True)
    for action in ("start", "run", "supervise", "stop"):
        command = commands.add_parser(action)
        command.add_argument("--dir", required=True, type=os.path.abspath)
        if action != "stop":
            command.add_argument("--only", type=_server_names, default=list(REGISTRY),
                                 help=f"some of {','.join(REGISTRY)}")
            command.add_argument("--lifetime", type=float, default=2400, help="seconds")
        if action == "supervise":
            command.add_argument("--ready-fd", type=int, required=True)
        if action == "run":
            command.add_argument("command", nargs=argparse.REMAINDER)
    arguments = parser.parse_args()
    if arguments.action == "run":
        if arguments.command[:1] == ["--"]:
            del arguments.command[0]
        if not arguments.command:
            parser.error("run needs a command")
    return arguments


def main():
    arguments = _arguments()
    if arguments.action == "supervise":
        with os.fdopen(arguments.ready_fd, "w", encoding="utf-8") as ready:
            def report(text):
                if not ready.closed:
                    ready.write(text.replace("\n", " "))
                    ready.close()
            supervise(arguments.dir, arguments.only, arguments.lifetime, report)
        return 0
    if arguments.action == "run":
        return run(arguments.dir, arguments.only, arguments.lifetime, arguments.command)
    if arguments.action == "start":
        error = start(arguments.dir, arguments.only, arguments.lifetime)
    else:
        error = stop(arguments.dir)
    return _failed(error) if error else 0


if __name__ == "__main__":
    sys.exit(main())
