/// Every way in which a server or the network fails a transfer: the result, the
/// exact line, and what of the body arrived.

#include "support/EngineTest.h"
#include "support/Servers.h"
#include "support/Transfers.h"

#include <ostream>

namespace test
{
namespace
{

using HandlePtr = std::shared_ptr<IHttpHandleInterface>;

struct Misbehaviour
{
    const char* name;
    const char* path;
    CurlResult result;
    const char* body;
    long responseCode;
    int timeoutMs;
};

std::ostream& operator<<(std::ostream& out, const Misbehaviour& misbehaviour)
{
    return out << misbehaviour.path;
}

constexpr int kLongMs = 20000;
constexpr int kShortMs = 300;

class HostileServerTest : public EngineTest, public ::testing::WithParamInterface<Misbehaviour>
{
protected:
    void SetUp() override { StartEngine(); }
};

TEST_P(HostileServerTest, EndsTheTransferAsDocumented)
{
    const Misbehaviour& expected = GetParam();
    const std::string url = Server("HOSTILE_URL") + expected.path;
    const HandlePtr handle = MakeHandle(url, kGet, expected.timeoutMs);
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, expected.result.code == 0 ? 0 : -2);
    EXPECT_EQ(m_Log.Count(kDebug, DoneLine(url, expected.result)), 1)
        << ::testing::PrintToString(m_Log.Texts(kDebug));
    EXPECT_EQ(handle->GetResponse(), expected.body);
    EXPECT_EQ(handle->GetResponseCode(), expected.responseCode);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
    Delete(handle);
    StopEngine();
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 1);
}

INSTANTIATE_TEST_SUITE_P(
    , HostileServerTest,
    ::testing::Values(
        Misbehaviour{"Close", "/close", kNothingReturned, "", 0, kLongMs},
        Misbehaviour{"Reset", "/reset", kReset, "xxxxxxxxxx", 200, kLongMs},
        Misbehaviour{"Truncated", "/truncated", kPartialFile, "xxxxxxxxxx", 200, kLongMs},
        Misbehaviour{"LyingLength", "/lying-length", kPartialFile, "xxxxxxxxxx", 200, kLongMs},
        // An end in the head counts as the end of the answer.
        Misbehaviour{"HalfHeader", "/half-header", kNoError, "", 200, kLongMs},
        Misbehaviour{"HalfStatusLine", "/half-status-line", kNoError, "", 0, kLongMs},
        Misbehaviour{"Garbage", "/garbage", kUnsupportedProtocol, "", 0, kLongMs},
        Misbehaviour{"BadChunk", "/bad-chunk", kReceiveFailed, "hello", 200, kLongMs},
        Misbehaviour{"HugeHeader", "/huge-header", kTooLarge, "", 200, kLongMs},
        Misbehaviour{"Silence", "/silence", kTimeout, "", 0, kShortMs},
        Misbehaviour{"EndlessDrip", "/drip?n=1&ms=60000", kTimeout, "", 200, 2000},
        Misbehaviour{"Drip", "/drip?n=5&ms=20", kNoError, ".....", 200, kLongMs},
        Misbehaviour{"SlowStart", "/slow-start?ms=200", kNoError, "slow start\n", 200, kLongMs},
        Misbehaviour{"NoLength", "/no-length", kNoError, "the end of the connection ends this\n",
                     200, kLongMs},
        Misbehaviour{"Chunked", "/chunked?n=3", kNoError, "chunk 0\nchunk 1\nchunk 2\n", 200,
                     kLongMs},
        Misbehaviour{"NoChunks", "/chunked?n=0", kNoError, "", 200, kLongMs}),
    [](const auto& it) { return std::string(it.param.name); });

class TransferFailureTest : public EngineTest
{
protected:
    void SetUp() override { StartEngine(); }

    /// An initialised handle with its two limits apart; 0 for none.
    HandlePtr MakeLimited(const std::string& url, int connectTimeoutMs, int timeoutMs)
    {
        m_pNotic = std::make_shared<HandleNotic>();
        auto handle = IHttpHandleInterface::Create();
        EXPECT_EQ(handle->InitRequest(url.c_str(), nullptr, kGet, m_pNotic, connectTimeoutMs,
                                      timeoutMs, nullptr),
                  0);
        return handle;
    }

