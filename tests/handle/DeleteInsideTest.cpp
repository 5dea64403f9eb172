// Requests deleted at once from inside notices and trace lines, which libcurl
// calls while it works on a transfer: it must not lose that transfer under its
// feet.

#include "support/EngineTest.h"
#include "support/Servers.h"

#include <utility>

namespace test
{
namespace
{

const std::string kRefused = "[HTTP_INTERFACE]err[8:API function called from within callback]"
                             "curl_multi_remove_handle failed while DelHttpReq";

class DeleteInsideTest : public EngineTest
{
protected:
    void SetUp() override { StartEngine(); }

    /// Deletes at once on the loop thread; keeps what came back.
    void DeleteAtOnce(const std::shared_ptr<IHttpHandleInterface>& handle)
    {
        m_Returned = m_pEngine->DelHttpReq(handle, false, m_Deleted.Function(), &m_UserData);
    }

    void ExpectRefusedButDeleted(const std::shared_ptr<IHttpHandleInterface>& handle)
    {
        ASSERT_TRUE(m_Deleted.Wait());
        OnLoop([] {}); // the completion came first, then the call returned
        EXPECT_EQ(m_Returned, -1);
        EXPECT_EQ(m_Deleted.Result(), -1);
        EXPECT_EQ(m_Deleted.User(), &m_UserData);
        EXPECT_EQ(m_Log.Count(kError, kRefused), 1);
        OnLoop([&] { EXPECT_EQ(handle->GetResponseCode(), -1) << "still has its easy handle"; });
        EXPECT_EQ(handle->SetProgress(true), -1) << "still counts as initialised";
        EXPECT_EQ(m_pNotic->m_Finished.Count(), 0);
    }

    HttpCompletion m_Deleted;
    int m_Returned = 1;
};

TEST_F(DeleteInsideTest, FromItsOwnProgressNotice)
{
    const auto handle = MakeHandle(Server("HTTP_URL") + "/bytes/1m");
    const std::weak_ptr<HandleNotic> notic = m_pNotic;
    m_pNotic->m_OnProgress = [&](const HandleNotic::Progress& progress)
    {
        if (progress.dlnow > 0 && m_Returned == 1)
        {
            DeleteAtOnce(handle);
        }
        else if (m_Returned != 1)
        {
            ADD_FAILURE() << "a notice after the delete";
        }
    };
    ASSERT_EQ(handle->SetProgress(true), 0);
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, false, nullptr, nullptr), 0);
    ExpectRefusedButDeleted(handle);
    m_pNotic.reset();
    EXPECT_TRUE(notic.expired());
}

TEST_F(DeleteInsideTest, FromItsOwnReadNotice)
{
    const auto handle = MakeHandle(Server("HTTP_URL") + "/dav/delete-inside", kUpload);
    m_pNotic->m_OnReadData = [&](const std::shared_ptr<IHttpHandleInterface>& self, char* buffer,
                                 std::size_t) -> std::size_t
    {
        EXPECT_EQ(m_Returned, 1) << "a notice after the delete";
        DeleteAtOnce(self);
        buffer[0] = 'x';
        return 1;
    };
    ASSERT_EQ(handle->SetUploadSize(1000 * 1000), 0);
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, false, nullptr, nullptr), 0);
    ExpectRefusedButDeleted(handle);
}

TEST_F(DeleteInsideTest, OfAnotherRequestInFlight)
{
    const auto other = MakeHandle(Server("HOSTILE_URL") + "/silence");
    const auto otherNotic = m_pNotic;
    HttpCompletion added;
    ASSERT_EQ(m_pEngine->AddHttpReq(other, false, added.Function(), nullptr), 0);
    ASSERT_TRUE(added.Wait());

    const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    m_pNotic->m_OnProgress = [&](const HandleNotic::Progress&)
    {
        if (m_Returned == 1)
        {
            DeleteAtOnce(other);
        }
    };
    ASSERT_EQ(handle->SetProgress(true), 0);
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, 0);
    EXPECT_EQ(handle->GetResponse(), "hello from nginx\n");
    Delete(handle);
    m_pNotic = otherNotic;
    ExpectRefusedButDeleted(other);
}

