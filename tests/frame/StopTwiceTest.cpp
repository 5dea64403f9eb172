// A host thread and a notice stop the engine at once: the host has taken the
// thread to join it, so that the loop thread finds none to detach.

#include "support/EngineTest.h"
#include "wrap/Hooks.h"

#include <thread>

namespace test
{
namespace
{

class StopTwiceTest : public EngineTest, public ::testing::WithParamInterface<bool>
{
};

TEST_P(StopTwiceTest, OnTheLoopThreadLeavesTheThreadToTheHostThatJoinsIt)
{
    StartEngine();
    Event inNotice;
    Event hostWakesTheLoop;
    int stopped = 1;
    const auto notic = std::make_shared<TimerNotic>();
    notic->m_OnTimer = [&](const std::shared_ptr<ITimerHandleInterface>& timer)
    {
        EXPECT_EQ(m_pEngine->DelTimerReq(timer, false, nullptr, nullptr), 0);
        inNotice.Set();
        EXPECT_TRUE(hostWakesTheLoop.Wait());
        // The host holds the lock from waking the loop to having the thread.
        stopped = m_pEngine->Stop(GetParam());
    };
    const auto timer = ITimerHandleInterface::Create(notic, 1, 0, nullptr);
    ASSERT_EQ(m_pEngine->AddTimerReq(timer, false, nullptr, nullptr), 0);
    ASSERT_TRUE(inNotice.Wait());

    const auto host = std::this_thread::get_id();
    const Replaced<int(uv_async_t*)> send(hooks::uv_async_send(),
                                          [&](uv_async_t* async)
                                          {
                                              if (std::this_thread::get_id() == host)
                                              {
                                                  hostWakesTheLoop.Set();
                                              }
                                              return hooks::uv_async_send().Real(async);
                                          });
    EXPECT_EQ(m_pEngine->Stop(false), 0);
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 1) << "the host did not join the thread";
    EXPECT_EQ(stopped, 0);
}

INSTANTIATE_TEST_SUITE_P(AtOnceAndPosted, StopTwiceTest, ::testing::Bool());

} // namespace
} // namespace test
