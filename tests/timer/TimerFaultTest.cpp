#include "timer/CTimerHandle.h"

#include "frame/CHttpFrame.h"
#include "timer/TimerFixture.h"
#include "wrap/Hooks.h"

namespace test
{
namespace
{

using Lines = std::vector<std::string>;

const std::string kStopFailed = "[HTTP_INTERFACE]stop timer failed";
const std::string kAgainFailed = "[HTTP_INTERFACE]again timer failed";

/// "err[...]call failed" as the timer writes it for UV_EINVAL.
std::string Detail(const std::string& call)
{
    return "[HTTP_INTERFACE]err[" + std::to_string(UV_EINVAL) + ":" + uv_strerror(UV_EINVAL) + "]" +
           call + " failed";
}

/// A timer of 5 and 7 milliseconds whose libuv calls fail.
class TimerFaultTest : public TimerFixture
{
protected:
    using OneTimer = Hook<int(uv_timer_t*)>;
    using Start = int(uv_timer_t*, uv_timer_cb, uint64_t, uint64_t);

    /// libuv refuses a call for our timer, which is known by its times; those
    /// of the tests' own timers go on.
    static OneTimer::Function Refuses(OneTimer& hook)
    {
        return [&hook](uv_timer_t* timer)
        {
            return uv_timer_get_repeat(timer) == 7 ? UV_EINVAL : hook.Real(timer);
        };
    }

    static Hook<Start>::Function RefusesToStart(std::uint64_t repeatMs)
    {
        return
            [repeatMs](uv_timer_t* timer, uv_timer_cb callback, uint64_t timeout, uint64_t repeat)
        {
            return repeat == repeatMs
                       ? UV_EINVAL
                       : hooks::uv_timer_start().Real(timer, callback, timeout, repeat);
        };
    }

    /// Lines of errors, all of which came from the loop thread.
    Lines LoopErrors()
    {
        Lines texts;
        for (const LogLine& line : m_Log.Lines())
        {
            if (line.level == kError)
            {
                texts.push_back(line.text);
                EXPECT_EQ(line.threadId, m_LoopThread);
            }
        }
        return texts;
    }

    void StartEngineAndTellItsThread()
    {
        StartEngine();
        OnLoop([&] { m_LoopThread = base::GetTid(); });
    }

