#include "support/EngineTest.h"
#include "support/Servers.h"
#include "support/TempFile.h"
#include "support/Transfers.h"

namespace test
{
namespace
{

const std::string kHello = "hello from nginx\n";

class HandleCoreTest : public EngineTest
{
protected:
    /// Deletes a handle and waits until its clean-up is over too.
    void DeleteAll(const std::shared_ptr<IHttpHandleInterface>& handle)
    {
        Delete(handle);
        OnLoop([] {});
    }
};

TEST_F(HandleCoreTest, NewHandleIsEmpty)
{
    const auto handle = IHttpHandleInterface::Create();
    EXPECT_EQ(handle->GetUrl(), "");
    EXPECT_EQ(handle->GetTag(), "");
    EXPECT_EQ(handle->GetResponse(), "");
    EXPECT_EQ(handle->GetUserData(), nullptr);
    EXPECT_EQ(handle->GetResponseCode(), -1);
    EXPECT_TRUE(m_Log.Lines().empty());
}

TEST_F(HandleCoreTest, NullUrlIsRefusedWithoutALineAndLeavesTheHandleNew)
{
    const auto handle = IHttpHandleInterface::Create();
    const auto notic = std::make_shared<HandleNotic>();
    EXPECT_EQ(handle->InitRequest(nullptr, "tag", kGet, notic, 0, 0, &m_UserData), -1);
    EXPECT_EQ(notic.use_count(), 1);
    EXPECT_EQ(handle->GetTag(), "");
    EXPECT_EQ(handle->GetUserData(), nullptr);
    EXPECT_EQ(handle->GetResponseCode(), -1);
    EXPECT_TRUE(m_Log.Lines().empty());

    StartEngine();
    EXPECT_EQ(handle->InitRequest("http://localhost/", "tag", kGet, notic, 0, 0, nullptr), 0);
    DeleteAll(handle);
}

TEST_F(HandleCoreTest, InitRequestKeepsWhatItWasGiven)
{
    StartEngine();
    const auto handle = IHttpHandleInterface::Create();
    std::string url = "http://localhost/path";
    std::string tag = "a tag";
    ASSERT_EQ(handle->InitRequest(url.c_str(), tag.c_str(), kGet, nullptr, 1, 2, &m_UserData), 0);
    url.assign("changed");
    tag.assign("changed");
    EXPECT_EQ(handle->GetUrl(), "http://localhost/path");
    EXPECT_EQ(handle->GetTag(), "a tag");
    EXPECT_EQ(handle->GetUserData(), &m_UserData);
    EXPECT_EQ(handle->GetResponse(), "");
    EXPECT_EQ(handle->GetResponseCode(), 0);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
    DeleteAll(handle);
}

TEST_F(HandleCoreTest, NullTagIsEmpty)
{
    StartEngine();
    const auto handle = IHttpHandleInterface::Create();
    ASSERT_EQ(handle->InitRequest("http://localhost/", nullptr, kGet, nullptr, 0, 0, nullptr), 0);
    EXPECT_EQ(handle->GetTag(), "");
    DeleteAll(handle);
}

TEST_F(HandleCoreTest, SecondInitRequestIsRefusedAndChangesNothing)
{
    StartEngine();
    const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    const std::shared_ptr<HandleNotic> other = std::make_shared<HandleNotic>();
    m_Log.Clear();
    EXPECT_EQ(handle->InitRequest("http://localhost/", "other", kPost, other, 1, 1, nullptr), -1);
    EXPECT_TRUE(m_Log.Lines().empty());
    EXPECT_EQ(other.use_count(), 1);
    EXPECT_EQ(handle->GetUrl(), Server("HTTP_URL") + "/hello");
    EXPECT_EQ(handle->GetTag(), "tag");
    EXPECT_EQ(handle->GetUserData(), &m_UserData);
    Run(handle);
    EXPECT_EQ(handle->GetResponse(), kHello);
    DeleteAll(handle);
    EXPECT_EQ(handle->InitRequest("http://localhost/", "other", kGet, other, 0, 0, nullptr), -1);
}

TEST_F(HandleCoreTest, NegativeTimeoutsAreRefusedWithTheirLinesAndTheHandleStaysNew)
{
    StartEngine();
    const auto handle = IHttpHandleInterface::Create();
    const char* const url = "http://localhost/";
    const auto notic = std::make_shared<HandleNotic>();
    EXPECT_EQ(handle->InitRequest(url, "tag", kGet, notic, 5, -7, &m_UserData), -1);
    EXPECT_EQ(handle->InitRequest(url, "tag", kGet, notic, -9, 5, &m_UserData), -1);
    EXPECT_EQ(m_Log.Texts(kError),
              (std::vector<std::string>{"[HTTP_INTERFACE]err[43:A libcurl function was given a bad "
                                        "argument]curl set CURLOPT_TIMEOUT_MS[-7] failed",
                                        "[HTTP_INTERFACE]err[43:A libcurl function was given a bad "
                                        "argument]curl set CURLOPT_CONNECTTIMEOUT_MS[-9] failed"}));
    EXPECT_EQ(notic.use_count(), 1);
    EXPECT_EQ(handle->GetUrl(), "");
    EXPECT_EQ(handle->GetTag(), "");
    EXPECT_EQ(handle->GetUserData(), nullptr);
    EXPECT_EQ(handle->GetResponseCode(), -1);
    EXPECT_EQ(handle->InitRequest(url, "tag", kGet, notic, 5, 5, &m_UserData), 0);
    DeleteAll(handle);
}

TEST_F(HandleCoreTest, EndlessUrlIsRefusedAndTheHandleStaysNew)
{
    StartEngine();
    const auto handle = IHttpHandleInterface::Create();
    const std::string url = "http://localhost/" + std::string(9'000'000, 'u');
    EXPECT_EQ(handle->InitRequest(url.c_str(), "tag", kGet, nullptr, 5, 5, nullptr), -1);
    EXPECT_EQ(m_Log.Texts(kError).size(), 1u);
    EXPECT_EQ(m_Log.Lines().back().format,
              "[HTTP_INTERFACE]err[%d:%s]curl set CURLOPT_URL[%s] failed");
    EXPECT_EQ(handle->InitRequest("http://localhost/", "tag", kGet, nullptr, 5, 5, nullptr), 0);
    DeleteAll(handle);
}

TEST_F(HandleCoreTest, EachMethodSendsItsRequest)
{
    StartEngine();
    const std::pair<int, std::string> sends[] = {
        {kGet, "GET\n"}, {kPost, "POST\n"}, {7, "GET\n"}, {-1, "GET\n"}};
    for (const auto& [method, sent] : sends)
    {
        const auto handle = MakeHandle(Server("HTTP_URL") + "/echo-method", method);
        if (method == kPost)
        {
            ASSERT_EQ(handle->SetPostFields("body"), 0);
        }
        Run(handle);
        EXPECT_EQ(m_pNotic->m_Result, 0);
        EXPECT_EQ(handle->GetResponse(), sent) << method;
        DeleteAll(handle);
    }
}

TEST_F(HandleCoreTest, BodyOfAnyBytesIsTheResponse)
{
    StartEngine();
    const auto handle = MakeHandle(Server("HTTP_URL") + "/bytes/1m");
    Run(handle);
    const std::string expected = ReadFile(Server("WWW_DIR") + "/bytes/1m");
    EXPECT_EQ(expected.size(), 1u << 20);
    EXPECT_TRUE(handle->GetResponse() == expected); // no dump of a megabyte
    DeleteAll(handle);
}

TEST_F(HandleCoreTest, WithADownloadFileTheResponseStaysEmpty)
{
    StartEngine();
    const TempFile file;
    const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    ASSERT_EQ(handle->SetDownloadFile(file.Path().c_str()), 0);
    Run(handle);
    EXPECT_EQ(handle->GetResponse(), "");
    DeleteAll(handle);
    EXPECT_EQ(ReadFile(file.Path()), kHello);
}

TEST_F(HandleCoreTest, WithoutANoticeTheRequestStillRuns)
{
    StartEngine();
    const std::string url = Server("HTTP_URL") + "/hello";
    const auto handle = IHttpHandleInterface::Create();
    ASSERT_EQ(handle->InitRequest(url.c_str(), "tag", kGet, nullptr, 0, 0, nullptr), 0);
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, false, nullptr, nullptr), 0);
    ASSERT_TRUE(m_Log.WaitFor(DoneLine(url, kNoError)));
    OnLoop([] {}); // what the loop thread wrote is seen here
    EXPECT_EQ(handle->GetResponse(), kHello);
    DeleteAll(handle);
}

