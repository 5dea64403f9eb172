/// What a host does and hears while a connection is open.

#include "handle/WebSocketFixture.h"

namespace test
{
namespace
{

class WebSocketTest : public WebSocketFixture
{
};

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