    long m_LoopThread = 0;
};

TEST_F(TimerFaultTest, FailingInitialisationIsReportedAndLeavesTheTimerUnadded)
{
    StartEngineAndTellItsThread();
    const auto timer = Make(5, 7);
    TimerCompletion added;
    OnLoop(
        [&]
        {
            const Replaced<int(uv_loop_t*, uv_timer_t*)> fails(
                hooks::uv_timer_init(), [](uv_loop_t*, uv_timer_t*) { return UV_EINVAL; });
            EXPECT_EQ(m_pEngine->AddTimerReq(timer, false, added.Function(), &m_UserData), -1);
        });
    EXPECT_EQ(added.Calls(), 1);
    EXPECT_EQ(added.Result(), -1);
    EXPECT_EQ(added.User(), &m_UserData);
    EXPECT_EQ(LoopErrors(), Lines{"[HTTP_INTERFACE]Init timer failed"});
    EXPECT_EQ(timer->StopTimer(nullptr, nullptr), -1);
    EXPECT_EQ(timer->AgainTimer(nullptr, nullptr), -1);
    EXPECT_EQ(LoopErrors().size(), 1U);
    StopEngine();
    EXPECT_EQ(m_pTimerNotic->m_Closed.Count(), 0);
}

TEST_F(TimerFaultTest, TimerThatFailedToInitialiseMayBeAddedAgain)
{
    StartEngineAndTellItsThread();
    const auto timer = Make(5, 7);
    OnLoop(
        [&]
        {
            const Replaced<int(uv_loop_t*, uv_timer_t*)> fails(
                hooks::uv_timer_init(), [](uv_loop_t*, uv_timer_t*) { return UV_EINVAL; });
            EXPECT_EQ(m_pEngine->AddTimerReq(timer, false, nullptr, nullptr), -1);
        });
    Add(timer);
    EXPECT_TRUE(m_pTimerNotic->m_Expired.Wait());
    Delete(timer);
}

TEST_F(TimerFaultTest, FailingStartIsReportedAndClosesTheTimer)
{
    StartEngineAndTellItsThread();
    const auto timer = Make(5, 7);
    TimerCompletion added;
    int closedBefore = -1;
    m_pTimerNotic->m_OnClose = [&](const std::shared_ptr<ITimerHandleInterface>&)
    {
        closedBefore = added.Calls();
    };
    OnLoop(
        [&]
        {
            const Replaced<Start> fails(hooks::uv_timer_start(), RefusesToStart(7));
            EXPECT_EQ(m_pEngine->AddTimerReq(timer, false, added.Function(), nullptr), -1);
        });
    EXPECT_EQ(added.Calls(), 1);
    EXPECT_EQ(added.Result(), -1);
    EXPECT_EQ(LoopErrors(),
              (Lines{Detail("uv_timer_start[5:7]"), "[HTTP_INTERFACE]Start timer failed"}));
    EXPECT_TRUE(m_pTimerNotic->m_Closed.Wait());
    EXPECT_EQ(closedBefore, 1);
    StopEngine();
    EXPECT_EQ(m_pTimerNotic->m_Closed.Count(), 1);
    EXPECT_EQ(m_pTimerNotic->m_Expired.Count(), 0);
    EXPECT_EQ(m_pTimerNotic.use_count(), 1);
}

// The times are 64 bits wide, the places for them in the line 32.
TEST_F(TimerFaultTest, LineShowsTheLowHalfOfLongTimes)
{
    constexpr std::uint64_t kLong = std::uint64_t{1} << 32;
    StartEngineAndTellItsThread();
    const auto timer = Make(kLong + 11, 3 * kLong + 13);
    {
        const Replaced<Start> fails(hooks::uv_timer_start(), RefusesToStart(3 * kLong + 13));
        TimerCompletion added;
        ASSERT_EQ(m_pEngine->AddTimerReq(timer, true, added.Function(), nullptr), 0);
        ASSERT_TRUE(added.Wait());
        EXPECT_EQ(added.Result(), -1);
    }
    EXPECT_EQ(LoopErrors(),
              (Lines{Detail("uv_timer_start[11:13]"), "[HTTP_INTERFACE]Start timer failed"}));
    EXPECT_TRUE(m_pTimerNotic->m_Closed.Wait());
}

TEST_F(TimerFaultTest, FailingStopOnTheLoopThreadIsItsResultAlone)
{
    StartEngineAndTellItsThread();
    const auto timer = Make(kNeverMs, 7);
    Add(timer);
    TimerCompletion done;
    OnLoop(
        [&]
        {
            const Replaced<int(uv_timer_t*)> fails(hooks::uv_timer_stop(),
                                                   Refuses(hooks::uv_timer_stop()));
            EXPECT_EQ(timer->StopTimer(done.Function(), nullptr), -1);
        });
    EXPECT_EQ(done.Calls(), 0);
    EXPECT_EQ(LoopErrors(), Lines{kStopFailed});
    Delete(timer);
}

TEST_F(TimerFaultTest, FailingAgainOnTheLoopThreadIsItsResultAlone)
{
    StartEngineAndTellItsThread();
    const auto timer = Make(kNeverMs, 7);
    Add(timer);
    TimerCompletion done;
    OnLoop(
        [&]
        {
            const Replaced<int(uv_timer_t*)> fails(hooks::uv_timer_again(),
                                                   Refuses(hooks::uv_timer_again()));
            EXPECT_EQ(timer->AgainTimer(done.Function(), nullptr), -1);
        });
    EXPECT_EQ(done.Calls(), 0);
    EXPECT_EQ(LoopErrors(), Lines{kAgainFailed});
    Delete(timer);
}

TEST_F(TimerFaultTest, FailingQueuedStopReachesItsCompletion)
{
    StartEngineAndTellItsThread();
    const auto timer = Make(5, 7);
    Add(timer);
    TimerCompletion done;
    {
        const Replaced<int(uv_timer_t*)> fails(hooks::uv_timer_stop(),
                                               Refuses(hooks::uv_timer_stop()));
        EXPECT_EQ(timer->StopTimer(done.Function(), &m_UserData), 0);
        ASSERT_TRUE(done.Wait());
    }
    EXPECT_EQ(done.Result(), -1);
    EXPECT_EQ(done.User(), &m_UserData);
    EXPECT_EQ(done.Target(), timer);
    EXPECT_EQ(LoopErrors(), (Lines{Detail("uv_timer_stop[5:7]"), kStopFailed}));
    EXPECT_TRUE(m_pTimerNotic->m_Expired.Wait(m_pTimerNotic->m_Expired.Count() + 1));
    Delete(timer);
}

TEST_F(TimerFaultTest, FailingQueuedAgainReachesItsCompletion)
{
    StartEngineAndTellItsThread();
    const auto timer = Make(kNeverMs, 7);
    Add(timer);
    TimerCompletion done;
    {
        const Replaced<int(uv_timer_t*)> fails(hooks::uv_timer_again(),
                                               Refuses(hooks::uv_timer_again()));
        EXPECT_EQ(timer->AgainTimer(done.Function(), &m_UserData), 0);
        ASSERT_TRUE(done.Wait());
    }
    EXPECT_EQ(done.Result(), -1);
    EXPECT_EQ(done.User(), &m_UserData);
    EXPECT_EQ(LoopErrors(), (Lines{Detail("uv_timer_again[1000000:7]"), kAgainFailed}));
    Delete(timer);
}

TEST_F(TimerFaultTest, DeleteWhoseStopFailsLeavesTheTimerRunning)
{
    StartEngineAndTellItsThread();
    const auto timer = Make(5, 7);
    Add(timer);
    TimerCompletion deleted;
    OnLoop(
        [&]
        {
            const Replaced<int(uv_timer_t*)> fails(hooks::uv_timer_stop(),
                                                   Refuses(hooks::uv_timer_stop()));
            EXPECT_EQ(m_pEngine->DelTimerReq(timer, false, deleted.Function(), nullptr), 0);
        });
    EXPECT_EQ(deleted.Calls(), 1);
    EXPECT_EQ(deleted.Result(), -1);
    EXPECT_EQ(LoopErrors(), (Lines{Detail("uv_timer_stop[5:7]"), kStopFailed}));
    EXPECT_TRUE(m_pTimerNotic->m_Expired.Wait(m_pTimerNotic->m_Expired.Count() + 1));
    EXPECT_EQ(m_pTimerNotic->m_Closed.Count(), 0);
    Delete(timer);
}

TEST_F(TimerFaultTest, OperationsOfOtherKindsDoNothing)
{
    const auto frame = std::static_pointer_cast<CHttpFrame>(m_pEngine);
    const auto timer = std::static_pointer_cast<CTimerHandle>(Make(5, 7));
    TimerCompletion done;
    const auto send =
        std::make_shared<AsynTimerReq>(ASYN_OPER_SEND_WS, timer, nullptr, done.Function());
    EXPECT_EQ(timer->DoAsynOper(send, frame), 0);
    EXPECT_EQ(timer->DoAsynOper(nullptr, frame), -1);
    EXPECT_EQ(done.Calls(), 0);
    EXPECT_TRUE(m_Log.Lines().empty());
}

TEST_F(TimerFaultTest, AddWithoutAnEngineOrItsLoopFails)
{
    const auto frame = std::static_pointer_cast<CHttpFrame>(m_pEngine);
    const auto timer = std::static_pointer_cast<CTimerHandle>(Make(5, 7));
    TimerCompletion done;
    const auto add =
        std::make_shared<AsynTimerReq>(ASYN_OPER_ADD_TIMER, timer, nullptr, done.Function());
    EXPECT_EQ(timer->DoAsynOper(add, nullptr), -1);
    EXPECT_EQ(timer->DoAsynOper(add, frame), -1); // not initialised
    EXPECT_EQ(done.Calls(), 2);
    EXPECT_EQ(done.Result(), -1);
    EXPECT_EQ(m_Log.Count(kError, "[HTTP_INTERFACE]Init timer failed"), 2);
}

TEST_F(TimerFaultTest, OnlyAddsAreCancelled)
{
    const auto timer = std::static_pointer_cast<CTimerHandle>(Make(5, 7));
    for (const AsynOperType type :
         {ASYN_OPER_DEL_TIMER, ASYN_OPER_STOP_TIMER, ASYN_OPER_AGAIN_TIMER})
    {
        TimerCompletion done;
        EXPECT_FALSE(timer->CancelAsynOper(
            std::make_shared<AsynTimerReq>(type, timer, nullptr, done.Function())));
        EXPECT_EQ(done.Calls(), 0);
    }
    TimerCompletion done;
    EXPECT_TRUE(timer->CancelAsynOper(
        std::make_shared<AsynTimerReq>(ASYN_OPER_ADD_TIMER, timer, &m_UserData, done.Function())));
    EXPECT_EQ(done.Calls(), 1);
    EXPECT_EQ(done.Result(), -1);
    EXPECT_EQ(done.User(), &m_UserData);
    EXPECT_EQ(done.Target(), timer);
    EXPECT_TRUE(timer->CancelAsynOper(
        std::make_shared<AsynTimerReq>(ASYN_OPER_ADD_TIMER, timer, nullptr, nullptr)));
    EXPECT_TRUE(m_Log.Lines().empty());
}

TEST_F(TimerFaultTest, TimerThatNoSharedPointerOwnsThrows)
{
    CTimerHandle unowned(m_pTimerNotic, 5, 7, nullptr);
    TimerCompletion done;
    EXPECT_THROW(unowned.CancelAsynOper(std::make_shared<AsynTimerReq>(ASYN_OPER_ADD_TIMER, nullptr,
                                                                       nullptr, done.Function())),
                 std::bad_weak_ptr);
    EXPECT_THROW(unowned.DoAsynOper(std::make_shared<AsynTimerReq>(ASYN_OPER_DEL_TIMER, nullptr,
                                                                   nullptr, done.Function()),
                                    nullptr),
                 std::bad_weak_ptr);
    EXPECT_EQ(done.Calls(), 0);
}

TEST_F(TimerFaultTest, CloseOfATimerThatOwnsItselfNoMoreDoesNothing)
{
    uv_close_cb onClosed = nullptr;
    const Replaced<void(uv_handle_t*, uv_close_cb)> close(
        hooks::uv_close(),
        [&](uv_handle_t* handle, uv_close_cb callback)
        {
            onClosed = callback != nullptr ? callback : onClosed;
            hooks::uv_close().Real(handle, callback);
        });
    StartEngine();
    const auto timer = Make(kNeverMs, 0);
    Add(timer);
    Delete(timer);
    StopEngine();
    ASSERT_NE(onClosed, nullptr);
    uv_timer_t closed{};
    onClosed(reinterpret_cast<uv_handle_t*>(&closed));
    EXPECT_EQ(m_pTimerNotic->m_Closed.Count(), 1);
}

} // namespace
} // namespace test
