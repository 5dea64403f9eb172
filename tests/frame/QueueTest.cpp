#include "support/EngineTest.h"
#include "support/HeldLoop.h"

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <thread>

namespace test
{
namespace
{

const std::string kNoHttp = "[HTTP_INTERFACE]Can not add http req now";
const std::string kNoTimer = "[HTTP_INTERFACE]Can not add timer req now";

/// Where an operation has only to reach the loop thread, its handle is one that
/// was never initialised: libcurl refuses it there at once.
class QueueTest : public EngineTest
{
protected:
    static std::shared_ptr<ITimerHandleInterface> MakeTimer()
    {
        constexpr std::uint64_t kNeverMs = 1000 * 1000;
        return ITimerHandleInterface::Create(std::shared_ptr<ITimerHandleNotic>(), kNeverMs, 0,
                                             nullptr);
    }

    /// A completion that notes a number.
    HttpReqCallback Note(int number)
    {
        return [this, number](std::shared_ptr<IHttpHandleInterface>, void*, int)
        {
            m_Noted.push_back(number);
            m_NotedOne.Set();
        };
    }

    std::vector<int> m_Noted; ///< on the loop thread
    Event m_NotedOne;
};

TEST_F(QueueTest, EmptyPointersAreRefusedWithoutALine)
{
    StartEngine();
    m_Log.Clear();
    for (const bool async : {false, true})
    {
        EXPECT_EQ(m_pEngine->AddHttpReq(nullptr, async, nullptr, nullptr), -1);
        EXPECT_EQ(m_pEngine->DelHttpReq(nullptr, async, nullptr, nullptr), -1);
        EXPECT_EQ(m_pEngine->AddTimerReq(nullptr, async, nullptr, nullptr), -1);
        EXPECT_EQ(m_pEngine->DelTimerReq(nullptr, async, nullptr, nullptr), -1);
    }
    EXPECT_TRUE(m_Log.Lines().empty());
}

TEST_F(QueueTest, EmptyPointersAreRefusedWithoutALineByAnEngineThatDoesNotRun)
{
    EXPECT_EQ(m_pEngine->AddHttpReq(nullptr, false, nullptr, nullptr), -1);
    EXPECT_EQ(m_pEngine->AddTimerReq(nullptr, false, nullptr, nullptr), -1);
    EXPECT_TRUE(m_Log.Lines().empty());
}

TEST_F(QueueTest, BeforeTheStartAnAddIsRefusedWithOneLine)
{
    ASSERT_EQ(m_pEngine->Init(nullptr, nullptr), 0);
    EXPECT_EQ(m_pEngine->AddHttpReq(IHttpHandleInterface::Create(), false, nullptr, nullptr), -1);
    EXPECT_EQ(m_pEngine->AddTimerReq(MakeTimer(), true, nullptr, nullptr), -1);
    const std::vector<LogLine> lines = m_Log.Lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].text, kNoHttp);
    EXPECT_EQ(lines[0].level, kError);
    EXPECT_EQ(lines[0].threadId, base::GetTid());
    EXPECT_EQ(lines[1].text, kNoTimer);
    EXPECT_EQ(lines[1].level, kError);
    EXPECT_EQ(lines[1].threadId, base::GetTid());
    ASSERT_EQ(m_pEngine->Start(true), 0);
}

TEST_F(QueueTest, BeforeTheStartADeleteIsRefusedWithoutALine)
{
    ASSERT_EQ(m_pEngine->Init(nullptr, nullptr), 0);
    for (const bool async : {false, true})
    {
        EXPECT_EQ(m_pEngine->DelHttpReq(IHttpHandleInterface::Create(), async, nullptr, nullptr),
                  -1);
        EXPECT_EQ(m_pEngine->DelTimerReq(MakeTimer(), async, nullptr, nullptr), -1);
    }
    EXPECT_TRUE(m_Log.Lines().empty());
    ASSERT_EQ(m_pEngine->Start(true), 0);
}

