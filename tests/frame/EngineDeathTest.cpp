#include "frame/CHttpFrame.h"
#include "support/EngineTest.h"
#include "wrap/Hooks.h"

#include <cstdlib>

namespace test
{
namespace
{

class EngineDeathTest : public EngineTest
{
protected:
    EngineDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    /// An engine whose loop thread has ended, but was never joined.
    void EndLoopWithoutAStop()
    {
        const Replaced<int(uv_loop_t*, uv_run_mode)> fails(
            hooks::uv_run(), [](uv_loop_t*, uv_run_mode) { return UV_EINVAL; });
        m_pEngine->Init(nullptr, nullptr);
        m_pEngine->Start(false);
        while (m_pEngine.use_count() > 1 || m_Log.Texts(kError).empty())
        {
            std::this_thread::yield();
        }
    }
};

TEST_F(EngineDeathTest, DestroyingAnEngineWithItsThreadAttachedEndsTheProcess)
{
    EXPECT_DEATH(
        {
            EndLoopWithoutAStop();
            std::fputs("destroying\n", stderr);
            m_pEngine.reset();
            std::exit(0);
        },
        "destroying");
}

TEST_F(EngineDeathTest, RunningAnEngineThatNoSharedPointerOwnsEndsTheProcess)
{
    EXPECT_DEATH(
        {
            CHttpFrame unowned;
            unowned.Init(nullptr, nullptr);
            unowned.Start(true);
            std::exit(0);
        },
        "bad_weak_ptr");
}

} // namespace
} // namespace test
