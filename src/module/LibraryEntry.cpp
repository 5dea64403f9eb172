#include "module/LibraryEntry.h"

#include "module/HttpLog.h"
#include "module/Platform.h"

#include <atomic>
#include <curl/curl.h>

namespace http_interface
{
namespace
{

std::atomic<int> loopThreads{0};

} // namespace

void OnLibraryLoad()
{
    const CURLcode code = curl_global_init(CURL_GLOBAL_SSL | CURL_GLOBAL_WIN32);
    if (code != CURLE_OK)
    {
        HttpLog(LOG_LEVEL_ERROR, "[HTTP_INTERFACE]err[%d:%s]curl_global_init failed",
                static_cast<int>(code), curl_easy_strerror(code));
    }
}

void OnLibraryUnload()
{
    if (loopThreads == 0)
    {
        curl_global_cleanup();
    }
}

LoopThreadScope::LoopThreadScope()
{
    ++loopThreads;
}

LoopThreadScope::~LoopThreadScope()
{
    platform::OnLoopThreadEnd();
    --loopThreads;
}

} // namespace http_interface
