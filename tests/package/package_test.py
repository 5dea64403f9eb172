#!/usr/bin/env python3
"""Installs the built library and uses it as another project would.

The host program and its CMake project are taken from README.md as they stand.
"""

import argparse
import pathlib
import re
import shutil
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "servers"))
from announced import value  # noqa: E402

LIMIT_S = 100


def run(*command, **options):
    """Runs a command that must succeed; its output is shown only when it doesn't."""
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          timeout=LIMIT_S, **options)
    if done.returncode != 0:
        sys.exit(f"failed with {done.returncode}: {' '.join(map(str, command))}\n{done.stdout}")
    return done.stdout


def block(readme, language):
    """The first fenced block of a language."""
    found = re.search(rf"^```{language}\n(.*?)^```$", readme, re.MULTILINE | re.DOTALL)
    if not found:
        sys.exit(f"README.md has no {language} block")
    return found.group(1)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--source", type=pathlib.Path, required=True)
    parser.add_argument("--servers", required=True)
    parser.add_argument("--toolchain", default="")
    parser.add_argument("--emulator", default="")
    parser.add_argument("--with-pkg-config", action="store_true")
    args = parser.parse_args()

    work = args.build / "package_test"
    shutil.rmtree(work, ignore_errors=True)
    prefix = work / "prefix"
    host = work / "host"
    host.mkdir(parents=True)
    run("cmake", "--install", args.build, "--prefix", prefix)

    readme = (args.source / "README.md").read_text()
    (host / "main.cpp").write_text(block(readme, "cpp"))
    (host / "CMakeLists.txt").write_text(block(readme, "cmake"))
    configure = ["cmake", "-G", "Ninja", "-S", host, "-B", host / "build",
                 f"-DCMAKE_PREFIX_PATH={prefix}", "-DCMAKE_BUILD_TYPE=Release"]
    if args.toolchain:
        configure += [f"-DCMAKE_TOOLCHAIN_FILE={args.toolchain}",
                      f"-DCMAKE_FIND_ROOT_PATH={prefix}",
                      "-DCMAKE_EXE_LINKER_FLAGS=-static"]
    run(*configure)
    run("cmake", "--build", host / "build")

    program = host / "build" / "host"
    if args.toolchain:
        program = program.with_suffix(".exe")
        for library in (prefix / "bin").glob("*.dll"):
            shutil.copy(library, program.parent)
    check_output(run(*args.emulator.split(";") if args.emulator else [], program,
                     value(args.servers, "HTTP_URL") + "/hello"))

    if args.with_pkg_config:
        pkg_config_dir = next(prefix.glob("lib*/**/pkgconfig"))
        flags = run("pkg-config", "--cflags", "--libs", "http_interface",
                    env={"PKG_CONFIG_PATH": str(pkg_config_dir), "PATH": "/usr/bin:/bin"}).split()
        library_dir = pkg_config_dir.parent
        run("c++", "-std=c++17", host / "main.cpp", "-o", host / "by-pkg-config", *flags,
            f"-Wl,-rpath,{library_dir}", f"-Wl,-rpath-link,{library_dir}")
        check_output(run(host / "by-pkg-config", value(args.servers, "HTTP_URL") + "/hello"))
    print("the host program of README.md was built against the installed package, and ran")


def check_output(output):
    # The traces of the default logger stand before and after it.
    if "0 200 hello from nginx" not in output:
        sys.exit(f"the host program printed:\n{output}")


if __name__ == "__main__":
    main()
