#!/usr/bin/env python3
"""Runs exit_host again and again: each run must end, and with its own result."""

import argparse
import pathlib
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "servers"))
from announced import value  # noqa: E402

EXIT_CODE = 7
LIMIT_S = 60


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", required=True)
    parser.add_argument("--emulator", default="")
    parser.add_argument("--servers", required=True)
    parser.add_argument("--runs", type=int, required=True)
    parser.add_argument("mode", choices=("idle", "requests", "notice", "websocket",
                                         "silence", "timers"))
    parser.add_argument("address", nargs="?", help="key of the server that is asked, and a path")
    args = parser.parse_args()

    command = [*(args.emulator.split(";") if args.emulator else []), args.program, args.mode]
    if args.address:
        key, path = args.address.split("/", 1)
        command.append(value(args.servers, key) + "/" + path)
    for run in range(1, args.runs + 1):
        try:
            done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT, text=True, errors="replace",
                                  timeout=LIMIT_S)
        except subprocess.TimeoutExpired as expired:
            sys.exit(f"run {run} hung:\n{expired.output}")
        if done.returncode != EXIT_CODE:
            sys.exit(f"run {run} ended with {done.returncode}:\n{done.stdout}")
    print(f"{args.runs} processes ended with {EXIT_CODE}")


if __name__ == "__main__":
    main()
