/// How libcurl is called for a message, and how chunks become messages, with
/// the frames' meta data given by the test.

#include "handle/WebSocketFixture.h"
#include "wrap/EasyOptions.h"

#include <stdexcept>

namespace test
{
namespace
{

class WebSocketSendCallTest : public WebSocketFixture
{
protected:
    struct Sent
    {
        const void* data;
        std::size_t size;
        curl_off_t fragment;
        unsigned int flags;
    };

    void SetUp() override
    {
        WebSocketFixture::SetUp();
        m_pHandle = MakeHandle(Server("WS_URL") + "/send?n=0", kWebSocket, 0);
        ASSERT_EQ(m_pEngine->AddHttpReq(m_pHandle, true, nullptr, nullptr), 0);
    }

    void TearDown() override
    {
        Delete(m_pHandle);
        WebSocketFixture::TearDown();
    }

    /// Sends from this thread and waits until it has been performed.
    void SendQueued(const std::shared_ptr<std::vector<char>>& data, int type)
    {
        ASSERT_EQ(m_pHandle->SendWsData(data, type, &m_Sent), 0);
        OnLoop([] {});
    }

    HandlePtr m_pHandle;
    std::vector<Sent> m_Calls;
    CURLcode m_Code = CURLE_OK;
    std::size_t m_Missing = 0; ///< how many bytes are not taken

private:
    const Replaced<CURLcode(CURL*, const void*, size_t, size_t*, curl_off_t, unsigned int)> m_Hook{
        hooks::curl_ws_send(), [this](CURL*, const void* data, size_t size, size_t* sent,
                                      curl_off_t fragment, unsigned int flags)
        {
            m_Calls.push_back({data, size, fragment, flags});
            *sent = size - m_Missing;
            return m_Code;
        }};
};

TEST_F(WebSocketSendCallTest, EachMessageIsOneWholeFrameOfItsKind)
{
    const auto data = Bytes("data");
    const std::pair<int, unsigned int> expected[] = {
        {kText, CURLWS_TEXT}, {kBinary, CURLWS_BINARY}, {kClose, CURLWS_CLOSE}};
    for (const auto& [type, flags] : expected)
    {
        m_Calls.clear();
        SendQueued(data, type);
        ASSERT_EQ(m_Calls.size(), 1U);
        EXPECT_EQ(m_Calls[0].data, data->data());
        EXPECT_EQ(m_Calls[0].size, 4U);
        EXPECT_EQ(m_Calls[0].fragment, 0);
        EXPECT_EQ(m_Calls[0].flags, flags);
    }
    EXPECT_TRUE(m_Log.Texts(kError).empty());
    EXPECT_TRUE(m_Log.Texts(kWarn).empty());
}

TEST_F(WebSocketSendCallTest, NoDataIsANullPointerOfNoLength)
{
    m_Code = CURLE_AGAIN; // without data no lengths are compared
    SendQueued(nullptr, kText);
    ASSERT_EQ(m_Calls.size(), 1U);
    EXPECT_EQ(m_Calls[0].data, nullptr);
    EXPECT_EQ(m_Calls[0].size, 0U);
    EXPECT_EQ(m_Log.Texts(kError),
              Texts{"[HTTP_INTERFACE]err[81:Socket not ready for send/recv]curl_ws_send failed"});
    EXPECT_TRUE(m_Log.Texts(kWarn).empty());
}

TEST_F(WebSocketSendCallTest, LengthsThatDifferAreLoggedWithTheFullOneFirst)
{
    m_Missing = 3;
    SendQueued(Bytes("0123456789"), kBinary);
    EXPECT_EQ(m_Log.Texts(kWarn), Texts{"[HTTP_INTERFACE]Send len diff [10] != [7]"});
    EXPECT_TRUE(m_Log.Texts(kError).empty());
    ASSERT_EQ(m_Calls.size(), 1U) << "the rest is not sent later";
}

TEST_F(WebSocketSendCallTest, FailedSendIsLoggedAndNotRetried)
{
    m_Code = CURLE_SEND_ERROR;
    m_Missing = 1;
    SendQueued(Bytes("x"), kText);
    EXPECT_EQ(m_Log.Texts(kError),
              Texts{"[HTTP_INTERFACE]err[55:Failed sending data to the peer]curl_ws_send failed"});
    EXPECT_EQ(m_Log.Texts(kWarn), Texts{"[HTTP_INTERFACE]Send len diff [1] != [0]"});
    EXPECT_EQ(m_Calls.size(), 1U);
}

TEST_F(WebSocketSendCallTest, LoopThreadSendsAtOnceIntoTheHostsCounter)
{
    m_Missing = 1;
    OnLoop(
        [&]
        {
            EXPECT_EQ(m_pHandle->SendWsData(Bytes("four"), kText, &m_Sent), 0);
            EXPECT_EQ(m_Calls.size(), 1U);
            EXPECT_EQ(m_Sent, 3U);
            m_Code = CURLE_SEND_ERROR;
            EXPECT_EQ(m_pHandle->SendWsData(Bytes("four"), kText, &m_Sent), 0);
        });
    EXPECT_TRUE(m_Log.Texts(kWarn).empty());
    EXPECT_EQ(m_Log.Texts(kError).size(), 1U);
}

/// Calls the write callback that a request gives to libcurl.
class WebSocketChunkTest : public EngineTest
{
protected:
    void SetUp() override
    {
        StartEngine();
        const EasyOptions options;
        m_pHandle = MakeHandle("ws://host.invalid/", kWebSocket);
        m_Write = options.Callback<curl_write_callback>(CURLOPT_WRITEFUNCTION);
        m_pSelf = options.Pointer(CURLOPT_WRITEDATA);
    }

