/// A host that ends its process while its engine still runs.
///   exit_host idle             with nothing to do
///   exit_host requests URL     in the middle of requests, each on a new
///                              connection
///   exit_host notice URL       inside a notice, on the loop thread
///   exit_host websocket URL    with WebSockets open; the peer speaks first
///   exit_host silence URL      with requests that nobody answers
///   exit_host timers           while timers expire
/// The result is kExitCode; anything else is a failure.

#include "base/base.h"
#include "http_interface/http_interface.h"
#include "support/Event.h"

#include <cstdio>
#include <cstdlib>
#include <string>

using namespace http_interface;

namespace
{

constexpr int kExitCode = 7;
constexpr int kHandles = 8;
constexpr int kGet = 0;
constexpr int kWebSocket = 3;
constexpr int kRequestsBeforeTheEnd = 20;

/// Hands every finished request to the engine again.
class RepeatingNotic : public IHttpHandleNotic
{
public:
    RepeatingNotic(std::shared_ptr<IHttpInterface> engine, bool exits)
        : m_pEngine(std::move(engine)), m_bExits(exits)
    {
    }

    void OnWsData(const char*, std::size_t, int, void*) override { m_Finished.Set(); }
    void OnProgress(const char*, const char*, double, double, double, double, void*) override {}
    std::size_t OnReadData(std::shared_ptr<IHttpHandleInterface>, char*, std::size_t, std::size_t,
                           void*) override
    {
        return 0;
    }

    void OnFinish(std::shared_ptr<IHttpHandleInterface> handle, int result, void*) override
    {
        if (result != 0)
        {
            std::fputs("a request failed\n", stderr);
            std::_Exit(1);
        }
        if (m_bExits)
        {
            std::exit(kExitCode);
        }
        m_pEngine->AddHttpReq(handle, false, nullptr, nullptr);
        m_Finished.Set();
    }

    test::Event m_Finished;

private:
    const std::shared_ptr<IHttpInterface> m_pEngine;
    const bool m_bExits;
};

/// Released while the loop thread goes on, as a careless host's would be.
std::shared_ptr<IHttpInterface> engineOfTheHost;

/// Hands requests to the engine, each for a new connection; the event comes
/// for each one added. False when that failed.
bool AddRequests(const char* url, int method, const std::shared_ptr<IHttpHandleNotic>& notic,
                 test::Event& added)
{
    const std::list<std::string> headers = {"Connection: close"};
    for (int i = 0; i < kHandles; ++i)
    {
        const auto handle = IHttpHandleInterface::Create();
        if (handle->InitRequest(url, "tag", method, notic, 20000, 20000, nullptr) != 0 ||
            handle->SetCaCert(nullptr) != 0 ||
            (method != kWebSocket && handle->SetHeaders(&headers) != 0) ||
            engineOfTheHost->AddHttpReq(
                handle, false,
                [&](std::shared_ptr<IHttpHandleInterface>, void*, int) { added.Set(); },
                nullptr) != 0)
        {
            return false;
        }
    }
    return true;
}

bool RunTimers()
{
    auto& expired = *new test::Event; // never destroyed: the timers go on
    for (int i = 0; i < kHandles; ++i)
    {
        const auto timer = ITimerHandleInterface::Create(
            [&](std::shared_ptr<ITimerHandleInterface>, void*) { expired.Set(); }, nullptr, 1, 1,
            nullptr);
        if (engineOfTheHost->AddTimerReq(timer, false, nullptr, nullptr) != 0)
        {
            return false;
        }
    }
    return expired.Wait(kRequestsBeforeTheEnd);
}

bool RunRequests(const std::string& mode, const char* url)
{
    auto& added = *new test::Event; // never destroyed, as above
    const auto notic = std::make_shared<RepeatingNotic>(engineOfTheHost, mode == "notice");
    if (!AddRequests(url, mode == "websocket" ? kWebSocket : kGet, notic, added))
    {
        return false;
    }
    if (mode == "silence")
    {
        return added.Wait(kHandles);
    }
    return notic->m_Finished.Wait(mode == "websocket" ? kHandles : kRequestsBeforeTheEnd);
}

} // namespace

int main(int argc, char** argv)
{
    const std::string mode = argc > 1 ? argv[1] : "";
    constexpr int kOnlyErrors = 60;
    base::IBaseLogInterface::SetDefaultLogLevel(kOnlyErrors);
    engineOfTheHost = IHttpInterface::Create();
    if (engineOfTheHost->Init(nullptr, nullptr) != 0 || engineOfTheHost->Start(true) != 0)
    {
        return 1;
    }
    bool done = false;
    if (mode == "idle")
    {
        done = true;
    }
    else if (mode == "timers")
    {
        done = RunTimers();
    }
    else if (argc == 3)
    {
        done = RunRequests(mode, argv[2]);
    }
    return done ? kExitCode : 1;
}
