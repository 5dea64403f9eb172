#include "frame/SocketBridgeFixture.h"

namespace test
{
namespace
{

/// What a socket's record takes: libuv's handle, the socket and the engine.
constexpr std::size_t kRecordSize =
    (sizeof(uv_poll_t) + sizeof(curl_socket_t) + sizeof(void*) + alignof(void*) - 1) /
    alignof(void*) * alignof(void*);

class SocketBridgeTest : public SocketBridgeFixture
{
};

TEST_F(SocketBridgeTest, NoUserDataIsLoggedAndAnsweredWithSuccess)
{
    for (const int what : {CURL_POLL_NONE, CURL_POLL_IN, CURL_POLL_REMOVE, 5})
    {
        m_Log.Clear();
        const Outcome outcome =
            Record([&] { return HandleSocket(nullptr, m_Sockets[0], what, nullptr, nullptr); });
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.CallNames(), Names{});
        const std::string line = "[HTTP_INTERFACE]HandleSocket get null userdata";
        EXPECT_EQ(m_Log.Texts(kError), Names{line});
        EXPECT_NE(m_Log.Find(line).threadId, base::GetTid());
    }
}

TEST_F(SocketBridgeTest, FirstCallForASocketMakesAttachesAndStartsAPollHandle)
{
    const Outcome outcome = Handle(CURL_POLL_IN);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.CallNames(),
              (Names{"uv_poll_init_socket", "curl_multi_assign", "uv_poll_start"}));
    // The record begins with its poll handle, whose data is the record.
    EXPECT_EQ(outcome.calls[0].subject, m_pRecord);
    EXPECT_EQ(outcome.calls[2].subject, m_pRecord);
    EXPECT_EQ(static_cast<uv_poll_t*>(m_pRecord)->data, m_pRecord);
    EXPECT_EQ(static_cast<uv_poll_t*>(m_pRecord)->loop, Frame()->Loop().get());
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(SocketBridgeTest, EachActionWatchesForItsEvents)
{
    const std::pair<int, int> expected[] = {{CURL_POLL_IN, UV_READABLE},
                                            {CURL_POLL_OUT, UV_WRITABLE},
                                            {CURL_POLL_INOUT, UV_READABLE | UV_WRITABLE}};
    for (const auto& [what, events] : expected)
    {
        const Outcome outcome = Handle(what);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.calls.back().name, "uv_poll_start");
        EXPECT_EQ(outcome.calls.back().detail, events) << what;
        Handle(CURL_POLL_REMOVE);
    }
}

TEST_F(SocketBridgeTest, LaterCallRestartsTheSamePollHandleAndAllocatesNothing)
{
    Handle(CURL_POLL_IN);
    void* const record = m_pRecord;
    const MemoryRefused refused([](std::size_t size) { return size == kRecordSize; });
    for (const int what : {CURL_POLL_OUT, CURL_POLL_INOUT, CURL_POLL_IN, CURL_POLL_IN})
    {
        const Outcome outcome = Handle(what);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.CallNames(), (Names{"curl_multi_assign", "uv_poll_start"}));
        EXPECT_EQ(outcome.calls[0].subject, record);
        EXPECT_EQ(outcome.calls[1].subject, record);
        // libcurl's numbers and libuv's happen to be the same bits.
        EXPECT_EQ(outcome.calls[1].detail, what);
    }
    EXPECT_EQ(m_pRecord, record);
}

TEST_F(SocketBridgeTest, UnknownActionIsLoggedAndChangesNothing)
{
    Handle(CURL_POLL_IN);
    for (const int what : {CURL_POLL_NONE, 5, 8, -1})
    {
        m_Log.Clear();
        const Outcome outcome = Handle(what);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.CallNames(), Names{});
        EXPECT_EQ(m_Log.Texts(kError), Names{"[HTTP_INTERFACE]HandleSocket Get default Action[" +
                                             std::to_string(what) + "]"});
    }
    EXPECT_NE(uv_is_active(static_cast<uv_handle_t*>(m_pRecord)), 0);
}

TEST_F(SocketBridgeTest, RemoveWithoutARecordCallsNothing)
{
    const Outcome outcome = Handle(CURL_POLL_REMOVE);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.CallNames(), Names{});
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(SocketBridgeTest, RemoveStopsThenClosesThenDetaches)
{
    Handle(CURL_POLL_INOUT);
    void* const record = m_pRecord;
    const Outcome outcome = Handle(CURL_POLL_REMOVE);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.CallNames(), (Names{"uv_poll_stop", "uv_close", "curl_multi_assign"}));
    EXPECT_EQ(outcome.calls[0].subject, record);
    EXPECT_EQ(outcome.calls[1].subject, record);
    EXPECT_EQ(outcome.calls[1].detail, 1) << "closed without a callback";
    EXPECT_EQ(m_pRecord, nullptr);
}

