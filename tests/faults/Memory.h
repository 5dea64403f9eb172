#pragma once

#include "faults/Nth.h"

/// Allocations that fail, for the code under test only: a thread that the
/// library made runs its code, and the test's own thread does inside of
/// LibraryCode.

namespace test
{

/// Whose code the calling thread runs, from construction to destruction.
class RunningCode
{
public:
    RunningCode(const RunningCode&) = delete;
    RunningCode& operator=(const RunningCode&) = delete;

protected:
    explicit RunningCode(bool library);
    ~RunningCode();

private:
    const bool m_Before;
};

class LibraryCode : RunningCode
{
public:
    LibraryCode() : RunningCode(true) {}
};

/// Also what the library calls: notices, completions, the logger.
class TestCode : RunningCode
{
public:
    TestCode() : RunningCode(false) {}
};

enum class Allocator
{
    NewOnHostThread, ///< `new` in a call of the host
    NewOnLoopThread, ///< `new` in whatever the loop thread does
    Curl,            ///< libcurl
    Uv,              ///< libuv, but for its table of descriptors
    OpenSsl,
};

/// Makes the nth allocation fail from construction to destruction. Construct it
/// on the host's thread.
class FailingAllocation
{
public:
    FailingAllocation(Allocator allocator, Nth& nth);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
};

} // namespace test
