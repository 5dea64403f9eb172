#include "support/Memory.h"

#ifdef _WIN32
#include <windows.h>
// After windows.h:
#include <psapi.h>
#else
#include <sys/resource.h>
#endif

namespace test
{

#ifdef _WIN32

std::size_t PeakMemory()
{
    PROCESS_MEMORY_COUNTERS counters{};
    K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
    return counters.PeakWorkingSetSize;
}

#else

std::size_t PeakMemory()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<std::size_t>(usage.ru_maxrss) * 1024;
}

#endif

} // namespace test