TEST_F(SocketBridgeTest, RecordLivesUntilTheCloseCallback)
{
    Handle(CURL_POLL_IN);
    Event closed;
    bool intact = false;
    uv_close_cb onClosed = nullptr;
    const Replaced<void(uv_handle_t*, uv_close_cb)> watched(
        hooks::uv_close(),
        [&](uv_handle_t* handle, uv_close_cb cb)
        {
            if (handle != m_pRecord)
            {
                hooks::uv_close().Real(handle, cb);
                return;
            }
            // libuv calls back through a function without a context of ours.
            static Event* s_Closed;
            static bool* s_Intact;
            static uv_close_cb s_OnClosed;
            s_Closed = &closed;
            s_Intact = &intact;
            s_OnClosed = onClosed = cb;
            hooks::uv_close().Real(handle,
                                   [](uv_handle_t* it)
                                   {
                                       *s_Intact = it->data == it;
                                       s_OnClosed(it); // frees the record
                                       s_Closed->Set();
                                   });
        });
    Handle(CURL_POLL_REMOVE);
    ASSERT_TRUE(closed.Wait());
    EXPECT_TRUE(intact);
    EXPECT_NE(onClosed, nullptr);
}

TEST_F(SocketBridgeTest, RecordThatIsClosingIsNotClosedAgain)
{
    Handle(CURL_POLL_IN);
    const Outcome outcome = Record(
        [&]
        {
            void* const record = m_pRecord;
            HandleSocket(nullptr, m_Sockets[0], CURL_POLL_REMOVE, Frame(), record);
            return HandleSocket(nullptr, m_Sockets[0], CURL_POLL_REMOVE, Frame(), record);
        });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.CallNames(), (Names{"uv_poll_stop", "uv_close", "curl_multi_assign",
                                          "uv_poll_stop", "curl_multi_assign"}));
}

TEST_F(SocketBridgeTest, RecordThatCanNotBeAttachedStaysUnstarted)
{
    m_AssignCode = CURLM_BAD_SOCKET;
    const Outcome outcome = Handle(CURL_POLL_IN);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.CallNames(), (Names{"uv_poll_init_socket", "curl_multi_assign"}));
    EXPECT_EQ(m_Log.Texts(kError),
              Names{"[HTTP_INTERFACE]err[5:Invalid socket argument]curl_multi_assign failed while "
                    "OnHandleSocket"});
    // Nothing owns the record now; this test takes it up and closes it.
    EXPECT_EQ(m_pRecord, nullptr);
    EXPECT_EQ(uv_is_active(static_cast<uv_handle_t*>(m_pOffered)), 0);
    m_pRecord = m_pOffered;
    m_AssignCode = CURLM_OK;
}

TEST_F(SocketBridgeTest, KnownRecordThatCanNotBeAttachedKeepsItsEvents)
{
    Handle(CURL_POLL_IN);
    m_AssignCode = CURLM_BAD_SOCKET;
    const Outcome outcome = Handle(CURL_POLL_OUT);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.CallNames(), Names{"curl_multi_assign"});
    EXPECT_EQ(m_Log.Texts(kError).size(), 1U);
    EXPECT_NE(uv_is_active(static_cast<uv_handle_t*>(m_pRecord)), 0);
    m_AssignCode = CURLM_OK;
}

TEST_F(SocketBridgeTest, WithoutMemoryTheSocketIsNotWatched)
{
    static int s_Refused;
    s_Refused = 0;
    {
        const MemoryRefused refused([](std::size_t size)
                                    { return size == kRecordSize && ++s_Refused > 0; });
        const Outcome outcome = Handle(CURL_POLL_IN);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.CallNames(), Names{});
    }
    EXPECT_EQ(s_Refused, 1);
    EXPECT_EQ(m_pRecord, nullptr);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(SocketBridgeTest, WithoutALoopTheSocketIsNotWatched)
{
    const auto idle = std::make_shared<CHttpFrame>(); // was never initialised
    const CallRecorder recorder;
    EXPECT_EQ(HandleSocket(nullptr, m_Sockets[0], CURL_POLL_IN, idle.get(), nullptr), 0);
    EXPECT_EQ(recorder.Count("uv_poll_init_socket"), 0);
    EXPECT_EQ(recorder.Count("curl_multi_assign"), 0);
    EXPECT_EQ(recorder.Count("uv_poll_start"), 0);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(SocketBridgeTest, SocketThatLibuvRefusesIsAttachedButNeverStarted)
{
    {
        const Replaced<int(uv_loop_t*, uv_poll_t*, uv_os_sock_t)> refuses(
            hooks::uv_poll_init_socket(),
            [](uv_loop_t*, uv_poll_t*, uv_os_sock_t) { return UV_EMFILE; });
        const Outcome outcome = Handle(CURL_POLL_IN);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.CallNames(), (Names{"uv_poll_init_socket", "curl_multi_assign"}));
        EXPECT_NE(m_pRecord, nullptr);
    }
    // Neither a restart nor the end may reach the handle that libuv never made.
    EXPECT_EQ(Handle(CURL_POLL_OUT).CallNames(), Names{"curl_multi_assign"});
    EXPECT_EQ(Handle(CURL_POLL_REMOVE).CallNames(), Names{"curl_multi_assign"});
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(SocketBridgeTest, SocketThatIsNoneIsHarmless)
{
    const Outcome outcome = Record(
        [&]
        {
            HandleSocket(nullptr, CURL_SOCKET_BAD, CURL_POLL_INOUT, Frame(), nullptr);
            return HandleSocket(nullptr, CURL_SOCKET_BAD, CURL_POLL_REMOVE, Frame(), m_pRecord);
        });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(m_pRecord, nullptr);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

} // namespace
} // namespace test
