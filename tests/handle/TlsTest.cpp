// Which servers an https request trusts, and how it talks to them.

#include "support/AccessLog.h"
#include "support/EngineTest.h"
#include "support/Servers.h"
#include "support/TempFile.h"
#include "support/Transfers.h"

#include <filesystem>
#include <fstream>

namespace test
{
namespace
{

class TlsTest : public EngineTest
{
protected:
    void SetUp() override { StartEngine(); }

    /// A URI that no other test asks for.
    static std::string UniqueUri() { return "/hello?" + UniqueKey(); }

    /// Runs and deletes a request, and checks what came of it.
    void RunAndExpect(const std::shared_ptr<IHttpHandleInterface>& handle, const CurlResult& result)
    {
        Run(handle);
        EXPECT_EQ(m_pNotic->m_Result, result.code == 0 ? 0 : -2);
        EXPECT_EQ(handle->GetResponseCode(), result.code == 0 ? 200 : 0);
        EXPECT_EQ(handle->GetResponse(), result.code == 0 ? "hello from nginx\n" : "");
        EXPECT_EQ(m_Log.Count(kDebug, DoneLine(handle->GetUrl(), result)), 1);
        Delete(handle);
    }
};

struct Trust
{
    std::string name;
    std::string server;
    std::string ca; ///< key of a file; empty to turn verification off
    CurlResult result;
};

class TrustTest : public TlsTest, public ::testing::WithParamInterface<Trust>
{
};

TEST_P(TrustTest, IsDecidedByTheCaCert)
{
    const Trust& trust = GetParam();
    const auto handle = MakeHandle(Server(trust.server) + "/hello");
    ASSERT_EQ(handle->SetCaCert(trust.ca.empty() ? nullptr : Server(trust.ca + "_FILE").c_str()),
              0);
    RunAndExpect(handle, trust.result);
}

INSTANTIATE_TEST_SUITE_P(
    Of, TrustTest,
    ::testing::Values(Trust{"Good", "HTTPS_URL", "CA", kNoError},
                      Trust{"GoodByAddress", "HTTPS_IP_URL", "CA", kNoError},
                      Trust{"GoodTls12", "TLS12_URL", "CA", kNoError},
                      Trust{"GoodTls13", "TLS13_URL", "CA", kNoError},
                      Trust{"GoodHttp2", "H2_URL", "CA", kNoError},
                      Trust{"OtherCa", "HTTPS_URL", "OTHER_CA", kUntrusted},
                      Trust{"Expired", "HTTPS_EXPIRED_URL", "CA", kUntrusted},
                      Trust{"WrongHost", "HTTPS_WRONG_HOST_URL", "CA", kUntrusted},
                      Trust{"SelfSigned", "HTTPS_SELF_SIGNED_URL", "CA", kUntrusted},
                      Trust{"SelfSignedAndTrusted", "HTTPS_SELF_SIGNED_URL", "SELF_SIGNED_CERT",
                            kNoError},
                      Trust{"GoodUnverified", "HTTPS_URL", "", kNoError},
                      Trust{"ExpiredUnverified", "HTTPS_EXPIRED_URL", "", kNoError},
                      Trust{"WrongHostUnverified", "HTTPS_WRONG_HOST_URL", "", kNoError},
                      Trust{"SelfSignedUnverified", "HTTPS_SELF_SIGNED_URL", "", kNoError}),
    [](const auto& instance) { return instance.param.name; });

TEST_F(TlsTest, WithoutACallThePlatformsTrustDecides)
{
    for (const char* const server : {"HTTPS_URL", "HTTPS_SELF_SIGNED_URL"})
    {
        m_Log.Clear();
        RunAndExpect(MakeHandle(Server(server) + "/hello"), kUntrusted);
    }
}

TEST_F(TlsTest, CaFileThatIsMissingFails)
{
    const TempFile missing;
    const auto handle = MakeHandle(Server("HTTPS_URL") + "/hello");
    ASSERT_EQ(handle->SetCaCert(missing.Path().c_str()), 0); // looked for later
    RunAndExpect(handle, kBadCaFile);
}

TEST_F(TlsTest, CaFileThatHoldsNoCertificateFails)
{
    const TempFile file;
    std::ofstream(file.Path()) << "nothing of the kind\n";
    const auto handle = MakeHandle(Server("HTTPS_URL") + "/hello");
    ASSERT_EQ(handle->SetCaCert(file.Path().c_str()), 0);
    RunAndExpect(handle, kBadCaFile);
}

TEST_F(TlsTest, FolderFails)
{
    const auto handle = MakeHandle(Server("HTTPS_URL") + "/hello");
    const std::string folder = std::filesystem::path(Server("CA_FILE")).parent_path().string();
    ASSERT_EQ(handle->SetCaCert(folder.c_str()), 0);
    RunAndExpect(handle, kBadCaFile);
}

TEST_F(TlsTest, LastCaCertCounts)
{
    const auto on = MakeHandle(Server("HTTPS_EXPIRED_URL") + "/hello");
    ASSERT_EQ(on->SetCaCert(nullptr), 0);
    ASSERT_EQ(on->SetCaCert(Server("CA_FILE").c_str()), 0);
    RunAndExpect(on, kUntrusted);

    m_Log.Clear();
    const auto off = MakeHandle(Server("HTTPS_EXPIRED_URL") + "/hello");
    ASSERT_EQ(off->SetCaCert(Server("CA_FILE").c_str()), 0);
    ASSERT_EQ(off->SetCaCert(nullptr), 0);
    RunAndExpect(off, kNoError);

    m_Log.Clear();
    const auto other = MakeHandle(Server("HTTPS_URL") + "/hello");
    ASSERT_EQ(other->SetCaCert(Server("OTHER_CA_FILE").c_str()), 0);
    ASSERT_EQ(other->SetCaCert(Server("CA_FILE").c_str()), 0);
    RunAndExpect(other, kNoError);
}

// Reading a full bundle for every connection would hold the loop thread up.
TEST_F(TlsTest, CaFileIsReadOnceAnEngine)
{
    const TempFile ca;
    const auto write = [&](const std::string& key)
    {
        std::filesystem::copy_file(Server(key), ca.Path(),
                                   std::filesystem::copy_options::overwrite_existing);
    };
    const auto runAndExpect = [&](const std::string& server, const CurlResult& result)
    {
        m_Log.Clear();
        const auto handle = MakeHandle(Server(server) + "/hello");
        ASSERT_EQ(handle->SetCaCert(ca.Path().c_str()), 0);
        RunAndExpect(handle, result);
    };
    write("CA_FILE");
    runAndExpect("HTTPS_URL", kNoError);
    write("OTHER_CA_FILE");
    runAndExpect("TLS13_URL", kNoError); // another server: a new connection
    StopEngine();
    StartEngine();
    runAndExpect("HTTPS_URL", kUntrusted);
}

// A connection that was made without verification serves none that verifies.
TEST_F(TlsTest, UnverifiedConnectionIsNotReusedByARequestThatVerifies)
{
    const auto unverified = MakeHandle(Server("HTTPS_WRONG_HOST_URL") + "/hello");
    ASSERT_EQ(unverified->SetCaCert(nullptr), 0);
    RunAndExpect(unverified, kNoError);
    m_Log.Clear();
    const auto verifying = MakeHandle(Server("HTTPS_WRONG_HOST_URL") + "/hello");
    ASSERT_EQ(verifying->SetCaCert(Server("CA_FILE").c_str()), 0);
    RunAndExpect(verifying, kUntrusted);
}

TEST_F(TlsTest, ServersVersionIsSpoken)
{
    const std::pair<const char*, const char*> versions[] = {
        {"TLS12_URL", "TLSv1.2"}, {"TLS13_URL", "TLSv1.3"}, {"HTTPS_URL", "TLSv1.3"}};
    for (const auto& [server, version] : versions)
    {
        const std::string uri = UniqueUri();
        const auto handle = MakeHandle(Server(server) + uri);
        ASSERT_EQ(handle->SetCaCert(Server("CA_FILE").c_str()), 0);
        RunAndExpect(handle, kNoError);
        const std::vector<Access> accesses = WaitForAccesses(uri, 1);
        ASSERT_EQ(accesses.size(), 1u);
        EXPECT_EQ(accesses[0].tls, version);
        EXPECT_EQ(accesses[0].protocol, "HTTP/1.1");
    }
}

TEST_F(TlsTest, HundredRequestsAtOnceShareOneWarmHttp2Connection)
{
    constexpr std::size_t kRequests = 100;
    const std::string uri = UniqueUri();
    const auto notic = std::make_shared<HandleNotic>();
    std::vector<std::shared_ptr<IHttpHandleInterface>> handles;
    for (std::size_t i = 0; i < kRequests + 1; ++i)
    {
        handles.push_back(IHttpHandleInterface::Create());
        ASSERT_EQ(handles[i]->InitRequest((Server("H2_URL") + uri).c_str(), "", kGet, notic, 0, 0,
                                          nullptr),
                  0);
        ASSERT_EQ(handles[i]->SetCaCert(Server("CA_FILE").c_str()), 0);
    }
    ASSERT_EQ(m_pEngine->AddHttpReq(handles[0], false, nullptr, nullptr), 0);
    ASSERT_TRUE(notic->m_Finished.Wait());
    OnLoop(
        [&]
        {
            for (std::size_t i = 1; i < handles.size(); ++i)
            {
                EXPECT_EQ(m_pEngine->AddHttpReq(handles[i], false, nullptr, nullptr), 0);
            }
        });
    ASSERT_TRUE(notic->m_Finished.Wait(kRequests + 1));
    for (const auto& handle : handles)
    {
        EXPECT_EQ(handle->GetResponse(), "hello from nginx\n");
        Delete(handle);
    }
    const std::vector<Access> accesses = WaitForAccesses(uri, kRequests + 1);
    for (const Access& access : accesses)
    {
        EXPECT_EQ(access.connection, accesses.front().connection);
        EXPECT_EQ(access.protocol, "HTTP/2.0");
        EXPECT_EQ(access.status, "200");
    }
}

} // namespace
} // namespace test
