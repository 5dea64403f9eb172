// The callbacks that options install, called as libcurl would.

// The progress callback with double arguments counts as deprecated.
#define CURL_DISABLE_DEPRECATION

#include "handle/CHttpHandle.h"
#include "support/EngineTest.h"
#include "wrap/EasyOptions.h"

#include <cstdio>

namespace test
{
namespace
{

using Debug = int (*)(CURL*, curl_infotype, char*, std::size_t, void*);
using Progress = int (*)(void*, double, double, double, double);
using Read = std::size_t (*)(char*, std::size_t, std::size_t, void*);

/// Notes the arguments of OnReadData as they come.
class ReadNotic : public HandleNotic
{
public:
    std::size_t OnReadData(std::shared_ptr<IHttpHandleInterface> handle, char* buffer,
                           std::size_t size, std::size_t nitems, void* user) override
    {
        m_pHandle = handle;
        m_Buffer = buffer;
        m_Size = size;
        m_Items = nitems;
        m_User = user;
        return m_Answer;
    }

    std::weak_ptr<IHttpHandleInterface> m_pHandle;
    char* m_Buffer = nullptr;
    std::size_t m_Size = 0;
    std::size_t m_Items = 0;
    std::size_t m_Answer = 0;
};

class OptionCallbackTest : public EngineTest
{
protected:
    void MakeReady(int method, const std::shared_ptr<IHttpHandleNotic>& notic)
    {
        m_pHandle = IHttpHandleInterface::Create();
        ASSERT_EQ(m_pHandle->InitRequest("http://localhost/", "the tag", method, notic, 0, 0,
                                         &m_UserData),
                  0);
    }

    void TearDown() override
    {
        StartEngine();
        Delete(m_pHandle);
        StopEngine();
    }

