#include "http_interface/http_interface.h"
#include "module/SharedLibrary.h"
#include "support/LogRecorder.h"
#include "support/Notics.h"
#include "support/Servers.h"

#include <cstdio>
#include <gtest/gtest.h>
#ifdef _WIN32
#include <windows.h>
#endif

// Paths of the library and of one of the same objects that reports its calls of
// libcurl's global state as lines (CallReport.cpp).
#if !defined(HTTP_INTERFACE_LIBRARY) || !defined(HTTP_INTERFACE_REPORTING_LIBRARY)
#error "the build names the libraries"
#endif

namespace test
{
namespace
{

const std::string kLibrary = HTTP_INTERFACE_LIBRARY;
const std::string kReportingLibrary = HTTP_INTERFACE_REPORTING_LIBRARY;

const char* const kInit = "curl_global_init[3]";
const char* const kCleanup = "curl_global_cleanup";

/// Makes objects of a loaded library, through its exported symbols.
class Factories
{
public:
    explicit Factories(const SharedLibrary& library)
        : m_Engine(library.Find<std::shared_ptr<IHttpInterface>()>(
              "_ZN14http_interface14IHttpInterface6CreateEv")),
          m_Handle(library.Find<std::shared_ptr<IHttpHandleInterface>()>(
              "_ZN14http_interface20IHttpHandleInterface6CreateEv"))
    {
    }

    std::shared_ptr<IHttpInterface> Engine() const { return m_Engine(); }
    std::shared_ptr<IHttpHandleInterface> Handle() const { return m_Handle(); }

private:
    std::shared_ptr<IHttpInterface> (*m_Engine)();
    std::shared_ptr<IHttpHandleInterface> (*m_Handle)();
};

/// One request of an engine of its own, which is stopped afterwards.
void Request(const Factories& factories, const std::string& url, const char* caFile)
{
    const auto engine = factories.Engine();
    ASSERT_EQ(engine->Init(nullptr, nullptr), 0);
    ASSERT_EQ(engine->Start(true), 0);

    const auto notic = std::make_shared<HandleNotic>();
    const auto handle = factories.Handle();
    EXPECT_EQ(handle->InitRequest(url.c_str(), "tag", 0, notic, 20000, 20000, nullptr), 0);
    if (caFile != nullptr)
    {
        EXPECT_EQ(handle->SetCaCert(caFile), 0);
    }
    EXPECT_EQ(engine->AddHttpReq(handle, false, nullptr, nullptr), 0);
    EXPECT_TRUE(notic->m_Finished.Wait());
    EXPECT_EQ(notic->m_Result, 0);
    EXPECT_EQ(handle->GetResponseCode(), 200);
    EXPECT_EQ(handle->GetResponse(), "hello from nginx\n");

    EXPECT_EQ(engine->DelHttpReq(handle, false, nullptr, nullptr), 0);
    EXPECT_EQ(engine->Stop(false), 0);
}

class LoadingTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(SharedLibrary::IsInProcess(kLibrary));
        ASSERT_FALSE(SharedLibrary::IsInProcess(kReportingLibrary));
    }

    /// The global state's calls so far, in order.
    std::vector<std::string> GlobalCalls() const
    {
        std::vector<std::string> calls;
        for (const std::string& text : m_Log.Texts(kInfo))
        {
            calls.push_back(text.substr(0, text.find(' ')));
        }
        return calls;
    }

    LogRecorder m_Log;
};

TEST_F(LoadingTest, LibraryIsReallyUnloaded)
{
    {
        const SharedLibrary library(kLibrary);
        EXPECT_TRUE(SharedLibrary::IsInProcess(kLibrary));
    }
    EXPECT_FALSE(SharedLibrary::IsInProcess(kLibrary));
    EXPECT_TRUE(m_Log.Lines().empty());
}

