/// Many requests on one engine, and many engines.

#include "support/EngineTest.h"
#include "support/HeldTransfer.h"
#include "support/Memory.h"
#include "support/Scale.h"

#include <iostream>
#include <vector>
#ifndef _WIN32
#include <sys/resource.h>
#endif

namespace test
{
namespace
{

#ifdef _WIN32
constexpr int kInFlight = 1000;
#else
constexpr int kInFlight = Scaled(10000);
#endif
constexpr int kEngines = 64;

/// Every request has a connection of its own, in this process and in the
/// server, which raises its limit too.
bool RaiseDescriptorLimit()
{
#ifndef _WIN32
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
    {
        return false;
    }
    limit.rlim_cur = limit.rlim_max;
    return setrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur > kInFlight + 100;
#else
    return true;
#endif
}

class LoadTest : public EngineTest
{
};

TEST_F(LoadTest, ThousandsOfRequestsAreInFlightAtOnce)
{
    ASSERT_TRUE(RaiseDescriptorLimit());
    StartEngine();
    const HeldTransfer held("load");
    const auto notic = std::make_shared<HandleNotic>();
    int good = 0;
    notic->m_OnFinish = [&](const std::shared_ptr<IHttpHandleInterface>& handle, int result)
    {
        good += result == 0 && handle->GetResponse() == "released\n" ? 1 : 0;
    };

    const std::size_t before = ResidentMemory();
    std::vector<std::shared_ptr<IHttpHandleInterface>> handles(kInFlight);
    for (auto& handle : handles)
    {
        handle = IHttpHandleInterface::Create();
        ASSERT_EQ(handle->InitRequest(held.Url().c_str(), "", kGet, notic, 0, 0, nullptr), 0);
        ASSERT_EQ(m_pEngine->AddHttpReq(handle, false, nullptr, nullptr), 0);
    }
    // In parts, each of which the server waits for no longer than 10 s.
    for (int requests = kInFlight / 10; requests <= kInFlight; requests += kInFlight / 10)
    {
        held.WaitUntilHeld(m_pEngine, requests);
    }
    const std::size_t perRequest = (ResidentMemory() - before) / kInFlight;
    std::cout << kInFlight << " requests in flight, " << perRequest << " bytes each\n";
    RecordProperty("bytesPerRequest", static_cast<int>(perRequest));

    held.Release(m_pEngine);
    EXPECT_TRUE(notic->m_Finished.Wait(kInFlight));
    HttpCompletion deleted;
    for (const auto& handle : handles)
    {
        EXPECT_EQ(m_pEngine->DelHttpReq(handle, false, deleted.Function(), nullptr), 0);
    }
    EXPECT_TRUE(deleted.Wait(kInFlight));
    EXPECT_EQ(good, kInFlight);
}

TEST_F(LoadTest, ManyEnginesRunAtOnce)
{
    const HeldTransfer held("engines");
    std::vector<std::shared_ptr<IHttpInterface>> engines(kEngines);
    std::vector<std::shared_ptr<IHttpHandleInterface>> handles;
    const auto notic = std::make_shared<HandleNotic>();
    for (auto& engine : engines)
    {
        engine = IHttpInterface::Create();
        ASSERT_EQ(engine->Init(m_pEngineNotic, nullptr), 0);
        ASSERT_EQ(engine->Start(true), 0);
        handles.push_back(IHttpHandleInterface::Create());
        ASSERT_EQ(handles.back()->InitRequest(held.Url().c_str(), "", kGet, notic, 0, 0, nullptr),
                  0);
        ASSERT_EQ(engine->AddHttpReq(handles.back(), false, nullptr, nullptr), 0);
    }
    held.WaitUntilHeld(engines.front(), kEngines);
    held.Release(engines.back());
    ASSERT_TRUE(notic->m_Finished.Wait(kEngines));
    for (int at = 0; at < kEngines; ++at)
    {
        EXPECT_EQ(handles[at]->GetResponse(), "released\n");
        EXPECT_EQ(engines[at]->DelHttpReq(handles[at], false, nullptr, nullptr), 0);
        EXPECT_EQ(engines[at]->Stop(false), 0);
    }
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), kEngines);
}

} // namespace
} // namespace test
