/// Sends that are refused, that come too early or too late, and those that the
/// peer has no room for.

#include "handle/WebSocketFixture.h"

#include <thread>

namespace test
{
namespace
{

const std::string kSendFailed =
    "[HTTP_INTERFACE]err[55:Failed sending data to the peer]curl_ws_send failed";
const std::string kNotRunning = "[HTTP_INTERFACE]Can not again timer req now";

class WebSocketSendTest : public WebSocketFixture
{
protected:
    static std::string LengthsDiffer(std::size_t size, std::size_t sent)
    {
        return "[HTTP_INTERFACE]Send len diff [" + std::to_string(size) + "] != [" +
               std::to_string(sent) + "]";
    }
};

TEST_F(WebSocketSendTest, UnknownTypeIsRefusedWithALine)
{
    const HandlePtr handle = Connect(Server("WS_URL") + "/echo");
    for (const int type : {0, 4, 8, -1})
    {
        m_Log.Clear();
        EXPECT_EQ(Send(handle, "x", type), -1);
        const std::string line =
            "[HTTP_INTERFACE]unknow websocket type[" + std::to_string(type) + "]";
        EXPECT_EQ(m_Log.Texts(kError), Texts{line});
        EXPECT_EQ(m_Log.Find(line).threadId, base::GetTid());
    }
    EXPECT_EQ(m_Sent, 12345U);
    Delete(handle);
}

TEST_F(WebSocketSendTest, WhatIsNoWebSocketIsRefusedWithoutALine)
{
    const auto fresh = IHttpHandleInterface::Create();
    EXPECT_EQ(Send(fresh, "x", kText), -1) << "never initialised";
    for (const int method : {kGet, kPost, kUpload})
    {
        const HandlePtr handle = MakeHandle(Server("HTTP_URL") + "/hello", method);
        ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
        EXPECT_EQ(Send(handle, "x", kText), -1) << method;
        Delete(handle);
    }
    const HandlePtr handle = MakeHandle(Server("WS_URL") + "/echo", kWebSocket);
    EXPECT_EQ(Send(handle, "x", kText), -1) << "never added";
    EXPECT_EQ(Send(handle, "x", 0), -1) << "never added, and of no type";
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
    EXPECT_EQ(handle->SendWsData(Bytes("x"), kText, nullptr), -1);
    EXPECT_EQ(handle->SendWsData(Bytes("x"), 0, nullptr), -1);
    Delete(handle);
    OnLoop([] {}); // the completion of a delete comes before its clean-up
    EXPECT_EQ(Send(handle, "x", kText), -1) << "deleted";
    EXPECT_EQ(Send(handle, "x", 0), -1) << "deleted, and of no type";
    EXPECT_TRUE(m_Log.Texts(kError).empty());
    EXPECT_EQ(m_Sent, 12345U);
}

TEST_F(WebSocketSendTest, EngineThatDoesNotRunRefusesWithTheTimersLine)
{
    const HandlePtr handle = Connect(Server("WS_URL") + "/echo");
    ASSERT_EQ(handle->Disconnect(), 0);
    StopEngine();
    m_Log.Clear();
    EXPECT_EQ(Send(handle, "x", 9), -1);
    EXPECT_EQ(m_Log.Texts(kError), Texts{"[HTTP_INTERFACE]unknow websocket type[9]"});
    m_Log.Clear();
    EXPECT_EQ(Send(handle, "x", kText), -1);
    EXPECT_EQ(m_Log.Texts(kError), Texts{kNotRunning});
    // Once more with an engine, so that the handle can be deleted.
    StartEngine();
    Delete(handle);
}

TEST_F(WebSocketSendTest, QueuedSendLeavesTheCounterAlone)
{
    const HandlePtr handle = Connect(Server("WS_URL") + "/echo");
    ASSERT_EQ(Send(handle, "queued", kText), 0);
    EXPECT_EQ(Receive().data, "queued");
    EXPECT_EQ(m_Sent, 12345U);
    Delete(handle);
}

TEST_F(WebSocketSendTest, QueuedDataLivesUntilItIsSent)
{
    const HandlePtr handle = Connect(Server("WS_URL") + "/echo");
    auto data = Bytes("kept");
    const std::weak_ptr<std::vector<char>> weak = data;
    HeldLoop held(m_pEngine);
    ASSERT_EQ(handle->SendWsData(std::move(data), kText, &m_Sent), 0);
    EXPECT_FALSE(weak.expired());
    held.Release();
    EXPECT_EQ(Receive().data, "kept");
    OnLoop([] {});
    EXPECT_TRUE(weak.expired());
    Delete(handle);
}

TEST_F(WebSocketSendTest, MessageBeforeTheConnectionIsOpenIsLost)
{
    const std::string http = Server("WS_PEER_HTTP_URL");
    const std::string key = "?key=" + UniqueKey();
    const HandlePtr handle =
        MakeHandle(Server("WS_PEER_URL") + "/handshake-held" + key, kWebSocket, 0);
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
    ASSERT_EQ(Fetch(http + "/count" + key + "&min=1"), "1"); // the request is at the peer
    m_Log.Clear();
    ASSERT_EQ(Send(handle, "early", kText), 0);
    OnLoop([] {});
    EXPECT_EQ(m_Log.Texts(kError), Texts{kSendFailed});
    EXPECT_EQ(m_Log.Texts(kWarn), Texts{LengthsDiffer(5, 0)});
    ASSERT_EQ(Fetch(http + "/release" + key), "1");
    EXPECT_EQ(Receive().data, "open");
    ASSERT_EQ(Send(handle, "late", kText), 0);
    EXPECT_EQ(Receive().data, "1 4 late");
    Delete(handle);
}

TEST_F(WebSocketSendTest, MessageAfterThePeerVanishedFails)
{
    const HandlePtr handle = Connect(Server("WS_PEER_URL") + "/vanish");
    ASSERT_EQ(Send(handle, "go", kText), 0);
    // Nobody is told of the end; a message that is sent later shows it.
    const auto end = std::chrono::steady_clock::now() + kLimit;
    while (m_Log.Count(kError, kSendFailed) == 0 && std::chrono::steady_clock::now() < end)
    {
        ASSERT_EQ(Send(handle, "x", kText), 0);
        OnLoop([] {});
    }
    EXPECT_EQ(m_Log.Texts(kError).back(), kSendFailed);
    EXPECT_EQ(m_Log.Texts(kWarn).back(), LengthsDiffer(1, 0));
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 0);
    EXPECT_EQ(m_pNotic->m_Received.Count(), 1);
    Delete(handle);
}

TEST_F(WebSocketSendTest, MessageAfterADisconnectFails)
{
    const HandlePtr handle = Connect(Server("WS_URL") + "/echo");
    ASSERT_EQ(handle->Disconnect(), 0);
    ASSERT_EQ(Send(handle, "late", kText), 0);
    OnLoop([] {});
    EXPECT_EQ(m_Log.Texts(kError), Texts{kSendFailed});
    EXPECT_EQ(m_Log.Texts(kWarn), Texts{LengthsDiffer(4, 0)});
    Delete(handle);
}

TEST_F(WebSocketSendTest, FailedSendOnTheLoopThreadStillAnswersZero)
{
    const HandlePtr handle = Connect(Server("WS_URL") + "/echo");
    ASSERT_EQ(handle->Disconnect(), 0);
    OnLoop([&] { EXPECT_EQ(Send(handle, "late", kText), 0); });
    EXPECT_EQ(m_Sent, 0U);
    EXPECT_EQ(m_Log.Texts(kError), Texts{kSendFailed});
    EXPECT_TRUE(m_Log.Texts(kWarn).empty()) << "only queued sends compare lengths";
    Delete(handle);
}

TEST_F(WebSocketSendTest, MessageQueuedBehindTheDeleteFails)
{
    const HandlePtr handle = Connect(Server("WS_URL") + "/echo");
    HeldLoop held(m_pEngine);
    ASSERT_EQ(m_pEngine->DelHttpReq(handle, true, nullptr, nullptr), 0);
    ASSERT_EQ(Send(handle, "late", kText), 0);
    held.Release();
    OnLoop([] {});
    EXPECT_EQ(m_Log.Texts(kError),
              Texts{"[HTTP_INTERFACE]err[43:A libcurl function was given a bad argument]"
                    "curl_ws_send failed"});
    EXPECT_EQ(m_Log.Texts(kWarn), Texts{LengthsDiffer(4, 0)});
}

TEST_F(WebSocketSendTest, MessageQueuedBeforeTheStopIsStillSent)
{
    // The peer ends the connection upon a number out of order, which lets the
    // stop come to its end.
    const HandlePtr handle = Connect(Server("WS_URL") + "/order");
    {
        HeldLoop held(m_pEngine);
        ASSERT_EQ(Send(handle, "7", kText), 0);
        held.ReleaseWithStop();
    }
    const std::vector<Message>& messages = m_pNotic->m_Messages; // the loop has ended
    ASSERT_EQ(messages.size(), 3U);
    EXPECT_EQ(messages[1].data, "got 7 instead of 0");
    EXPECT_EQ(messages[2].type, kClose);
    StartEngine();
    Delete(handle);
}

class StalledPeerTest : public WebSocketSendTest
{
protected:
    void SetUp() override
    {
        WebSocketSendTest::SetUp();
        m_Key = "?key=" + UniqueKey();
        m_pHandle = MakeHandle(Server("WS_PEER_URL") + "/stall" + m_Key, kWebSocket, 0);
        // Ticks only wake libcurl; they come whenever the peer reads.
        m_pNotic->m_OnWsData = [this](const Message& message)
        {
            if (message.data == "tick")
            {
                return;
            }
            const std::lock_guard<std::mutex> lock(m_Mutex);
            m_Answers.push_back(message.data);
            m_Answered.Set();
        };
        ASSERT_EQ(m_pEngine->AddHttpReq(m_pHandle, true, nullptr, nullptr), 0);
        EXPECT_EQ(Answer(1), "ready");
    }

