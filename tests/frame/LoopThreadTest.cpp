#include "frame/CHttpFrame.h"
#include "support/EngineTest.h"
#include "support/HeldLoop.h"
#include "wrap/Hooks.h"

#include <algorithm>
#include <map>

namespace test
{
namespace
{

/// Which of the engine's handles an address is, told by the order in which Init
/// prepares them.
class LoopThreadTest : public EngineTest
{
protected:
    LoopThreadTest()
        : m_Timer(hooks::uv_timer_init(),
                  [this](uv_loop_t* loop, uv_timer_t* handle)
                  {
                      Name(handle, "timer");
                      return hooks::uv_timer_init().Real(loop, handle);
                  }),
          m_Async(hooks::uv_async_init(),
                  [this](uv_loop_t* loop, uv_async_t* handle, uv_async_cb callback)
                  {
                      if (Name(handle, m_OnStop == nullptr ? "stop" : "request"))
                      {
                          m_OnStop = m_OnStop == nullptr ? callback : m_OnStop;
                      }
                      return hooks::uv_async_init().Real(loop, handle, callback);
                  })
    {
    }

    /// What closed the engine, in order: libuv handles with their names.
    std::vector<std::string> Closing(const CallRecorder& recorder) const
    {
        std::vector<std::string> names;
        for (const Call& call : recorder.Calls({"uv_close", "uv_loop_close", "curl_multi_cleanup"}))
        {
            const auto known = m_Names.find(call.subject);
            names.push_back(call.name == "uv_close"
                                ? (known != m_Names.end() ? known->second : "other") +
                                      (call.detail == 0 ? "" : " with callback")
                                : call.name);
        }
        return names;
    }

    uv_async_cb m_OnStop = nullptr; ///< the callback of the stop's wake-up

private:
    bool Name(const void* handle, const char* name)
    {
        const auto* const address = static_cast<const char*>(handle);
        const auto* const engine = reinterpret_cast<const char*>(m_pEngine.get());
        const bool ours = address >= engine && address < engine + sizeof(CHttpFrame);
        if (ours)
        {
            m_Names[handle] = name;
        }
        return ours;
    }

