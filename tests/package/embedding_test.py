#!/usr/bin/env python3
"""A host that embeds the library's source and has a base library of its own.

The host's base library is another implementation of base/base.h; neither the
stand-in nor its packages may come in.
"""

import argparse
import pathlib
import shutil
import subprocess
import sys

LIMIT_S = 100

CMAKE = """
cmake_minimum_required(VERSION 3.25)
project(host C CXX)
add_library(hosts_base SHARED hosts_base.cpp)
target_include_directories(hosts_base PUBLIC "{source}/base/include")
target_compile_features(hosts_base PUBLIC cxx_std_17)
set(HTTP_INTERFACE_BASE_TARGET hosts_base)
set(HTTP_INTERFACE_DEPS "{deps}")
add_subdirectory("{source}" http_interface)
add_executable(host main.cpp)
target_link_libraries(host PRIVATE http_interface::http_interface)
"""

BASE = """
#include <base/base.h>
#include <cstdio>
namespace base {
long GetTid() { return 7; }
struct Log : IBaseLogInterface {
    void WriteLog(const int*, const long* threadId, const char* format, ...) override
    { std::printf("host's log, thread %ld: %s\\n", *threadId, format); }
};
std::shared_ptr<IBaseLogInterface> IBaseLogInterface::GetLogInstance() { return std::make_shared<Log>(); }
IBaseLogInterface::~IBaseLogInterface() = default;
}
"""

MAIN = """
#include <http_interface/http_interface.h>
int main()
{
    auto engine = http_interface::IHttpInterface::Create();
    auto request = http_interface::IHttpHandleInterface::Create();
    return engine->AddHttpReq(request, false, nullptr, nullptr) == -1 ? 0 : 1;
}
"""


def run(*command):
    """Runs a command that must succeed; its output is shown only when it doesn't."""
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          timeout=LIMIT_S)
    if done.returncode != 0:
        sys.exit(f"failed with {done.returncode}: {' '.join(map(str, command))}\n{done.stdout}")
    return done.stdout


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--source", type=pathlib.Path, required=True)
    parser.add_argument("--work", type=pathlib.Path, required=True)
    parser.add_argument("--deps", type=pathlib.Path, required=True)
    args = parser.parse_args()

    shutil.rmtree(args.work, ignore_errors=True)
    args.work.mkdir(parents=True)
    (args.work / "CMakeLists.txt").write_text(CMAKE.format(source=args.source, deps=args.deps))
    (args.work / "hosts_base.cpp").write_text(BASE)
    (args.work / "main.cpp").write_text(MAIN)
    build = args.work / "build"
    run("cmake", "-G", "Ninja", "-S", args.work, "-B", build)
    run("cmake", "--build", build)
    if list(build.rglob("libbase.so*")):
        sys.exit("the stand-in was built too")
    printed = run(build / "host")
    if "host's log, thread 7: [HTTP_INTERFACE]Can not add http req now" not in printed:
        sys.exit(f"the host printed:\n{printed}")
    print("a host with a base library of its own embeds the source, builds and runs")


if __name__ == "__main__":
    main()
