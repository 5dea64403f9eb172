/// A name server that does not answer: what it holds up, and what not. A look-up
/// would last for 30 s; each test is over long before.

#include "lookup/HangingNameServer.h"
#include "lookup/LoopbackServer.h"
#include "lookup/NetworkNamespace.h"
#include "support/EngineTest.h"
#include "support/Transfers.h"

#include <algorithm>
#include <chrono>
#include <deque>

namespace test
{
namespace
{

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kTicks = 40;
constexpr milliseconds kPeriod{5};
constexpr milliseconds kMostDelay{50};

/// A request asks for both kinds of address, each on a thread of its own.
constexpr int kQuestionsPerName = 2;
/// libcurl looks up on so many threads at once.
constexpr int kMostLookUps = 20;

class NameLookUpTest : public EngineTest
{
protected:
    static void SetUpTestSuite()
    {
        ASSERT_EQ(EnterNetworkNamespace("nameserver 127.0.0.1\noptions timeout:30 attempts:1\n"),
                  "");
    }

    void SetUp() override
    {
        ASSERT_TRUE(m_Names.IsListening());
        StartEngine();
    }

    /// Whatever a test left waiting would hold the end of the loop up.
    void TearDown() override
    {
        m_Names.LetGo();
        EngineTest::TearDown();
    }

    std::shared_ptr<IHttpHandleInterface> StartLookUp(const std::string& name,
                                                      int timeoutMs = 20000)
    {
        auto handle = MakeHandle("http://" + name + ".test/", kGet, timeoutMs);
        EXPECT_EQ(m_pEngine->AddHttpReq(handle, false, nullptr, nullptr), 0);
        return handle;
    }

    /// Runs a timer for a while, `meanwhile` on its thread in the middle of it;
    /// the most that an expiry came late.
    milliseconds LargestDelay(const std::function<void()>& meanwhile)
    {
        const auto notic = std::make_shared<TimerNotic>();
        Clock::duration most{};
        Clock::time_point last{};
        int ticks = 0;
        notic->m_OnTimer = [&](const std::shared_ptr<ITimerHandleInterface>&)
        {
            const auto now = Clock::now();
            if (ticks > 0)
            {
                most = std::max(most, now - last - kPeriod);
            }
            last = now;
            if (++ticks == kTicks / 2)
            {
                meanwhile();
            }
        };
        const auto period = static_cast<std::uint64_t>(kPeriod.count());
        const auto timer = ITimerHandleInterface::Create(notic, period, period, nullptr);
        EXPECT_EQ(m_pEngine->AddTimerReq(timer, false, nullptr, nullptr), 0);
        EXPECT_TRUE(notic->m_Expired.Wait(kTicks));
        EXPECT_EQ(m_pEngine->DelTimerReq(timer, false, nullptr, nullptr), 0);
        EXPECT_TRUE(notic->m_Closed.Wait());
        return std::chrono::duration_cast<milliseconds>(most);
    }

    /// The smallest of some measured delays: whatever the machine does besides
    /// may make one larger, a loop that waits for names makes all of them so.
    template <typename Measure>
    static milliseconds Smallest(Measure measure)
    {
        milliseconds smallest = milliseconds::max();
        for (int run = 0; run < 5; ++run)
        {
            smallest = std::min(smallest, measure());
        }
        RecordProperty("delayMs", static_cast<int>(smallest.count()));
        return smallest;
    }

    void RunTransfer()
    {
        const auto handle = MakeHandle(m_Server.Url());
        Run(handle);
        EXPECT_EQ(m_pNotic->m_Result, 0);
        EXPECT_EQ(handle->GetResponse(), "ok");
        Delete(handle);
    }

    HangingNameServer m_Names;
    LoopbackServer m_Server;
};

TEST_F(NameLookUpTest, LookUpThatHangsDelaysNoTimer)
{
    int names = 0;
    std::vector<std::shared_ptr<IHttpHandleInterface>> handles;
    EXPECT_LE(Smallest(
                  [&] {
                      return LargestDelay(
                          [&] { handles.push_back(StartLookUp("a" + std::to_string(++names))); });
                  }),
              kMostDelay);
    EXPECT_TRUE(m_Names.m_Asked.Wait(names * kQuestionsPerName));
    m_Names.LetGo();
    for (const auto& handle : handles)
    {
        Delete(handle);
    }
}

TEST_F(NameLookUpTest, DeleteDuringALookUpDelaysNoTimer)
{
    int names = 0;
    EXPECT_LE(Smallest(
                  [&]
                  {
                      const auto handle = StartLookUp("b" + std::to_string(++names));
                      EXPECT_TRUE(m_Names.m_Asked.Wait(names * kQuestionsPerName));
                      return LargestDelay(
                          [&]
                          {
                              HttpCompletion deleted;
                              EXPECT_EQ(
                                  m_pEngine->DelHttpReq(handle, false, deleted.Function(), nullptr),
                                  0);
                              EXPECT_EQ(deleted.Calls(), 1);
                          });
                  }),
              kMostDelay);
}

TEST_F(NameLookUpTest, TransfersOfKnownAddressesRunDuringALookUp)
{
    const auto handle = StartLookUp("c");
    ASSERT_TRUE(m_Names.m_Asked.Wait(kQuestionsPerName));
    RunTransfer();
    Delete(handle);
    RunTransfer();
}

TEST_F(NameLookUpTest, LookUpIsTimedOutWithItsRequest)
{
    const auto handle = StartLookUp("d", 300);
    ASSERT_TRUE(m_Names.m_Asked.Wait(kQuestionsPerName));
    ASSERT_TRUE(m_pNotic->m_Finished.Wait());
    EXPECT_EQ(m_pNotic->m_Result, -2);
    EXPECT_EQ(m_Log.Count(kDebug, DoneLine("http://d.test/", kTimeout)), 1);
    RunTransfer();
    Delete(handle);
}

TEST_F(NameLookUpTest, MoreLookUpsThanThreadsHoldUpOtherNamesOnly)
{
    std::vector<std::shared_ptr<IHttpHandleInterface>> handles;
    for (int i = 0; i < kMostLookUps; ++i)
    {
        handles.push_back(StartLookUp("e" + std::to_string(i)));
    }
    ASSERT_TRUE(m_Names.m_Asked.Wait(kMostLookUps));
    RunTransfer();
    EXPECT_EQ(m_Names.m_Asked.Count(), kMostLookUps);
    m_Names.LetGo();
    EXPECT_TRUE(m_Names.m_Asked.Wait(kMostLookUps * kQuestionsPerName));
    for (const auto& handle : handles)
    {
        Delete(handle);
    }
}

TEST_F(NameLookUpTest, StopWaitsForALookUpInFlight)
{
    const auto handle = StartLookUp("f");
    ASSERT_TRUE(m_Names.m_Asked.Wait(kQuestionsPerName));
    ASSERT_EQ(m_pEngine->DelHttpReq(handle, false, nullptr, nullptr), 0);
    std::thread stop([this] { EXPECT_EQ(m_pEngine->Stop(false), 0); });
    // The loop is over by then, and its end waits for the look-up.
    EXPECT_TRUE(m_pEngineNotic->m_Stopped.Wait());
    m_Names.LetGo();
    stop.join();
}

} // namespace
} // namespace test
