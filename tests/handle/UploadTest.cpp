// Uploads as they arrive on the disk of the server.

#include "support/EngineTest.h"
#include "support/Pattern.h"
#include "support/Servers.h"
#include "support/Transfers.h"

#include <algorithm>
#include <filesystem>

namespace test
{
namespace
{

constexpr std::size_t kAbort = 0x10000000; // libcurl's CURL_READFUNC_ABORT

class UploadTest : public EngineTest
{
protected:
    void SetUp() override { StartEngine(); }

    void TearDown() override
    {
        EngineTest::TearDown();
        std::error_code ignored;
        std::filesystem::remove(m_File, ignored);
    }

    std::shared_ptr<IHttpHandleInterface> MakeUpload()
    {
        return MakeHandle(Server("HTTP_URL") + "/dav/" + m_Name, kUpload);
    }

    /// Makes the notice of the last handle supply so many bytes of the pattern.
    void Supply(std::size_t size)
    {
        m_pNotic->m_OnReadData =
            [sent = std::size_t{0}, size](const std::shared_ptr<IHttpHandleInterface>&,
                                          char* buffer, std::size_t room) mutable
        {
            const std::size_t count = std::min(room, size - sent);
            FillPattern(buffer, sent, count);
            sent += count;
            return count;
        };
    }

    /// Runs and deletes an upload that must arrive whole.
    void RunWhole(const std::shared_ptr<IHttpHandleInterface>& handle, std::size_t size)
    {
        Run(handle);
        EXPECT_EQ(m_pNotic->m_Result, 0);
        EXPECT_EQ(handle->GetResponseCode(), 201);
        Delete(handle);
        EXPECT_TRUE(IsPatternFile(m_File, size));
    }

    /// Runs and deletes an upload that must fail with libcurl's code.
    void RunFailing(const std::shared_ptr<IHttpHandleInterface>& handle, const CurlResult& result)
    {
        Run(handle);
        EXPECT_EQ(m_pNotic->m_Result, -2);
        EXPECT_EQ(m_Log.Count(kDebug, DoneLine(handle->GetUrl(), result)), 1);
        Delete(handle);
        EXPECT_FALSE(std::filesystem::exists(m_File));
    }

