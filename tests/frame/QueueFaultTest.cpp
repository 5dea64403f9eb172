#include "frame/AsynOperReq.h"
#include "frame/CHttpFrame.h"
#include "frame/IAsynOperInterface.h"
#include "support/EngineTest.h"
#include "support/HeldLoop.h"
#include "wrap/Hooks.h"

#include <atomic>
#include <thread>

namespace test
{
namespace
{

const std::string kNoHttp = "[HTTP_INTERFACE]Can not add http req now";
const std::string kNoTimer = "[HTTP_INTERFACE]Can not add timer req now";

/// A target of operations that notes what it is asked for; each answer may be
/// replaced. Used on the loop thread only.
class Target : public IAsynOperInterface
{
public:
    int DoAsynOper(std::shared_ptr<AsynOperReq> req, std::shared_ptr<CHttpFrame> frame) override
    {
        m_Performed.push_back(req);
        m_pFrame = frame;
        const int result = m_OnPerform ? m_OnPerform(req) : 0;
        m_PerformedOne.Set();
        return result;
    }

    bool CancelAsynOper(std::shared_ptr<AsynOperReq> req) override
    {
        m_Offered.push_back(req);
        return m_OnCancel ? m_OnCancel(req) : false;
    }

    using Reqs = std::vector<std::shared_ptr<AsynOperReq>>;
    Reqs m_Performed;
    Reqs m_Offered;
    std::shared_ptr<CHttpFrame> m_pFrame; ///< that performed last
    std::function<int(const std::shared_ptr<AsynOperReq>&)> m_OnPerform;
    std::function<bool(const std::shared_ptr<AsynOperReq>&)> m_OnCancel;
    Event m_PerformedOne;
};

/// Counts the wake-ups of one engine's queue, from its Init on.
class WakeUps
{
public:
    explicit WakeUps(const CHttpFrame& frame)
        : m_Init(hooks::uv_async_init(),
                 [&frame](uv_loop_t* loop, uv_async_t* handle, uv_async_cb callback)
                 {
                     // The engine initialises the stop's wake-up first, then
                     // the queue's; libuv has others of its own.
                     const auto* const address = reinterpret_cast<const char*>(handle);
                     const auto* const begin = reinterpret_cast<const char*>(&frame);
                     const bool ours = address >= begin && address < begin + sizeof(CHttpFrame);
                     if (ours && ++m_Inits == 2)
                     {
                         m_Drain = callback;
                         callback = OnWakeUp;
                     }
                     return hooks::uv_async_init().Real(loop, handle, callback);
                 })
    {
        m_Inits = 0;
        m_Count = 0;
    }

    static int Count() { return m_Count; }
    static uv_async_cb Drain() { return m_Drain; }

private:
    static void OnWakeUp(uv_async_t* handle)
    {
        ++m_Count;
        m_Drain(handle);
    }

    static inline int m_Inits;
    static inline uv_async_cb m_Drain;
    static inline std::atomic<int> m_Count;
    const Replaced<int(uv_loop_t*, uv_async_t*, uv_async_cb)> m_Init;
};

class QueueFaultTest : public EngineTest
{
protected:
    void TearDown() override
    {
        EngineTest::TearDown();
        m_pTarget->m_Performed.clear(); // they refer to the target
        m_pTarget->m_Offered.clear();
    }

    std::shared_ptr<AsynOperReq> Record(AsynOperType type = ASYN_OPER_STOP_TIMER) const
    {
        return std::make_shared<AsynTimerReq>(type, m_pTarget, nullptr, nullptr);
    }

    /// Posts a record and keeps no reference to it.
    std::weak_ptr<AsynOperReq> Post(AsynOperType type = ASYN_OPER_STOP_TIMER) const
    {
        const std::shared_ptr<AsynOperReq> req = Record(type);
        m_pFrame->PostAsynOper(req);
        return req;
    }

