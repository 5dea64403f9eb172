#include "frame/CHttpFrame.h"
#include "frame/SocketBridge.h"
#include "support/EngineTest.h"
#include "wrap/Hooks.h"

namespace test
{
namespace
{

class CloseLoopTest : public EngineTest
{
};

// libcurl closes its connections in the clean-up of the multi handle, and asks
// for their sockets to be watched. The loop turned for the last time before
// that, so that each such socket left a record behind.
TEST_F(CloseLoopTest, SocketThatIsNamedInTheCleanUpIsNotWatched)
{
    StartEngine();
    const CallRecorder calls;
    const auto frame = std::static_pointer_cast<CHttpFrame>(m_pEngine);
    int result = 1;
    const Replaced<CURLMcode(CURLM*)> cleanUp(hooks::curl_multi_cleanup(),
                                              [&](CURLM* multi)
                                              {
                                                  constexpr curl_socket_t kAny = 0;
                                                  result = HandleSocket(nullptr, kAny, CURL_POLL_IN,
                                                                        frame.get(), nullptr);
                                                  return hooks::curl_multi_cleanup().Real(multi);
                                              });
    StopEngine();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(calls.Count("uv_poll_init_socket"), 0);
    EXPECT_EQ(calls.Count("curl_multi_assign"), 0);
    EXPECT_EQ(calls.Count("uv_loop_close"), 1);
}

} // namespace
} // namespace test
