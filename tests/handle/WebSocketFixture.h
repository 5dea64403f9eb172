#pragma once

#include "support/EngineTest.h"
#include "support/HeldLoop.h"
#include "support/Servers.h"
#include "support/Transfers.h"

#include <cstring>

namespace test
{

using HandlePtr = std::shared_ptr<IHttpHandleInterface>;
using Message = HandleNotic::Message;
using Texts = std::vector<std::string>;

constexpr int kText = 1;
constexpr int kBinary = 2;
constexpr int kClose = 3;

inline std::shared_ptr<std::vector<char>> Bytes(const std::string& data)
{
    return std::make_shared<std::vector<char>>(data.begin(), data.end());
}

/// Bytes that repeat with a prime period, as the servers generate them.
inline std::string Pattern(std::size_t size)
{
    std::string data(size, '\0');
    for (std::size_t i = 0; i != size; ++i)
    {
        data[i] = static_cast<char>(i % 251);
    }
    return data;
}

/// A test that talks with WebSocket peers, one message after the other.
class WebSocketFixture : public EngineTest
{
protected:
    void SetUp() override { StartEngine(); }

    /// A handle for a ws URL, or for a wss one whose server has a certificate of
    /// the tests.
    HandlePtr MakeSocket(const std::string& url)
    {
        HandlePtr handle = MakeHandle(url, kWebSocket, 0);
        if (url.compare(0, 4, "wss:") == 0)
        {
            EXPECT_EQ(handle->SetCaCert(Server("CA_FILE").c_str()), 0);
        }
        m_Taken = 0;
        return handle;
    }

    /// Adds a connection whose peer speaks first, and waits for that message.
    HandlePtr Connect(const std::string& url, const std::string& greeting = "ready")
    {
        HandlePtr handle = MakeSocket(url);
        EXPECT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
        EXPECT_EQ(Receive().data, greeting);
        return handle;
    }

    int Send(const HandlePtr& handle, const std::string& data, int type)
    {
        return handle->SendWsData(Bytes(data), type, &m_Sent);
    }

    /// The next message; the engine runs.
    Message Receive()
    {
        Message message{"", -1};
        if (m_pNotic->m_Received.Wait(++m_Taken))
        {
            OnLoop([&] { message = m_pNotic->m_Messages[static_cast<std::size_t>(m_Taken - 1)]; });
        }
        else
        {
            ADD_FAILURE() << "no message came";
        }
        return message;
    }

    /// What a server answers to a GET.
    std::string Fetch(const std::string& url)
    {
        const auto notic = std::make_shared<HandleNotic>();
        const auto handle = IHttpHandleInterface::Create();
        EXPECT_EQ(handle->InitRequest(url.c_str(), nullptr, kGet, notic, 0, 0, nullptr), 0);
        EXPECT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
        EXPECT_TRUE(notic->m_Finished.Wait());
        EXPECT_EQ(notic->m_Result, 0);
        Delete(handle);
        return handle->GetResponse();
    }

    std::size_t m_Sent = 12345;
    int m_Taken = 0;
};

} // namespace test
