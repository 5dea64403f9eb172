#include "support/EngineTest.h"
#include "support/HeldLoop.h"
#include "support/Servers.h"

#include <system_error>
#include <thread>

namespace test
{
namespace
{

const std::string kOnStop = "[HTTP_INTERFACE]http_interface::CHttpFrame::OnStop";
const std::string kThreadStop = "[HTTP_INTERFACE]FrameThread Stop";

class StopTest : public EngineTest
{
protected:
    /// Runs a function on the loop thread that stops the engine there, and
    /// returns when that thread has ended.
    void StopOnLoop(const std::function<void()>& function)
    {
        Event ended;
        HeldLoop(m_pEngine).Release(
            [&]
            {
                SetAtThreadEnd(ended);
                function();
            });
        EXPECT_TRUE(ended.Wait());
        EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 1);
    }
};

TEST_F(StopTest, BeforeInitAndBeforeStartItIsRefusedWithoutALine)
{
    EXPECT_EQ(m_pEngine->Stop(false), -1);
    EXPECT_EQ(m_pEngine->Stop(true), -1);
    ASSERT_EQ(m_pEngine->Init(nullptr, nullptr), 0);
    EXPECT_EQ(m_pEngine->Stop(false), -1);
    EXPECT_EQ(m_pEngine->Stop(true), -1);
    EXPECT_TRUE(m_Log.Lines().empty());
    ASSERT_EQ(m_pEngine->Start(true), 0);
    StopEngine();
}

TEST_F(StopTest, SecondOneIsRefused)
{
    StartEngine();
    StopEngine();
    EXPECT_EQ(m_pEngine->Stop(false), -1);
    EXPECT_EQ(m_pEngine->Stop(true), -1);
    EXPECT_EQ(m_Log.Count(kDebug, kOnStop), 1);
}

TEST_F(StopTest, FromAHostThreadItReturnsAfterTheNotice)
{
    bool told = false;
    m_pEngineNotic->m_Hook = [&](const std::shared_ptr<IHttpInterface>&)
    {
        // Time for a stop that doesn't wait to show itself.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        told = true;
    };
    StartEngine();
    ASSERT_EQ(m_pEngine->Stop(false), 0);
    EXPECT_TRUE(told);
    EXPECT_EQ(m_pEngine->Init(nullptr, nullptr), 0); // the loop is closed, too
    ASSERT_EQ(m_pEngine->Start(true), 0);
}

TEST_F(StopTest, FromAHostThreadTheArgumentDoesNotMatter)
{
    StartEngine();
    EXPECT_EQ(m_pEngine->Stop(true), 0);
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 1);
}

TEST_F(StopTest, OnTheLoopThreadItStopsInsideTheCall)
{
    StartEngine();
    StopOnLoop(
        [&]
        {
            EXPECT_EQ(m_Log.Count(kDebug, kOnStop), 0);
            EXPECT_EQ(m_pEngine->Stop(false), 0);
            EXPECT_EQ(m_Log.Count(kDebug, kOnStop), 1);
            EXPECT_EQ(m_Log.Count(kDebug, kThreadStop), 0);
            EXPECT_EQ(m_pEngine->Stop(false), -1);
            EXPECT_EQ(m_pEngine->Stop(true), -1);
        });
    EXPECT_EQ(m_Log.Count(kDebug, kOnStop), 1);
    EXPECT_EQ(m_Log.Find(kOnStop).threadId, m_pEngineNotic->m_ThreadId);
}

TEST_F(StopTest, ViaTheWakeUpItStopsOnALaterTurn)
{
    StartEngine();
    TimerCompletion added;
    StopOnLoop(
        [&]
        {
            EXPECT_EQ(m_pEngine->Stop(true), 0);
            EXPECT_EQ(m_Log.Count(kDebug, kOnStop), 0);
            // The engine accepts work until then.
            const auto timer = ITimerHandleInterface::Create(nullptr, nullptr, 1, 0, nullptr);
            EXPECT_EQ(m_pEngine->AddTimerReq(timer, false, added.Function(), nullptr), 0);
            EXPECT_EQ(m_pEngine->DelTimerReq(timer, false, nullptr, nullptr), 0);
        });
    EXPECT_EQ(added.Calls(), 1);
    EXPECT_EQ(added.Result(), 0);
    EXPECT_EQ(m_Log.Count(kDebug, kOnStop), 1);
}

TEST_F(StopTest, ViaTheWakeUpTwiceOnTheLoopThreadThrows)
{
    StartEngine();
    StopOnLoop(
        [&]
        {
            EXPECT_EQ(m_pEngine->Stop(true), 0);
            try
            {
                m_pEngine->Stop(true);
                ADD_FAILURE() << "nothing thrown";
            }
            catch (const std::system_error& error)
            {
                // The category is that of the library's own runtime on Windows.
                EXPECT_EQ(error.code().value(), static_cast<int>(std::errc::invalid_argument));
            }
        });
    EXPECT_EQ(m_Log.Count(kDebug, kOnStop), 1);
}

// The thread is detached by then, so the stop inside the call throws as well.
TEST_F(StopTest, InsideTheCallAfterOneViaTheWakeUpThrowsOnceStopped)
{
    StartEngine();
    StopOnLoop(
        [&]
        {
            EXPECT_EQ(m_pEngine->Stop(true), 0);
            EXPECT_THROW(m_pEngine->Stop(false), std::system_error);
            EXPECT_EQ(m_Log.Count(kDebug, kOnStop), 1);
        });
    EXPECT_EQ(m_Log.Count(kDebug, kOnStop), 1);
}