TEST_F(DeleteInsideTest, OfEveryRequestAtOnce)
{
    constexpr int kOthers = 200;
    std::vector<std::shared_ptr<IHttpHandleInterface>> others;
    for (int i = 0; i < kOthers; ++i)
    {
        others.push_back(MakeHandle(Server("HOSTILE_URL") + "/silence"));
        ASSERT_EQ(m_pEngine->AddHttpReq(others.back(), false, nullptr, nullptr), 0);
    }
    const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    m_pNotic->m_OnProgress = [&](const HandleNotic::Progress&)
    {
        for (const auto& other : others)
        {
            DeleteAtOnce(other);
        }
        others.clear();
    };
    ASSERT_EQ(handle->SetProgress(true), 0);
    Run(handle);
    Delete(handle);
    EXPECT_EQ(m_Deleted.Calls(), kOthers);
    EXPECT_EQ(m_Log.Count(kError, kRefused), kOthers);
}

// The final drain performs the queued delete while libcurl is on the stack.
TEST_F(DeleteInsideTest, ByAStopFromItsProgressNotice)
{
    const auto handle = MakeHandle(Server("HTTP_URL") + "/bytes/1m");
    int stopped = 1;
    m_pNotic->m_OnProgress = [&](const HandleNotic::Progress& progress)
    {
        if (progress.dlnow > 0 && stopped == 1)
        {
            EXPECT_EQ(m_pEngine->DelHttpReq(handle, true, m_Deleted.Function(), nullptr), 0);
            stopped = m_pEngine->Stop(false);
        }
    };
    ASSERT_EQ(handle->SetProgress(true), 0);
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, false, nullptr, nullptr), 0);
    ASSERT_TRUE(m_pEngineNotic->m_Stopped.Wait());
    EXPECT_EQ(stopped, 0);
    EXPECT_EQ(m_Deleted.Calls(), 1);
    EXPECT_EQ(m_Deleted.Result(), -1);
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 0);
}

/// A logger that deletes a request when it sees a certain format.
class DeletingLog : public base::IBaseLogInterface
{
public:
    DeletingLog(std::string format, std::function<void()> deletes)
        : m_Format(std::move(format)), m_Delete(std::move(deletes))
    {
    }

    void WriteLog(const int*, const long*, const char* format, ...) override
    {
        if (m_Delete && std::string(format).find(m_Format) != std::string::npos)
        {
            std::exchange(m_Delete, nullptr)();
        }
    }

private:
    const std::string m_Format;
    std::function<void()> m_Delete;
};

class DeleteFromALineTest : public DeleteInsideTest,
                            public ::testing::WithParamInterface<const char*>
{
};

TEST_P(DeleteFromALineTest, TellsNoNoticeAfterwards)
{
    const auto handle = MakeHandle(Server("HTTP_URL") + "/bytes/64k");
    ASSERT_EQ(handle->EnableVerbose(), 0);
    base::IBaseLogInterface::SetLogInstance(
        std::make_shared<DeletingLog>(GetParam(), [&] { DeleteAtOnce(handle); }));
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, false, nullptr, nullptr), 0);
    ASSERT_TRUE(m_Deleted.Wait());
    OnLoop([&] { EXPECT_EQ(handle->GetResponseCode(), -1) << "still has its easy handle"; });
    EXPECT_EQ(m_Deleted.Calls(), 1);
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 0);
    base::IBaseLogInterface::SetLogInstance(nullptr);
}

INSTANTIATE_TEST_SUITE_P(Of, DeleteFromALineTest,
                         ::testing::Values("[HEADER_OUT]", "[HEADER_IN]", "[DATA_IN]", "[TEXT]",
                                           " DONE result["));

} // namespace
} // namespace test