    std::shared_ptr<IHttpHandleInterface> m_pHandle;
};

TEST_F(OptionCallbackTest, TraceLinesTellKindSizeAndText)
{
    MakeReady(kGet, nullptr);
    const EasyOptions options;
    ASSERT_EQ(m_pHandle->EnableVerbose(), 0);
    const auto debug = options.Callback<Debug>(CURLOPT_DEBUGFUNCTION);
    void* const self = options.Pointer(CURLOPT_DEBUGDATA);
    char data[] = "some text and what lies behind it";
    for (int type = CURLINFO_TEXT; type <= CURLINFO_END + 1; ++type)
    {
        EXPECT_EQ(debug(nullptr, static_cast<curl_infotype>(type), data, 9, self), 0);
    }
    // The one line with four places: the user pointer as the size, the size as
    // a pointer.
    char headerOut[100];
    std::snprintf(headerOut, sizeof headerOut, "[HTTP_INTERFACE][HEADER_OUT][%zu] [%p] some text",
                  reinterpret_cast<std::size_t>(self), reinterpret_cast<void*>(9));
    EXPECT_EQ(m_Log.Texts(kDebug),
              (std::vector<std::string>{"[HTTP_INTERFACE][TEXT][9]some text",
                                        "[HTTP_INTERFACE][HEADER_IN][9]some text", headerOut,
                                        "[HTTP_INTERFACE][DATA_IN][9]some text",
                                        "[HTTP_INTERFACE][DATA_OUT][9]some text",
                                        "[HTTP_INTERFACE][SSL_DATA_IN][9]some text",
                                        "[HTTP_INTERFACE][SSL_DATA_OUT][9]some text"}));
    EXPECT_EQ(m_Log.Lines().size(), 7u);
    EXPECT_EQ(m_Log.Lines()[2].format, "[HTTP_INTERFACE][HEADER_OUT][%zu] [%p] %.*s");
    EXPECT_EQ(m_Log.Lines()[0].threadId, base::GetTid());
}

TEST_F(OptionCallbackTest, TraceWithoutAUserPointerWritesNothing)
{
    MakeReady(kGet, nullptr);
    const EasyOptions options;
    ASSERT_EQ(m_pHandle->EnableVerbose(), 0);
    const auto debug = options.Callback<Debug>(CURLOPT_DEBUGFUNCTION);
    char data[] = "text";
    EXPECT_EQ(debug(nullptr, CURLINFO_TEXT, data, 4, nullptr), 0);
    EXPECT_TRUE(m_Log.Lines().empty());
}

TEST_F(OptionCallbackTest, ProgressReachesTheNotice)
{
    const auto notic = std::make_shared<HandleNotic>();
    MakeReady(kGet, notic);
    const EasyOptions options;
    ASSERT_EQ(m_pHandle->SetProgress(true), 0);
    const auto progress = options.Callback<Progress>(CURLOPT_PROGRESSFUNCTION);
    void* const self = options.Pointer(CURLOPT_PROGRESSDATA);
    EXPECT_EQ(progress(self, 1, 2, 3, 4), 0);
    EXPECT_EQ(progress(self, 0, 0, 1e18, -1), 0); // as they come, whatever they are
    ASSERT_EQ(notic->m_Progress.size(), 2u);
    const HandleNotic::Progress& first = notic->m_Progress[0];
    EXPECT_EQ(first.tag, "the tag");
    EXPECT_EQ(first.url, "http://localhost/");
    EXPECT_EQ(first.dltotal, 1);
    EXPECT_EQ(first.dlnow, 2);
    EXPECT_EQ(first.ultotal, 3);
    EXPECT_EQ(first.ulnow, 4);
    EXPECT_EQ(notic->m_User, &m_UserData);
    EXPECT_EQ(notic->m_Progress[1].ultotal, 1e18);
    EXPECT_EQ(notic->m_Progress[1].ulnow, -1);

    EXPECT_EQ(progress(nullptr, 1, 2, 3, 4), 0);
    EXPECT_EQ(notic->m_Progress.size(), 2u);
}

TEST_F(OptionCallbackTest, ProgressWithoutANoticeGoesOn)
{
    MakeReady(kGet, nullptr);
    const EasyOptions options;
    ASSERT_EQ(m_pHandle->SetProgress(true), 0);
    const auto progress = options.Callback<Progress>(CURLOPT_PROGRESSFUNCTION);
    EXPECT_EQ(progress(options.Pointer(CURLOPT_PROGRESSDATA), 1, 2, 3, 4), 0);
}

TEST_F(OptionCallbackTest, ReaderAsksTheNoticeAndAnswersWhatItSays)
{
    const auto notic = std::make_shared<ReadNotic>();
    const EasyOptions options;
    MakeReady(kUpload, notic);
    ASSERT_EQ(m_pHandle->SetUploadSize(100), 0);
    const auto read = options.Callback<Read>(CURLOPT_READFUNCTION);
    void* const self = options.Pointer(CURLOPT_READDATA);
    char buffer[6];
    for (const std::size_t answer : {std::size_t{6}, std::size_t{2}, std::size_t{0},
                                     std::size_t{CURL_READFUNC_ABORT}, std::size_t{1000}})
    {
        notic->m_Answer = answer;
        EXPECT_EQ(read(buffer, 2, 3, self), answer);
    }
    EXPECT_EQ(notic->m_pHandle.lock(), m_pHandle);
    EXPECT_EQ(notic->m_Buffer, buffer);
    EXPECT_EQ(notic->m_Size, 2u);
    EXPECT_EQ(notic->m_Items, 3u);
    EXPECT_EQ(notic->m_User, &m_UserData);
}

TEST_F(OptionCallbackTest, ReaderWithoutAUserPointerAnswersTheItems)
{
    const auto notic = std::make_shared<ReadNotic>();
    MakeReady(kUpload, notic);
    const EasyOptions options;
    ASSERT_EQ(m_pHandle->SetUploadSize(100), 0);
    const auto read = options.Callback<Read>(CURLOPT_READFUNCTION);
    char buffer[6];
    EXPECT_EQ(read(buffer, 2, 3, nullptr), 3u);
    EXPECT_EQ(notic->m_Buffer, nullptr);
}

TEST_F(OptionCallbackTest, ReaderWithoutANoticeEndsTheUpload)
{
    const EasyOptions options;
    MakeReady(kUpload, nullptr);
    ASSERT_EQ(m_pHandle->SetUploadSize(100), 0);
    const auto read = options.Callback<Read>(CURLOPT_READFUNCTION);
    char buffer[6];
    EXPECT_EQ(read(buffer, 1, 6, options.Pointer(CURLOPT_READDATA)), 0u);
}

} // namespace
} // namespace test
