#include "support/Memory.h"

#ifdef _WIN32
#include <windows.h>
// After windows.h:
#include <psapi.h>
#else
#include <fstream>
#include <sys/resource.h>
#include <unistd.h>
#endif

namespace test
{

#ifdef _WIN32

namespace
{

PROCESS_MEMORY_COUNTERS Counters()
{
    PROCESS_MEMORY_COUNTERS counters{};
    K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
    return counters;
}

} // namespace

std::size_t PeakMemory()
{
    return Counters().PeakWorkingSetSize;
}

std::size_t ResidentMemory()
{
    return Counters().WorkingSetSize;
}

#else

std::size_t PeakMemory()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<std::size_t>(usage.ru_maxrss) * 1024;
}

std::size_t ResidentMemory()
{
    std::size_t total = 0;
    std::size_t resident = 0; // in pages
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

#endif

} // namespace test
