// The calls that each option makes, in order, and the end at the first failure.

// The progress callback with double arguments counts as deprecated.
#define CURL_DISABLE_DEPRECATION

#include "handle/CHttpHandle.h"
#include "support/EngineTest.h"
#include "support/TempFile.h"
#include "wrap/EasyOptions.h"

namespace test
{
namespace
{

using Options = std::vector<CURLoption>;

const std::list<std::string> kHeaders{"X-One: 1", "X-Two: 2"};

class OptionsFaultTest : public EngineTest
{
protected:
    void TearDown() override
    {
        StartEngine();
        Delete(m_pHandle);
        StopEngine();
    }

    void MakeReady(int method) { m_pHandle = MakeHandle("http://localhost/", method); }

    std::shared_ptr<IHttpHandleInterface> m_pHandle;
};

TEST_F(OptionsFaultTest, PostFieldsAreReadInPlace)
{
    MakeReady(kPost);
    const EasyOptions options;
    const std::string body = "body";
    ASSERT_EQ(m_pHandle->SetPostFields(body.c_str()), 0);
    EXPECT_EQ(options.Order(), Options{CURLOPT_POSTFIELDS});
    EXPECT_STREQ(static_cast<const char*>(options.Pointer(CURLOPT_POSTFIELDS)), "body");
    EXPECT_NE(options.Pointer(CURLOPT_POSTFIELDS), body.c_str());
}

TEST_F(OptionsFaultTest, VerboseSetsTheTraceAndItsUserPointer)
{
    const EasyOptions atInit;
    MakeReady(kGet);
    void* const self = atInit.Pointer(CURLOPT_PRIVATE);
    const std::size_t before = atInit.All().size();
    ASSERT_EQ(m_pHandle->EnableVerbose(), 0);
    const Options order = atInit.Order();
    EXPECT_EQ(Options(order.begin() + static_cast<std::ptrdiff_t>(before), order.end()),
              (Options{CURLOPT_VERBOSE, CURLOPT_DEBUGFUNCTION, CURLOPT_DEBUGDATA}));
    EXPECT_EQ(atInit.Long(CURLOPT_VERBOSE), 1);
    EXPECT_NE(atInit.Pointer(CURLOPT_DEBUGFUNCTION), nullptr);
    EXPECT_EQ(atInit.Pointer(CURLOPT_DEBUGDATA), self);

    ASSERT_EQ(m_pHandle->SetProgress(true), 0);
    EXPECT_EQ(atInit.Pointer(CURLOPT_PROGRESSDATA), self);
}

TEST_F(OptionsFaultTest, ProgressOnSetsThreeOptionsAndOffOnlyOne)
{
    MakeReady(kGet);
    {
        const EasyOptions options;
        ASSERT_EQ(m_pHandle->SetProgress(true), 0);
        EXPECT_EQ(options.Order(),
                  (Options{CURLOPT_NOPROGRESS, CURLOPT_PROGRESSFUNCTION, CURLOPT_PROGRESSDATA}));
        EXPECT_EQ(options.Long(CURLOPT_NOPROGRESS), 0);
        EXPECT_NE(options.Pointer(CURLOPT_PROGRESSFUNCTION), nullptr);
    }
    const EasyOptions options;
    ASSERT_EQ(m_pHandle->SetProgress(false), 0);
    EXPECT_EQ(options.Order(), Options{CURLOPT_NOPROGRESS});
    EXPECT_EQ(options.Long(CURLOPT_NOPROGRESS), 1);
}

TEST_F(OptionsFaultTest, CaCertTurnsVerificationOnAndServesAsFileAndAsFolder)
{
    MakeReady(kGet);
    const EasyOptions options;
    ASSERT_EQ(m_pHandle->SetCaCert("ca.pem"), 0);
    EXPECT_EQ(options.Order(), (Options{CURLOPT_SSL_VERIFYPEER, CURLOPT_SSL_VERIFYHOST,
                                        CURLOPT_CAINFO, CURLOPT_CAPATH}));
    EXPECT_EQ(options.Long(CURLOPT_SSL_VERIFYPEER), 1);
    EXPECT_EQ(options.Long(CURLOPT_SSL_VERIFYHOST), 2);
    EXPECT_STREQ(static_cast<const char*>(options.Pointer(CURLOPT_CAINFO)), "ca.pem");
    EXPECT_STREQ(static_cast<const char*>(options.Pointer(CURLOPT_CAPATH)), "ca.pem");
}

TEST_F(OptionsFaultTest, NullCaCertTurnsBothVerificationsOff)
{
    MakeReady(kGet);
    const EasyOptions options;
    ASSERT_EQ(m_pHandle->SetCaCert(nullptr), 0);
    EXPECT_EQ(options.Order(), (Options{CURLOPT_SSL_VERIFYPEER, CURLOPT_SSL_VERIFYHOST}));
    EXPECT_EQ(options.All()[0].value, nullptr);
    EXPECT_EQ(options.All()[1].value, nullptr);
}

TEST_F(OptionsFaultTest, HeadersAppendToOneListInOrder)
{
    MakeReady(kGet);
    const EasyOptions options;
    const std::list<std::string> more{"X-Three: 3"};
    ASSERT_EQ(m_pHandle->SetHeaders(&kHeaders), 0);
    void* const list = options.Pointer(CURLOPT_HTTPHEADER);
    const CallRecorder calls;
    ASSERT_EQ(m_pHandle->SetHeaders(&more), 0);
    EXPECT_EQ(calls.Count("curl_slist_append"), 1);
    EXPECT_EQ(calls.Count("curl_slist_free_all"), 0);
    EXPECT_EQ(options.Order(), (Options{CURLOPT_HTTPHEADER, CURLOPT_HTTPHEADER}));
    EXPECT_EQ(options.Pointer(CURLOPT_HTTPHEADER), list);
    std::vector<std::string> lines;
    for (const auto* node = static_cast<const curl_slist*>(list); node != nullptr;
         node = node->next)
    {
        lines.push_back(node->data);
    }
    EXPECT_EQ(lines, (std::vector<std::string>{"X-One: 1", "X-Two: 2", "X-Three: 3"}));
}

TEST_F(OptionsFaultTest, NoHeadersLeaveTheOptionUnset)
{
    MakeReady(kGet);
    const EasyOptions options;
    const std::list<std::string> none;
    EXPECT_EQ(m_pHandle->SetHeaders(&none), -1);
    EXPECT_TRUE(options.All().empty());
}

TEST_F(OptionsFaultTest, HeaderWithoutMemoryIsRefusedAndLosesNothing)
{
    MakeReady(kGet);
    const EasyOptions options;
    {
        const Replaced<curl_slist*(curl_slist*, const char*)> fails(
            hooks::curl_slist_append(),
            [](curl_slist* list, const char* line)
            {
                return std::string(line) == "X-Two: 2"
                           ? nullptr
                           : hooks::curl_slist_append().Real(list, line);
            });
        EXPECT_EQ(m_pHandle->SetHeaders(&kHeaders), -1);
    }
    EXPECT_TRUE(options.All().empty());
    const std::list<std::string> more{"X-Three: 3"};
    EXPECT_EQ(m_pHandle->SetHeaders(&more), 0);
    const auto* const list = static_cast<const curl_slist*>(options.Pointer(CURLOPT_HTTPHEADER));
    ASSERT_NE(list, nullptr);
    EXPECT_STREQ(list->data, "X-One: 1");
    ASSERT_NE(list->next, nullptr);
    EXPECT_STREQ(list->next->data, "X-Three: 3");
}

TEST_F(OptionsFaultTest, UploadSizeSetsTheReaderAndTheSize)
{
    MakeReady(kUpload);
    const EasyOptions options;
    constexpr std::int64_t kSize = std::int64_t{5} << 32;
    ASSERT_EQ(m_pHandle->SetUploadSize(kSize), 0);
    EXPECT_EQ(options.Order(), (Options{CURLOPT_READFUNCTION, CURLOPT_INFILESIZE_LARGE}));
    EXPECT_NE(options.Pointer(CURLOPT_READFUNCTION), nullptr);
    EXPECT_EQ(reinterpret_cast<std::intptr_t>(options.Pointer(CURLOPT_INFILESIZE_LARGE)), kSize);
}

// Without a body of the host's, libcurl would read from its user pointer as if
// that were a file.
TEST_F(OptionsFaultTest, AddGivesARequestWithoutABodyItsSource)
{
    const std::pair<int, Options> sources[] = {{kGet, {}},
                                               {kPost, {CURLOPT_POSTFIELDS}},
                                               {kUpload, {CURLOPT_READFUNCTION}},
                                               {kWebSocket, {}},
                                               {7, {}}};
    StartEngine();
    for (const auto& [method, source] : sources)
    {
        const auto handle = MakeHandle("http://localhost/", method);
        OnLoop(
            [&, expected = source]
            {
                const EasyOptions options;
                const Replaced<CURLMcode(CURLM*, CURL*)> fails(hooks::curl_multi_add_handle(),
                                                               [&](CURLM*, CURL*)
                                                               {
                                                                   EXPECT_EQ(options.Order(),
                                                                             expected);
                                                                   return CURLM_OUT_OF_MEMORY;
                                                               });
                EXPECT_EQ(m_pEngine->AddHttpReq(handle, false, nullptr, nullptr), -1);
                EXPECT_EQ(options.Order(), expected);
            });
        Delete(handle);
    }
    StopEngine();
    MakeReady(kGet);
}

TEST_F(OptionsFaultTest, SecondDownloadFileClosesTheFirst)
{
    MakeReady(kGet);
    const TempFile first;
    const TempFile second;
    const CallRecorder calls;
    ASSERT_EQ(m_pHandle->SetDownloadFile(first.Path().c_str()), 0);
    EXPECT_EQ(calls.Count("fclose"), 0);
    ASSERT_EQ(m_pHandle->SetDownloadFile(second.Path().c_str()), 0);
    EXPECT_EQ(calls.Count("fclose"), 1);
    EXPECT_EQ(m_pHandle->SetDownloadFile("no/such/folder/file"), -1);
    EXPECT_EQ(calls.Count("fclose"), 2);
    EXPECT_EQ(m_pHandle->SetDownloadFile("no/such/folder/file"), -1);
    EXPECT_EQ(calls.Count("fclose"), 2); // none was open
    EXPECT_TRUE(calls.Calls({"curl_easy_setopt"}).empty());
}

struct Failure
{
    std::string name;
    int method;
    CURLoption option; ///< that fails
    std::size_t calls; ///< made until then
    std::string line;  ///< after the code and its text
    std::function<int(IHttpHandleInterface&)> set;
};

class OptionFailure : public OptionsFaultTest, public ::testing::WithParamInterface<Failure>
{
};

TEST_P(OptionFailure, IsLoggedAndEndsTheOperation)
{
    const Failure& failure = GetParam();
    MakeReady(failure.method);
    {
        const EasyOptions options(failure.option, CURLE_OUT_OF_MEMORY);
        EXPECT_EQ(failure.set(*m_pHandle), -1);
        EXPECT_EQ(options.All().size(), failure.calls);
        EXPECT_EQ(options.Order().back(), failure.option);
    }
    const std::vector<LogLine> lines = m_Log.Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].text, "[HTTP_INTERFACE]err[27:Out of memory]" + failure.line);
    EXPECT_EQ(lines[0].level, kError);
    EXPECT_EQ(lines[0].threadId, base::GetTid());
    EXPECT_EQ(failure.set(*m_pHandle), 0); // it may be tried again
}