TEST_F(HandleCoreTest, TransferThatTakesTooLongFails)
{
    StartEngine();
    const std::string url = Server("HOSTILE_URL") + "/silence";
    const auto handle = MakeHandle(url, kGet, 100);
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, -2);
    EXPECT_TRUE(m_Log.WaitFor(DoneLine(url, kTimeout)));
    DeleteAll(handle);
}

TEST_F(HandleCoreTest, ConnectingThatTakesTooLongFails)
{
    StartEngine();
    const std::string url = Server("STALL_URL");
    m_pNotic = std::make_shared<HandleNotic>();
    const auto handle = IHttpHandleInterface::Create();
    ASSERT_EQ(handle->InitRequest(url.c_str(), "tag", kGet, m_pNotic, 100, 0, nullptr), 0);
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, -2);
    DeleteAll(handle);
}

TEST_F(HandleCoreTest, NeverInitialisedHandleDiesWithItsLastReference)
{
    auto handle = IHttpHandleInterface::Create();
    const std::weak_ptr<IHttpHandleInterface> watch = handle;
    handle.reset();
    EXPECT_TRUE(watch.expired());
}

TEST_F(HandleCoreTest, InitialisedHandleOwnsItselfUntilItIsDeleted)
{
    StartEngine();
    auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    const std::weak_ptr<IHttpHandleInterface> watch = handle;
    handle.reset();
    EXPECT_FALSE(watch.expired());
    Run(watch.lock());
    EXPECT_FALSE(watch.expired());
    ASSERT_EQ(m_pEngine->DelHttpReq(watch.lock(), false, nullptr, nullptr), 0);
    OnLoop([] {});
    OnLoop([] {}); // the wake-up that deleted it is over
    EXPECT_TRUE(watch.expired());
}