TEST_F(QueueTest, AfterTheStopEverythingIsRefusedAndOnlyAddsWriteALine)
{
    StartEngine();
    StopEngine();
    m_Log.Clear();
    EXPECT_EQ(m_pEngine->AddHttpReq(IHttpHandleInterface::Create(), true, nullptr, nullptr), -1);
    EXPECT_EQ(m_pEngine->AddTimerReq(MakeTimer(), false, nullptr, nullptr), -1);
    EXPECT_EQ(m_pEngine->DelHttpReq(IHttpHandleInterface::Create(), true, nullptr, nullptr), -1);
    EXPECT_EQ(m_pEngine->DelTimerReq(MakeTimer(), false, nullptr, nullptr), -1);
    EXPECT_EQ(m_Log.Texts(kError), (std::vector<std::string>{kNoHttp, kNoTimer}));
    EXPECT_EQ(m_Log.Lines().size(), 2u);
}

TEST_F(QueueTest, RefusedCallReleasesItsCompletionWithoutCallingIt)
{
    bool called = false;
    const auto capture = std::make_shared<int>();
    const auto http = [&called, capture](std::shared_ptr<IHttpHandleInterface>, void*, int)
    {
        called = true;
    };
    const auto timer = [&called, capture](std::shared_ptr<ITimerHandleInterface>, void*, int)
    {
        called = true;
    };
    EXPECT_EQ(m_pEngine->AddHttpReq(IHttpHandleInterface::Create(), true, http, nullptr), -1);
    EXPECT_EQ(m_pEngine->DelHttpReq(IHttpHandleInterface::Create(), true, http, nullptr), -1);
    EXPECT_EQ(m_pEngine->AddTimerReq(MakeTimer(), true, timer, nullptr), -1);
    EXPECT_EQ(m_pEngine->DelTimerReq(MakeTimer(), true, timer, nullptr), -1);
    EXPECT_FALSE(called);
    EXPECT_EQ(capture.use_count(), 3); // this one and those of the two functions here
}

// The flag is read again under the lock. Here the engine stops between the two
// looks, while the first line of the add is being written.
TEST_F(QueueTest, StopDuringAnAddRefusesItWithoutAnotherLine)
{
    StartEngine();
    m_Log.Clear();
    Event adding;
    Event stopped;
    m_Log.OnLine(
        [&](const LogLine& line)
        {
            if (line.format == "[HTTP_INTERFACE]add http handle[%p] [%d]")
            {
                adding.Set();
                EXPECT_TRUE(stopped.Wait());
            }
        });
    HttpCompletion done;
    int result = 0;
    std::thread host(
        [&]
        {
            result = m_pEngine->AddHttpReq(IHttpHandleInterface::Create(), false, done.Function(),
                                           nullptr);
        });
    EXPECT_TRUE(adding.Wait());
    EXPECT_EQ(m_pEngine->Stop(false), 0);
    stopped.Set();
    host.join();
    EXPECT_EQ(result, -1);
    EXPECT_EQ(done.Calls(), 0);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(QueueTest, HttpAddIsLoggedWithTheHandleAndTheFlag)
{
    StartEngine();
    HeldLoop held(m_pEngine);
    m_Log.Clear();
    const auto handle = IHttpHandleInterface::Create();
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, false, nullptr, nullptr), 0);
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
    ASSERT_EQ(m_pEngine->DelHttpReq(handle, true, nullptr, nullptr), 0);
    const std::vector<LogLine> lines = m_Log.Lines();
    ASSERT_EQ(lines.size(), 2u);
    for (const int async : {0, 1})
    {
        char text[100];
        std::snprintf(text, sizeof text, "[HTTP_INTERFACE]add http handle[%p] [%d]",
                      static_cast<void*>(handle.get()), async);
        EXPECT_EQ(lines[static_cast<std::size_t>(async)].text, text);
        EXPECT_EQ(lines[static_cast<std::size_t>(async)].level, kDebug);
        EXPECT_EQ(lines[static_cast<std::size_t>(async)].threadId, base::GetTid());
    }
}

TEST_F(QueueTest, TimerAddAndDeleteWriteNoLine)
{
    StartEngine();
    m_Log.Clear();
    const auto timer = MakeTimer();
    TimerCompletion added;
    TimerCompletion deleted;
    ASSERT_EQ(m_pEngine->AddTimerReq(timer, false, added.Function(), &added), 0);
    ASSERT_TRUE(added.Wait());
    ASSERT_EQ(m_pEngine->DelTimerReq(timer, false, deleted.Function(), &deleted), 0);
    ASSERT_TRUE(deleted.Wait());
    EXPECT_EQ(added.Result(), 0);
    EXPECT_EQ(added.User(), &added);
    EXPECT_EQ(added.Target(), timer);
    EXPECT_EQ(deleted.Result(), 0);
    EXPECT_EQ(deleted.User(), &deleted);
    EXPECT_TRUE(m_Log.Lines().empty());
}

