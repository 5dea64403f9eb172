#include "faults/Memory.h"

#include <cstdlib>
#include <new>
#include <openssl/crypto.h>
#include <thread>

extern "C"
{
    void* __real_malloc(std::size_t size);
    void* __real_calloc(std::size_t count, std::size_t size);
    void* __real_realloc(void* memory, std::size_t size);
    char* __real_strdup(const char* text);
    void* __wrap_calloc(std::size_t count, std::size_t size);
    void* __wrap_realloc(void* memory, std::size_t size);
    char* __wrap_strdup(const char* text);
}

namespace test
{
namespace
{

thread_local bool inLibrary = true;
std::atomic<Nth*> failing{nullptr};
Allocator allocator;
std::thread::id hostThread;

bool Fails(bool asked)
{
    Nth* const nth = failing;
    return nth != nullptr && asked && inLibrary && nth->IsNow();
}

bool CurlFails()
{
    return Fails(allocator == Allocator::Curl);
}

bool UvFails()
{
    return Fails(allocator == Allocator::Uv);
}

bool NewFails()
{
    const bool onHost = std::this_thread::get_id() == hostThread;
    return Fails(allocator == (onHost ? Allocator::NewOnHostThread : Allocator::NewOnLoopThread));
}

/// libuv's own allocator, so that its allocations can be told from libcurl's.
/// Its realloc never fails: libuv ends the process when it has no memory for a
/// larger table of descriptors.
[[maybe_unused]] const int replaced = uv_replace_allocator(
    [](std::size_t size) { return UvFails() ? nullptr : __real_malloc(size); }, __real_realloc,
    [](std::size_t count, std::size_t size)
    { return UvFails() ? nullptr : __real_calloc(count, size); },
    std::free);

bool OpenSslFails()
{
    return Fails(allocator == Allocator::OpenSsl);
}

/// OpenSSL takes them only before it allocates for the first time, which it does
/// when the library is loaded.
__attribute__((constructor(101))) void ReplaceOpenSslMemory()
{
    CRYPTO_set_mem_functions([](std::size_t size, const char*, int)
                             { return OpenSslFails() ? nullptr : __real_malloc(size); },
                             [](void* memory, std::size_t size, const char*, int)
                             { return OpenSslFails() ? nullptr : __real_realloc(memory, size); },
                             [](void* memory, const char*, int) { std::free(memory); });
}

void* AllocateOrNull(std::size_t size)
{
    return NewFails() ? nullptr : __real_malloc(size != 0 ? size : 1);
}

} // namespace

RunningCode::RunningCode(bool library) : m_Before(inLibrary)
{
    inLibrary = library;
}

RunningCode::~RunningCode()
{
    inLibrary = m_Before;
}

FailingAllocation::FailingAllocation(Allocator which, Nth& nth)
    : m_Malloc([](std::size_t) { return CurlFails(); })
{
    hostThread = std::this_thread::get_id();
    allocator = which;
    failing = &nth;
}

FailingAllocation::~FailingAllocation()
{
    failing = nullptr;
}

} // namespace test

void* __wrap_calloc(std::size_t count, std::size_t size)
{
    return test::CurlFails() ? nullptr : __real_calloc(count, size);
}

void* __wrap_realloc(void* memory, std::size_t size)
{
    return test::CurlFails() ? nullptr : __real_realloc(memory, size);
}

char* __wrap_strdup(const char* text)
{
    return test::CurlFails() ? nullptr : __real_strdup(text);
}

void* operator new(std::size_t size)
{
    void* const memory = test::AllocateOrNull(size);
    if (memory == nullptr)
    {
        throw std::bad_alloc();
    }
    return memory;
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return test::AllocateOrNull(size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, const std::nothrow_t&) noexcept
{
    std::free(memory);
}