int PostFields(IHttpHandleInterface& handle)
{
    return handle.SetPostFields("a=b");
}
int Verbose(IHttpHandleInterface& handle)
{
    return handle.EnableVerbose();
}
int ProgressOn(IHttpHandleInterface& handle)
{
    return handle.SetProgress(true);
}
int ProgressOff(IHttpHandleInterface& handle)
{
    return handle.SetProgress(false);
}
int CaCert(IHttpHandleInterface& handle)
{
    return handle.SetCaCert("ca.pem");
}
int NoCaCert(IHttpHandleInterface& handle)
{
    return handle.SetCaCert(nullptr);
}
int Headers(IHttpHandleInterface& handle)
{
    return handle.SetHeaders(&kHeaders);
}
int UploadSize(IHttpHandleInterface& handle)
{
    return handle.SetUploadSize(10);
}

INSTANTIATE_TEST_SUITE_P(
    Of, OptionFailure,
    ::testing::Values(Failure{"PostFields", kPost, CURLOPT_POSTFIELDS, 1,
                              "curl set CURLOPT_POSTFIELDS[a=b] failed", PostFields},
                      Failure{"Verbose", kGet, CURLOPT_VERBOSE, 1,
                              "curl set CURLOPT_VERBOSE[1] failed", Verbose},
                      Failure{"DebugFunction", kGet, CURLOPT_DEBUGFUNCTION, 2,
                              "curl set CURLOPT_DEBUGFUNCTION failed", Verbose},
                      Failure{"DebugData", kGet, CURLOPT_DEBUGDATA, 3,
                              "curl set CURLOPT_DEBUGDATA failed", Verbose},
                      Failure{"ProgressOn", kGet, CURLOPT_NOPROGRESS, 1,
                              "curl set CURLOPT_NOPROGRESS[0] failed", ProgressOn},
                      Failure{"ProgressFunction", kGet, CURLOPT_PROGRESSFUNCTION, 2,
                              "curl set CURLOPT_PROGRESSFUNCTION[0] failed", ProgressOn},
                      Failure{"ProgressData", kGet, CURLOPT_PROGRESSDATA, 3,
                              "curl set CURLOPT_PROGRESSDATA[0] failed", ProgressOn},
                      Failure{"ProgressOff", kGet, CURLOPT_NOPROGRESS, 1,
                              "curl set CURLOPT_NOPROGRESS[1] failed", ProgressOff},
                      Failure{"VerifyPeer", kGet, CURLOPT_SSL_VERIFYPEER, 1,
                              "curl set CURLOPT_SSL_VERIFYPEER[1] failed", CaCert},
                      Failure{"VerifyHost", kGet, CURLOPT_SSL_VERIFYHOST, 2,
                              "curl set CURLOPT_SSL_VERIFYHOST[2] failed", CaCert},
                      Failure{"CaInfo", kGet, CURLOPT_CAINFO, 3,
                              "curl set CURLOPT_CAINFO[ca.pem] failed", CaCert},
                      Failure{"CaPath", kGet, CURLOPT_CAPATH, 4,
                              "curl set CURLOPT_CAPATH[ca.pem] failed", CaCert},
                      Failure{"VerifyPeerOff", kGet, CURLOPT_SSL_VERIFYPEER, 1,
                              "curl set CURLOPT_SSL_VERIFYPEER[0] failed", NoCaCert},
                      Failure{"VerifyHostOff", kGet, CURLOPT_SSL_VERIFYHOST, 2,
                              "curl set CURLOPT_SSL_VERIFYHOST[0] failed", NoCaCert},
                      Failure{"Headers", kGet, CURLOPT_HTTPHEADER, 1,
                              "curl set CURLOPT_HTTPHEADER failed", Headers},
                      Failure{"ReadFunction", kUpload, CURLOPT_READFUNCTION, 1,
                              "curl set CURLOPT_READFUNCTION failed", UploadSize},
                      Failure{"InFileSize", kUpload, CURLOPT_INFILESIZE_LARGE, 2,
                              "curl set CURLOPT_INFILESIZE_LARGE failed", UploadSize}),
    [](const auto& instance) { return instance.param.name; });

} // namespace
} // namespace test
