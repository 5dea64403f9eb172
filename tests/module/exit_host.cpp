/// A host that ends its process while its engine still runs.
///   exit_host idle             with nothing to do
///   exit_host requests URL     in the middle of requests, each on a new
///                              connection
///   exit_host notice URL       inside a notice, on the loop thread
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
constexpr int kRequestsBeforeTheEnd = 20;

/// Hands every finished request to the engine again.
class RepeatingNotic : public IHttpHandleNotic
{
public:
    RepeatingNotic(std::shared_ptr<IHttpInterface> engine, bool exits)
        : m_pEngine(std::move(engine)), m_bExits(exits)
    {
    }

    void OnWsData(const char*, std::size_t, int, void*) override {}
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
    if (mode == "idle")
    {
        return kExitCode;
    }
    if (argc != 3 || (mode != "requests" && mode != "notice"))
    {
        return 2;
    }

    const auto notic = std::make_shared<RepeatingNotic>(engineOfTheHost, mode == "notice");
    const std::list<std::string> headers = {"Connection: close"};
    for (int i = 0; i < kHandles; ++i)
    {
        const auto handle = IHttpHandleInterface::Create();
        if (handle->InitRequest(argv[2], "tag", 0, notic, 20000, 20000, nullptr) != 0 ||
            handle->SetCaCert(nullptr) != 0 || handle->SetHeaders(&headers) != 0 ||
            engineOfTheHost->AddHttpReq(handle, false, nullptr, nullptr) != 0)
        {
            return 1;
        }
    }
    return notic->m_Finished.Wait(kRequestsBeforeTheEnd) ? kExitCode : 1;
}
