// Which handle takes which option, and when.

#include "support/EngineTest.h"
#include "support/Servers.h"
#include "support/TempFile.h"

namespace test
{
namespace
{

const std::list<std::string> kHeaders{"X-Test: 1"};

class OptionsTest : public EngineTest
{
protected:
    void SetUp() override
    {
        StartEngine();
        m_Log.Clear();
    }

    std::shared_ptr<IHttpHandleInterface> MakeIdle(int method)
    {
        return MakeHandle("http://localhost/", method);
    }
};

TEST_F(OptionsTest, NewHandleRefusesAllWithoutALine)
{
    const TempFile file;
    const auto handle = IHttpHandleInterface::Create();
    EXPECT_EQ(handle->SetPostFields("body"), -1);
    EXPECT_EQ(handle->EnableVerbose(), -1);
    EXPECT_EQ(handle->SetDownloadFile(file.Path().c_str()), -1);
    EXPECT_EQ(handle->SetProgress(true), -1);
    EXPECT_EQ(handle->SetProgress(false), -1);
    EXPECT_EQ(handle->SetCaCert("ca.pem"), -1);
    EXPECT_EQ(handle->SetCaCert(nullptr), -1);
    EXPECT_EQ(handle->SetHeaders(&kHeaders), -1);
    EXPECT_EQ(handle->SetUploadSize(1), -1);
    EXPECT_TRUE(m_Log.Lines().empty());
    EXPECT_FALSE(file.Exists());
}

TEST_F(OptionsTest, DeletedHandleRefusesAllWithoutALine)
{
    const TempFile file;
    for (const int method : {kPost, kUpload})
    {
        const auto handle = MakeIdle(method);
        Delete(handle);
        OnLoop([] {});
        m_Log.Clear();
        EXPECT_EQ(handle->SetPostFields("body"), -1);
        EXPECT_EQ(handle->EnableVerbose(), -1);
        EXPECT_EQ(handle->SetDownloadFile(file.Path().c_str()), -1);
        EXPECT_EQ(handle->SetProgress(true), -1);
        EXPECT_EQ(handle->SetCaCert(nullptr), -1);
        EXPECT_EQ(handle->SetHeaders(&kHeaders), -1);
        EXPECT_EQ(handle->SetUploadSize(1), -1);
        EXPECT_TRUE(m_Log.Lines().empty());
    }
    EXPECT_FALSE(file.Exists());
}

TEST_F(OptionsTest, EveryMethodTakesWhatIsNotOfOneMethod)
{
    for (const int method : {kGet, kPost, kUpload, kWebSocket, 7})
    {
        const TempFile file;
        const auto handle = MakeIdle(method);
        EXPECT_EQ(handle->EnableVerbose(), 0);
        EXPECT_EQ(handle->SetDownloadFile(file.Path().c_str()), 0);
        EXPECT_EQ(handle->SetProgress(true), 0);
        EXPECT_EQ(handle->SetProgress(false), 0);
        EXPECT_EQ(handle->SetCaCert("ca.pem"), 0); // looked for when it is needed
        EXPECT_EQ(handle->SetCaCert(nullptr), 0);
        EXPECT_EQ(handle->SetHeaders(&kHeaders), 0);
        EXPECT_TRUE(m_Log.Texts(kError).empty());
        Delete(handle);
        OnLoop([] {});
        m_Log.Clear();
    }
}

TEST_F(OptionsTest, OnlyAPostTakesPostFields)
{
    for (const int method : {kGet, kUpload, kWebSocket, 7})
    {
        const auto handle = MakeIdle(method);
        EXPECT_EQ(handle->SetPostFields("body"), -1);
        EXPECT_TRUE(m_Log.Lines().empty());
        Delete(handle);
        OnLoop([] {});
        m_Log.Clear();
    }
    const auto handle = MakeIdle(kPost);
    EXPECT_EQ(handle->SetPostFields("body"), 0);
    EXPECT_TRUE(m_Log.Lines().empty());
    Delete(handle);
}

TEST_F(OptionsTest, OnlyAnUploadTakesAnUploadSize)
{
    for (const int method : {kGet, kPost, kWebSocket, 7})
    {
        const auto handle = MakeIdle(method);
        EXPECT_EQ(handle->SetUploadSize(1), -1);
        EXPECT_TRUE(m_Log.Lines().empty());
        Delete(handle);
        OnLoop([] {});
        m_Log.Clear();
    }
    const auto handle = MakeIdle(kUpload);
    EXPECT_EQ(handle->SetUploadSize(1), 0);
    EXPECT_EQ(handle->SetUploadSize(-1), 0);
    EXPECT_TRUE(m_Log.Lines().empty());
    EXPECT_EQ(handle->SetUploadSize(-2), -1);
    EXPECT_EQ(m_Log.Texts(kError),
              std::vector<std::string>{"[HTTP_INTERFACE]err[43:A libcurl function was given a bad "
                                       "argument]curl set CURLOPT_INFILESIZE_LARGE failed"});
    Delete(handle);
}

TEST_F(OptionsTest, NullPointersAreRefusedWithoutALine)
{
    const auto handle = MakeIdle(kPost);
    EXPECT_EQ(handle->SetPostFields(nullptr), -1);
    EXPECT_EQ(handle->SetHeaders(nullptr), -1);
    EXPECT_EQ(handle->SetDownloadFile(nullptr), -1);
    EXPECT_TRUE(m_Log.Lines().empty());
    Delete(handle);
}

TEST_F(OptionsTest, EmptyListOfHeadersIsRefusedUntilThereAreSome)
{
    const std::list<std::string> none;
    const auto handle = MakeIdle(kGet);
    EXPECT_EQ(handle->SetHeaders(&none), -1);
    EXPECT_EQ(handle->SetHeaders(&kHeaders), 0);
    EXPECT_EQ(handle->SetHeaders(&none), 0);
    EXPECT_TRUE(m_Log.Lines().empty());
    Delete(handle);
}

} // namespace
} // namespace test
