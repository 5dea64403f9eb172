#include "support/EngineTest.h"
#include "support/HeldLoop.h"
#include "support/Servers.h"

namespace test
{
namespace
{

const std::string kNoHttp = "[HTTP_INTERFACE]Can not add http req now";
const std::string kNoTimer = "[HTTP_INTERFACE]Can not add timer req now";
const std::string kNotAgain = "[HTTP_INTERFACE]Can not again timer req now";

constexpr std::uint64_t kNeverMs = 1000 * 1000;

/// What a stop does with operations that are still queued.
class QueueStopTest : public EngineTest
{
};

TEST_F(QueueStopTest, QueuedAddIsCancelledWithMinusOneOnTheLoopThread)
{
    StartEngine();
    const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    const auto timer =
        ITimerHandleInterface::Create(std::shared_ptr<ITimerHandleNotic>(), kNeverMs, 0, nullptr);
    HttpCompletion http;
    TimerCompletion ofTimer;
    HttpCompletion deleted;
    long loopThread = 0;
    OnLoop([&] { loopThread = base::GetTid(); });
    HeldLoop held(m_pEngine);
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, false, http.Function(), &http), 0);
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, false, nullptr, nullptr), 0); // nobody to tell
    ASSERT_EQ(m_pEngine->AddTimerReq(timer, false, ofTimer.Function(), &ofTimer), 0);
    ASSERT_EQ(m_pEngine->DelHttpReq(handle, false, deleted.Function(), nullptr), 0);
    held.ReleaseWithStop();

    ASSERT_EQ(http.Calls(), 1);
    EXPECT_EQ(http.Result(), -1);
    EXPECT_EQ(http.Target(), handle);
    EXPECT_EQ(http.User(), &http);
    EXPECT_EQ(http.ThreadId(), loopThread);
    ASSERT_EQ(ofTimer.Calls(), 1);
    EXPECT_EQ(ofTimer.Result(), -1);
    EXPECT_EQ(ofTimer.User(), &ofTimer);
    EXPECT_EQ(ofTimer.ThreadId(), loopThread);
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 0);
}

TEST_F(QueueStopTest, QueuedDeleteIsStillPerformed)
{
    StartEngine();
    const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    Run(handle);
    const std::weak_ptr<HandleNotic> notic = m_pNotic;
    const auto timer =
        ITimerHandleInterface::Create(std::shared_ptr<ITimerHandleNotic>(), kNeverMs, 0, nullptr);
    ASSERT_EQ(m_pEngine->AddTimerReq(timer, false, nullptr, nullptr), 0);
    HttpCompletion http;
    TimerCompletion ofTimer;
    HeldLoop held(m_pEngine);
    ASSERT_EQ(m_pEngine->DelHttpReq(handle, false, http.Function(), nullptr), 0);
    ASSERT_EQ(m_pEngine->DelTimerReq(timer, false, ofTimer.Function(), nullptr), 0);
    m_pNotic.reset();
    held.ReleaseWithStop();

    ASSERT_EQ(http.Calls(), 1);
    EXPECT_EQ(http.Result(), 0);
    ASSERT_EQ(ofTimer.Calls(), 1);
    EXPECT_EQ(ofTimer.Result(), 0);
    EXPECT_EQ(handle->GetResponseCode(), -1);
    EXPECT_TRUE(notic.expired());
    EXPECT_TRUE(m_Log.WaitFor("[HTTP_INTERFACE]m_AsynOperReqList size[0]"));
}

// Without the queued disconnect the stop would wait for the server for ever.
TEST_F(QueueStopTest, QueuedDisconnectIsStillPerformed)
{
    StartEngine();
    const auto handle = MakeHandle(Server("HOSTILE_URL") + "/silence", kGet, 0);
    HttpCompletion added;
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, false, added.Function(), nullptr), 0);
    ASSERT_TRUE(added.Wait());
    HeldLoop held(m_pEngine);
    ASSERT_EQ(handle->Disconnect(), 0);
    held.ReleaseWithStop();
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 0);

    StartEngine();
    Delete(handle);
}

