/// Whole conversations with peers that keep to the protocol.

#include "handle/WebSocketFixture.h"

#include <algorithm>

namespace test
{
namespace
{

class WebSocketTest : public WebSocketFixture
{
};

TEST_F(WebSocketTest, MessagesOfEverySizeComeBackAsTheyWereSent)
{
    const HandlePtr handle = Connect(Server("WS_URL") + "/echo");
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

TEST_F(WebSocketTest, NoDataSendsAnEmptyMessage)
{
    const HandlePtr handle = Connect(Server("WS_URL") + "/echo");
    for (const int type : {kText, kBinary})
    {
        ASSERT_EQ(handle->SendWsData(nullptr, type, &m_Sent), 0);
        const Message message = Receive();
        EXPECT_EQ(message.data, "");
        EXPECT_EQ(message.type, type);
    }
    EXPECT_TRUE(m_Log.Texts(kError).empty());
    EXPECT_TRUE(m_Log.Texts(kWarn).empty());
    Delete(handle);
}

TEST_F(WebSocketTest, MessagesComeOnTheLoopThreadWithTheUserData)
{
    long loopThread = 0;
    OnLoop([&] { loopThread = base::GetTid(); });
    long thread = 0;
    const HandlePtr handle = MakeHandle(Server("WS_URL") + "/echo", kWebSocket, 0);
    m_pNotic->m_OnWsData = [&](const Message&)
    {
        thread = base::GetTid();
    };
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
    EXPECT_EQ(Receive().data, "ready");
    EXPECT_EQ(thread, loopThread);
    EXPECT_EQ(m_pNotic->m_User, &m_UserData);
    Delete(handle);
}

TEST_F(WebSocketTest, SmallMessageDoesNotPassThroughTheResponse)
{
    const HandlePtr handle = MakeHandle(Server("WS_URL") + "/send?n=3", kWebSocket, 0);
    std::string response = "none seen";
    m_pNotic->m_OnWsData = [&](const Message&)
    {
        response = handle->GetResponse();
    };
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
    ASSERT_TRUE(m_pNotic->m_Received.Wait(3));
    EXPECT_EQ(response, "");
    Delete(handle);
}

TEST_F(WebSocketTest, MessageOf16MiBArrivesOnceAndWhole)
{
    constexpr std::size_t kSize = 16 << 20;
    const HandlePtr handle =
        MakeHandle(Server("WS_URL") + "/send?n=2&size=" + std::to_string(kSize), kWebSocket, 0);
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

TEST_F(WebSocketTest, PingIsAnsweredWithoutTheHost)
{
    const HandlePtr handle = Connect(Server("WS_URL") + "/ping", "pong received");
    Delete(handle);
    EXPECT_EQ(m_pNotic->m_Received.Count(), 1) << "the ping itself is not delivered";
}

TEST_F(WebSocketTest, CloseOfThePeerIsAMessageAndTheEndIsSilent)
{
    const HandlePtr handle =
        MakeHandle(Server("WS_URL") + "/close?code=4001&reason=bye", kWebSocket, 0);
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

TEST_F(WebSocketTest, CloseOfTheHostReachesThePeerWithCodeAndReason)
{
    const std::string key = UniqueKey();
    const HandlePtr handle = Connect(Server("WS_URL") + "/watched?key=" + key);
    ASSERT_EQ(Send(handle,
                   "\x0f\xa2"
                   "enough",
                   kClose),
              0);
    EXPECT_EQ(Receive().type, kClose); // the peer's answer
    Delete(handle);
    const HandlePtr asking = Connect(Server("WS_URL") + "/closed?key=" + key, "4002 enough");
    Delete(asking);
}

TEST_F(WebSocketTest, DisconnectEndsTheConnectionWithoutAWord)
{
    const std::string key = UniqueKey();
    const HandlePtr handle = Connect(Server("WS_URL") + "/watched?key=" + key);
    const auto notic = m_pNotic;
    ASSERT_EQ(handle->Disconnect(), 0);
    // 1006 stands for an end without a close frame.
    const HandlePtr asking = Connect(Server("WS_URL") + "/closed?key=" + key, "1006 ");
    Delete(asking);
    EXPECT_EQ(notic->m_Received.Count(), 1);
    EXPECT_EQ(notic->m_Finished.Count(), 0);
    EXPECT_EQ(m_Log.Count(kInfo, "[HTTP_INTERFACE]disconnect web socket"), 1);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
    Delete(handle);
}

TEST_F(WebSocketTest, DisconnectedHandleConnectsAgain)
{
    const HandlePtr handle = Connect(Server("WS_URL") + "/echo");
    for (int i = 0; i != 2; ++i)
    {
        ASSERT_EQ(handle->Disconnect(), 0);
        ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
        EXPECT_EQ(Receive().data, "ready");
        ASSERT_EQ(Send(handle, "again", kText), 0);
        EXPECT_EQ(Receive().data, "again");
    }
    EXPECT_TRUE(m_Log.Texts(kError).empty());
    Delete(handle);
}

TEST_F(WebSocketTest, DisconnectInsideAMessageIsRefusedByLibcurl)
{
    const HandlePtr handle = MakeHandle(Server("WS_URL") + "/echo", kWebSocket, 0);
    int result = 1;
    m_pNotic->m_OnWsData = [&](const Message&)
    {
        result = handle->Disconnect();
    };
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
    EXPECT_EQ(Receive().data, "ready");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(m_Log.Texts(kError),
              Texts{"[HTTP_INTERFACE]err[8:API function called from within callback]"
                    "curl_multi_remove_handle failed while DelHttpReq"});
    m_pNotic->m_OnWsData = nullptr; // no message is on its way
    ASSERT_EQ(Send(handle, "still open", kText), 0);
    EXPECT_EQ(Receive().data, "still open");
    Delete(handle);
}

TEST_F(WebSocketTest, SendInsideAMessageGoesOutAtOnce)
{
    const HandlePtr handle = MakeHandle(Server("WS_URL") + "/echo", kWebSocket, 0);
    m_pNotic->m_OnWsData = [&](const Message& message)
    {
        if (message.data == "ready")
        {
            EXPECT_EQ(handle->SendWsData(Bytes("inside"), kText, &m_Sent), 0);
            EXPECT_EQ(m_Sent, 6U);
        }
    };
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
    EXPECT_EQ(Receive().data, "ready");
    EXPECT_EQ(Receive().data, "inside");
    Delete(handle);
}

TEST_F(WebSocketTest, HundredConnectionsAtOnceEachHearTheirOwn)
{
    constexpr std::size_t kConnections = 100;
    std::vector<HandlePtr> handles;
    std::vector<std::shared_ptr<HandleNotic>> notics;
    for (std::size_t i = 0; i != kConnections; ++i)
    {
        handles.push_back(MakeHandle(Server("WS_URL") + "/echo", kWebSocket, 0));
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

TEST_F(WebSocketTest, HundredThousandMessagesArriveInOrderAndNoneIsLost)
{
    const HandlePtr handle =
        MakeHandle(Server("WS_URL") + "/send?n=" + std::to_string(kMany), kWebSocket, 0);
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

TEST_F(WebSocketTest, HundredThousandMessagesAreSentInOrderAndNoneIsLost)
{
    // In steps that fit a socket's buffer: the library does not wait for room.
    constexpr int kStep = 1000;
    const HandlePtr handle = Connect(Server("WS_URL") + "/order?every=" + std::to_string(kStep));
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

TEST_F(WebSocketTest, SecureConnectionCarriesMessages)
{
    const HandlePtr handle = MakeHandle(Server("WSS_URL") + "/echo", kWebSocket, 0);
    ASSERT_EQ(handle->SetCaCert(Server("CA_FILE").c_str()), 0);
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
    EXPECT_EQ(Receive().data, "ready");
    constexpr std::size_t kSizes[] = {0, 1, 126, 65536};
    for (const std::size_t size : kSizes)
    {
        const std::string bytes = Pattern(size);
        ASSERT_EQ(Send(handle, bytes, kBinary), 0);
        EXPECT_TRUE(Receive().data == bytes) << size;
    }
    EXPECT_TRUE(m_Log.Texts(kError).empty());
    Delete(handle);
}

TEST_F(WebSocketTest, SecurePeerThatIsNotTrustedIsNeverHeardOf)
{
    const HandlePtr handle = MakeHandle(Server("WSS_URL") + "/echo", kWebSocket, 0);
    ASSERT_EQ(handle->EnableVerbose(), 0); // the only place where it shows
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
    const auto says = [](const char* text)
    {
        return [text](const LogLine& line)
        {
            return line.text.find(text) != std::string::npos;
        };
    };
    EXPECT_TRUE(m_Log.WaitFor(says("certificate")));
    EXPECT_TRUE(m_Log.WaitFor(says("closing connection")));
    Delete(handle);
    EXPECT_EQ(m_pNotic->m_Received.Count(), 0);
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 0);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(WebSocketTest, AnotherLibrarysServerMirrorsMessages)
{
    const HandlePtr handle = MakeHandle(Server("LIBWEBSOCKETS_URL") + "/", kWebSocket, 0);
    const std::list<std::string> headers{"Sec-WebSocket-Protocol: lws-mirror-protocol"};
    ASSERT_EQ(handle->SetHeaders(&headers), 0);
    ASSERT_EQ(handle->EnableVerbose(), 0);
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
    // That server says nothing of itself, so the trace has to tell when to begin.
    ASSERT_TRUE(m_Log.WaitFor([](const LogLine& line)
                              { return line.text.find("Received 101") != std::string::npos; }));
    OnLoop([] {});
    const std::string text = "mirrored " + UniqueKey();
    ASSERT_EQ(Send(handle, text, kText), 0);
    EXPECT_EQ(Receive().data, text);
    Delete(handle);
}

TEST_F(WebSocketTest, PlainHttpUrlGivesABodyAsAnyOther)
{
    const HandlePtr handle = MakeHandle(Server("HTTP_URL") + "/hello", kWebSocket, 0);
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, 0);
    EXPECT_EQ(handle->GetResponse(), "hello from nginx\n");
    EXPECT_EQ(m_pNotic->m_Received.Count(), 0);
    Delete(handle);
}

} // namespace
} // namespace test
