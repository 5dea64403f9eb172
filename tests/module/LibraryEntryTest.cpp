#include "module/LibraryEntry.h"

#include "support/EngineTest.h"
#include "support/HeldLoop.h"
#include "wrap/Hooks.h"

namespace test
{
namespace
{

/// Notes the calls of libcurl's global state, which stays as it is.
class LibraryEntryTest : public EngineTest
{
protected:
    LibraryEntryTest()
        : m_Init(hooks::curl_global_init(),
                 [this](long flags)
                 {
                     m_Flags.push_back(flags);
                     return m_InitResult;
                 }),
          m_Cleanup(hooks::curl_global_cleanup(), [this] { ++m_Cleanups; })
    {
    }

    std::vector<long> m_Flags; ///< of each initialisation
    int m_Cleanups = 0;
    CURLcode m_InitResult = CURLE_OK;

private:
    const Replaced<CURLcode(long)> m_Init;
    const Replaced<void()> m_Cleanup;
};

TEST_F(LibraryEntryTest, LoadInitialisesLibcurlOnceWithBothFlags)
{
    OnLibraryLoad();
    EXPECT_EQ(m_Flags, std::vector<long>{3});
    EXPECT_EQ(m_Cleanups, 0);
    EXPECT_TRUE(m_Log.Lines().empty());
}

TEST_F(LibraryEntryTest, FailedInitialisationIsLogged)
{
    m_InitResult = CURLE_FAILED_INIT;
    OnLibraryLoad();
    EXPECT_EQ(m_Flags.size(), 1U);
    const std::vector<LogLine> lines = m_Log.Lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].text, "[HTTP_INTERFACE]err[2:Failed initialization]curl_global_init failed");
    EXPECT_EQ(lines[0].level, kError);
    EXPECT_EQ(lines[0].threadId, base::GetTid());
}

TEST_F(LibraryEntryTest, UnloadCleansLibcurlUpOnce)
{
    OnLibraryUnload();
    EXPECT_EQ(m_Cleanups, 1);
    EXPECT_TRUE(m_Flags.empty());
    EXPECT_TRUE(m_Log.Lines().empty());
}

// A process that ends without stopping its engine: the loop thread may be
// inside libcurl.
TEST_F(LibraryEntryTest, UnloadLeavesLibcurlAloneWhileALoopThreadRuns)
{
    StartEngine();
    OnLibraryUnload();
    EXPECT_EQ(m_Cleanups, 0);
    StopEngine();
    OnLibraryUnload();
    EXPECT_EQ(m_Cleanups, 1);
}

TEST_F(LibraryEntryTest, UnloadWaitsForTheLastOfTheLoopThreads)
{
    StartEngine();
    const auto other = IHttpInterface::Create();
    ASSERT_EQ(other->Init(nullptr, nullptr), 0);
    ASSERT_EQ(other->Start(true), 0);
    StopEngine();
    OnLibraryUnload();
    EXPECT_EQ(m_Cleanups, 0);
    ASSERT_EQ(other->Stop(false), 0);
    OnLibraryUnload();
    EXPECT_EQ(m_Cleanups, 1);
}

TEST_F(LibraryEntryTest, DetachedLoopThreadCountsUntilItEnds)
{
    Event release;
    m_pEngineNotic->m_Hook = [&](const std::shared_ptr<IHttpInterface>&)
    {
        EXPECT_TRUE(release.Wait());
    };
    StartEngine();
    Event ended;
    HeldLoop(m_pEngine).Release(
        [&]
        {
            SetAtThreadEnd(ended);
            EXPECT_EQ(m_pEngine->Stop(false), 0);
        });
    OnLibraryUnload();
    EXPECT_EQ(m_Cleanups, 0);
    release.Set();
    EXPECT_TRUE(ended.Wait());
    OnLibraryUnload();
    EXPECT_EQ(m_Cleanups, 1);
}

} // namespace
} // namespace test
