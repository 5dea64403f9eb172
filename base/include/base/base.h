#pragma once

/// The part of the host's base library that http_interface uses: the calling
/// thread's id and the logger. This folder holds a stand-in for hosts that
/// have no base library of their own.

#include <memory>

#if defined(_WIN32)
#if defined(BASE_BUILDING)
#define BASE_API __declspec(dllexport)
#else
#define BASE_API __declspec(dllimport)
#endif
#else
#define BASE_API __attribute__((visibility("default")))
#endif

namespace base
{

/// The calling thread's id as the operating system gives it. Any thread.
BASE_API long GetTid();

/// The host's logger. Calls come from any thread, several at a time.
class BASE_API IBaseLogInterface
{
public:
    /// The logger in use; never empty, from the load of this library to its
    /// unload. Any thread. Shared ownership.
    static std::shared_ptr<IBaseLogInterface> GetLogInstance();

    /// Puts another logger in place; an empty pointer puts the default one
    /// back, which writes a line of level, thread id and text to standard
    /// error. Any thread, also while others log. Of this stand-in only.
    static void SetLogInstance(std::shared_ptr<IBaseLogInterface> logger);

    /// The default logger drops lines below this level; 0, the default, keeps
    /// all. Levels are 0 debug, 20 information, 40 warning, 60 error. Any
    /// thread. Of this stand-in only.
    static void SetDefaultLogLevel(int level);

    /// Slots that http_interface does not use; they keep WriteLog() in the
    /// tenth place.
    virtual void Reserved1() {}
    virtual void Reserved2() {}
    virtual void Reserved3() {}
    virtual void Reserved4() {}
    virtual void Reserved5() {}
    virtual void Reserved6() {}
    virtual void Reserved7() {}
    virtual void Reserved8() {}
    virtual void Reserved9() {}

    /// Writes one line. Any thread, also inside libcurl and under an engine's
    /// lock: it must not call the engine. The pointers are valid during the call.
    /// @param level     As SetDefaultLogLevel() lists them.
    /// @param threadId  GetTid() of the thread that writes the line.
    /// @param format    A printf format without a line end, and its arguments.
    ///                  Sizes are given as %zu on every platform.
    virtual void WriteLog(const int* level, const long* threadId, const char* format, ...) = 0;

    virtual ~IBaseLogInterface();
};

} // namespace base
