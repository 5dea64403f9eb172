// What OnProgress tells of a transfer.

#include "support/EngineTest.h"
#include "support/Servers.h"
#include "support/Transfers.h"

#include <algorithm>
#include <filesystem>

namespace test
{
namespace
{

class ProgressTest : public EngineTest
{
protected:
    void SetUp() override { StartEngine(); }

    void ExpectNeverFalling()
    {
        const std::vector<HandleNotic::Progress>& progress = m_pNotic->m_Progress;
        ASSERT_FALSE(progress.empty());
        for (std::size_t i = 1; i < progress.size(); ++i)
        {
            EXPECT_GE(progress[i].dlnow, progress[i - 1].dlnow);
            EXPECT_GE(progress[i].dltotal, progress[i - 1].dltotal);
            EXPECT_GE(progress[i].ulnow, progress[i - 1].ulnow);
            EXPECT_GE(progress[i].ultotal, progress[i - 1].ultotal);
        }
    }
};

TEST_F(ProgressTest, OfADownloadGrowsUpToTheTotal)
{
    constexpr double kSize = 16 << 20;
    long loopThread = 0;
    OnLoop([&] { loopThread = base::GetTid(); });
    const auto handle = MakeHandle(Server("HTTP_URL") + "/bytes/16m");
    ASSERT_EQ(handle->SetProgress(true), 0);
    m_pNotic->m_OnProgress = [&](const HandleNotic::Progress& progress)
    {
        EXPECT_EQ(base::GetTid(), loopThread);
        EXPECT_EQ(progress.tag, "tag");
        EXPECT_EQ(progress.url, handle->GetUrl());
        EXPECT_EQ(m_pNotic->m_User, &m_UserData);
    };
    Run(handle);
    ExpectNeverFalling();
    const HandleNotic::Progress& first = m_pNotic->m_Progress.front();
    EXPECT_EQ(first.dlnow, 0);
    EXPECT_EQ(first.dltotal, 0); // nothing is known yet
    const HandleNotic::Progress& last = m_pNotic->m_Progress.back();
    EXPECT_EQ(last.dltotal, kSize);
    EXPECT_EQ(last.dlnow, kSize);
    EXPECT_EQ(last.ultotal, 0);
    EXPECT_EQ(last.ulnow, 0);
    Delete(handle);
}

TEST_F(ProgressTest, OfAnUploadGrowsUpToTheTotal)
{
    constexpr std::size_t kSize = 4 << 20;
    const std::string name = "progress-" + UniqueKey();
    const auto handle = MakeHandle(Server("HTTP_URL") + "/dav/" + name, kUpload);
    ASSERT_EQ(handle->SetProgress(true), 0);
    ASSERT_EQ(handle->SetUploadSize(kSize), 0);
    m_pNotic->m_OnReadData = [left = kSize](const std::shared_ptr<IHttpHandleInterface>&,
                                            char* buffer, std::size_t room) mutable
    {
        const std::size_t count = std::min(room, left);
        std::fill(buffer, buffer + count, 'x');
        left -= count;
        return count;
    };
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, 0);
    ExpectNeverFalling();
    const HandleNotic::Progress& last = m_pNotic->m_Progress.back();
    EXPECT_EQ(last.ultotal, static_cast<double>(kSize));
    EXPECT_EQ(last.ulnow, static_cast<double>(kSize));
    EXPECT_EQ(last.dlnow, 0);
    Delete(handle);
    std::filesystem::remove(Server("DAV_DIR") + "/" + name);
}

TEST_F(ProgressTest, OfABodyWithoutALengthHasNoTotal)
{
    const auto handle = MakeHandle(Server("HOSTILE_URL") + "/chunked");
    ASSERT_EQ(handle->SetProgress(true), 0);
    Run(handle);
    ExpectNeverFalling();
    EXPECT_EQ(m_pNotic->m_Progress.back().dltotal, 0);
    EXPECT_EQ(m_pNotic->m_Progress.back().dlnow, static_cast<double>(handle->GetResponse().size()));
    Delete(handle);
}

TEST_F(ProgressTest, IsOffUnlessItIsTurnedOn)
{
    const auto handle = MakeHandle(Server("HTTP_URL") + "/bytes/1m");
    Run(handle);
    EXPECT_TRUE(m_pNotic->m_Progress.empty());
    Delete(handle);
}

TEST_F(ProgressTest, TurnedOffAgainIsSilent)
{
    const auto handle = MakeHandle(Server("HTTP_URL") + "/bytes/1m");
    ASSERT_EQ(handle->SetProgress(true), 0);
    ASSERT_EQ(handle->SetProgress(false), 0);
    Run(handle);
    EXPECT_TRUE(m_pNotic->m_Progress.empty());

    ASSERT_EQ(handle->SetProgress(true), 0); // the next transfer has it
    Run(handle);
    EXPECT_FALSE(m_pNotic->m_Progress.empty());
    Delete(handle);
}

TEST_F(ProgressTest, WithoutANoticeTheTransferGoesOn)
{
    const std::string url = Server("HTTP_URL") + "/bytes/1m";
    const auto handle = IHttpHandleInterface::Create();
    ASSERT_EQ(handle->InitRequest(url.c_str(), "tag", kGet, nullptr, 0, 0, nullptr), 0);
    ASSERT_EQ(handle->SetProgress(true), 0);
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, false, nullptr, nullptr), 0);
    EXPECT_TRUE(m_Log.WaitFor(DoneLine(url, kNoError)));
    Delete(handle);
}

} // namespace
} // namespace test