TEST_F(QueueStopTest, QueuedMessageIsStillSent)
{
    StartEngine();
    const auto handle = MakeHandle("ws://127.0.0.1:1/", kWebSocket);
    // Added, so that it has an engine, and taken out before it connects.
    OnLoop(
        [&]
        {
            EXPECT_EQ(m_pEngine->AddHttpReq(handle, false, nullptr, nullptr), 0);
            EXPECT_EQ(handle->Disconnect(), 0);
        });
    HeldLoop held(m_pEngine);
    std::size_t sent = 0;
    ASSERT_EQ(handle->SendWsData(std::make_shared<std::vector<char>>(3, 'x'), 1, &sent), 0);
    ASSERT_EQ(m_pEngine->DelHttpReq(handle, false, nullptr, nullptr), 0);
    m_Log.Clear();
    held.ReleaseWithStop();
    // The attempt fails without a connection, and says so.
    EXPECT_EQ(m_Log.Count(kWarn, "[HTTP_INTERFACE]Send len diff [3] != [0]"), 1);
}

TEST_F(QueueStopTest, DeleteOnTheLoopThreadIsPerformedAlsoAfterTheStop)
{
    StartEngine();
    const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    Run(handle);
    const auto timer =
        ITimerHandleInterface::Create(std::shared_ptr<ITimerHandleNotic>(), kNeverMs, 0, nullptr);
    ASSERT_EQ(m_pEngine->AddTimerReq(timer, false, nullptr, nullptr), 0);
    HttpCompletion http;
    TimerCompletion ofTimer;
    Event ended;
    OnLoop(
        [&]
        {
            SetAtThreadEnd(ended);
            EXPECT_EQ(m_pEngine->Stop(false), 0);
            m_Log.Clear();
            EXPECT_EQ(m_pEngine->DelHttpReq(handle, true, http.Function(), nullptr), -1);
            EXPECT_EQ(m_pEngine->DelTimerReq(timer, true, ofTimer.Function(), nullptr), -1);
            EXPECT_TRUE(m_Log.Lines().empty());
            EXPECT_EQ(m_pEngine->DelHttpReq(handle, false, http.Function(), nullptr), 0);
            EXPECT_EQ(m_pEngine->DelTimerReq(timer, false, ofTimer.Function(), nullptr), 0);
            EXPECT_EQ(m_pEngine->AddHttpReq(handle, false, http.Function(), nullptr), -1);
            EXPECT_EQ(m_pEngine->AddTimerReq(timer, false, ofTimer.Function(), nullptr), -1);
            EXPECT_EQ(m_Log.Texts(kError), (std::vector<std::string>{kNoHttp, kNoTimer}));
        });
    EXPECT_TRUE(ended.Wait());
    EXPECT_EQ(http.Calls(), 1);
    EXPECT_EQ(ofTimer.Calls(), 1);
}

// The completion of a cancelled add runs while the engine's lock is held; a
// call that took it again would never return.
TEST_F(QueueStopTest, EveryCallFromACancelledAddIsAnswered)
{
    StartEngine();
    const auto socket = MakeHandle("ws://127.0.0.1:1/", kWebSocket);
    OnLoop(
        [&]
        {
            EXPECT_EQ(m_pEngine->AddHttpReq(socket, false, nullptr, nullptr), 0);
            EXPECT_EQ(socket->Disconnect(), 0);
        });
    const auto timer =
        ITimerHandleInterface::Create(std::shared_ptr<ITimerHandleNotic>(), kNeverMs, 0, nullptr);
    ASSERT_EQ(m_pEngine->AddTimerReq(timer, false, nullptr, nullptr), 0);
    const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    HttpCompletion refused;
    TimerCompletion refusedTimer;
    HttpCompletion deleted;
    TimerCompletion deletedTimer;
    Event cancelled;
    HeldLoop held(m_pEngine);
    ASSERT_EQ(
        m_pEngine->AddHttpReq(
            handle, false,
            [&](std::shared_ptr<IHttpHandleInterface>, void*, int result)
            {
                EXPECT_EQ(result, -1);
                m_Log.Clear();
                const auto http = refused.Function();
                const auto ofTimer = refusedTimer.Function();
                EXPECT_EQ(m_pEngine->DelHttpReq(handle, true, http, nullptr), -1);
                EXPECT_EQ(m_pEngine->DelTimerReq(timer, true, ofTimer, nullptr), -1);
                EXPECT_EQ(m_pEngine->Init(nullptr, nullptr), -1);
                EXPECT_EQ(m_pEngine->Start(false), 0);
                EXPECT_EQ(m_pEngine->Start(true), 0);
                EXPECT_EQ(m_pEngine->Stop(false), -1);
                EXPECT_EQ(m_pEngine->Stop(true), -1);
                EXPECT_TRUE(m_Log.Lines().empty());

                EXPECT_EQ(m_pEngine->AddHttpReq(handle, true, http, nullptr), -1);
                EXPECT_EQ(m_pEngine->AddHttpReq(handle, false, http, nullptr), -1);
                EXPECT_EQ(m_pEngine->AddTimerReq(timer, true, ofTimer, nullptr), -1);
                EXPECT_EQ(m_pEngine->AddTimerReq(timer, false, ofTimer, nullptr), -1);
                EXPECT_EQ(handle->Disconnect(), -1);
                std::size_t sent = 0;
                EXPECT_EQ(socket->SendWsData(nullptr, 1, &sent), -1);
                EXPECT_EQ(timer->StopTimer(ofTimer, nullptr), -1);
                EXPECT_EQ(timer->AgainTimer(ofTimer, nullptr), -1);
                EXPECT_EQ(m_Log.Texts(kError),
                          (std::vector<std::string>{kNoHttp, kNoHttp, kNoTimer, kNoTimer, kNotAgain,
                                                    kNotAgain, kNotAgain, kNotAgain}));

                EXPECT_EQ(handle->GetResponseCode(), 0);
                EXPECT_EQ(handle->SetProgress(true), 0);
                EXPECT_EQ(m_pEngine->DelHttpReq(handle, false, deleted.Function(), nullptr), 0);
                EXPECT_EQ(m_pEngine->DelHttpReq(socket, false, deleted.Function(), nullptr), 0);
                EXPECT_EQ(m_pEngine->DelTimerReq(timer, false, deletedTimer.Function(), nullptr),
                          0);
                EXPECT_EQ(deleted.Calls(), 2);
                EXPECT_EQ(deletedTimer.Calls(), 1);
                cancelled.Set();
            },
            nullptr),
        0);
    held.ReleaseWithStop();
    EXPECT_EQ(cancelled.Count(), 1);
    EXPECT_EQ(refused.Calls(), 0);
    EXPECT_EQ(refusedTimer.Calls(), 0);
    EXPECT_EQ(handle->GetResponseCode(), -1);
}

