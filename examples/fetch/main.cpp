// Fetches several URLs at once on one engine, and shows what a refused and a
// failed request look like.
//
//   fetch URL...

#include "FetchNotic.h"

#include <cstdio>
#include <vector>

namespace
{

using namespace http_interface;

constexpr int kGet = 0;
constexpr int kConnectTimeoutMs = 5000;
constexpr int kTimeoutMs = 30000;

std::shared_ptr<IHttpHandleInterface> MakeRequest(const char* url,
                                                  const std::shared_ptr<FetchNotic>& notic)
{
    auto handle = IHttpHandleInterface::Create();
    const int result =
        handle->InitRequest(url, "fetch", kGet, notic, kConnectTimeoutMs, kTimeoutMs, nullptr);
    return result == 0 ? handle : nullptr;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
    {
        std::fprintf(stderr, "usage: fetch URL...\n");
        return 2;
    }
    // Warnings and errors of the library go to standard error; its traces don't.
    base::IBaseLogInterface::SetDefaultLogLevel(40);

    const auto engine = IHttpInterface::Create();
    if (engine->Init(nullptr, nullptr) != 0)
    {
        return 1;
    }
    const auto notic = std::make_shared<FetchNotic>();
    std::vector<std::shared_ptr<IHttpHandleInterface>> handles;
    for (int i = 1; i < argc; ++i)
    {
        if (const auto handle = MakeRequest(argv[i], notic))
        {
            handles.push_back(handle);
        }
    }
    if (handles.empty())
    {
        return 1;
    }

    std::printf("Too early: an engine that does not run yet refuses a request.\n");
    std::fflush(stdout);
    const int refused = engine->AddHttpReq(handles.front(), false, nullptr, nullptr);
    std::printf("AddHttpReq returned %d.\n\n", refused);

    if (engine->Start(true) != 0)
    {
        return 1;
    }
    std::printf("The host's thread is %ld. %d requests at once:\n", base::GetTid(),
                static_cast<int>(handles.size()));
    std::printf("%-50s %4s %8s %9s %6s %8s\n", "URL", "done", "response", "bytes", "ms", "thread");
    notic->Begin();
    int added = 0;
    for (const auto& handle : handles)
    {
        added += engine->AddHttpReq(handle, false, nullptr, nullptr) == 0 ? 1 : 0;
    }
    notic->WaitFor(added);

    // A handle that was initialised lives until it is deleted.
    for (const auto& handle : handles)
    {
        engine->DelHttpReq(handle, false, nullptr, nullptr);
    }
    const int stopped = engine->Stop(false);
    std::printf("\ndone 0: finished, -2: failed (no response came). Stop returned %d.\n", stopped);
    return stopped == 0 && added == static_cast<int>(handles.size()) ? 0 : 1;
}
