#include "module/LibraryEntry.h"

#include "module/CallCheck.h"

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
    CheckEasy(curl_global_init(CURL_GLOBAL_SSL | CURL_GLOBAL_WIN32),
              "[HTTP_INTERFACE]err[%d:%s]curl_global_init failed");
}

void OnLibraryUnload()
{
    if (loopThreads == 0)
    {
        curl_global_cleanup();
    }
}

LoopThreadMark::LoopThreadMark()
{
    ++loopThreads;
}

LoopThreadMark::LoopThreadMark(const LoopThreadMark&) : LoopThreadMark() {}

LoopThreadMark::~LoopThreadMark()
{
    --loopThreads;
}

} // namespace http_interface
