#include "support/Resources.h"

#ifdef _WIN32
#include <algorithm>
#include <vector>
#include <windows.h>
#else
#include <filesystem>
#include <iterator>
#include <malloc.h>
#endif

namespace test
{

#ifdef _WIN32

namespace
{

constexpr int kExtendedHandleInformation = 64;
using QuerySystemInformation = LONG(WINAPI*)(int, void*, ULONG, ULONG*);

struct HandleEntry
{
    void* object;
    ULONG_PTR process;
    ULONG_PTR handle;
    ULONG grantedAccess;
    USHORT creator;
    USHORT type;
    ULONG attributes;
    ULONG reserved;
};

struct HandleTable
{
    ULONG_PTR count;
    ULONG_PTR reserved;
    HandleEntry entries[1];
};

} // namespace

// Wine does not count for GetProcessHandleCount, but it lists the handles.
std::size_t OpenHandles()
{
    const auto query = reinterpret_cast<QuerySystemInformation>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleA("ntdll.dll"), "NtQuerySystemInformation")));
    std::vector<char> buffer(1024 * 1024);
    ULONG needed = 0;
    while (query(kExtendedHandleInformation, buffer.data(), static_cast<ULONG>(buffer.size()),
                 &needed) != 0)
    {
        buffer.resize(buffer.size() * 2); // ends, without memory, where the call fails for good
    }
    const auto* const table = reinterpret_cast<const HandleTable*>(buffer.data());
    const ULONG_PTR self = GetCurrentProcessId();
    return static_cast<std::size_t>(std::count_if(table->entries, table->entries + table->count,
                                                  [&](const HandleEntry& entry)
                                                  { return entry.process == self; }));
}

std::size_t AllocatedMemory()
{
    std::vector<HANDLE> heaps(GetProcessHeaps(0, nullptr));
    heaps.resize(GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data()));
    std::size_t bytes = 0;
    for (const HANDLE heap : heaps)
    {
        HeapLock(heap);
        PROCESS_HEAP_ENTRY entry{};
        while (HeapWalk(heap, &entry) != 0)
        {
            bytes += (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0 ? entry.cbData : 0;
        }
        HeapUnlock(heap);
    }
    return bytes;
}

#else

std::size_t OpenHandles()
{
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors))) - 1;
}

std::size_t AllocatedMemory()
{
    return mallinfo2().uordblks;
}

#endif

} // namespace test