    void TearDown() override
    {
        Delete(m_pHandle);
        WebSocketSendTest::TearDown();
    }

    std::string Answer(int number)
    {
        if (!m_Answered.Wait(number))
        {
            ADD_FAILURE() << "answer " << number << " did not come";
            return "";
        }
        const std::lock_guard<std::mutex> lock(m_Mutex);
        return m_Answers[static_cast<std::size_t>(number - 1)];
    }

    void LetThePeerRead()
    {
        EXPECT_EQ(Fetch(Server("WS_PEER_HTTP_URL") + "/release" + m_Key), "1");
    }

    /// Sends messages until libcurl keeps a rest of one; tells how many.
    int FillUntilCut()
    {
        constexpr int kMost = 10000;
        const std::string filling(kFilling, 'f');
        int filled = 0;
        while (m_Log.Texts(kWarn).empty() && filled < kMost)
        {
            EXPECT_EQ(Send(m_pHandle, filling, kBinary), 0);
            ++filled;
            OnLoop([] {});
        }
        EXPECT_LT(filled, kMost) << "the peer's buffers never filled";
        return filled;
    }

    /// The peer reads on and tells of every message that filled its buffers,
    /// while its ticks make libcurl send the rest.
    void ExpectFilling(int filled)
    {
        LetThePeerRead();
        EXPECT_EQ(Answer(2), "open");
        for (int i = 0; i != filled; ++i)
        {
            EXPECT_EQ(Answer(3 + i), "2 60000 " + std::string(100, 'f'));
        }
    }