    std::map<const void*, std::string> m_Names;
    const Replaced<int(uv_loop_t*, uv_timer_t*)> m_Timer;
    const Replaced<int(uv_loop_t*, uv_async_t*, uv_async_cb)> m_Async;
};

using Names = std::vector<std::string>;

TEST_F(LoopThreadTest, ClosesEachHandleOnceAndTheLoopLast)
{
    StartEngine();
    const CallRecorder recorder;
    StopEngine();
    EXPECT_EQ(Closing(recorder),
              (Names{"timer", "stop", "request", "curl_multi_cleanup", "uv_loop_close"}));
}

TEST_F(LoopThreadTest, ClosesTheSameWayAfterAStopOnIt)
{
    StartEngine();
    const CallRecorder recorder;
    HeldLoop(m_pEngine).ReleaseWithStop();
    Names closing = Closing(recorder);
    // The timer that held the loop is closed by its delete, with a callback.
    closing.erase(std::remove(closing.begin(), closing.end(), "other with callback"),
                  closing.end());
    EXPECT_EQ(closing, (Names{"timer", "stop", "request", "curl_multi_cleanup", "uv_loop_close"}));
}

// Only a loop that ends without a stop leaves handles open for its end.
TEST_F(LoopThreadTest, ClosesHandlesThatNoStopClosedBeforeTheLoop)
{
    Event turned;
    Event stopSent;
    const Replaced<int(uv_loop_t*, uv_run_mode)> run(hooks::uv_run(),
                                                     [&](uv_loop_t* loop, uv_run_mode)
                                                     {
                                                         hooks::uv_run().Real(loop, UV_RUN_NOWAIT);
                                                         turned.Set();
                                                         EXPECT_TRUE(stopSent.Wait());
                                                         return 0;
                                                     });
    const Replaced<int(uv_async_t*)> send(hooks::uv_async_send(),
                                          [&](uv_async_t*)
                                          {
                                              stopSent.Set();
                                              return 0;
                                          });
    ASSERT_EQ(m_pEngine->Init(m_pEngineNotic, nullptr), 0);
    const CallRecorder recorder;
    ASSERT_EQ(m_pEngine->Start(false), 0);
    ASSERT_TRUE(turned.Wait());
    StopEngine();
    EXPECT_EQ(Closing(recorder),
              (Names{"curl_multi_cleanup", "timer", "stop", "request", "uv_loop_close"}));
}

TEST_F(LoopThreadTest, RunsTheLoopAfterPreparingItsFirstIteration)
{
    long runThread = 0;
    uv_run_mode runMode = UV_RUN_NOWAIT;
    const Replaced<int(uv_loop_t*, uv_run_mode)> run(hooks::uv_run(),
                                                     [&](uv_loop_t* loop, uv_run_mode mode)
                                                     {
                                                         runThread = base::GetTid();
                                                         runMode = mode;
                                                         return hooks::uv_run().Real(loop, mode);
                                                     });
    const void* engine = nullptr;
    const Replaced<int(uv_prepare_t*, uv_prepare_cb)> start(
        hooks::uv_prepare_start(),
        [&](uv_prepare_t* handle, uv_prepare_cb callback)
        {
            engine = handle->data;
            return hooks::uv_prepare_start().Real(handle, callback);
        });
    const CallRecorder recorder;
    StartEngine();
    StopEngine();
    const std::vector<Call> calls =
        recorder.Calls({"uv_prepare_init", "uv_prepare_start", "uv_run", "uv_prepare_stop"});
    ASSERT_EQ(calls.size(), 4U);
    EXPECT_EQ(calls[0].name, "uv_prepare_init");
    EXPECT_EQ(calls[1].name, "uv_prepare_start");
    EXPECT_EQ(calls[2].name, "uv_run");
    EXPECT_EQ(calls[3].name, "uv_prepare_stop");
    EXPECT_EQ(calls[1].subject, calls[0].subject);
    EXPECT_EQ(calls[3].subject, calls[0].subject);
    EXPECT_EQ(engine, static_cast<CHttpFrame*>(m_pEngine.get()));
    EXPECT_EQ(runMode, UV_RUN_DEFAULT);
    EXPECT_EQ(runThread, m_pEngineNotic->m_ThreadId);
}

// It was never closed; the loop is freed all the same.
TEST_F(LoopThreadTest, PrepareHandleIsStillThereWhenTheLoopCloses)
{
    int result = 0;
    const Replaced<int(uv_loop_t*)> close(hooks::uv_loop_close(),
                                          [&](uv_loop_t* loop)
                                          {
                                              result = hooks::uv_loop_close().Real(loop);
                                              return result;
                                          });
    StartEngine();
    const std::weak_ptr<uv_loop_t> loop = static_cast<CHttpFrame*>(m_pEngine.get())->Loop();
    EXPECT_FALSE(loop.expired());
    StopEngine();
    EXPECT_EQ(result, UV_EBUSY);
    EXPECT_TRUE(loop.expired());
    EXPECT_EQ(static_cast<CHttpFrame*>(m_pEngine.get())->Multi(), nullptr);
}

TEST_F(LoopThreadTest, RecordsLeftAtItsEndAreCountedAndReleasedByTheDestructor)
{
    Event turned;
    Event stopSent;
    const Replaced<int(uv_loop_t*, uv_run_mode)> run(
        hooks::uv_run(),
        [&](uv_loop_t* loop, uv_run_mode)
        {
            hooks::uv_run().Real(loop, UV_RUN_NOWAIT);
            turned.Set();
            EXPECT_TRUE(stopSent.Wait(3));
            return 0; // with two records queued and the stop not performed
        });
    const Replaced<int(uv_async_t*)> send(hooks::uv_async_send(),
                                          [&](uv_async_t*)
                                          {
                                              stopSent.Set();
                                              return 0;
                                          });
    ASSERT_EQ(m_pEngine->Init(m_pEngineNotic, nullptr), 0);
    ASSERT_EQ(m_pEngine->Start(false), 0);
    ASSERT_TRUE(turned.Wait());
    TimerCompletion completion;
    std::weak_ptr<ITimerHandleInterface> timer;
    {
        const auto made = ITimerHandleInterface::Create(nullptr, nullptr, 1, 0, nullptr);
        timer = made;
        ASSERT_EQ(m_pEngine->AddTimerReq(made, true, completion.Function(), nullptr), 0);
        ASSERT_EQ(m_pEngine->DelTimerReq(made, true, completion.Function(), nullptr), 0);
    }
    StopEngine();
    EXPECT_EQ(m_Log.Count(kDebug, "[HTTP_INTERFACE]m_AsynOperReqList size[2]"), 1);
    EXPECT_FALSE(timer.expired());
    m_pEngine = IHttpInterface::Create();
    EXPECT_TRUE(timer.expired());
    EXPECT_EQ(completion.Calls(), 0);
}

TEST_F(LoopThreadTest, StopWakeUpWithoutAnEngineIsOnlyLogged)
{
    StartEngine();
    m_Log.Clear();
    uv_async_t noEngine{};
    for (uv_async_t* const handle : {static_cast<uv_async_t*>(nullptr), &noEngine})
    {
        m_OnStop(handle);
        const std::vector<LogLine> lines = m_Log.Lines();
        ASSERT_EQ(lines.size(), 2U);
        EXPECT_EQ(lines[0].level, kDebug);
        EXPECT_EQ(lines[0].text, "[HTTP_INTERFACE]http_interface::CHttpFrame::OnStop");
        EXPECT_EQ(lines[1].level, kError);
        EXPECT_EQ(lines[1].text, "[HTTP_INTERFACE]OnStop Get NULL rAsync or data");
        m_Log.Clear();
    }
    OnLoop([] {}); // the engine runs on
    StopEngine();
}

TEST_F(LoopThreadTest, EngineThatNeverRanIsDestroyedWithoutClosingAnything)
{
    CURLM* multi = nullptr;
    const Replaced<CURLM*()> make(hooks::curl_multi_init(),
                                  [&] { return multi = hooks::curl_multi_init().Real(); });
    ASSERT_EQ(m_pEngine->Init(m_pEngineNotic, nullptr), 0);
    const std::weak_ptr<uv_loop_t> loop = static_cast<CHttpFrame*>(m_pEngine.get())->Loop();
    {
        const CallRecorder recorder;
        m_pEngine = IHttpInterface::Create();
        EXPECT_TRUE(recorder.Calls().empty());
    }
    EXPECT_TRUE(loop.expired());
    EXPECT_EQ(m_pEngineNotic.use_count(), 1);
    hooks::curl_multi_cleanup().Real(multi);
}

} // namespace
} // namespace test
