/// What has to work with every peer that keeps to the protocol, with and without TLS.

#include "handle/WebSocketFixture.h"

#include <atomic>

namespace test
{
namespace
{

struct Peer
{
    const char* name;
    const char* key; ///< what the servers announced its URL as
};

constexpr Peer kPeers[] = {{"Websockets", "WS_URL"},
                           {"WebsocketsOverTls", "WSS_URL"},
                           {"NodeWs", "NODE_WS_URL"},
                           {"NodeWsOverTls", "NODE_WSS_URL"}};

class WebSocketExchangeTest : public WebSocketFixture, public ::testing::WithParamInterface<Peer>
{
protected:
    static std::string Url(const std::string& path) { return Server(GetParam().key) + path; }
};

INSTANTIATE_TEST_SUITE_P(, WebSocketExchangeTest, ::testing::ValuesIn(kPeers),
                         [](const auto& it) { return std::string(it.param.name); });

TEST_P(WebSocketExchangeTest, MessagesOfEverySizeComeBackAsTheyWereSent)
{
    const HandlePtr handle = Connect(Url("/echo"));
    // On both sides of where a length needs two bytes more, and eight.
    constexpr std::size_t kSizes[] = {0, 1, 2, 125, 126, 127, 65535, 65536, 65537};
    for (const std::size_t size : kSizes)
    {
        const std::string text(size, 'x');
        ASSERT_EQ(Send(handle, text, kText), 0);
        Message message = Receive();
        EXPECT_EQ(message.type, kText);
        EXPECT_TRUE(message.data == text) << size;

        const std::string bytes = Pattern(size);
        ASSERT_EQ(Send(handle, bytes, kBinary), 0);
        message = Receive();
        EXPECT_EQ(message.type, kBinary);
        EXPECT_TRUE(message.data == bytes) << size;
    }
    EXPECT_EQ(handle->GetResponse(), "");
    EXPECT_TRUE(m_Log.Texts(kError).empty());
    EXPECT_TRUE(m_Log.Texts(kWarn).empty());
    Delete(handle);
}

TEST_P(WebSocketExchangeTest, MessageOf16MiBArrivesOnceAndWhole)
{
    constexpr std::size_t kSize = 16 << 20;
    const HandlePtr handle = MakeSocket(Url("/send?n=2&size=" + std::to_string(kSize)));
    std::size_t collected = 0;
    m_pNotic->m_OnWsData = [&](const Message&)
    {
        collected = handle->GetResponse().size();
    };
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
    const std::string expected = Pattern(kSize);
    for (int i = 0; i != 2; ++i)
    {
        ASSERT_TRUE(m_pNotic->m_Received.Wait(i + 1));
    }
    OnLoop(
        [&]
        {
            EXPECT_EQ(collected, kSize) << "put together in the response";
            EXPECT_EQ(handle->GetResponse(), "");
            ASSERT_EQ(m_pNotic->m_Messages.size(), 2U);
            for (const Message& message : m_pNotic->m_Messages)
            {
                EXPECT_EQ(message.type, kBinary);
                EXPECT_TRUE(message.data == expected);
            }
        });
    Delete(handle);
}

TEST_P(WebSocketExchangeTest, PingIsAnsweredWithoutTheHost)
{
    const HandlePtr handle = Connect(Url("/ping"), "pong received");
    Delete(handle);
    EXPECT_EQ(m_pNotic->m_Received.Count(), 1) << "the ping itself is not delivered";
}

TEST_P(WebSocketExchangeTest, CloseOfThePeerIsAMessageAndTheEndIsSilent)
{
    const HandlePtr handle = MakeSocket(Url("/close?code=4001&reason=bye"));
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
    const Message message = Receive();
    EXPECT_EQ(message.type, kClose);
    EXPECT_EQ(message.data, "\x0f\xa1"
                            "bye");
    Delete(handle);
    StopEngine();
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 0);
    for (const std::string& text : m_Log.Texts(kDebug))
    {
        EXPECT_EQ(text.find("DONE"), std::string::npos);
    }
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_P(WebSocketExchangeTest, CloseOfTheHostReachesThePeerWithCodeAndReason)
{
    const std::string key = UniqueKey();
    const HandlePtr handle = Connect(Url("/watched?key=" + key));
    ASSERT_EQ(Send(handle,
                   "\x0f\xa2"
                   "enough",
                   kClose),
              0);
    EXPECT_EQ(Receive().type, kClose); // the peer's answer
    Delete(handle);
    const HandlePtr asking = Connect(Url("/closed?key=" + key), "4002 enough");
    Delete(asking);
}

TEST_P(WebSocketExchangeTest, DisconnectEndsTheConnectionWithoutAWord)
{
    const std::string key = UniqueKey();
    const HandlePtr handle = Connect(Url("/watched?key=" + key));
    const auto notic = m_pNotic;
    ASSERT_EQ(handle->Disconnect(), 0);
    // 1006 stands for an end without a close frame.
    const HandlePtr asking = Connect(Url("/closed?key=" + key), "1006 ");
    Delete(asking);
    EXPECT_EQ(notic->m_Received.Count(), 1);
    EXPECT_EQ(notic->m_Finished.Count(), 0);
    EXPECT_EQ(m_Log.Count(kInfo, "[HTTP_INTERFACE]disconnect web socket"), 1);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
    Delete(handle);
}

TEST_P(WebSocketExchangeTest, HundredConnectionsAtOnceEachHearTheirOwn)
{
    constexpr std::size_t kConnections = 100;
    std::vector<HandlePtr> handles;
    std::vector<std::shared_ptr<HandleNotic>> notics;
    for (std::size_t i = 0; i != kConnections; ++i)
    {
        handles.push_back(MakeSocket(Url("/echo")));
        notics.push_back(m_pNotic);
        ASSERT_EQ(m_pEngine->AddHttpReq(handles[i], true, nullptr, nullptr), 0);
    }
    for (const auto& notic : notics)
    {
        ASSERT_TRUE(notic->m_Received.Wait(1));
    }
    for (std::size_t i = 0; i != kConnections; ++i)
    {
        ASSERT_EQ(Send(handles[i], std::to_string(i), kText), 0);
    }
    for (std::size_t i = 0; i != kConnections; ++i)
    {
        ASSERT_TRUE(notics[i]->m_Received.Wait(2));
        EXPECT_EQ(notics[i]->m_Messages[1].data, std::to_string(i)); // no third one comes
        Delete(handles[i]);
    }
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

constexpr int kMany = 100000;

TEST_P(WebSocketExchangeTest, HundredThousandMessagesArriveInOrderAndNoneIsLost)
{
    const HandlePtr handle = MakeSocket(Url("/send?n=" + std::to_string(kMany)));
    std::atomic<int> inOrder{0};
    m_pNotic->m_OnWsData = [&](const Message& message)
    {
        if (message.type == kText && message.data == std::to_string(inOrder))
        {
            ++inOrder;
        }
    };
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
    for (int i = 10000; i <= kMany; i += 10000) // each step has the time limit anew
    {
        ASSERT_TRUE(m_pNotic->m_Received.Wait(i));
    }
    EXPECT_EQ(inOrder, kMany);
    Delete(handle);
    EXPECT_EQ(m_pNotic->m_Received.Count(), kMany);
}

TEST_P(WebSocketExchangeTest, HundredThousandMessagesAreSentInOrderAndNoneIsLost)
{
    // In steps that fit a socket's buffer: the library does not wait for room.
    constexpr int kStep = 1000;
    const HandlePtr handle = Connect(Url("/order?every=" + std::to_string(kStep)));
    for (int i = 0; i != kMany; ++i)
    {
        ASSERT_EQ(Send(handle, std::to_string(i), kText), 0);
        if ((i + 1) % kStep == 0)
        {
            ASSERT_EQ(Receive().data, std::to_string(i + 1));
        }
    }
    EXPECT_TRUE(m_Log.Texts(kError).empty());
    EXPECT_TRUE(m_Log.Texts(kWarn).empty());
    Delete(handle);
}

} // namespace
} // namespace test