TEST_F(LoadingTest, HundredCyclesOfLoadRequestAndUnload)
{
    const std::string url = Server("HTTP_URL") + "/hello";
    for (int cycle = 0; cycle < 100 && !HasFailure(); ++cycle)
    {
        {
            const SharedLibrary library(kLibrary);
            Request(Factories(library), url, nullptr);
        }
        EXPECT_FALSE(SharedLibrary::IsInProcess(kLibrary));
    }
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(LoadingTest, CyclesThatUsedTls)
{
    const std::string url = Server("HTTPS_URL") + "/hello";
    const std::string caFile = Server("CA_FILE");
    for (int cycle = 0; cycle < 20 && !HasFailure(); ++cycle)
    {
        {
            const SharedLibrary library(kLibrary);
            Request(Factories(library), url, caFile.c_str());
        }
        EXPECT_FALSE(SharedLibrary::IsInProcess(kLibrary));
    }
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

#ifdef _WIN32
// Both would stay as they are after the library is gone.
TEST_F(LoadingTest, UseLeavesTheProcessesErrorHandlingToTheHost)
{
    const auto handlerBefore = _get_invalid_parameter_handler();
    const UINT modeBefore = SEM_NOALIGNMENTFAULTEXCEPT; // nobody else's choice
    SetErrorMode(modeBefore);
    {
        const SharedLibrary library(kLibrary);
        Request(Factories(library), Server("HTTP_URL") + "/hello", nullptr);
        EXPECT_EQ(GetErrorMode(), modeBefore);
        EXPECT_EQ(_get_invalid_parameter_handler(), handlerBefore);
    }
    EXPECT_EQ(GetErrorMode(), modeBefore);
    EXPECT_EQ(_get_invalid_parameter_handler(), handlerBefore);
}
#endif

TEST_F(LoadingTest, InitialisesAndCleansLibcurlUpOnceALoad)
{
    std::vector<std::string> expected;
    for (int cycle = 0; cycle < 3; ++cycle)
    {
        {
            const SharedLibrary library(kReportingLibrary);
            expected.push_back(kInit);
            EXPECT_EQ(GlobalCalls(), expected);
        }
        expected.push_back(kCleanup);
        EXPECT_EQ(GlobalCalls(), expected);
        EXPECT_FALSE(SharedLibrary::IsInProcess(kReportingLibrary));
    }
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(LoadingTest, UseBetweenLoadAndUnloadInitialisesNothingMore)
{
    {
        const SharedLibrary library(kReportingLibrary);
        Request(Factories(library), Server("HTTP_URL") + "/hello", nullptr);
        Request(Factories(library), Server("HTTP_URL") + "/hello", nullptr);
    }
    EXPECT_EQ(GlobalCalls(), (std::vector<std::string>{kInit, kCleanup}));
}

TEST_F(LoadingTest, SecondLoadOfALoadedLibraryInitialisesNothing)
{
    {
        const SharedLibrary library(kReportingLibrary);
        {
            const SharedLibrary again(kReportingLibrary);
        }
        EXPECT_EQ(GlobalCalls(), std::vector<std::string>{kInit});
    }
    EXPECT_EQ(GlobalCalls(), (std::vector<std::string>{kInit, kCleanup}));
}

TEST_F(LoadingTest, FailureOfLibcurlIsLoggedAndTheLibraryStaysLoaded)
{
    m_Log.OnLine(
        [](const LogLine& line)
        {
            void* result = nullptr;
            if (std::sscanf(line.text.c_str(), "curl_global_init[3] %p", &result) == 1)
            {
                *static_cast<int*>(result) = 2; // CURLE_FAILED_INIT
            }
        });
    {
        const SharedLibrary library(kReportingLibrary);
        EXPECT_TRUE(library.IsLoaded());
        const std::string text =
            "[HTTP_INTERFACE]err[2:Failed initialization]curl_global_init failed";
        EXPECT_EQ(m_Log.Texts(kError), std::vector<std::string>{text});
        EXPECT_EQ(m_Log.Find(text).threadId, base::GetTid());
        EXPECT_NE(Factories(library).Engine(), nullptr);
    }
    EXPECT_EQ(GlobalCalls(), (std::vector<std::string>{kInit, kCleanup}));
}

} // namespace
} // namespace test