TEST_F(QueueTest, OnTheLoopThreadAnOperationIsPerformedAtOnce)
{
    StartEngine();
    const auto timer = MakeTimer();
    TimerCompletion done;
    HttpCompletion refused;
    OnLoop(
        [&]
        {
            EXPECT_EQ(m_pEngine->AddTimerReq(timer, false, done.Function(), nullptr), 0);
            EXPECT_EQ(done.Calls(), 1);
            EXPECT_EQ(m_pEngine->DelTimerReq(timer, false, done.Function(), nullptr), 0);
            EXPECT_EQ(done.Calls(), 2);
            // The result is that of the operation.
            const auto handle = IHttpHandleInterface::Create();
            EXPECT_EQ(m_pEngine->AddHttpReq(handle, false, refused.Function(), nullptr), -1);
            EXPECT_EQ(refused.Calls(), 1);
            EXPECT_EQ(m_pEngine->DelHttpReq(handle, false, refused.Function(), nullptr), -1);
            EXPECT_EQ(refused.Calls(), 2);
        });
}

TEST_F(QueueTest, OnTheLoopThreadAsyncForcesQueueing)
{
    StartEngine();
    const auto handle = IHttpHandleInterface::Create();
    HttpCompletion done;
    OnLoop(
        [&]
        {
            EXPECT_EQ(m_pEngine->AddHttpReq(handle, true, done.Function(), nullptr), 0);
            EXPECT_EQ(m_pEngine->DelHttpReq(handle, true, done.Function(), nullptr), 0);
            EXPECT_EQ(done.Calls(), 0);
        });
    EXPECT_TRUE(done.Wait(2));
    EXPECT_EQ(done.Result(), -1);
}

TEST_F(QueueTest, FromAHostThreadAnOperationIsQueuedWhateverTheFlag)
{
    StartEngine();
    const auto handle = IHttpHandleInterface::Create();
    HttpCompletion done;
    {
        HeldLoop held(m_pEngine);
        EXPECT_EQ(m_pEngine->AddHttpReq(handle, false, done.Function(), nullptr), 0);
        EXPECT_EQ(m_pEngine->AddHttpReq(handle, true, done.Function(), nullptr), 0);
        EXPECT_EQ(done.Calls(), 0);
    }
    EXPECT_TRUE(done.Wait(2));
}

TEST_F(QueueTest, QueuedOperationsArePerformedInTheOrderQueued)
{
    StartEngine();
    const auto handle = IHttpHandleInterface::Create();
    {
        HeldLoop held(m_pEngine);
        ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, Note(1), nullptr), 0);
        ASSERT_EQ(m_pEngine->DelHttpReq(handle, false, Note(2), nullptr), 0);
        ASSERT_EQ(m_pEngine->AddHttpReq(handle, false, Note(3), nullptr), 0);
    }
    ASSERT_TRUE(m_NotedOne.Wait(3));
    EXPECT_EQ(m_Noted, (std::vector<int>{1, 2, 3}));
}

TEST_F(QueueTest, PerformedAtOnceRunsAheadOfTheQueue)
{
    StartEngine();
    const auto handle = IHttpHandleInterface::Create();
    OnLoop(
        [&]
        {
            m_pEngine->AddHttpReq(handle, true, Note(2), nullptr);
            m_pEngine->AddHttpReq(handle, false, Note(1), nullptr);
        });
    ASSERT_TRUE(m_NotedOne.Wait(2));
    EXPECT_EQ(m_Noted, (std::vector<int>{1, 2}));
}

