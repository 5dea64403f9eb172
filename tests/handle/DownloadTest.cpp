// Bodies that go into a file.

#include "support/EngineTest.h"
#include "support/Memory.h"
#include "support/Servers.h"
#include "support/TempFile.h"
#include "support/Transfers.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>

namespace test
{
namespace
{

const std::string kHello = "hello from nginx\n";

class DownloadTest : public EngineTest
{
protected:
    void SetUp() override { StartEngine(); }

    std::shared_ptr<IHttpHandleInterface> MakeDownload(const std::string& path,
                                                       const std::string& file)
    {
        auto handle = MakeHandle(Server("HTTP_URL") + path);
        EXPECT_EQ(handle->SetDownloadFile(file.c_str()), 0);
        return handle;
    }

    /// Deletes a handle and waits until its file is closed too.
    void DeleteAll(const std::shared_ptr<IHttpHandleInterface>& handle)
    {
        Delete(handle);
        OnLoop([] {});
    }

    void ExpectCantOpen(IHttpHandleInterface& handle, const std::string& path)
    {
        ASSERT_EQ(std::fopen(path.c_str(), "wb"), nullptr);
        const std::string line =
            "[HTTP_INTERFACE]Open file[" + path + "] failed[" + std::to_string(errno) + "]";
        m_Log.Clear();
        EXPECT_EQ(handle.SetDownloadFile(path.c_str()), -1);
        EXPECT_EQ(m_Log.Lines().size(), 1u);
        EXPECT_EQ(m_Log.Find(line).level, kError);
        EXPECT_EQ(m_Log.Find(line).threadId, base::GetTid());
    }

    const TempFile m_File;
};

class DownloadSize : public DownloadTest, public ::testing::WithParamInterface<const char*>
{
};

TEST_P(DownloadSize, ArrivesByteForByte)
{
    const std::string path = std::string("/bytes/") + GetParam();
    const auto handle = MakeDownload(path, m_File.Path());
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, 0);
    EXPECT_EQ(handle->GetResponse(), "");
    DeleteAll(handle);
    EXPECT_TRUE(m_File.Exists());
    EXPECT_TRUE(ReadFile(m_File.Path()) == ReadFile(Server("WWW_DIR") + path));
}

INSTANTIATE_TEST_SUITE_P(Bytes, DownloadSize, ::testing::Values("0", "1", "1k", "64k", "1m", "16m"),
                         [](const auto& instance) { return std::string(instance.param); });

TEST_F(DownloadTest, OneGibibyteNeedsNoMemory)
{
    constexpr std::uintmax_t kSize = std::uintmax_t{1} << 30;
    m_pNotic = std::make_shared<HandleNotic>();
    const std::string url = Server("HTTP_URL") + "/big/1g";
    const auto handle = IHttpHandleInterface::Create();
    ASSERT_EQ(handle->InitRequest(url.c_str(), "tag", kGet, m_pNotic, 0, 0, nullptr), 0);
    ASSERT_EQ(handle->SetDownloadFile(m_File.Path().c_str()), 0);
    const std::size_t before = PeakMemory();
    Run(handle);
    EXPECT_LT(PeakMemory() - before, 32u << 20);
    EXPECT_EQ(m_pNotic->m_Result, 0);
    DeleteAll(handle);
    EXPECT_EQ(std::filesystem::file_size(m_File.Path()), kSize);
    std::ifstream file(m_File.Path(), std::ios::binary);
    const std::vector<char> zeros(1 << 20);
    std::vector<char> chunk(zeros.size());
    while (file.read(chunk.data(), static_cast<std::streamsize>(chunk.size())))
    {
        ASSERT_TRUE(chunk == zeros);
    }
}

TEST_F(DownloadTest, FileIsCompleteWhenOnFinishComes)
{
    const auto handle = MakeDownload("/bytes/1k", m_File.Path());
    std::uintmax_t size = 0;
    m_pNotic->m_OnFinish = [&](const std::shared_ptr<IHttpHandleInterface>&, int)
    {
        size = std::filesystem::file_size(m_File.Path());
    };
    Run(handle);
    EXPECT_EQ(size, 1024u);
    DeleteAll(handle);
}

TEST_F(DownloadTest, FileIsMadeOrEmptiedAtOnce)
{
    const TempFile existing;
    std::ofstream(existing.Path()) << "something";
    for (const TempFile* file : {&m_File, &existing})
    {
        const auto handle = MakeDownload("/hello", file->Path());
        EXPECT_EQ(std::filesystem::file_size(file->Path()), 0u);
        DeleteAll(handle);
    }
}

TEST_F(DownloadTest, PathIsCopied)
{
    std::string path = m_File.Path();
    const auto handle = MakeDownload("/hello", path);
    path.assign(path.size(), 'x');
    Run(handle);
    DeleteAll(handle);
    EXPECT_EQ(ReadFile(m_File.Path()), kHello);
}

TEST_F(DownloadTest, PathThatCantBeOpenedIsLoggedAndNoFileIsSet)
{
    const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    ExpectCantOpen(*handle, m_File.Path() + "/no/such/folder");
    ExpectCantOpen(*handle, std::filesystem::temp_directory_path().string());
    ExpectCantOpen(*handle, "");
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, 0);
    EXPECT_EQ(handle->GetResponse(), kHello);
    DeleteAll(handle);
}