TEST_F(HandleCoreTest, HandleThatFailedToInitialiseDoesNotOwnItself)
{
    auto handle = IHttpHandleInterface::Create();
    const std::weak_ptr<IHttpHandleInterface> watch = handle;
    EXPECT_EQ(handle->InitRequest("http://localhost/", "tag", kGet, nullptr, 0, -1, nullptr), -1);
    handle.reset();
    EXPECT_TRUE(watch.expired());
}

TEST_F(HandleCoreTest, DeleteReleasesTheNoticeOnlyAfterItsCompletion)
{
    StartEngine();
    const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    const std::weak_ptr<HandleNotic> watch = m_pNotic;
    m_pNotic.reset();
    Event deleted;
    ASSERT_EQ(m_pEngine->DelHttpReq(
                  handle, false,
                  [&](std::shared_ptr<IHttpHandleInterface> target, void*, int)
                  {
                      EXPECT_FALSE(watch.expired());
                      EXPECT_EQ(target->GetResponseCode(), 0);
                      deleted.Set();
                  },
                  nullptr),
              0);
    ASSERT_TRUE(deleted.Wait());
    OnLoop([] {});
    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(handle->GetResponseCode(), -1);
}

TEST_F(HandleCoreTest, DeletedHandleRefusesEverythingAndKeepsItsResults)
{
    StartEngine();
    const std::string url = Server("HTTP_URL") + "/hello";
    const auto handle = MakeHandle(url);
    Run(handle);
    DeleteAll(handle);
    m_Log.Clear();
    EXPECT_EQ(handle->Disconnect(), -1);
    EXPECT_EQ(handle->EnableVerbose(), -1);
    EXPECT_EQ(handle->SetProgress(true), -1);
    EXPECT_EQ(handle->SetCaCert(nullptr), -1);
    const std::list<std::string> headers{"X-Test: 1"};
    EXPECT_EQ(handle->SetHeaders(&headers), -1);
    EXPECT_EQ(handle->SetDownloadFile("unused"), -1);
    EXPECT_TRUE(m_Log.Lines().empty());
    EXPECT_EQ(handle->GetUrl(), url);
    EXPECT_EQ(handle->GetTag(), "tag");
    EXPECT_EQ(handle->GetUserData(), &m_UserData);
    EXPECT_EQ(handle->GetResponse(), kHello);
    EXPECT_EQ(handle->GetResponseCode(), -1);
}

TEST_F(HandleCoreTest, AddedHandleKeepsItsEngine)
{
    StartEngine();
    auto handle = IHttpHandleInterface::Create();
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, false, nullptr, nullptr), 0);
    StopEngine();
    const std::weak_ptr<IHttpInterface> watch = m_pEngine;
    m_pEngine = IHttpInterface::Create();
    EXPECT_FALSE(watch.expired());
    handle.reset();
    EXPECT_TRUE(watch.expired());
}

TEST_F(HandleCoreTest, HandleBelongsToTheEngineItWasLastAddedTo)
{
    StartEngine();
    const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    Run(handle);
    StopEngine();
    const std::weak_ptr<IHttpInterface> first = m_pEngine;
    m_pEngine = IHttpInterface::Create();
    StartEngine();
    Run(handle);
    EXPECT_TRUE(first.expired());
    EXPECT_EQ(handle->GetResponse(), kHello + kHello);
    EXPECT_EQ(handle->Disconnect(), 0);
    DeleteAll(handle);
}

} // namespace
} // namespace test