TEST_F(QueueTest, QueuedInsideACompletionComesAfterWhatWasQueuedBefore)
{
    StartEngine();
    const auto handle = IHttpHandleInterface::Create();
    {
        HeldLoop held(m_pEngine);
        m_pEngine->AddHttpReq(
            handle, true,
            [&](std::shared_ptr<IHttpHandleInterface>, void*, int)
            {
                EXPECT_EQ(m_pEngine->AddHttpReq(handle, true, Note(3), nullptr), 0);
                Note(1)(nullptr, nullptr, 0);
            },
            nullptr);
        m_pEngine->AddHttpReq(handle, true, Note(2), nullptr);
    }
    ASSERT_TRUE(m_NotedOne.Wait(3));
    EXPECT_EQ(m_Noted, (std::vector<int>{1, 2, 3}));
}

TEST_F(QueueTest, CompletionGetsHandleUserDataAndResultOnTheLoopThread)
{
    StartEngine();
    const auto handle = IHttpHandleInterface::Create();
    HttpCompletion done;
    int user = 0;
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, false, done.Function(), &user), 0);
    ASSERT_TRUE(done.Wait());
    EXPECT_EQ(done.Target(), handle);
    EXPECT_EQ(done.User(), &user);
    EXPECT_EQ(done.Result(), -1);
    long loopThread = 0;
    OnLoop([&] { loopThread = base::GetTid(); });
    EXPECT_EQ(done.ThreadId(), loopThread);
    EXPECT_NE(done.ThreadId(), base::GetTid());
}

TEST_F(QueueTest, WaitingOperationKeepsItsHandleAlive)
{
    StartEngine();
    auto handle = IHttpHandleInterface::Create();
    const std::weak_ptr<IHttpHandleInterface> watch = handle;
    {
        HeldLoop held(m_pEngine);
        ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, Note(1), nullptr), 0);
        handle.reset();
        EXPECT_FALSE(watch.expired());
    }
    ASSERT_TRUE(m_NotedOne.Wait());
    OnLoop([] {}); // a later wake-up: the earlier one is over
    EXPECT_TRUE(watch.expired());
}

TEST_F(QueueTest, WaitingOperationKeepsItsTimerAlive)
{
    StartEngine();
    auto timer = MakeTimer();
    const std::weak_ptr<ITimerHandleInterface> watch = timer;
    TimerCompletion done;
    {
        HeldLoop held(m_pEngine);
        ASSERT_EQ(m_pEngine->DelTimerReq(timer, true, nullptr, nullptr), 0);
        timer.reset();
        EXPECT_FALSE(watch.expired());
    }
    OnLoop([] {});
    OnLoop([] {});
    EXPECT_TRUE(watch.expired());
}

TEST_F(QueueTest, OperationsOfManyThreadsAreAllPerformedInTheOrderOfEachThread)
{
    constexpr int kThreads = 8;
    constexpr int kEach = 50;
    StartEngine();
    std::vector<std::thread> hosts;
    for (int thread = 0; thread < kThreads; ++thread)
    {
        hosts.emplace_back(
            [this, thread]
            {
                const auto handle = IHttpHandleInterface::Create();
                for (int i = 0; i < kEach; ++i)
                {
                    EXPECT_EQ(m_pEngine->AddHttpReq(handle, i % 2 != 0, Note(thread * kEach + i),
                                                    nullptr),
                              0);
                }
            });
    }
    for (std::thread& host : hosts)
    {
        host.join();
    }
    ASSERT_TRUE(m_NotedOne.Wait(kThreads * kEach));
    std::stable_sort(m_Noted.begin(), m_Noted.end(),
                     [](int a, int b) { return a / kEach < b / kEach; });
    std::vector<int> expected(kThreads * kEach);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(m_Noted, expected);
}

TEST_F(QueueTest, TwoEnginesPerformOnTheirOwnThreads)
{
    StartEngine();
    const auto other = IHttpInterface::Create();
    ASSERT_EQ(other->Init(nullptr, nullptr), 0);
    ASSERT_EQ(other->Start(true), 0);
    HttpCompletion here;
    HttpCompletion there;
    ASSERT_EQ(
        m_pEngine->AddHttpReq(IHttpHandleInterface::Create(), false, here.Function(), nullptr), 0);
    ASSERT_EQ(other->AddHttpReq(IHttpHandleInterface::Create(), false, there.Function(), nullptr),
              0);
    EXPECT_TRUE(here.Wait());
    EXPECT_TRUE(there.Wait());
    EXPECT_NE(here.ThreadId(), there.ThreadId());
    EXPECT_EQ(other->Stop(false), 0);
}

} // namespace
} // namespace test
