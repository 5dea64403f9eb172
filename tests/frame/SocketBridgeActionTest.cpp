/// What libcurl is called for: a socket's events and its own timeout.

#include "frame/SocketBridgeFixture.h"

namespace test
{
namespace
{

class SocketBridgeActionTest : public SocketBridgeFixture
{
protected:
    struct Action
    {
        curl_socket_t s;
        int flags;
    };

    void SetUp() override
    {
        SocketBridgeFixture::SetUp();
        Handle(CURL_POLL_IN);
        // Events only from the tests, but for those that start it again.
        OnLoop([&] { hooks::uv_poll_stop().Real(static_cast<uv_poll_t*>(m_pRecord)); });
    }

    Outcome Poll(int status, int events)
    {
        return Record(
            [&]
            {
                m_Perform(static_cast<uv_poll_t*>(m_pRecord), status, events);
                return 0;
            });
    }

    CURLMcode m_ActionCode = CURLM_OK;
    std::vector<Action> m_Actions; ///< loop thread only while m_Acted may come
    Event m_Acted;
    uv_poll_cb m_Perform = nullptr;

private:
    const Replaced<CURLMcode(CURLM*, curl_socket_t, int, int*)> m_Action{
        hooks::curl_multi_socket_action(), [this](CURLM*, curl_socket_t s, int flags, int* running)
        {
            EXPECT_NE(running, nullptr);
            m_Actions.push_back({s, flags});
            m_Acted.Set();
            return m_ActionCode;
        }};
    const Replaced<int(uv_poll_t*, int, uv_poll_cb)> m_Start{
        hooks::uv_poll_start(), [this](uv_poll_t* handle, int events, uv_poll_cb cb)
        {
            m_Perform = cb;
            return hooks::uv_poll_start().Real(handle, events, cb);
        }};
};

const Names kActThenCheck{"curl_multi_socket_action", "curl_multi_info_read"};

TEST_F(SocketBridgeActionTest, EventsOfASocketAreHandedToLibcurl)
{
    const std::pair<int, int> expected[] = {
        {UV_READABLE, CURL_CSELECT_IN},
        {UV_WRITABLE, CURL_CSELECT_OUT},
        {UV_READABLE | UV_WRITABLE, CURL_CSELECT_IN | CURL_CSELECT_OUT},
        {UV_DISCONNECT | UV_PRIORITIZED, 0},
        {0, 0}};
    for (const auto& [events, flags] : expected)
    {
        m_Actions.clear();
        EXPECT_EQ(Poll(0, events).CallNames(), kActThenCheck);
        ASSERT_EQ(m_Actions.size(), 1U);
        EXPECT_EQ(m_Actions[0].s, m_Sockets[0]);
        EXPECT_EQ(m_Actions[0].flags, flags) << events;
    }
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(SocketBridgeActionTest, ErrorOfAPollIsNotPassedOn)
{
    EXPECT_EQ(Poll(UV_EBADF, 0).CallNames(), kActThenCheck);
    EXPECT_EQ(Poll(UV_ECONNRESET, UV_READABLE).CallNames(), kActThenCheck);
    ASSERT_EQ(m_Actions.size(), 2U);
    EXPECT_EQ(m_Actions[0].flags, 0);
    EXPECT_EQ(m_Actions[1].flags, CURL_CSELECT_IN);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(SocketBridgeActionTest, FailedActionForASocketIsLoggedAndTransfersAreStillCollected)
{
    m_ActionCode = CURLM_BAD_SOCKET;
    EXPECT_EQ(Poll(0, UV_READABLE).CallNames(), kActThenCheck);
    EXPECT_EQ(m_Log.Texts(kError),
              Names{"[HTTP_INTERFACE]err[5:Invalid socket argument]curl_multi_socket_action failed "
                    "while CurlPerform"});
}

TEST_F(SocketBridgeActionTest, SocketThatGetsReadyReachesLibcurl)
{
    Handle(CURL_POLL_OUT); // a fresh socket can be written to at once
    ASSERT_TRUE(m_Acted.Wait());
    Handle(CURL_POLL_IN);
    const int before = m_Acted.Count();
    const char byte = 'x';
    ASSERT_EQ(send(m_Sockets[1], &byte, 1, 0), 1);
    ASSERT_TRUE(m_Acted.Wait(before + 1));
    OnLoop(
        [&]
        {
            EXPECT_EQ(m_Actions.front().flags, CURL_CSELECT_OUT);
            EXPECT_EQ(m_Actions.back().flags, CURL_CSELECT_IN);
            EXPECT_EQ(m_Actions.back().s, m_Sockets[0]);
        });
}

TEST_F(SocketBridgeActionTest, TimeoutWithoutUserDataIsLoggedAndAnsweredWithSuccess)
{
    for (const long timeoutMs : {-1L, 0L, 10L})
    {
        m_Log.Clear();
        const Outcome outcome = Record([&] { return StartTimeout(nullptr, timeoutMs, nullptr); });
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.CallNames(), Names{});
        EXPECT_EQ(m_Log.Texts(kError), Names{"[HTTP_INTERFACE]StartTimeout get null userdata"});
    }
}

TEST_F(SocketBridgeActionTest, TimeoutStartsTheTimerForOneShot)
{
    std::vector<std::pair<std::uint64_t, std::uint64_t>> started;
    const Replaced<int(uv_timer_t*, uv_timer_cb, uint64_t, uint64_t)> refuses(
        hooks::uv_timer_start(),
        [&](uv_timer_t* timer, uv_timer_cb cb, std::uint64_t timeoutMs, std::uint64_t repeatMs)
        {
            if (timer != Frame()->CurlTimer())
            {
                return hooks::uv_timer_start().Real(timer, cb, timeoutMs, repeatMs);
            }
            started.emplace_back(timeoutMs, repeatMs);
            return int{UV_EINVAL}; // its result is not looked at
        });
    for (const long timeoutMs : {0L, 1L, 2L, 30000L, 2147483647L})
    {
        const Outcome outcome = Timeout(timeoutMs);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.CallNames(), Names{"uv_timer_start"});
        ASSERT_FALSE(started.empty());
        const long expectedMs = timeoutMs == 0 ? 1 : timeoutMs;
        EXPECT_EQ(started.back().first, static_cast<std::uint64_t>(expectedMs));
        EXPECT_EQ(started.back().second, 0U);
    }
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(SocketBridgeActionTest, NegativeTimeoutStopsTheTimer)
{
    Timeout(1000000);
    auto* const timer = reinterpret_cast<uv_handle_t*>(Frame()->CurlTimer());
    OnLoop([&] { EXPECT_NE(uv_is_active(timer), 0); });
    const Outcome outcome = Timeout(-1);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.CallNames(), Names{"uv_timer_stop"});
    EXPECT_EQ(outcome.calls[0].subject, Frame()->CurlTimer());
    OnLoop([&] { EXPECT_EQ(uv_is_active(timer), 0); });
    EXPECT_EQ(m_Acted.Count(), 0);
}

TEST_F(SocketBridgeActionTest, LaterTimeoutReplacesTheEarlierOne)
{
    Timeout(1000000);
    Timeout(0);
    ASSERT_TRUE(m_Acted.Wait());
    OnLoop(
        [&]
        {
            ASSERT_EQ(m_Actions.size(), 1U);
            EXPECT_EQ(m_Actions[0].s, CURL_SOCKET_TIMEOUT);
            EXPECT_EQ(m_Actions[0].flags, 0);
            EXPECT_EQ(uv_is_active(reinterpret_cast<uv_handle_t*>(Frame()->CurlTimer())), 0);
        });
}

TEST_F(SocketBridgeActionTest, ImmediateTimeoutWaitsForALaterTurn)
{
    OnLoop(
        [&]
        {
            StartTimeout(nullptr, 0, Frame());
            EXPECT_EQ(m_Acted.Count(), 0);
        });
    EXPECT_TRUE(m_Acted.Wait());
}

class SocketBridgeTimeoutTest : public SocketBridgeActionTest
{
protected:
    Outcome Expire()
    {
        return Record(
            [&]
            {
                m_OnTimeout(Frame()->CurlTimer());
                return 0;
            });
    }

