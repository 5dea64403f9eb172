#include "support/EngineTest.h"

#include <thread>

namespace test
{
namespace
{

class LifecycleTest : public EngineTest
{
};

TEST_F(LifecycleTest, SecondInitIsRefusedWithoutALine)
{
    ASSERT_EQ(m_pEngine->Init(nullptr, nullptr), 0);
    EXPECT_EQ(m_pEngine->Init(nullptr, nullptr), -1);
    EXPECT_TRUE(m_Log.Lines().empty());
}

TEST_F(LifecycleTest, StopFromAHostThreadReturnsAfterTheNotice)
{
    StartEngine();
    StopEngine();
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 1);
    EXPECT_EQ(m_pEngineNotic->m_UserData, &m_UserData);
    EXPECT_NE(m_pEngineNotic->m_ThreadId, base::GetTid());
}

} // namespace
} // namespace test
