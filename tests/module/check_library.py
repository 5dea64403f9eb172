#!/usr/bin/env python3
"""Compares what the built library exports and needs with what it may.

Everything of ours is expected by its symbol name; a symbol or a library that is
not listed here is as much a failure as one that is missing.
"""

import argparse
import re
import subprocess
import sys

CLASSES = {
    "IHttpInterface": ["6CreateEv"],
    "IHttpHandleInterface": ["6CreateEv"],
    # {size} is the mangled name of an unsigned integer of 64 bits.
    "ITimerHandleInterface": [
        "6CreateESt10shared_ptrINS_17ITimerHandleNoticEE{size}{size}Pv",
        "6CreateESt8functionIFvSt10shared_ptrIS0_EPvEES6_{size}{size}S4_",
    ],
}
# Constructors, copy constructors, destructors and the copy assignment.
SPECIAL_MEMBERS = ["C1Ev", "C2Ev", "C1ERKS0_", "C2ERKS0_", "D0Ev", "D1Ev", "D2Ev", "aSERKS0_"]

NEEDED_LINUX = {"libbase.so.1", "libssl.so.3", "libcrypto.so.3", "libstdc++.so.6",
                "libgcc_s.so.1", "libc.so.6"}
# Without them there is no C++, no TLS or no base library.
REQUIRED_LINUX = {"libbase.so.1", "libssl.so.3", "libcrypto.so.3", "libc.so.6"}
SONAME = "libhttp_interface.so.1"

# Parts of Windows itself, and the host's base library.
NEEDED_WINDOWS = {"advapi32.dll", "bcrypt.dll", "crypt32.dll", "dbghelp.dll", "iphlpapi.dll",
                  "kernel32.dll", "msvcrt.dll", "normaliz.dll", "ole32.dll", "shell32.dll",
                  "user32.dll", "userenv.dll", "ws2_32.dll", "base.dll"}
REQUIRED_WINDOWS = {"base.dll", "bcrypt.dll", "kernel32.dll", "ws2_32.dll"}


def output(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True,
                          timeout=60).stdout


def expected_symbols(size, tables):
    symbols = set()
    for name, factories in CLASSES.items():
        scope = f"N14http_interface{len(name)}{name}"
        for member in SPECIAL_MEMBERS + [factory.format(size=size) for factory in factories]:
            symbols.add(f"_Z{scope}{member}")
        symbols.update(f"_Z{table}{scope}E" for table in tables)
    return symbols


def compare(what, found, required, allowed):
    """How many differences there are; each is shown."""
    wrong = [f"{what}: {name} is missing" for name in sorted(required - found)]
    wrong += [f"{what}: {name} is too much" for name in sorted(found - allowed)]
    print("\n".join(wrong) or f"{what}: {len(found)}, all as expected")
    return len(wrong)


def check_linux(library, nm, objdump):
    lines = output(nm, "-D", "--defined-only", library).splitlines()
    symbols = {line.split()[-1] for line in lines}
    expected = expected_symbols("m", ["TV", "TI", "TS"])
    wrong = compare("exported symbols", symbols, expected, expected)
    # A symbol that is unique in the process would keep the library loaded.
    unique = {line.split()[-1] for line in lines if line.split()[-2] == "u"}
    wrong += compare("unique symbols", unique, set(), set())

    header = output(objdump, "-p", library)
    needed = set(re.findall(r"^ +NEEDED +(\S+)$", header, re.MULTILINE))
    wrong += compare("needed libraries", needed, REQUIRED_LINUX, NEEDED_LINUX)
    soname = set(re.findall(r"^ +SONAME +(\S+)$", header, re.MULTILINE))
    return wrong + compare("name", soname, {SONAME}, {SONAME})


def check_windows(library, objdump):
    header = output(objdump, "-p", library)
    table = header.partition("[Ordinal/Name Pointer] Table")[2].partition("\n\n")[0]
    symbols = set(re.findall(r"^\s+\[ *\d+\] (?:\+base\[ *\d+\] +)?(?:[0-9a-f]+ )?(\S+)$", table,
                             re.MULTILINE))
    # Nothing imports the name text of a class: type information points to it.
    expected = expected_symbols("y", ["TV", "TI"])
    wrong = compare("exported symbols", symbols, expected, expected)
    needed = {name.lower() for name in re.findall(r"DLL Name: (\S+)", header)}
    return wrong + compare("needed libraries", needed, REQUIRED_WINDOWS, NEEDED_WINDOWS)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--nm", required=True)
    parser.add_argument("--objdump", required=True)
    parser.add_argument("library")
    args = parser.parse_args()
    if args.library.endswith(".dll"):
        wrong = check_windows(args.library, args.objdump)
    else:
        wrong = check_linux(args.library, args.nm, args.objdump)
    sys.exit(1 if wrong else 0)


if __name__ == "__main__":
    main()
