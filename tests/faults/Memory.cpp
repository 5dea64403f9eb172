#include "faults/Memory.h"

#include <cstdlib>
#include <cstring>
#include <curl/curl.h>
#include <new>
#include <openssl/crypto.h>
#include <thread>
#include <uv.h>

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

bool OpenSslFails()
{
    return Fails(allocator == Allocator::OpenSsl);
}

/// Before OpenSSL and libcurl allocate for the first time, which they do when the
/// library is loaded. libuv's realloc never fails: libuv ends the process when it
/// has no memory for a larger table of descriptors.
__attribute__((constructor(101))) void TakeAllocators()
{
    CRYPTO_set_mem_functions([](std::size_t size, const char*, int)
                             { return OpenSslFails() ? nullptr : std::malloc(size); },
                             [](void* memory, std::size_t size, const char*, int)
                             { return OpenSslFails() ? nullptr : std::realloc(memory, size); },
                             [](void* memory, const char*, int) { std::free(memory); });
    curl_global_init_mem(
        CURL_GLOBAL_SSL | CURL_GLOBAL_WIN32,
        [](std::size_t size) { return CurlFails() ? nullptr : std::malloc(size); }, std::free,
        [](void* memory, std::size_t size)
        { return CurlFails() ? nullptr : std::realloc(memory, size); },
        [](const char* text) { return CurlFails() ? nullptr : strdup(text); },
        [](std::size_t count, std::size_t size)
        { return CurlFails() ? nullptr : std::calloc(count, size); });
    uv_replace_allocator([](std::size_t size) { return UvFails() ? nullptr : std::malloc(size); },
                         std::realloc,
                         [](std::size_t count, std::size_t size)
                         { return UvFails() ? nullptr : std::calloc(count, size); },
                         std::free);
}

void* AllocateOrNull(std::size_t size)
{
    return NewFails() ? nullptr : std::malloc(size != 0 ? size : 1);
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
