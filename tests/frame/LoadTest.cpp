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
    struct Run
    {
        std::shared_ptr<IHttpInterface> engine = IHttpInterface::Create();
        std::shared_ptr<EngineNotic> engineNotic = std::make_shared<EngineNotic>();
        std::shared_ptr<IHttpHandleInterface> handle = IHttpHandleInterface::Create();
        std::shared_ptr<HandleNotic> notic = std::make_shared<HandleNotic>();
    };
    std::vector<Run> runs(kEngines);
    for (const Run& run : runs)
    {
        ASSERT_EQ(run.engine->Init(run.engineNotic, nullptr), 0);
        ASSERT_EQ(run.engine->Start(true), 0);
        ASSERT_EQ(run.handle->InitRequest(held.Url().c_str(), "", kGet, run.notic, 0, 0, nullptr),
                  0);
        ASSERT_EQ(run.engine->AddHttpReq(run.handle, false, nullptr, nullptr), 0);
    }
    held.WaitUntilHeld(runs.front().engine, kEngines);
    held.Release(runs.back().engine);
    for (const Run& run : runs)
    {
        ASSERT_TRUE(run.notic->m_Finished.Wait());
        EXPECT_EQ(run.handle->GetResponse(), "released\n");
        EXPECT_EQ(run.engine->DelHttpReq(run.handle, false, nullptr, nullptr), 0);
        EXPECT_EQ(run.engine->Stop(false), 0);
        EXPECT_EQ(run.engineNotic->m_Stopped.Count(), 1);
    }
}

} // namespace
} // namespace test