    void SetUp() override
    {
        SocketBridgeActionTest::SetUp();
        const Replaced<int(uv_timer_t*, uv_timer_cb, uint64_t, uint64_t)> kept(
            hooks::uv_timer_start(),
            [&](uv_timer_t* timer, uv_timer_cb cb, std::uint64_t timeoutMs, std::uint64_t repeatMs)
            {
                if (timer != Frame()->CurlTimer())
                {
                    return hooks::uv_timer_start().Real(timer, cb, timeoutMs, repeatMs);
                }
                m_OnTimeout = cb;
                return 0;
            });
        Timeout(1000);
    }

    uv_timer_cb m_OnTimeout = nullptr;
};

TEST_F(SocketBridgeTimeoutTest, ExpiryIsHandedToLibcurlAndTransfersAreCollected)
{
    EXPECT_EQ(Expire().CallNames(), kActThenCheck);
    ASSERT_EQ(m_Actions.size(), 1U);
    EXPECT_EQ(m_Actions[0].s, CURL_SOCKET_TIMEOUT);
    EXPECT_EQ(m_Actions[0].flags, 0);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(SocketBridgeTimeoutTest, FailedActionAtExpiryIsLoggedAndTransfersAreStillCollected)
{
    m_ActionCode = CURLM_RECURSIVE_API_CALL;
    EXPECT_EQ(Expire().CallNames(), kActThenCheck);
    EXPECT_EQ(m_Log.Texts(kError),
              Names{"[HTTP_INTERFACE]err[8:API function called from within callback]"
                    "curl_multi_socket_action failed while OnTimeout"});
}

} // namespace
} // namespace test