TEST_F(StopTest, FromAHostThreadAfterOneOnTheLoopThreadReturnsAtOnce)
{
    StartEngine();
    Event release;
    Event stopped;
    Event ended;
    int result = -1;
    HeldLoop held(m_pEngine);
    std::thread other(
        [&]
        {
            held.Release(
                [&]
                {
                    SetAtThreadEnd(ended);
                    EXPECT_EQ(m_pEngine->Stop(true), 0);
                    stopped.Set();
                    EXPECT_TRUE(release.Wait());
                });
        });
    ASSERT_TRUE(stopped.Wait());
    result = m_pEngine->Stop(false); // nothing to join: the thread is detached
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 0);
    release.Set();
    other.join();
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(ended.Wait());
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 1);
}

TEST_F(StopTest, InsideTheStopNoticeItIsRefused)
{
    int result = 0;
    m_pEngineNotic->m_Hook = [&](const std::shared_ptr<IHttpInterface>& engine)
    {
        result = engine->Stop(false);
    };
    StartEngine();
    StopEngine();
    EXPECT_EQ(result, -1);
}

TEST_F(StopTest, OfTwoThreadsAtOnceOneWaitsAndTheOtherReturns)
{
    StartEngine();
    HeldLoop held(m_pEngine);
    Event returned;
    std::thread stoppers[2];
    for (std::thread& stopper : stoppers)
    {
        stopper = std::thread(
            [&]
            {
                EXPECT_EQ(m_pEngine->Stop(false), 0);
                returned.Set();
            });
    }
    EXPECT_TRUE(returned.Wait());
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 0);
    held.Release();
    EXPECT_TRUE(returned.Wait(2));
    for (std::thread& stopper : stoppers)
    {
        stopper.join();
    }
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 1);
}

TEST_F(StopTest, OfManyThreadsAtOnceNoneHangs)
{
    constexpr int kThreads = 8;
    for (int round = 1; round <= 10; ++round)
    {
        StartEngine();
        std::atomic<int> succeeded{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i)
        {
            threads.emplace_back([&] { succeeded += m_pEngine->Stop(false) == 0 ? 1 : 0; });
        }
        for (std::thread& thread : threads)
        {
            thread.join();
        }
        EXPECT_GE(succeeded, 1);
        EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), round);
    }
}

TEST_F(StopTest, WaitsForATimerThatIsStillOpen)
{
    StartEngine();
    const auto notic = std::make_shared<TimerNotic>();
    const auto timer = ITimerHandleInterface::Create(notic, 1, 1, nullptr);
    bool deleted = false;
    notic->m_OnTimer = [&](const std::shared_ptr<ITimerHandleInterface>& expired)
    {
        if (!deleted && m_Log.Count(kDebug, kOnStop) == 1)
        {
            EXPECT_EQ(m_Log.Count(kDebug, kThreadStop), 0);
            deleted = m_pEngine->DelTimerReq(expired, false, nullptr, nullptr) == 0;
        }
    };
    ASSERT_EQ(m_pEngine->AddTimerReq(timer, false, nullptr, nullptr), 0);
    ASSERT_TRUE(notic->m_Expired.Wait());
    StopEngine();
    EXPECT_TRUE(deleted);
    EXPECT_EQ(notic->m_Closed.Count(), 1);
}

TEST_F(StopTest, WaitsForATransferThatStillRuns)
{
    StartEngine();
    const auto handle = MakeHandle(Server("HOSTILE_URL") + "/silence");
    HttpCompletion added;
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, false, added.Function(), nullptr), 0);
    ASSERT_TRUE(added.Wait());
    // The timer is the first thing to expire after the stop; it ends the
    // transfer that keeps the loop alive.
    const auto notic = std::make_shared<TimerNotic>();
    const auto timer = ITimerHandleInterface::Create(notic, 1, 1, nullptr);
    bool deleted = false;
    notic->m_OnTimer = [&](const std::shared_ptr<ITimerHandleInterface>& expired)
    {
        if (!deleted && m_Log.Count(kDebug, kOnStop) == 1)
        {
            EXPECT_EQ(m_Log.Count(kDebug, kThreadStop), 0);
            m_pEngine->DelTimerReq(expired, false, nullptr, nullptr);
            deleted = m_pEngine->DelHttpReq(handle, false, nullptr, nullptr) == 0;
        }
    };
    ASSERT_EQ(m_pEngine->AddTimerReq(timer, false, nullptr, nullptr), 0);
    ASSERT_TRUE(notic->m_Expired.Wait());
    StopEngine();
    EXPECT_TRUE(deleted);
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 0);
}

// The host may let its last reference go: the loop thread holds one, and the
// engine is destroyed on it.
TEST_F(StopTest, OnTheLoopThreadMayBeTheLastUseOfTheEngine)
{
    Event release;
    m_pEngineNotic->m_Hook = [&](const std::shared_ptr<IHttpInterface>&)
    {
        EXPECT_TRUE(release.Wait());
    };
    StartEngine();
    const std::weak_ptr<IHttpInterface> engine = m_pEngine;
    Event ended;
    auto held = std::make_unique<HeldLoop>(m_pEngine);
    held->Release(
        [&]
        {
            SetAtThreadEnd(ended);
            EXPECT_EQ(m_pEngine->Stop(false), 0);
        });
    held.reset();
    m_pEngine.reset();
    EXPECT_FALSE(engine.expired());
    release.Set();
    EXPECT_TRUE(ended.Wait());
    EXPECT_TRUE(engine.expired());
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 1);
    m_pEngine = IHttpInterface::Create();
}

} // namespace
} // namespace test
