/// Conversations with libwebsockets, whose server has a mirror and a counter to
/// talk to, with and without TLS.

#include "handle/WebSocketFixture.h"

#include <atomic>

namespace test
{
namespace
{

class WebSocketMirrorTest : public WebSocketFixture,
                            public ::testing::WithParamInterface<const char*>
{
protected:
    HandlePtr Open(const std::string& protocol)
    {
        // A mirror of its own: what one client says all clients of the mirror hear.
        HandlePtr handle = MakeSocket(Server(GetParam()) + "/?mirror=" + UniqueKey());
        const std::list<std::string> headers{"Sec-WebSocket-Protocol: " + protocol};
        EXPECT_EQ(handle->SetHeaders(&headers), 0);
        return handle;
    }

    HandlePtr OpenCounter()
    {
        HandlePtr handle = Open("dumb-increment-protocol");
        EXPECT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
        return handle;
    }

    /// Returns once it is open. The mirror says nothing of itself, so the trace
    /// has to tell.
    HandlePtr OpenMirror()
    {
        HandlePtr handle = Open("lws-mirror-protocol");
        EXPECT_EQ(handle->EnableVerbose(), 0);
        EXPECT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
        EXPECT_TRUE(m_Log.WaitFor([](const LogLine& line)
                                  { return line.text.find("Received 101") != std::string::npos; }));
        OnLoop([] {});
        return handle;
    }
};

INSTANTIATE_TEST_SUITE_P(, WebSocketMirrorTest,
                         ::testing::Values("LIBWEBSOCKETS_URL", "LIBWEBSOCKETS_TLS_URL"),
                         [](const auto& it)
                         {
                             const std::string key = it.param;
                             return key.find("TLS") == std::string::npos ? "Plain" : "OverTls";
                         });

TEST_P(WebSocketMirrorTest, MessagesOfEverySizeAreMirrored)
{
    const HandlePtr handle = OpenMirror();
    constexpr std::size_t kSizes[] = {0, 1, 125, 126, 127, 65535, 65536};
    for (const std::size_t size : kSizes)
    {
        for (const int type : {kText, kBinary})
        {
            const std::string sent(size, static_cast<char>('a' + type));
            ASSERT_EQ(Send(handle, sent, type), 0);
            std::string mirrored;
            do // at most 4 KiB in a message
            {
                const Message message = Receive();
                ASSERT_EQ(message.type, kText) << "the mirror answers in texts";
                mirrored += message.data;
            } while (mirrored.size() < size);
            EXPECT_TRUE(mirrored == sent) << size;
        }
    }
    EXPECT_TRUE(m_Log.Texts(kError).empty());
    EXPECT_TRUE(m_Log.Texts(kWarn).empty());
    Delete(handle);
}

TEST_P(WebSocketMirrorTest, HundredThousandMessagesAreMirroredInOrder)
{
    constexpr int kMany = 100000;
    constexpr int kStep = 50; // the mirror keeps no more than about a hundred
    const HandlePtr handle = OpenMirror();
    std::atomic<int> inOrder{0};
    m_pNotic->m_OnWsData = [&](const Message& message)
    {
        inOrder += message.data == std::to_string(inOrder) ? 1 : 0;
    };
    for (int i = 0; i != kMany; ++i)
    {
        ASSERT_EQ(Send(handle, std::to_string(i), kText), 0);
        if ((i + 1) % kStep == 0)
        {
            ASSERT_TRUE(m_pNotic->m_Received.Wait(i + 1));
            m_Log.Clear(); // the trace would grow large
        }
    }
    EXPECT_EQ(inOrder, kMany);
    Delete(handle);
    EXPECT_EQ(m_pNotic->m_Received.Count(), kMany);
}

TEST_P(WebSocketMirrorTest, HundredConnectionsAtOnceEachHearTheirOwnCounter)
{
    constexpr std::size_t kConnections = 100;
    std::vector<HandlePtr> handles;
    std::vector<std::shared_ptr<HandleNotic>> notics;
    for (std::size_t i = 0; i != kConnections; ++i)
    {
        handles.push_back(OpenCounter());
        notics.push_back(m_pNotic);
    }
    for (const auto& notic : notics)
    {
        ASSERT_TRUE(notic->m_Received.Wait(3));
    }
    OnLoop(
        [&]
        {
            for (const auto& notic : notics)
            {
                for (std::size_t i = 0; i != notic->m_Messages.size(); ++i)
                {
                    EXPECT_EQ(notic->m_Messages[i].data, std::to_string(i));
                }
            }
        });
    for (const HandlePtr& handle : handles)
    {
        Delete(handle);
    }
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_P(WebSocketMirrorTest, CloseOfThePeerIsAMessage)
{
    const HandlePtr handle = OpenCounter();
    EXPECT_EQ(Receive().data, "0");
    ASSERT_EQ(Send(handle, "closeme\n", kText), 0);
    Message message = Receive();
    while (message.type == kText) // it goes on counting meanwhile
    {
        message = Receive();
    }
    EXPECT_EQ(message.type, kClose);
    EXPECT_EQ(message.data, "\x03\xe9"
                            "seeya");
    Delete(handle);
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 0);
}

TEST_P(WebSocketMirrorTest, CloseOfTheHostComesBackWithCodeAndReason)
{
    const HandlePtr handle = OpenMirror();
    const std::string close = "\x0f\xa2"
                              "enough";
    ASSERT_EQ(Send(handle, close, kClose), 0);
    const Message message = Receive();
    EXPECT_EQ(message.type, kClose);
    EXPECT_EQ(message.data, close);
    Delete(handle);
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 0);
}

} // namespace
} // namespace test
