/// The bridge under a real transfer, with its calls of libuv counted.

#include "support/EngineTest.h"
#include "support/Servers.h"
#include "wrap/Hooks.h"

#include <algorithm>
#include <set>

namespace test
{
namespace
{

class SocketBridgeTransferTest : public EngineTest
{
protected:
    void SetUp() override { StartEngine(); }
};

std::multiset<const void*> Subjects(const std::vector<Call>& calls)
{
    std::multiset<const void*> subjects;
    std::transform(calls.begin(), calls.end(), std::inserter(subjects, subjects.end()),
                   [](const Call& call) { return call.subject; });
    return subjects;
}

TEST_F(SocketBridgeTransferTest, EveryPollHandleIsClosedOnceByTheEndOfItsTransfers)
{
    const CallRecorder recorder;
    for (int i = 0; i != 3; ++i)
    {
        const auto handle = MakeHandle(Server("HTTP_URL") + "/bytes/64k");
        Run(handle);
        EXPECT_EQ(m_pNotic->m_Result, 0);
        Delete(handle);
    }
    StopEngine();
    // Records may get the address of one freed before: each made is closed.
    std::multiset<const void*> closed = Subjects(recorder.Calls({"uv_close"}));
    const std::vector<Call> made = recorder.Calls({"uv_poll_init_socket"});
    EXPECT_FALSE(made.empty());
    for (const Call& call : made)
    {
        const auto found = closed.find(call.subject);
        ASSERT_NE(found, closed.end());
        closed.erase(found);
    }
    // Left are the engine's own three handles.
    EXPECT_EQ(closed.size(), 3U);
}

TEST_F(SocketBridgeTransferTest, TransferOnSocketsThatLibuvRefusesEndsByItsTimeout)
{
    const Replaced<int(uv_loop_t*, uv_poll_t*, uv_os_sock_t)> refuses(
        hooks::uv_poll_init_socket(),
        [](uv_loop_t*, uv_poll_t*, uv_os_sock_t) { return UV_EMFILE; });
    const auto handle = MakeHandle(Server("HOSTILE_URL") + "/silence", kGet, 300);
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, -2);
    Delete(handle);
    StopEngine();
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 1);
}

TEST_F(SocketBridgeTransferTest, TransferWithoutMemoryForItsSocketEndsByItsTimeout)
{
    const MemoryRefused refused(
        [](std::size_t size)
        { return size >= sizeof(uv_poll_t) && size <= sizeof(uv_poll_t) + 2 * sizeof(void*); });
    const auto handle = MakeHandle(Server("HOSTILE_URL") + "/silence", kGet, 300);
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, -2);
    Delete(handle);
}

} // namespace
} // namespace test
