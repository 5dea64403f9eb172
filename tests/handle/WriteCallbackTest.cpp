#include "support/EngineTest.h"
#include "support/Servers.h"
#include "support/TempFile.h"
#include "support/Transfers.h"
#include "wrap/EasyOptions.h"

namespace test
{
namespace
{

using Write = std::size_t (*)(char*, std::size_t, std::size_t, void*);

/// Calls the write callback as libcurl would.
class WriteCallbackTest : public EngineTest
{
protected:
    void MakeReady(int method)
    {
        const EasyOptions options;
        m_pHandle = MakeHandle("http://localhost/", method);
        m_Write = options.Callback<Write>(CURLOPT_WRITEFUNCTION);
        m_pSelf = options.Pointer(CURLOPT_WRITEDATA);
    }

    std::size_t WriteText(std::string text, std::size_t size = 1)
    {
        return m_Write(text.data(), size, text.size() / size, m_pSelf);
    }

    /// Deletes the handle, which closes its file.
    void EndHandle()
    {
        m_pEngine->Stop(false);
        StartEngine();
        Delete(m_pHandle);
        StopEngine();
        m_pHandle.reset();
    }

    void TearDown() override
    {
        if (m_pHandle)
        {
            EndHandle();
        }
    }

    std::shared_ptr<IHttpHandleInterface> m_pHandle;
    Write m_Write = nullptr;
    void* m_pSelf = nullptr;
};

TEST_F(WriteCallbackTest, WithoutAUserPointerTakesNothing)
{
    MakeReady(kGet);
    char data[] = "data";
    EXPECT_EQ(m_Write(data, 1, 4, nullptr), 0u);
    EXPECT_EQ(m_pHandle->GetResponse(), "");
}

TEST_F(WriteCallbackTest, WithoutAUserPointerTheTransferIsAborted)
{
    const std::string url = Server("HTTP_URL") + "/hello";
    const Replaced<CURLcode(CURL*, CURLoption, void*)> noPointer(
        hooks::curl_easy_setopt(),
        [](CURL* easy, CURLoption option, void* value)
        {
            return hooks::curl_easy_setopt().Real(easy, option,
                                                  option == CURLOPT_WRITEDATA ? nullptr : value);
        });
    m_pHandle = MakeHandle(url);
    StartEngine();
    Run(m_pHandle);
    EXPECT_EQ(m_pNotic->m_Result, -2);
    EXPECT_EQ(m_Log.Texts(kDebug).back(), DoneLine(url, kWriteFailed));
    EXPECT_EQ(m_pHandle->GetResponse(), "");
}

TEST_F(WriteCallbackTest, AppendsToTheResponse)
{
    MakeReady(kGet);
    EXPECT_EQ(WriteText("one "), 4u);
    EXPECT_EQ(WriteText(std::string("\0two", 4)), 4u);
    EXPECT_EQ(WriteText(""), 0u);
    EXPECT_EQ(m_pHandle->GetResponse(), std::string("one \0two", 8));
}

TEST_F(WriteCallbackTest, AnswersWithItemsAndTakesTheirBytes)
{
    MakeReady(kPost);
    EXPECT_EQ(WriteText("abcdef", 2), 3u);
    EXPECT_EQ(m_pHandle->GetResponse(), "abcdef");
}

TEST_F(WriteCallbackTest, WritesToTheDownloadFileInstead)
{
    const TempFile file;
    MakeReady(kGet);
    ASSERT_EQ(m_pHandle->SetDownloadFile(file.Path().c_str()), 0);
    EXPECT_EQ(WriteText("abcdef", 3), 2u);
    EXPECT_EQ(WriteText("ghi"), 3u);
    EXPECT_EQ(m_pHandle->GetResponse(), "");
    EndHandle();
    EXPECT_EQ(ReadFile(file.Path()), "abcdefghi");
}

TEST_F(WriteCallbackTest, WebSocketWithADownloadFileWritesThereToo)
{
    const TempFile file;
    MakeReady(kWebSocket);
    ASSERT_EQ(m_pHandle->SetDownloadFile(file.Path().c_str()), 0);
    const CallRecorder calls;
    EXPECT_EQ(WriteText("abc"), 3u);
    EXPECT_EQ(calls.Count("curl_ws_meta"), 0);
    EXPECT_EQ(m_pHandle->GetResponse(), "");
    EXPECT_TRUE(m_pNotic->m_Messages.empty());
    EndHandle();
    EXPECT_EQ(ReadFile(file.Path()), "abc");
}

TEST_F(WriteCallbackTest, WebSocketLooksAtTheFrame)
{
    MakeReady(kWebSocket);
    const curl_ws_frame frame{0, CURLWS_TEXT, 0, 0, 3};
    const Replaced<const curl_ws_frame*(CURL*)> meta(hooks::curl_ws_meta(),
                                                     [&](CURL*) { return &frame; });
    EXPECT_EQ(WriteText("abc"), 3u);
    EXPECT_EQ(m_pHandle->GetResponse(), "");
    ASSERT_EQ(m_pNotic->m_Messages.size(), 1u);
    EXPECT_EQ(m_pNotic->m_Messages[0].data, "abc");
}

TEST_F(WriteCallbackTest, MethodBeyondTheKnownOnesAppendsToTheResponse)
{
    MakeReady(7);
    EXPECT_EQ(WriteText("abc"), 3u);
    EXPECT_EQ(m_pHandle->GetResponse(), "abc");
}

} // namespace
} // namespace test
