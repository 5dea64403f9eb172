#include "handle/CHttpHandle.h"
#include "support/EngineTest.h"
#include "support/HeldLoop.h"
#include "support/Servers.h"
#include "support/TempFile.h"
#include "wrap/EasyOptions.h"

namespace test
{
namespace
{

const char* const kUrl = "http://localhost/";
constexpr int kConnectTimeoutMs = 1500;
constexpr int kTimeoutMs = 2500;

class HandleCoreFaultTest : public EngineTest
{
protected:
    int InitRequest(int method, const std::shared_ptr<IHttpHandleNotic>& notic = nullptr)
    {
        return m_pHandle->InitRequest(kUrl, "tag", method, notic, kConnectTimeoutMs, kTimeoutMs,
                                      &m_UserData);
    }

    /// Ends the handle; the engine is started for it.
    void EndHandle()
    {
        StartEngine();
        Delete(m_pHandle);
        StopEngine();
    }

    std::shared_ptr<IHttpHandleInterface> m_pHandle = IHttpHandleInterface::Create();
};

class InitRequestOptions : public HandleCoreFaultTest,
                           public ::testing::WithParamInterface<std::pair<int, CURLoption>>
{
};

TEST_P(InitRequestOptions, AreSetInOrder)
{
    const auto [method, ofMethod] = GetParam();
    const EasyOptions options;
    ASSERT_EQ(InitRequest(method), 0);
    std::vector<CURLoption> order{
        CURLOPT_URL,     CURLOPT_NOSIGNAL,      CURLOPT_TIMEOUT_MS, CURLOPT_CONNECTTIMEOUT_MS,
        CURLOPT_PRIVATE, CURLOPT_WRITEFUNCTION, CURLOPT_WRITEDATA,  CURLOPT_READDATA};
    if (ofMethod != CURLOPT_LASTENTRY)
    {
        order.push_back(ofMethod);
        EXPECT_EQ(options.Long(ofMethod), 1);
    }
    EXPECT_EQ(options.Order(), order);
    EXPECT_STREQ(static_cast<const char*>(options.Pointer(CURLOPT_URL)), kUrl);
    EXPECT_EQ(options.Long(CURLOPT_NOSIGNAL), 1);
    EXPECT_EQ(options.Long(CURLOPT_TIMEOUT_MS), kTimeoutMs);
    EXPECT_EQ(options.Long(CURLOPT_CONNECTTIMEOUT_MS), kConnectTimeoutMs);
    // One and the same strong reference to the handle.
    void* const self = options.Pointer(CURLOPT_PRIVATE);
    ASSERT_NE(self, nullptr);
    EXPECT_EQ(*static_cast<std::shared_ptr<CHttpHandle>*>(self), m_pHandle);
    EXPECT_EQ(options.Pointer(CURLOPT_WRITEDATA), self);
    EXPECT_EQ(options.Pointer(CURLOPT_READDATA), self);
    EXPECT_NE(options.Pointer(CURLOPT_WRITEFUNCTION), nullptr);
    EndHandle();
}

INSTANTIATE_TEST_SUITE_P(
    OfMethod, InitRequestOptions,
    ::testing::Values(std::pair{kGet, CURLOPT_HTTPGET}, std::pair{kPost, CURLOPT_POST},
                      std::pair{kUpload, CURLOPT_UPLOAD}, std::pair{kWebSocket, CURLOPT_LASTENTRY},
                      std::pair{7, CURLOPT_LASTENTRY}),
    [](const auto& instance) { return "Method" + std::to_string(instance.param.first); });

struct Failure
{
    CURLoption option;
    int method;
    std::string line; ///< after the code and its text
};

/// The option's own part of "curl set CURLOPT_NAME...".
std::string NameOf(const std::string& line)
{
    const std::size_t begin = line.find("CURLOPT_") + 8;
    return line.substr(begin, line.find_first_of("[ ", begin) - begin);
}

class InitRequestFailure : public HandleCoreFaultTest, public ::testing::WithParamInterface<Failure>
{
};

TEST_P(InitRequestFailure, IsLoggedAndLeavesTheHandleNew)
{
    const Failure& failure = GetParam();
    const std::shared_ptr<HandleNotic> notic = std::make_shared<HandleNotic>();
    const std::weak_ptr<IHttpHandleInterface> watch = m_pHandle;
    const CallRecorder calls;
    {
        const EasyOptions options(failure.option, CURLE_OUT_OF_MEMORY);
        EXPECT_EQ(InitRequest(failure.method, notic), -1);
        EXPECT_EQ(options.Order().back(), failure.option); // the last one
        const std::vector<Call> cleaned = calls.Calls({"curl_easy_cleanup"});
        ASSERT_EQ(cleaned.size(), 1u);
        EXPECT_EQ(cleaned[0].subject, options.All().front().easy);
    }
    const std::vector<LogLine> lines = m_Log.Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, kError);
    EXPECT_EQ(lines[0].threadId, base::GetTid());
    if (failure.line.find("%p") != std::string::npos)
    {
        // The place for a pointer is given none: what stands there is arbitrary.
        EXPECT_EQ(lines[0].format, "[HTTP_INTERFACE]err[%d:%s]" + failure.line);
    }
    else
    {
        EXPECT_EQ(lines[0].text, "[HTTP_INTERFACE]err[27:Out of memory]" + failure.line);
    }
    EXPECT_EQ(notic.use_count(), 1);
    EXPECT_EQ(m_pHandle.use_count(), 1);
    EXPECT_EQ(m_pHandle->GetResponseCode(), -1);
    EXPECT_EQ(m_pHandle->GetUrl(), "");
    EXPECT_EQ(m_pHandle->GetTag(), "");
    EXPECT_EQ(m_pHandle->GetUserData(), nullptr);

