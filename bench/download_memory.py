#!/usr/bin/env python3
"""How much memory a large download into a file needs.

Runs the download example for a body of one byte and for one of 1 GiB in turn
and prints the peak resident size of each, and the difference of the medians.
"""

import os
import statistics
import subprocess
import sys
import tempfile

RUNS = 5


def peak_kib(*command):
    """The peak resident size of a command that must succeed, in KiB.

    Told by time(1), a small program: a process begins with the peak of the one
    that started it, which would be this interpreter's.
    """
    done = subprocess.run(["/usr/bin/time", "-f", "%M", *command], stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE, text=True)
    if done.returncode != 0:
        sys.exit(f"failed: {' '.join(command)}\n{done.stderr}")
    return int(done.stderr.splitlines()[-1])


def main():
    download, url = sys.argv[1:]
    peaks = {"/bytes/1": [], "/big/1g": []}
    with tempfile.TemporaryDirectory() as folder:
        for _ in range(RUNS):
            for path, values in peaks.items():
                values.append(peak_kib(download, url + path, os.path.join(folder, "body")))
    print(f"{'body':10} {'min':>8} {'median':>8} {'max':>8}   KiB resident at the peak, {RUNS} runs")
    for path, values in peaks.items():
        print(f"{path:10} {min(values):8} {statistics.median(values):8} {max(values):8}")
    small, large = (statistics.median(values) for values in peaks.values())
    print(f"1 GiB needs {large - small} KiB more than 1 byte")


if __name__ == "__main__":
    main()