    static constexpr std::size_t kFilling = 60000;

    std::string m_Key;
    HandlePtr m_pHandle;
    std::mutex m_Mutex;
    std::vector<std::string> m_Answers; ///< under m_Mutex
    Event m_Answered;
};

TEST_F(StalledPeerTest, MessageThatIsTakenInPartIsLoggedWithBothLengths)
{
    constexpr std::size_t kSize = 64 << 20;
    ASSERT_EQ(Send(m_pHandle, std::string(kSize, 'x'), kBinary), 0);
    OnLoop([] {});
    const Texts lines = m_Log.Texts(kWarn);
    ASSERT_EQ(lines.size(), 1U);
    std::size_t size = 0;
    std::size_t sent = 0;
    ASSERT_EQ(
        std::sscanf(lines[0].c_str(), "[HTTP_INTERFACE]Send len diff [%zu] != [%zu]", &size, &sent),
        2);
    EXPECT_EQ(lines[0], LengthsDiffer(size, sent));
    EXPECT_EQ(size, kSize);
    EXPECT_GT(sent, 0U);
    EXPECT_LT(sent, kSize);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(StalledPeerTest, RestOfAMessageGoesOutOnceThePeerReads)
{
    constexpr std::size_t kSize = 8 << 20;
    ASSERT_EQ(Send(m_pHandle, std::string(kSize, 'x'), kBinary), 0);
    OnLoop([] {});
    ASSERT_EQ(m_Log.Texts(kWarn).size(), 1U) << "it was not cut";
    LetThePeerRead();
    EXPECT_EQ(Answer(2), "open");
    EXPECT_EQ(Answer(3), "2 " + std::to_string(kSize) + " " + std::string(100, 'x'));
    ASSERT_EQ(Send(m_pHandle, "next", kText), 0);
    EXPECT_EQ(Answer(4), "1 4 next");
}

TEST_F(StalledPeerTest, OtherMessagesAreRefusedUntilTheRestHasGoneOut)
{
    const int filled = FillUntilCut();
    for (const std::string& message : {std::string("small"), std::string(kFilling + 1, 'l')})
    {
        m_Log.Clear();
        ASSERT_EQ(Send(m_pHandle, message, kBinary), 0);
        OnLoop([] {});
        EXPECT_EQ(m_Log.Texts(kError),
                  Texts{"[HTTP_INTERFACE]err[43:A libcurl function was given a bad argument]"
                        "curl_ws_send failed"});
        EXPECT_EQ(m_Log.Texts(kWarn), Texts{LengthsDiffer(message.size(), 0)});
    }
    m_Log.Clear();
    ExpectFilling(filled);
    ASSERT_EQ(Send(m_pHandle, "next", kText), 0);
    EXPECT_EQ(Answer(3 + filled), "1 4 next") << "what was refused never comes";
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

// libcurl takes a message of the length of the one that it keeps for the same
// one, sent again.
TEST_F(StalledPeerTest, MessageOfTheSameLengthIsLostToo)
{
    const int filled = FillUntilCut();
    ASSERT_EQ(Send(m_pHandle, std::string(kFilling, 's'), kBinary), 0);
    OnLoop([] {});
    ExpectFilling(filled);
    ASSERT_EQ(Send(m_pHandle, "next", kText), 0);
    EXPECT_EQ(Answer(3 + filled), "1 4 next");
}

// libcurl once counted bytes of a message that it had taken only in part also
// for the next message, and sent memory that lies beside it.
TEST_F(StalledPeerTest, NoByteBesideAMessageIsEverSent)
{
    const int filled = FillUntilCut();
    ExpectFilling(filled);

    // A short message in a long piece of memory, all of which is marked.
    auto message = std::make_shared<std::vector<char>>(4 * kFilling, 'M');
    message->resize(16);
    std::memcpy(message->data(), "0123456789abcdef", 16);
    ASSERT_EQ(m_pHandle->SendWsData(message, kBinary, &m_Sent), 0);
    EXPECT_EQ(Answer(3 + filled), "2 16 0123456789abcdef");
    ASSERT_EQ(Send(m_pHandle, "next", kText), 0);
    EXPECT_EQ(Answer(4 + filled), "1 4 next");
    const std::lock_guard<std::mutex> lock(m_Mutex);
    for (const std::string& answer : m_Answers)
    {
        EXPECT_EQ(answer.find('M'), std::string::npos);
    }
}

} // namespace
} // namespace test
