#pragma once

#include "frame/CHttpFrame.h"
#include "frame/SocketBridge.h"
#include "support/EngineTest.h"
#include "wrap/Hooks.h"

#include <optional>

#ifndef _WIN32
#include <sys/socket.h>
#include <unistd.h>
#endif

namespace test
{

using Names = std::vector<std::string>;

/// Calls the bridge as libcurl would, on the loop thread of a running engine,
/// for a socket that libcurl doesn't know: what it would attach to the socket is
/// kept here.
class SocketBridgeFixture : public EngineTest
{
protected:
    struct Outcome
    {
        int result;
        std::vector<Call> calls; ///< every wrapped call that was made meanwhile

        Names CallNames() const
        {
            Names names;
            for (const Call& call : calls)
            {
                names.push_back(call.name);
            }
            return names;
        }
    };

    void SetUp() override
    {
        StartEngine();
        ASSERT_EQ(uv_socketpair(SOCK_STREAM, 0, m_Sockets, UV_NONBLOCK_PIPE, UV_NONBLOCK_PIPE), 0);
    }

    void TearDown() override
    {
        if (m_pRecord != nullptr)
        {
            Handle(CURL_POLL_REMOVE);
        }
        EngineTest::TearDown();
        CloseSocket(m_Sockets[0]);
        CloseSocket(m_Sockets[1]);
    }

    CHttpFrame* Frame() const { return static_cast<CHttpFrame*>(m_pEngine.get()); }

    /// Runs a function on the loop thread and tells what it called.
    Outcome Record(const std::function<int()>& function)
    {
        Outcome outcome{};
        OnLoop(
            [&]
            {
                const CallRecorder recorder;
                outcome.result = function();
                outcome.calls = recorder.Calls();
            });
        return outcome;
    }

    Outcome Handle(int what)
    {
        return Record([&]
                      { return HandleSocket(nullptr, m_Sockets[0], what, Frame(), m_pRecord); });
    }

    Outcome Timeout(long timeoutMs)
    {
        return Record([&] { return StartTimeout(nullptr, timeoutMs, Frame()); });
    }

    static void CloseSocket(uv_os_sock_t s)
    {
#ifdef _WIN32
        closesocket(s);
#else
        close(s);
#endif
    }

    uv_os_sock_t m_Sockets[2] = {};
    void* m_pRecord = nullptr;  ///< attached to m_Sockets[0]
    void* m_pOffered = nullptr; ///< the record of the latest attempt to attach
    CURLMcode m_AssignCode = CURLM_OK;

private:
    const Replaced<CURLMcode(CURLM*, curl_socket_t, void*)> m_Assign{
        hooks::curl_multi_assign(), [this](CURLM*, curl_socket_t, void* record)
        {
            m_pOffered = record;
            if (m_AssignCode == CURLM_OK)
            {
                m_pRecord = record;
            }
            return m_AssignCode;
        }};
};

} // namespace test