    EXPECT_EQ(InitRequest(failure.method, notic), 0);
    EndHandle();
    m_pHandle.reset();
    EXPECT_TRUE(watch.expired());
}

INSTANTIATE_TEST_SUITE_P(
    Of, InitRequestFailure,
    ::testing::Values(Failure{CURLOPT_URL, kGet, "curl set CURLOPT_URL[http://localhost/] failed"},
                      Failure{CURLOPT_NOSIGNAL, kGet, "curl set CURLOPT_NOSIGNAL[1] failed"},
                      Failure{CURLOPT_TIMEOUT_MS, kGet, "curl set CURLOPT_TIMEOUT_MS[2500] failed"},
                      Failure{CURLOPT_CONNECTTIMEOUT_MS, kGet,
                              "curl set CURLOPT_CONNECTTIMEOUT_MS[1500] failed"},
                      Failure{CURLOPT_PRIVATE, kGet, "curl set CURLOPT_PRIVATE failed"},
                      Failure{CURLOPT_WRITEFUNCTION, kGet, "curl set CURLOPT_WRITEFUNCTION failed"},
                      Failure{CURLOPT_WRITEDATA, kGet, "curl set CURLOPT_WRITEDATA[%p] failed"},
                      Failure{CURLOPT_READDATA, kGet, "curl set CURLOPT_READDATA[%p] failed"},
                      Failure{CURLOPT_POST, kPost, "curl set CURLOPT_POST[1] failed"},
                      Failure{CURLOPT_HTTPGET, kGet, "curl set CURLOPT_HTTPGET[1] failed"},
                      Failure{CURLOPT_UPLOAD, kUpload, "curl set CURLOPT_UPLOAD[1] failed"}),
    [](const auto& instance) { return NameOf(instance.param.line); });

TEST_F(HandleCoreFaultTest, WithoutAnEasyHandleTheHandleIsRefusedForGood)
{
    const CallRecorder calls;
    {
        const Replaced<CURL*()> fails(hooks::curl_easy_init(), []() -> CURL* { return nullptr; });
        EXPECT_EQ(InitRequest(kPost), -1);
    }
    EXPECT_EQ(InitRequest(kPost), -1);
    EXPECT_EQ(calls.Count("curl_easy_init"), 1);
    EXPECT_EQ(calls.Count("curl_easy_setopt"), 0);
    EXPECT_EQ(calls.Count("curl_easy_cleanup"), 0);

    EXPECT_EQ(m_pHandle->Disconnect(), -1);
    EXPECT_EQ(m_pHandle->SetPostFields("body"), -1);
    EXPECT_EQ(m_pHandle->EnableVerbose(), -1);
    EXPECT_EQ(m_pHandle->SetDownloadFile("unused"), -1);
    EXPECT_EQ(m_pHandle->SetProgress(true), -1);
    EXPECT_EQ(m_pHandle->SetCaCert(nullptr), -1);
    const std::list<std::string> headers{"X-Test: 1"};
    EXPECT_EQ(m_pHandle->SetHeaders(&headers), -1);
    EXPECT_EQ(m_pHandle->SetUploadSize(1), -1);
    std::size_t sent = 0;
    EXPECT_EQ(m_pHandle->SendWsData(nullptr, 1, &sent), -1);
    EXPECT_EQ(m_pHandle->GetResponseCode(), -1);
    EXPECT_TRUE(m_Log.Lines().empty());
    EXPECT_EQ(m_pHandle.use_count(), 1);
}

TEST_F(HandleCoreFaultTest, CleanUpReleasesInOrder)
{
    const TempFile file;
    const EasyOptions options;
    auto notic = std::make_shared<HandleNotic>();
    ASSERT_EQ(InitRequest(kGet, notic), 0);
    const std::list<std::string> headers{"X-Test: 1"};
    ASSERT_EQ(m_pHandle->SetHeaders(&headers), 0);
    ASSERT_EQ(m_pHandle->SetDownloadFile(file.Path().c_str()), 0);
    const EasyOptions::Option first = options.All().front();
    void* const list = options.Pointer(CURLOPT_HTTPHEADER);
    const std::size_t before = options.All().size();

    StartEngine();
    const CallRecorder calls;
    Delete(m_pHandle);
    StopEngine();

    std::vector<std::pair<std::string, const void*>> ours;
    for (const Call& call :
         calls.Calls({"curl_slist_free_all", "curl_easy_cleanup", "fclose", "curl_easy_setopt"}))
    {
        // libcurl uses some of them itself, on other objects.
        if (call.name == "fclose" || call.name == "curl_easy_setopt" ||
            call.subject == first.easy || call.subject == list)
        {
            ours.emplace_back(call.name, call.name == "fclose" ? nullptr : call.subject);
        }
    }
    EXPECT_EQ(ours,
              (std::vector<std::pair<std::string, const void*>>{{"curl_slist_free_all", list},
                                                                {"curl_easy_cleanup", first.easy},
                                                                {"fclose", nullptr},
                                                                {"curl_easy_setopt", nullptr},
                                                                {"curl_easy_setopt", nullptr},
                                                                {"curl_easy_setopt", nullptr},
                                                                {"curl_easy_setopt", nullptr}}));
    std::vector<CURLoption> cleared = options.Order();
    cleared.erase(cleared.begin(), cleared.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_EQ(cleared, (std::vector<CURLoption>{CURLOPT_PRIVATE, CURLOPT_WRITEDATA,
                                                CURLOPT_DEBUGDATA, CURLOPT_PROGRESSDATA}));
    for (const CURLoption option : cleared)
    {
        EXPECT_EQ(options.Pointer(option), nullptr);
    }
    EXPECT_EQ(notic.use_count(), 1);
}

TEST_F(HandleCoreFaultTest, CleanUpHoldsTheHandleAndTheNoticeUntilThePointersAreCleared)
{
    auto notic = std::make_shared<HandleNotic>();
    ASSERT_EQ(InitRequest(kGet, notic), 0);
    const std::weak_ptr<HandleNotic> watchNotic = notic;
    notic.reset();
    const std::weak_ptr<IHttpHandleInterface> watch = m_pHandle;
    int cleared = 0;
    const Replaced<CURLcode(CURL*, CURLoption, void*)> clears(
        hooks::curl_easy_setopt(),
        [&](CURL* easy, CURLoption, void*)
        {
            ++cleared;
            EXPECT_EQ(easy, nullptr);
            EXPECT_FALSE(watchNotic.expired());
            // The record's, the holder's and that of the test.
            EXPECT_EQ(watch.use_count(), 3);
            return CURLE_BAD_FUNCTION_ARGUMENT;
        });
    StartEngine();
    {
        HeldLoop held(m_pEngine); // until the call has returned with its references
        ASSERT_EQ(m_pEngine->DelHttpReq(m_pHandle, false, nullptr, nullptr), 0);
    }
    StopEngine();
    EXPECT_EQ(cleared, 4);
    EXPECT_TRUE(watchNotic.expired());
    EXPECT_EQ(m_pHandle.use_count(), 1);
    EXPECT_EQ(m_Log.Texts(kError).size(), 1u); // of the delete, none of these
}

TEST_F(HandleCoreFaultTest, WithoutHeadersAndFileTheCleanUpIsTheSame)
{
    ASSERT_EQ(InitRequest(kGet), 0);
    const CallRecorder calls;
    EndHandle();
    const std::vector<Call> lists = calls.Calls({"curl_slist_free_all"});
    ASSERT_FALSE(lists.empty());
    EXPECT_EQ(lists.front().subject, nullptr);
    EXPECT_EQ(calls.Count("fclose"), 0);
    EXPECT_EQ(calls.Count("curl_easy_setopt"), 4);
}

TEST_F(HandleCoreFaultTest, CleanUpRunsOnce)
{
    ASSERT_EQ(InitRequest(kGet), 0);
    StartEngine();
    Delete(m_pHandle);
    OnLoop([] {});
    const CallRecorder calls;
    Delete(m_pHandle);
    OnLoop([] {});
    EXPECT_EQ(calls.Count("curl_slist_free_all"), 0);
    EXPECT_EQ(calls.Count("curl_easy_cleanup"), 0);
    EXPECT_EQ(calls.Count("curl_easy_setopt"), 0);
    m_pHandle.reset(); // nor by the destructor
    EXPECT_EQ(calls.Count("curl_easy_cleanup"), 0);
}

TEST_F(HandleCoreFaultTest, HandleThatWasNeverReadyIsNotCleanedUp)
{
    const CallRecorder calls;
    m_pHandle.reset();
    EXPECT_TRUE(
        calls.Calls({"curl_slist_free_all", "curl_easy_cleanup", "curl_easy_setopt"}).empty());
}

} // namespace
} // namespace test
