#include "support/EngineTest.h"
#include "wrap/Hooks.h"

#include <thread>

namespace test
{
namespace
{

const std::string kThreadStop = "[HTTP_INTERFACE]FrameThread Stop";

/// "err[...]" as it starts the line of a failed libuv call.
std::string UvError(int code)
{
    return "[HTTP_INTERFACE]err[" + std::to_string(code) + ":" + uv_strerror(code) + "]";
}

class EngineFaultTest : public EngineTest
{
protected:
    using Run = int(uv_loop_t*, uv_run_mode);

    /// Starts an engine whose loop fails after its first iteration, and returns
    /// when the loop thread has ended. A Stop is due after that.
    void StartFailingLoop()
    {
        const Replaced<Run> fails(hooks::uv_run(),
                                  [](uv_loop_t* loop, uv_run_mode)
                                  {
                                      hooks::uv_run().Real(loop, UV_RUN_NOWAIT);
                                      return UV_EINVAL;
                                  });
        StartEngine();
        ASSERT_TRUE(m_Log.WaitFor(UvError(UV_EINVAL) + "uv_run failed"));
    }

    /// The stop joins the ended thread; no loop is there to hear the wake-up.
    void JoinFailedLoop()
    {
        const Replaced<int(uv_async_t*)> unheard(hooks::uv_async_send(),
                                                 [](uv_async_t*) { return 0; });
        StopEngine();
    }
};

TEST_F(EngineFaultTest, FailingLoopIsNeitherClosedNorReported)
{
    const CallRecorder recorder;
    StartFailingLoop();
    JoinFailedLoop();
    const LogLine line = m_Log.Find(UvError(UV_EINVAL) + "uv_run failed");
    EXPECT_EQ(line.level, kError);
    EXPECT_EQ(line.threadId, m_Log.Find("[HTTP_INTERFACE]FrameThread Start").threadId);
    EXPECT_NE(line.threadId, base::GetTid());
    EXPECT_EQ(m_Log.Lines().size(), 2U); // no "FrameThread Stop", no size of the list
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 0);
    EXPECT_TRUE(recorder.Calls({"uv_close", "uv_loop_close", "curl_multi_cleanup"}).empty());
    EXPECT_EQ(m_pEngine.use_count(), 1);
    EXPECT_EQ(m_pEngine->Init(nullptr, nullptr), -1); // still initialised

    // Its loop is still whole here: the engine may be started again.
    ASSERT_EQ(m_pEngine->Start(true), 0);
    StopEngine();
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 1);
}

TEST_F(EngineFaultTest, StartAfterAFailedLoopMakesNoThreadUntilItIsJoined)
{
    StartFailingLoop();
    EXPECT_EQ(m_pEngine->Start(false), 0);
    EXPECT_EQ(m_Log.Count(kDebug, "[HTTP_INTERFACE]FrameThread Start"), 1);
    JoinFailedLoop();
    ASSERT_EQ(m_pEngine->Start(true), 0);
    StopEngine();
    EXPECT_EQ(m_Log.Count(kDebug, "[HTTP_INTERFACE]FrameThread Start"), 2);
}

TEST_F(EngineFaultTest, FailingWakeUpLeavesTheEngineRunning)
{
    StartEngine();
    {
        const Replaced<int(uv_async_t*)> fails(hooks::uv_async_send(),
                                               [](uv_async_t*) { return UV_EBADF; });
        EXPECT_EQ(m_pEngine->Stop(false), -1);
    }
    const std::string text = UvError(UV_EBADF) + "uv_async_send failed while stop HttpFrame";
    EXPECT_EQ(m_Log.Texts(kError), std::vector<std::string>{text});
    EXPECT_EQ(m_Log.Find(text).threadId, base::GetTid());
    OnLoop([] {});
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 0);
    StopEngine(); // the thread was not joined before
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 1);
}

TEST_F(EngineFaultTest, FailingWakeUpOnTheLoopThreadDetachesNothing)
{
    StartEngine();
    long loopThread = 0;
    OnLoop(
        [&]
        {
            loopThread = base::GetTid();
            const Replaced<int(uv_async_t*)> fails(hooks::uv_async_send(),
                                                   [](uv_async_t*) { return UV_EBADF; });
            EXPECT_EQ(m_pEngine->Stop(true), -1);
        });
    const std::string text = UvError(UV_EBADF) + "uv_async_send failed while stop HttpFrame";
    EXPECT_EQ(m_Log.Find(text).threadId, loopThread);
    EXPECT_EQ(m_Log.Find(text).level, kError);
    StopEngine();
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 1);
}

TEST_F(EngineFaultTest, ResultsOfPreparingTheLoopAndOfClosingItAreIgnored)
{
    const Replaced<int(uv_loop_t*, uv_prepare_t*)> init(hooks::uv_prepare_init(),
                                                        [](uv_loop_t* loop, uv_prepare_t* handle)
                                                        {
                                                            hooks::uv_prepare_init().Real(loop,
                                                                                          handle);
                                                            return UV_ENOMEM;
                                                        });
    const Replaced<int(uv_prepare_t*, uv_prepare_cb)> start(
        hooks::uv_prepare_start(),
        [](uv_prepare_t* handle, uv_prepare_cb callback)
        {
            hooks::uv_prepare_start().Real(handle, callback);
            return UV_ENOMEM;
        });
    const Replaced<int(uv_prepare_t*)> stop(hooks::uv_prepare_stop(),
                                            [](uv_prepare_t* handle)
                                            {
                                                hooks::uv_prepare_stop().Real(handle);
                                                return UV_EINVAL;
                                            });
    const Replaced<CURLMcode(CURLM*)> cleanup(hooks::curl_multi_cleanup(),
                                              [](CURLM* multi)
                                              {
                                                  hooks::curl_multi_cleanup().Real(multi);
                                                  return CURLM_INTERNAL_ERROR;
                                              });
    const Replaced<int(uv_loop_t*)> close(hooks::uv_loop_close(),
                                          [](uv_loop_t* loop)
                                          {
                                              hooks::uv_loop_close().Real(loop);
                                              return UV_EINVAL;
                                          });
    for (int cycle = 1; cycle <= 2; ++cycle)
    {
        StartEngine();
        OnLoop([] {});
        StopEngine();
        EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), cycle);
    }
    EXPECT_EQ(m_Log.Count(kDebug, kThreadStop), 2);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

} // namespace
} // namespace test