    std::string m_Name = "upload-" + UniqueKey();
    std::string m_File = Server("DAV_DIR") + "/" + m_Name;
};

class UploadSize : public UploadTest, public ::testing::WithParamInterface<std::size_t>
{
};

TEST_P(UploadSize, ArrivesByteForByte)
{
    const auto handle = MakeUpload();
    Supply(GetParam());
    ASSERT_EQ(handle->SetUploadSize(static_cast<std::int64_t>(GetParam())), 0);
    RunWhole(handle, GetParam());
}

INSTANTIATE_TEST_SUITE_P(Bytes, UploadSize, ::testing::Values(0u, 1u, 65536u, 1u << 20, 256u << 20),
                         [](const auto& instance) { return std::to_string(instance.param); });

TEST_F(UploadTest, IsAPut)
{
    const auto handle = MakeHandle(Server("HTTP_URL") + "/echo-method", kUpload);
    ASSERT_EQ(handle->SetUploadSize(0), 0);
    Run(handle);
    EXPECT_EQ(handle->GetResponse(), "PUT\n");
    Delete(handle);
}

TEST_F(UploadTest, SmallPiecesArriveByteForByte)
{
    constexpr std::size_t kSize = 5000;
    const auto handle = MakeUpload();
    m_pNotic->m_OnReadData = [sent = std::size_t{0}](const std::shared_ptr<IHttpHandleInterface>&,
                                                     char* buffer, std::size_t) mutable
    {
        const std::size_t count = std::min(sent % 13 + 1, kSize - sent);
        FillPattern(buffer, sent, count);
        sent += count;
        return count;
    };
    ASSERT_EQ(handle->SetUploadSize(kSize), 0);
    RunWhole(handle, kSize);
}

TEST_F(UploadTest, UnknownSizeIsSentInChunks)
{
    const auto handle = MakeUpload();
    Supply(3u << 20);
    ASSERT_EQ(handle->SetUploadSize(-1), 0);
    RunWhole(handle, 3u << 20);

    const auto seen = MakeHandle(Server("HOSTILE_URL") + "/headers", kUpload);
    Supply(10);
    ASSERT_EQ(seen->SetUploadSize(-1), 0);
    Run(seen);
    EXPECT_NE(seen->GetResponse().find("\r\nTransfer-Encoding: chunked\r\n"), std::string::npos);
    EXPECT_EQ(seen->GetResponse().find("Content-Length"), std::string::npos);
    Delete(seen);
}

TEST_F(UploadTest, SizeThatIsNeverSetIsUnknown)
{
    const auto handle = MakeUpload();
    Supply(100000);
    RunWhole(handle, 100000);
}

TEST_F(UploadTest, KnownSizeIsAnnounced)
{
    const auto handle = MakeHandle(Server("HOSTILE_URL") + "/headers", kUpload);
    Supply(10);
    ASSERT_EQ(handle->SetUploadSize(10), 0);
    Run(handle);
    EXPECT_NE(handle->GetResponse().find("\r\nContent-Length: 10\r\n"), std::string::npos);
    Delete(handle);
}

TEST_F(UploadTest, SourceThatEndsEarlyFails)
{
    const auto handle = MakeUpload();
    Supply(50);
    ASSERT_EQ(handle->SetUploadSize(100), 0);
    RunFailing(handle, kReadFailed);
}

TEST_F(UploadTest, SourceThatAbortsFails)
{
    const auto handle = MakeUpload();
    m_pNotic->m_OnReadData =
        [calls = 0](const std::shared_ptr<IHttpHandleInterface>&, char* buffer, std::size_t) mutable
    {
        buffer[0] = 'x';
        return ++calls < 3 ? 1 : kAbort;
    };
    ASSERT_EQ(handle->SetUploadSize(100), 0);
    RunFailing(handle, kAborted);
}

TEST_F(UploadTest, SurplusOfTheSourceIsNotSent)
{
    const auto handle = MakeUpload();
    Supply(100);
    ASSERT_EQ(handle->SetUploadSize(7), 0);
    RunWhole(handle, 7);
}

TEST_F(UploadTest, WithoutANoticeThereIsNothingToSend)
{
    const std::string url = Server("HTTP_URL") + "/dav/" + m_Name;
    const auto unknown = IHttpHandleInterface::Create();
    ASSERT_EQ(unknown->InitRequest(url.c_str(), "tag", kUpload, nullptr, 0, 0, nullptr), 0);
    ASSERT_EQ(unknown->SetUploadSize(-1), 0);
    ASSERT_EQ(m_pEngine->AddHttpReq(unknown, false, nullptr, nullptr), 0);
    ASSERT_TRUE(m_Log.WaitFor(DoneLine(url, kNoError)));
    OnLoop([] {});
    EXPECT_EQ(unknown->GetResponseCode(), 201);
    EXPECT_TRUE(IsPatternFile(m_File, 0));
    Delete(unknown);

    const auto five = IHttpHandleInterface::Create();
    ASSERT_EQ(five->InitRequest(url.c_str(), "tag", kUpload, nullptr, 0, 0, nullptr), 0);
    ASSERT_EQ(five->SetUploadSize(5), 0);
    ASSERT_EQ(m_pEngine->AddHttpReq(five, false, nullptr, nullptr), 0);
    ASSERT_TRUE(m_Log.WaitFor(DoneLine(url, kReadFailed)));
    Delete(five);
}

TEST_F(UploadTest, SourceIsAskedOnTheLoopThreadWithHandleAndUserData)
{
    long loopThread = 0;
    OnLoop([&] { loopThread = base::GetTid(); });
    const auto handle = MakeUpload();
    int calls = 0;
    m_pNotic->m_OnReadData = [&](const std::shared_ptr<IHttpHandleInterface>& asked, char*,
                                 std::size_t) -> std::size_t
    {
        ++calls;
        EXPECT_EQ(asked, handle);
        EXPECT_EQ(m_pNotic->m_User, &m_UserData);
        EXPECT_EQ(base::GetTid(), loopThread);
        return 0;
    };
    ASSERT_EQ(handle->SetUploadSize(-1), 0);
    RunWhole(handle, 0);
    EXPECT_EQ(calls, 1);
}

TEST_F(UploadTest, UploadThatIsAddedAgainAsksItsSourceAgain)
{
    const auto handle = MakeUpload();
    Supply(10);
    ASSERT_EQ(handle->SetUploadSize(10), 0);
    Run(handle);
    EXPECT_EQ(handle->GetResponseCode(), 201);
    EXPECT_TRUE(IsPatternFile(m_File, 10));
    std::filesystem::remove(m_File);
    Supply(10);
    RunWhole(handle, 10);
}

} // namespace
} // namespace test
