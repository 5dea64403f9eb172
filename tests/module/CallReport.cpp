/// Linked into a library of the product's objects: its calls of libcurl's
/// global state come here first, and are reported as lines of the host's
/// logger.

#include "base/base.h"

#include <curl/curl.h>

namespace
{

template <typename... Args>
void Report(const char* format, Args... args)
{
    const int level = 20;
    const long threadId = base::GetTid();
    base::IBaseLogInterface::GetLogInstance()->WriteLog(&level, &threadId, format, args...);
}

} // namespace

extern "C" CURLcode __real_curl_global_init(long flags);
extern "C" CURLcode __wrap_curl_global_init(long flags);
extern "C" void __real_curl_global_cleanup();
extern "C" void __wrap_curl_global_cleanup();

// A logger that writes to the address in the line makes the call fail.
CURLcode __wrap_curl_global_init(long flags)
{
    int result = __real_curl_global_init(flags);
    Report("curl_global_init[%ld] %p", flags, static_cast<void*>(&result));
    return static_cast<CURLcode>(result);
}

void __wrap_curl_global_cleanup()
{
    Report("curl_global_cleanup");
    __real_curl_global_cleanup();
}
