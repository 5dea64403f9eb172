"""What the servers announced, for the check scripts beside the C++ tests."""

import pathlib
import sys


def value(file, key):
    """The value of a key in servers.env; ends the script when there is none."""
    for line in pathlib.Path(file).read_text().splitlines():
        name, _, found = line.partition("=")
        if name == key:
            return found
    sys.exit(f"no {key} in {file}")