    /// Runs a request to its end, expects the result and deletes it.
    void ExpectFailure(const HandlePtr& handle, const CurlResult& result)
    {
        Run(handle);
        EXPECT_EQ(m_pNotic->m_Result, -2);
        EXPECT_EQ(m_Log.Count(kDebug, DoneLine(handle->GetUrl(), result)), 1)
            << ::testing::PrintToString(m_Log.Texts(kDebug));
        EXPECT_EQ(handle->GetResponse(), "");
        EXPECT_EQ(handle->GetResponseCode(), 0);
        EXPECT_TRUE(m_Log.Texts(kError).empty());
        Delete(handle);
    }
};

TEST_F(TransferFailureTest, RefusedPortIsReported)
{
    ExpectFailure(MakeHandle(Server("REFUSED_URL") + "/"), kNotConnected);
}

TEST_F(TransferFailureTest, StalledConnectEndsByTheConnectTimeoutAlone)
{
    ExpectFailure(MakeLimited(Server("STALL_URL") + "/", 200, 0), kTimeout);
}

TEST_F(TransferFailureTest, StalledConnectEndsByTheTotalTimeoutToo)
{
    ExpectFailure(MakeLimited(Server("STALL_URL") + "/", 20000, 200), kTimeout);
}

TEST_F(TransferFailureTest, SilenceEndsByTheTotalTimeoutAlone)
{
    ExpectFailure(MakeLimited(Server("HOSTILE_URL") + "/silence", 0, 200), kTimeout);
}

TEST_F(TransferFailureTest, ConnectTimeoutDoesNotCountOnceConnected)
{
    const auto handle = MakeLimited(Server("HOSTILE_URL") + "/slow-start?ms=3000", 2000, 0);
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, 0);
    EXPECT_EQ(handle->GetResponse(), "slow start\n");
    Delete(handle);
}

TEST_F(TransferFailureTest, UnknownHostIsReported)
{
    ExpectFailure(MakeHandle("http://nonexistent.invalid/"), kHostUnknown);
}

TEST_F(TransferFailureTest, BadUrlIsReported)
{
    ExpectFailure(MakeHandle("http://127.0.0.1:99999/"), kBadUrl);
}

TEST_F(TransferFailureTest, UrlWithoutAHostIsReported)
{
    ExpectFailure(MakeHandle("http://"), kBadUrl);
}

TEST_F(TransferFailureTest, UnknownSchemeIsReported)
{
    ExpectFailure(MakeHandle("nothing://host/"), kUnsupportedProtocol);
}

TEST_F(TransferFailureTest, CertificateOfAnUnknownAuthorityIsRefusedByDefault)
{
    ExpectFailure(MakeHandle(Server("HTTPS_URL") + "/hello"), kUntrusted);
}

TEST_F(TransferFailureTest, PlainServerIsNoTlsServer)
{
    std::string url = Server("HTTP_URL") + "/hello";
    url.replace(0, 4, "https");
    ExpectFailure(MakeHandle(url), CurlResult{35, "SSL connect error"});
}

TEST_F(TransferFailureTest, OneFailureLeavesTheOthersAlone)
{
    const auto failing = MakeHandle(Server("HOSTILE_URL") + "/silence", kGet, 200);
    const auto failingNotic = m_pNotic;
    const auto working = MakeHandle(Server("HOSTILE_URL") + "/slow-start?ms=500");
    ASSERT_EQ(m_pEngine->AddHttpReq(failing, true, nullptr, nullptr), 0);
    Run(working);
    ASSERT_TRUE(failingNotic->m_Finished.Wait());
    EXPECT_EQ(failingNotic->m_Result, -2);
    EXPECT_EQ(m_pNotic->m_Result, 0);
    EXPECT_EQ(working->GetResponse(), "slow start\n");
    Delete(failing);
    Delete(working);
}

} // namespace
} // namespace test
