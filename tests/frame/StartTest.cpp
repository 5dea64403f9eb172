#include "support/EngineTest.h"
#include "support/HeldLoop.h"

#include <atomic>
#include <system_error>
#include <thread>

#if defined(__GLIBC__)
#include <pthread.h>
#endif

namespace test
{
namespace
{

const std::string kThreadStart = "[HTTP_INTERFACE]FrameThread Start";

class StartTest : public EngineTest
{
protected:
    /// Stops the engine as soon as it accepts a stop; false if it never does.
    bool StopOnceRunning()
    {
        const auto limit = std::chrono::steady_clock::now() + kLimit;
        while (m_pEngine->Stop(false) != 0)
        {
            if (std::chrono::steady_clock::now() > limit)
            {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }
};

TEST_F(StartTest, BeforeInitItIsRefusedWithoutALine)
{
    EXPECT_EQ(m_pEngine->Start(true), -1);
    EXPECT_EQ(m_pEngine->Start(false), -1);
    EXPECT_TRUE(m_Log.Lines().empty());
}

TEST_F(StartTest, AfterAStopItNeedsAnotherInit)
{
    StartEngine();
    StopEngine();
    EXPECT_EQ(m_pEngine->Start(true), -1);
    StartEngine();
    StopEngine();
}

TEST_F(StartTest, WithWaitItReturnsOnceTheEngineAcceptsWork)
{
    ASSERT_EQ(m_pEngine->Init(nullptr, nullptr), 0);
    ASSERT_EQ(m_pEngine->Start(true), 0);
    bool ran = false;
    OnLoop([&] { ran = true; });
    EXPECT_TRUE(ran);
    StopEngine();
}

TEST_F(StartTest, WithWaitItDoesNotReturnBeforeTheFirstIteration)
{
    std::atomic<bool> begun{false};
    m_Log.OnLine(
        [&](const LogLine& line)
        {
            if (line.text == kThreadStart)
            {
                // Time for a start that doesn't wait to show itself.
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
                begun = true;
            }
        });
    ASSERT_EQ(m_pEngine->Init(nullptr, nullptr), 0);
    ASSERT_EQ(m_pEngine->Start(true), 0);
    EXPECT_TRUE(begun);
    m_Log.OnLine(nullptr);
    StopEngine();
}

TEST_F(StartTest, WithoutWaitWorkIsRefusedUntilTheFirstIteration)
{
    Event release;
    m_Log.OnLine(
        [&](const LogLine& line)
        {
            if (line.text == kThreadStart)
            {
                EXPECT_TRUE(release.Wait());
            }
        });
    ASSERT_EQ(m_pEngine->Init(m_pEngineNotic, nullptr), 0);
    ASSERT_EQ(m_pEngine->Start(false), 0);
    ASSERT_TRUE(m_Log.WaitFor(kThreadStart));
    const auto timer = ITimerHandleInterface::Create(nullptr, nullptr, 1, 0, nullptr);
    EXPECT_EQ(m_pEngine->AddTimerReq(timer, false, nullptr, nullptr), -1);
    EXPECT_EQ(m_pEngine->Stop(false), -1);
    EXPECT_EQ(m_Log.Texts(kError),
              std::vector<std::string>{"[HTTP_INTERFACE]Can not add timer req now"});
    EXPECT_EQ(m_Log.Find("[HTTP_INTERFACE]Can not add timer req now").threadId, base::GetTid());

    release.Set();
    EXPECT_TRUE(StopOnceRunning());
    m_Log.OnLine(nullptr);
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 1);
}

TEST_F(StartTest, SecondOneMakesNoSecondThread)
{
    StartEngine();
    EXPECT_EQ(m_pEngine->Start(true), 0);
    EXPECT_EQ(m_pEngine->Start(false), 0);
    OnLoop([&] { EXPECT_EQ(m_pEngine->Start(true), 0); });
    StopEngine();
    EXPECT_EQ(m_Log.Count(kDebug, kThreadStart), 1);
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 1);
}

// The loop may have begun and been stopped again between two looks at it.
TEST_F(StartTest, ThatIsStoppedMeanwhileReturns)
{
    for (int round = 0; round < 10; ++round)
    {
        ASSERT_EQ(m_pEngine->Init(nullptr, nullptr), 0);
        Event returned;
        int result = -1;
        std::thread starter(
            [&]
            {
                result = m_pEngine->Start(true);
                returned.Set();
            });
        EXPECT_TRUE(StopOnceRunning());
        EXPECT_TRUE(returned.Wait());
        starter.join();
        EXPECT_EQ(result, 0);
    }
}

// A host thread waits in Stop for the thread to end, and has taken its object
// out of the engine: nothing may take that for an engine that has no thread.
TEST_F(StartTest, WhileAnotherThreadStopsItMakesNoSecondThread)
{
    StartEngine();
    HeldLoop held(m_pEngine);
    Event stopped;
    int results[2] = {1, 1};
    std::thread stoppers[2];
    for (int i = 0; i < 2; ++i)
    {
        stoppers[i] = std::thread(
            [&, i]
            {
                results[i] = m_pEngine->Stop(false);
                stopped.Set();
            });
    }
    ASSERT_TRUE(stopped.Wait()); // the other one waits for the thread
    EXPECT_EQ(m_pEngine->Start(false), 0);
    EXPECT_EQ(m_pEngine->Start(true), 0);
    held.Release();
    for (std::thread& stopper : stoppers)
    {
        stopper.join();
    }
    EXPECT_EQ(results[0], 0);
    EXPECT_EQ(results[1], 0);
    EXPECT_EQ(m_Log.Count(kDebug, kThreadStart), 1);
    EXPECT_EQ(m_Log.Count(kDebug, "[HTTP_INTERFACE]FrameThread Stop"), 1);
}

// The detached thread still ends the loop: a second one must not run it.
TEST_F(StartTest, AfterAStopOnTheLoopThreadItIsRefusedUntilInitAgain)
{
    Event notice;
    Event release;
    m_pEngineNotic->m_Hook = [&](const std::shared_ptr<IHttpInterface>&)
    {
        notice.Set();
        EXPECT_TRUE(release.Wait());
    };
    StartEngine();
    Event ended;
    HeldLoop held(m_pEngine);
    held.Release(
        [&]
        {
            SetAtThreadEnd(ended);
            EXPECT_EQ(m_pEngine->Stop(false), 0);
            EXPECT_EQ(m_pEngine->Start(false), -1);
            EXPECT_EQ(m_pEngine->Start(true), -1);
        });
    ASSERT_TRUE(notice.Wait());
    EXPECT_EQ(m_pEngine->Start(true), -1);
    EXPECT_EQ(m_pEngine->Init(nullptr, nullptr), -1);
    release.Set();
    ASSERT_TRUE(ended.Wait());
    EXPECT_EQ(m_pEngine->Start(true), -1);
    EXPECT_EQ(m_Log.Count(kDebug, kThreadStart), 1);

    m_pEngineNotic->m_Hook = nullptr;
    StartEngine();
    StopEngine();
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 2);
}

#if defined(__GLIBC__)
/// New threads ask for more stack than there are addresses, meanwhile.
class NoThreads
{
public:
    NoThreads()
    {
        pthread_getattr_default_np(&m_Before);
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        pthread_attr_setstacksize(&attributes, std::size_t{1} << 47);
        EXPECT_EQ(pthread_setattr_default_np(&attributes), 0);
        pthread_attr_destroy(&attributes);
    }
    ~NoThreads()
    {
        pthread_setattr_default_np(&m_Before);
        pthread_attr_destroy(&m_Before);
    }
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;

private:
    pthread_attr_t m_Before;
};

TEST_F(StartTest, ThrowsWhenNoThreadCanBeMadeAndWorksLater)
{
    ASSERT_EQ(m_pEngine->Init(m_pEngineNotic, nullptr), 0);
    {
        const NoThreads none;
        try
        {
            m_pEngine->Start(true);
            ADD_FAILURE() << "nothing thrown";
        }
        catch (const std::system_error& error)
        {
            EXPECT_EQ(error.code(), std::errc::resource_unavailable_try_again);
        }
    }
    EXPECT_EQ(m_pEngine->Stop(false), -1);
    ASSERT_EQ(m_pEngine->Start(true), 0);
    StopEngine();
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 1);
}
#endif

} // namespace
} // namespace test
