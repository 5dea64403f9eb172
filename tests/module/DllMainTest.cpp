#include "support/LogRecorder.h"
#include "wrap/Hooks.h"

#include <gtest/gtest.h>
#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID reserved);

namespace
{

int opensslCleanups = 0;

} // namespace

// The linker sends the library's call here; the TLS library stays as it is.
extern "C" void __wrap_OPENSSL_cleanup();
void __wrap_OPENSSL_cleanup()
{
    ++opensslCleanups;
}

namespace test
{
namespace
{

class DllMainTest : public ::testing::Test
{
protected:
    DllMainTest()
        : m_Init(hooks::curl_global_init(),
                 [this](long flags)
                 {
                     m_Flags.push_back(flags);
                     return m_InitResult;
                 }),
          m_Cleanup(hooks::curl_global_cleanup(), [this] { ++m_Cleanups; })
    {
        opensslCleanups = 0;
    }

    static BOOL Notify(DWORD reason, void* reserved = nullptr)
    {
        return DllMain(GetModuleHandleW(nullptr), reason, reserved);
    }

    LogRecorder m_Log;
    std::vector<long> m_Flags; ///< of each initialisation of libcurl
    int m_Cleanups = 0;        ///< of libcurl
    CURLcode m_InitResult = CURLE_OK;

private:
    const Replaced<CURLcode(long)> m_Init;
    const Replaced<void()> m_Cleanup;
};

TEST_F(DllMainTest, ProcessAttachInitialisesLibcurl)
{
    EXPECT_EQ(Notify(DLL_PROCESS_ATTACH), TRUE);
    EXPECT_EQ(m_Flags, std::vector<long>{3});
    EXPECT_EQ(m_Cleanups, 0);
    EXPECT_TRUE(m_Log.Lines().empty());
}

TEST_F(DllMainTest, ProcessAttachSucceedsWhenLibcurlFails)
{
    m_InitResult = CURLE_FAILED_INIT;
    EXPECT_EQ(Notify(DLL_PROCESS_ATTACH), TRUE);
    EXPECT_EQ(m_Log.Texts(kError),
              std::vector<std::string>{
                  "[HTTP_INTERFACE]err[2:Failed initialization]curl_global_init failed"});
}

TEST_F(DllMainTest, ThreadsComingAndGoingChangeNothing)
{
    EXPECT_EQ(Notify(DLL_THREAD_ATTACH), TRUE);
    EXPECT_EQ(Notify(DLL_THREAD_DETACH), TRUE);
    EXPECT_TRUE(m_Flags.empty());
    EXPECT_EQ(m_Cleanups, 0);
    EXPECT_EQ(opensslCleanups, 0);
    EXPECT_TRUE(m_Log.Lines().empty());
}

TEST_F(DllMainTest, UnloadCleansLibcurlAndTheTlsLibraryUp)
{
    EXPECT_EQ(Notify(DLL_PROCESS_DETACH), TRUE);
    EXPECT_EQ(m_Cleanups, 1);
    EXPECT_EQ(opensslCleanups, 1);
}

// The system takes everything back; other threads were ended wherever they were.
TEST_F(DllMainTest, EndOfTheProcessLeavesTheTlsLibraryAlone)
{
    int reserved = 0;
    EXPECT_EQ(Notify(DLL_PROCESS_DETACH, &reserved), TRUE);
    EXPECT_EQ(m_Cleanups, 1);
    EXPECT_EQ(opensslCleanups, 0);
}

} // namespace
} // namespace test
