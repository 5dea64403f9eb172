/// Threads and files.

#include "faults/EachNthCallOf.h"

#include <cerrno>
#include <system_error>
#include <thread>

/// std::thread::_M_start_thread: its second argument, a unique pointer, is
/// passed by its address.
#define START_THREAD                                                                               \
    _ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE
#define JOIN(a, b) a##b
#define REAL(name) JOIN(__real_, name)
#define WRAP(name) JOIN(__wrap_, name)

extern "C"
{
    void REAL(START_THREAD)(std::thread* thread, void* state, void (*depend)());
    void WRAP(START_THREAD)(std::thread* thread, void* state, void (*depend)());
#ifdef _WIN32
    // Imported functions are called through a pointer.
    extern errno_t (*__real___imp_fopen_s)(std::FILE**, const char*, const char*);
    extern errno_t (*__wrap___imp_fopen_s)(std::FILE**, const char*, const char*);
#else
    std::FILE* __real_fopen(const char* path, const char* mode);
    std::FILE* __wrap_fopen(const char* path, const char* mode);
#endif
}

namespace test
{
namespace
{

using StartThread = void(std::thread*, void*, void (*)());

Hook<StartThread>& StartThreadHook()
{
    static Hook<StartThread> hook("std::thread", REAL(START_THREAD));
    return hook;
}

/// The error number with which the next file is refused; 0 to open it.
Hook<int()>& OpenFileHook()
{
    static Hook<int()> hook("fopen", [] { return 0; });
    return hook;
}

TEST_F(EachNthCallOf, thread)
{
    Consequence consequence;
    consequence.refused = true;
    Fail(
        StartThreadHook(),
        [](std::thread*, void*, void (*)()) {
            throw std::system_error(
                std::make_error_code(std::errc::resource_unavailable_try_again));
        },
        consequence);
}

TEST_F(EachNthCallOf, fopen)
{
    Consequence consequence;
    consequence.refused = true;
    consequence.lines = {"[HTTP_INTERFACE]Open file["};
    Fail(
        OpenFileHook(), [] { return EMFILE; }, consequence);
}

TEST_F(EachNthCallOf, fclose)
{
    Fail(hooks::fclose(), WorksButAnswers(hooks::fclose(), EOF), Consequence());
}

} // namespace
} // namespace test

void WRAP(START_THREAD)(std::thread* thread, void* state, void (*depend)())
{
    test::StartThreadHook().Run(thread, state, depend);
}

#ifdef _WIN32

errno_t (*__wrap___imp_fopen_s)(std::FILE**, const char*, const char*) =
    [](std::FILE** file, const char* path, const char* mode)
{
    const int error = test::OpenFileHook().Run();
    return error != 0 ? error : __real___imp_fopen_s(file, path, mode);
};

#else

std::FILE* __wrap_fopen(const char* path, const char* mode)
{
    errno = test::OpenFileHook().Run();
    return errno != 0 ? nullptr : __real_fopen(path, mode);
}

#endif