TEST_F(DownloadTest, SecondFileTakesTheBodyAndTheFirstIsClosed)
{
    const TempFile second;
    const auto handle = MakeDownload("/hello", m_File.Path());
    ASSERT_EQ(handle->SetDownloadFile(second.Path().c_str()), 0);
    EXPECT_EQ(std::filesystem::file_size(m_File.Path()), 0u);
    EXPECT_TRUE(std::filesystem::remove(m_File.Path())); // Windows keeps open ones
    Run(handle);
    DeleteAll(handle);
    EXPECT_FALSE(m_File.Exists());
    EXPECT_EQ(ReadFile(second.Path()), kHello);
}

TEST_F(DownloadTest, SecondFileThatCantBeOpenedLeavesNoneOpen)
{
    const auto handle = MakeDownload("/hello", m_File.Path());
    ExpectCantOpen(*handle, m_File.Path() + "/no/such/folder");
    EXPECT_TRUE(std::filesystem::remove(m_File.Path()));
    Run(handle);
    EXPECT_EQ(handle->GetResponse(), kHello);
    DeleteAll(handle);
    EXPECT_FALSE(m_File.Exists());
}

TEST_F(DownloadTest, HandleThatIsAddedAgainAppends)
{
    const auto handle = MakeDownload("/hello", m_File.Path());
    Run(handle);
    Run(handle);
    DeleteAll(handle);
    EXPECT_EQ(ReadFile(m_File.Path()), kHello + kHello);
    EXPECT_EQ(handle->GetResponse(), "");
}

TEST_F(DownloadTest, BodyOfAnErrorGoesIntoTheFileToo)
{
    const auto handle = MakeDownload("/status/404", m_File.Path());
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, 0);
    EXPECT_EQ(handle->GetResponseCode(), 404);
    EXPECT_EQ(handle->GetResponse(), "");
    DeleteAll(handle);
    EXPECT_GT(std::filesystem::file_size(m_File.Path()), 0u);
}

TEST_F(DownloadTest, FailedTransferLeavesWhatArrived)
{
    const auto handle = MakeHandle(Server("HOSTILE_URL") + "/truncated");
    ASSERT_EQ(handle->SetDownloadFile(m_File.Path().c_str()), 0);
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, -2);
    DeleteAll(handle);
    EXPECT_EQ(ReadFile(m_File.Path()), "xxxxxxxxxx");
}

// Windows shares the file with nobody while it is open, and has no full disk to
// lend.
#ifndef _WIN32

TEST_F(DownloadTest, FileMayBeReadInOnFinish)
{
    const auto handle = MakeDownload("/hello", m_File.Path());
    std::string seen;
    m_pNotic->m_OnFinish = [&](const std::shared_ptr<IHttpHandleInterface>&, int)
    {
        seen = ReadFile(m_File.Path());
    };
    Run(handle);
    EXPECT_EQ(seen, kHello);
    DeleteAll(handle);
}

TEST_F(DownloadTest, FullDiskGoesUnnoticed)
{
    const auto handle = MakeDownload("/bytes/1m", "/dev/full");
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, 0);
    EXPECT_EQ(handle->GetResponseCode(), 200);
    EXPECT_EQ(handle->GetResponse(), "");
    DeleteAll(handle);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

#endif

} // namespace
} // namespace test