    const std::shared_ptr<CHttpFrame> m_pFrame = std::static_pointer_cast<CHttpFrame>(m_pEngine);
    const std::shared_ptr<Target> m_pTarget = std::make_shared<Target>();
};

TEST_F(QueueFaultTest, OperationsHaveTheirNumbers)
{
    EXPECT_EQ(ASYN_OPER_ADD_HTTP, 0);
    EXPECT_EQ(ASYN_OPER_DEL_HTTP, 1);
    EXPECT_EQ(ASYN_OPER_CANCEL_HTTP, 2);
    EXPECT_EQ(ASYN_OPER_SEND_WS, 3);
    EXPECT_EQ(ASYN_OPER_ADD_TIMER, 4);
    EXPECT_EQ(ASYN_OPER_DEL_TIMER, 5);
    EXPECT_EQ(ASYN_OPER_STOP_TIMER, 6);
    EXPECT_EQ(ASYN_OPER_AGAIN_TIMER, 7);
    const AsynWSSendReq message(m_pTarget, nullptr, 8);
    EXPECT_EQ(message.type, ASYN_OPER_SEND_WS);
    EXPECT_EQ(message.userData, nullptr);
    EXPECT_FALSE(message.done);
    EXPECT_EQ(message.flags, 8u);
}

TEST_F(QueueFaultTest, OneWakeUpTakesEverythingInTheOrderPosted)
{
    const WakeUps wakeUps(*m_pFrame);
    StartEngine();
    const Target::Reqs posted{Record(ASYN_OPER_CANCEL_HTTP), Record(ASYN_OPER_AGAIN_TIMER),
                              Record()};
    {
        HeldLoop held(m_pEngine); // by the first wake-up
        for (const auto& req : posted)
        {
            m_pFrame->PostAsynOper(req);
        }
        EXPECT_TRUE(m_pTarget->m_Performed.empty());
    }
    ASSERT_TRUE(m_pTarget->m_PerformedOne.Wait(3));
    EXPECT_EQ(WakeUps::Count(), 2);
    StopEngine();
    EXPECT_EQ(m_pTarget->m_Performed, posted);
    EXPECT_TRUE(m_pTarget->m_Offered.empty());
    EXPECT_EQ(m_pTarget->m_pFrame, m_pFrame);
}

TEST_F(QueueFaultTest, PostedInsideAnOperationWaitsForTheNextWakeUp)
{
    const WakeUps wakeUps(*m_pFrame);
    StartEngine();
    const std::shared_ptr<AsynOperReq> first = Record();
    const std::shared_ptr<AsynOperReq> second = Record();
    const std::shared_ptr<AsynOperReq> inside = Record();
    std::vector<int> wakeUp; // that performed each
    m_pTarget->m_OnPerform = [&](const std::shared_ptr<AsynOperReq>& req)
    {
        wakeUp.push_back(WakeUps::Count());
        if (req == first)
        {
            m_pFrame->PostAsynOper(inside);
            EXPECT_EQ(m_pTarget->m_Performed.size(), 1u); // never at once
        }
        return -1; // nobody looks at it
    };
    {
        HeldLoop held(m_pEngine);
        m_pFrame->PostAsynOper(first);
        m_pFrame->PostAsynOper(second);
    }
    ASSERT_TRUE(m_pTarget->m_PerformedOne.Wait(3));
    StopEngine();
    EXPECT_EQ(m_pTarget->m_Performed, (Target::Reqs{first, second, inside}));
    EXPECT_EQ(wakeUp, (std::vector<int>{2, 2, 3}));
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(QueueFaultTest, TheLockIsFreeWhileAnOperationIsPerformed)
{
    StartEngine();
    m_pTarget->m_OnPerform = [&](const std::shared_ptr<AsynOperReq>&)
    {
        if (m_pTarget->m_Performed.size() == 1)
        {
            std::thread([&] { Post(); }).join(); // would not return
        }
        return 0;
    };
    Post();
    EXPECT_TRUE(m_pTarget->m_PerformedOne.Wait(2));
}

TEST_F(QueueFaultTest, PerformedRecordIsReleased)
{
    StartEngine();
    m_pTarget->m_OnPerform = [&](const std::shared_ptr<AsynOperReq>&)
    {
        m_pTarget->m_Performed.clear();
        return 0;
    };
    const std::weak_ptr<AsynOperReq> req = Post();
    ASSERT_TRUE(m_pTarget->m_PerformedOne.Wait());
    OnLoop([] {}); // a later wake-up: the earlier one is over
    EXPECT_TRUE(req.expired());
}

TEST_F(QueueFaultTest, FailedWakeUpIsNotNoticedAndTheNextOneTakesTheRecord)
{
    StartEngine();
    const std::shared_ptr<AsynOperReq> first = Record();
    const std::shared_ptr<AsynOperReq> second = Record();
    const auto handle = IHttpHandleInterface::Create();
    HttpCompletion done;
    {
        const Replaced<int(uv_async_t*)> fails(hooks::uv_async_send(),
                                               [](uv_async_t*) { return UV_EINVAL; });
        m_pFrame->PostAsynOper(first);
        EXPECT_EQ(m_pEngine->AddHttpReq(handle, false, done.Function(), nullptr), 0);
    }
    EXPECT_TRUE(m_Log.Texts(kError).empty());
    m_pFrame->PostAsynOper(second);
    ASSERT_TRUE(m_pTarget->m_PerformedOne.Wait(2));
    EXPECT_EQ(done.Calls(), 1);
    StopEngine();
    EXPECT_EQ(m_pTarget->m_Performed, (Target::Reqs{first, second}));
}

TEST_F(QueueFaultTest, FailedWakeUpLeavesTheRecordToTheStop)
{
    StartEngine();
    const std::shared_ptr<AsynOperReq> req = Record();
    {
        const Replaced<int(uv_async_t*)> fails(hooks::uv_async_send(),
                                               [](uv_async_t*) { return UV_EINVAL; });
        m_pFrame->PostAsynOper(req);
    }
    StopEngine();
    EXPECT_EQ(m_pTarget->m_Offered, Target::Reqs{req});
    EXPECT_EQ(m_pTarget->m_Performed, Target::Reqs{req});
}

TEST_F(QueueFaultTest, StopDropsWhatIsCancelledAndPerformsTheRestBeforeTheLoopCloses)
{
    StartEngine();
    const Target::Reqs posted{Record(), Record(), Record(), Record()};
    std::vector<bool> accepted;
    m_pTarget->m_OnCancel = [&](const std::shared_ptr<AsynOperReq>& req)
    {
        accepted.push_back(m_pFrame->IsRunning());
        EXPECT_TRUE(m_pTarget->m_Performed.empty());
        return req == posted[0] || req == posted[2];
    };
    HeldLoop held(m_pEngine);
    for (const auto& req : posted)
    {
        m_pFrame->PostAsynOper(req);
    }
    const CallRecorder calls;
    m_pTarget->m_OnPerform = [&](const std::shared_ptr<AsynOperReq>&)
    {
        EXPECT_EQ(calls.Count("uv_close"), 0);
        return 0;
    };
    held.ReleaseWithStop();
    EXPECT_EQ(m_pTarget->m_Offered, posted);
    EXPECT_EQ(accepted, std::vector<bool>(4, false));
    EXPECT_EQ(m_pTarget->m_Performed, (Target::Reqs{posted[1], posted[3]}));
    EXPECT_GE(calls.Count("uv_close"), 3);
    EXPECT_EQ(m_Log.Count(kDebug, "[HTTP_INTERFACE]m_AsynOperReqList size[0]"), 1);
}

TEST_F(QueueFaultTest, CancelledRecordIsReleasedAtOnce)
{
    StartEngine();
    m_pTarget->m_OnCancel = [&](const std::shared_ptr<AsynOperReq>&)
    {
        m_pTarget->m_Offered.clear();
        return true;
    };
    std::weak_ptr<AsynOperReq> cancelled;
    m_pEngineNotic->m_Hook = [&](const std::shared_ptr<IHttpInterface>&)
    {
        EXPECT_TRUE(cancelled.expired());
    };
    HeldLoop held(m_pEngine);
    cancelled = Post();
    EXPECT_FALSE(cancelled.expired());
    held.ReleaseWithStop();
    EXPECT_TRUE(cancelled.expired());
    EXPECT_TRUE(m_pTarget->m_Performed.empty());
}

TEST_F(QueueFaultTest, PostedDuringTheLastDrainIsRefused)
{
    StartEngine();
    std::weak_ptr<AsynOperReq> late;
    m_pTarget->m_OnPerform = [&](const std::shared_ptr<AsynOperReq>&)
    {
        late = Post();
        return 0;
    };
    HeldLoop held(m_pEngine);
    Post();
    m_Log.Clear();
    held.ReleaseWithStop();
    EXPECT_TRUE(late.expired());
    EXPECT_EQ(m_pTarget->m_Performed.size(), 1u);
    EXPECT_EQ(m_Log.Texts(kError), std::vector<std::string>{kNoTimer});
}

// The early refusal of an add takes no lock: it comes back while the stop holds
// it.
TEST_F(QueueFaultTest, AddIsRefusedWithoutTheLock)
{
    StartEngine();
    m_pTarget->m_OnCancel = [&](const std::shared_ptr<AsynOperReq>&)
    {
        std::thread(
            [&]
            {
                const auto handle = IHttpHandleInterface::Create();
                EXPECT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), -1);
                EXPECT_EQ(m_pEngine->Stop(false), -1);
            })
            .join();
        return true;
    };
    HeldLoop held(m_pEngine);
    Post();
    m_Log.Clear();
    held.ReleaseWithStop();
    EXPECT_EQ(m_Log.Texts(kError), std::vector<std::string>{kNoHttp});
}

TEST_F(QueueFaultTest, PostToAnEngineThatDoesNotRunIsLoggedAndReleased)
{
    const auto refused = [&]
    {
        m_Log.Clear();
        bool called = false;
        // A timer's record and a request's: one text for both.
        std::weak_ptr<AsynOperReq> reqs[] = {
            Post(ASYN_OPER_AGAIN_TIMER), [&]
            {
                const auto req = std::make_shared<AsynHttpReq>(
                    ASYN_OPER_CANCEL_HTTP, m_pTarget, nullptr,
                    [&](std::shared_ptr<IHttpHandleInterface>, void*, int) { called = true; });
                m_pFrame->PostAsynOper(req);
                return req;
            }()};
        EXPECT_TRUE(reqs[0].expired());
        EXPECT_TRUE(reqs[1].expired());
        EXPECT_FALSE(called);
        EXPECT_EQ(m_Log.Lines().size(), 2u);
        EXPECT_EQ(m_Log.Count(kError, kNoTimer), 2);
        EXPECT_EQ(m_Log.Find(kNoTimer).threadId, base::GetTid());
    };
    refused();
    StartEngine();
    StopEngine();
    refused();
    EXPECT_TRUE(m_pTarget->m_Performed.empty());
    EXPECT_TRUE(m_pTarget->m_Offered.empty());
}

// An engine on the stack has no shared owner. It is never initialised here:
// what makes it accept work, and what drains it, is lent from another engine.
TEST_F(QueueFaultTest, EngineWithoutASharedOwnerThrows)
{
    uv_prepare_cb accept = nullptr;
    {
        const WakeUps wakeUps(*m_pFrame);
        const Replaced<int(uv_prepare_t*, uv_prepare_cb)> start(
            hooks::uv_prepare_start(),
            [&](uv_prepare_t* prepare, uv_prepare_cb callback)
            {
                accept = callback;
                return hooks::uv_prepare_start().Real(prepare, callback);
            });
        StartEngine();
        StopEngine();
    }
    CHttpFrame engine;
    uv_prepare_t prepare{};
    prepare.data = &engine;
    accept(&prepare);
    ASSERT_TRUE(engine.IsRunning());
    const Replaced<int(uv_async_t*)> wakeUp(hooks::uv_async_send(), [](uv_async_t*) { return 0; });

    const auto handle = IHttpHandleInterface::Create();
    HttpCompletion done;
    EXPECT_THROW(engine.AddHttpReq(handle, false, done.Function(), nullptr), std::bad_weak_ptr);
    EXPECT_EQ(done.Calls(), 0);

    engine.PostAsynOper(Record());
    uv_async_t async{};
    async.data = &engine;
    EXPECT_THROW(WakeUps::Drain()(&async), std::bad_weak_ptr);
    EXPECT_TRUE(m_pTarget->m_Performed.empty());
}

} // namespace
} // namespace test