// The same through the completion of a cancelled timer, for which the handle
// calls need not be repeated.
TEST_F(QueueStopTest, DeletesFromACancelledTimerAddAreAnswered)
{
    StartEngine();
    const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    const auto timer =
        ITimerHandleInterface::Create(std::shared_ptr<ITimerHandleNotic>(), kNeverMs, 0, nullptr);
    Event cancelled;
    HeldLoop held(m_pEngine);
    ASSERT_EQ(m_pEngine->AddTimerReq(
                  timer, false,
                  [&](std::shared_ptr<ITimerHandleInterface>, void*, int result)
                  {
                      EXPECT_EQ(result, -1);
                      EXPECT_EQ(m_pEngine->DelHttpReq(handle, true, nullptr, nullptr), -1);
                      EXPECT_EQ(m_pEngine->DelTimerReq(timer, true, nullptr, nullptr), -1);
                      EXPECT_EQ(m_pEngine->DelTimerReq(timer, false, nullptr, nullptr), 0);
                      EXPECT_EQ(m_pEngine->DelHttpReq(handle, false, nullptr, nullptr), -1);
                      cancelled.Set();
                  },
                  nullptr),
              0);
    held.ReleaseWithStop();
    EXPECT_EQ(cancelled.Count(), 1);
}

// The final drain takes what is queued by then; what the drain around it has
// taken before comes later.
TEST_F(QueueStopTest, OperationsBehindACompletionThatStopsArePerformedLast)
{
    StartEngine();
    std::vector<std::string> completed;
    const auto queueDelete = [&](const std::string& name, const std::function<void()>& then)
    {
        const auto timer = ITimerHandleInterface::Create(std::shared_ptr<ITimerHandleNotic>(),
                                                         kNeverMs, 0, nullptr);
        const auto done = [&completed, name, then](auto, void*, int)
        {
            completed.push_back(name);
            then();
        };
        EXPECT_EQ(m_pEngine->DelTimerReq(timer, true, done, nullptr), 0);
    };
    const auto stop = [&]
    {
        queueDelete("queued later", [] {});
        EXPECT_EQ(m_pEngine->Stop(false), 0);
    };
    {
        HeldLoop held(m_pEngine);
        queueDelete("stops", stop);
        queueDelete("behind it", [] {});
    }
    ASSERT_TRUE(m_pEngineNotic->m_Stopped.Wait());
    EXPECT_EQ(completed, (std::vector<std::string>{"stops", "queued later", "behind it"}));
}

} // namespace
} // namespace test