    void TearDown() override
    {
        Delete(m_pHandle); // never added: the line and the -1 are not looked at
        EngineTest::TearDown();
    }

    std::size_t Chunk(std::string data, int flags, curl_off_t offset = 0, curl_off_t bytesLeft = 0)
    {
        m_Frame.flags = flags;
        m_Frame.offset = offset;
        m_Frame.bytesleft = bytesLeft;
        return m_Write(data.data(), 1, data.size(), m_pSelf);
    }

    const std::vector<Message>& Messages() const { return m_pNotic->m_Messages; }

    HandlePtr m_pHandle;
    curl_ws_frame m_Frame{};
    const curl_ws_frame* m_pMeta = &m_Frame;

private:
    curl_write_callback m_Write = nullptr;
    void* m_pSelf = nullptr;
    const Replaced<const curl_ws_frame*(CURL*)> m_Meta{hooks::curl_ws_meta(), [this](CURL*)
                                                       {
                                                           return m_pMeta;
                                                       }};
};

TEST_F(WebSocketChunkTest, KindOfAFrameIsToldByItsFirstFlagThatCounts)
{
    const std::pair<int, int> expected[] = {{CURLWS_TEXT, kText},
                                            {CURLWS_BINARY, kBinary},
                                            {CURLWS_CLOSE, kClose},
                                            {CURLWS_PING, 0},
                                            {CURLWS_PONG, 0},
                                            {0, 0},
                                            {CURLWS_TEXT | CURLWS_BINARY, kBinary},
                                            {CURLWS_TEXT | CURLWS_CLOSE, kClose},
                                            {CURLWS_TEXT | CURLWS_BINARY | CURLWS_CLOSE, kClose}};
    for (const auto& [flags, type] : expected)
    {
        EXPECT_EQ(Chunk("data", flags), 4U);
        EXPECT_EQ(Messages().back().type, type) << flags;
        EXPECT_EQ(Messages().back().data, "data");
    }
    EXPECT_EQ(Messages().size(), std::size(expected));
}

TEST_F(WebSocketChunkTest, ChunksAreDeliveredOnceWithTheLastAndTheResponseIsEmptied)
{
    EXPECT_EQ(Chunk("one ", CURLWS_BINARY, 0, 8), 4U);
    EXPECT_EQ(Chunk("two ", CURLWS_BINARY, 4, 4), 4U);
    EXPECT_TRUE(Messages().empty());
    EXPECT_EQ(m_pHandle->GetResponse(), "one two ");
    std::string within;
    m_pNotic->m_OnWsData = [&](const Message&)
    {
        within = m_pHandle->GetResponse();
    };
    EXPECT_EQ(Chunk("done", CURLWS_BINARY, 8, 0), 4U);
    ASSERT_EQ(Messages().size(), 1U);
    EXPECT_EQ(Messages()[0].data, "one two done");
    EXPECT_EQ(Messages()[0].type, kBinary);
    EXPECT_EQ(within, "one two done");
    EXPECT_EQ(m_pHandle->GetResponse(), "");
}

TEST_F(WebSocketChunkTest, ChunksAreInsertedAtTheirOffset)
{
    Chunk("ab", CURLWS_TEXT | CURLWS_CONT, 0);
    Chunk("cd", CURLWS_TEXT | CURLWS_CONT, 0);
    Chunk("ef", CURLWS_TEXT | CURLWS_CONT, 1);
    EXPECT_EQ(m_pHandle->GetResponse(), "cefdab");
    Chunk("!", CURLWS_TEXT, 0);
    ASSERT_EQ(Messages().size(), 1U);
    EXPECT_EQ(Messages()[0].data, "!cefdab");
}

TEST_F(WebSocketChunkTest, UnfinishedFrameOfAFinalFragmentDeliversNothing)
{
    Chunk("a", CURLWS_TEXT | CURLWS_CONT, 0, 1);
    Chunk("b", CURLWS_TEXT | CURLWS_CONT, 1, 0);
    EXPECT_TRUE(Messages().empty());
}

// libcurl answers a ping itself, but hands on all but the last part of one that
// comes in parts.
TEST_F(WebSocketChunkTest, PartOfAPingEndsUpInTheNextMessage)
{
    Chunk("part", CURLWS_PING, 0, 4);
    EXPECT_TRUE(Messages().empty());
    Chunk("text", CURLWS_TEXT);
    ASSERT_EQ(Messages().size(), 1U);
    EXPECT_EQ(Messages()[0].data, "textpart");
    EXPECT_EQ(Messages()[0].type, kText);
}

TEST_F(WebSocketChunkTest, PlaceBeyondWhatHasComeThrows)
{
    Chunk("ab", CURLWS_TEXT, 0, 9);
    EXPECT_THROW(Chunk("x", CURLWS_TEXT, 3, 1), std::out_of_range);
    EXPECT_THROW(Chunk("x", CURLWS_TEXT, 3, 0), std::out_of_range);
    EXPECT_TRUE(Messages().empty());
}

TEST_F(WebSocketChunkTest, ChunkWithoutFrameIsABodyAsAnyOther)
{
    m_pMeta = nullptr;
    EXPECT_EQ(Chunk("not ", 0), 4U);
    EXPECT_EQ(Chunk("a frame", 0), 7U);
    EXPECT_EQ(m_pHandle->GetResponse(), "not a frame");
    EXPECT_TRUE(Messages().empty());
}

} // namespace
} // namespace test
