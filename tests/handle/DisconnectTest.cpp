#include "support/EngineTest.h"
#include "support/HeldLoop.h"
#include "support/HeldTransfer.h"
#include "support/Servers.h"

namespace test
{
namespace
{

const std::string kHello = "hello from nginx\n";
const std::string kNotNow = "[HTTP_INTERFACE]Can not again timer req now";
const std::string kDisconnect = "[HTTP_INTERFACE]disconnect web socket";

class DisconnectTest : public EngineTest
{
protected:
    /// Whether the handle takes part in a transfer of this engine.
    bool IsAdded(const std::shared_ptr<IHttpHandleInterface>& handle)
    {
        int added = 0;
        OnLoop(
            [&]
            {
                added = m_pEngine->AddHttpReq(handle, false, nullptr, nullptr);
                if (added == 0)
                {
                    EXPECT_EQ(handle->Disconnect(), 0);
                }
            });
        return added == -1;
    }
};

TEST_F(DisconnectTest, OfANeverInitialisedHandleIsRefusedWithoutALine)
{
    EXPECT_EQ(IHttpHandleInterface::Create()->Disconnect(), -1);
    StartEngine();
    m_Log.Clear();
    EXPECT_EQ(IHttpHandleInterface::Create()->Disconnect(), -1);
    EXPECT_TRUE(m_Log.Lines().empty());
}

TEST_F(DisconnectTest, OfADeletedHandleIsRefusedWithoutALine)
{
    StartEngine();
    const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    Run(handle);
    Delete(handle);
    OnLoop([] {});
    m_Log.Clear();
    EXPECT_EQ(handle->Disconnect(), -1);
    EXPECT_TRUE(m_Log.Lines().empty());
}

TEST_F(DisconnectTest, OfANeverAddedHandleIsRefusedInTheWordsOfATimer)
{
    StartEngine();
    const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    m_Log.Clear();
    EXPECT_EQ(handle->Disconnect(), -1);
    ASSERT_EQ(m_Log.Lines().size(), 1u);
    const LogLine line = m_Log.Find(kNotNow);
    EXPECT_EQ(line.level, kError);
    EXPECT_EQ(line.threadId, base::GetTid());
    Delete(handle);
}

TEST_F(DisconnectTest, BeforeTheEngineRunsIsRefusedInTheWordsOfATimer)
{
    StartEngine();
    const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    Run(handle);
    StopEngine();
    m_Log.Clear();
    EXPECT_EQ(handle->Disconnect(), -1);
    EXPECT_EQ(m_Log.Lines().size(), 1u);
    EXPECT_EQ(m_Log.Count(kError, kNotNow), 1);

    ASSERT_EQ(m_pEngine->Init(nullptr, nullptr), 0);
    EXPECT_EQ(handle->Disconnect(), -1);
    EXPECT_EQ(m_Log.Lines().size(), 2u);
    EXPECT_EQ(m_Log.Count(kError, kNotNow), 2);
    ASSERT_EQ(m_pEngine->Start(true), 0);
    Delete(handle);
}

TEST_F(DisconnectTest, FromAHostThreadIsQueuedAndEndsTheTransferWithoutOnFinish)
{
    StartEngine();
    const HeldTransfer transfer("disconnect");
    const auto handle = MakeHandle(transfer.Url());
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, false, nullptr, nullptr), 0);
    transfer.WaitUntilHeld(m_pEngine);
    {
        HeldLoop held(m_pEngine);
        EXPECT_EQ(handle->Disconnect(), 0);
        const LogLine line = m_Log.Find(kDisconnect); // whatever the method
        EXPECT_EQ(line.level, kInfo);
        EXPECT_EQ(line.threadId, base::GetTid());
        held.Release([&]
                     { EXPECT_EQ(m_pEngine->AddHttpReq(handle, false, nullptr, nullptr), -1); });
    }
    OnLoop([] {});
    EXPECT_FALSE(IsAdded(handle));
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 0);
    EXPECT_EQ(handle->GetUrl(), transfer.Url());
    Delete(handle);
    StopEngine(); // would wait for the transfer
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 0);
}

TEST_F(DisconnectTest, OnTheLoopThreadEndsTheTransferAtOnce)
{
    StartEngine();
    const HeldTransfer transfer("at-once");
    const auto handle = MakeHandle(transfer.Url());
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, false, nullptr, nullptr), 0);
    transfer.WaitUntilHeld(m_pEngine);
    OnLoop(
        [&]
        {
            EXPECT_EQ(handle->Disconnect(), 0);
            EXPECT_EQ(m_Log.Find(kDisconnect).threadId, base::GetTid());
            EXPECT_EQ(m_pEngine->AddHttpReq(handle, false, nullptr, nullptr), 0);
            EXPECT_EQ(handle->Disconnect(), 0);
        });
    Delete(handle);
    StopEngine();
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 0);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(DisconnectTest, OfAHandleThatIsNotAddedAnyMoreSucceeds)
{
    StartEngine();
    const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    Run(handle);
    EXPECT_EQ(handle->Disconnect(), 0);
    OnLoop([&] { EXPECT_EQ(handle->Disconnect(), 0); });
    EXPECT_EQ(m_Log.Count(kInfo, kDisconnect), 2);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
    Delete(handle);
}

TEST_F(DisconnectTest, InsideOnFinishIsPerformedAtOnce)
{
    StartEngine();
    const HeldTransfer transfer("in-a-notice");
    const auto other = MakeHandle(transfer.Url());
    const std::shared_ptr<HandleNotic> notOfOther = m_pNotic;
    ASSERT_EQ(m_pEngine->AddHttpReq(other, false, nullptr, nullptr), 0);
    transfer.WaitUntilHeld(m_pEngine);
    const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    m_pNotic->m_OnFinish = [&](const std::shared_ptr<IHttpHandleInterface>& finished, int)
    {
        EXPECT_EQ(finished->Disconnect(), 0);
        EXPECT_EQ(other->Disconnect(), 0);
        EXPECT_EQ(m_pEngine->AddHttpReq(other, false, nullptr, nullptr), 0); // it is out
        EXPECT_EQ(other->Disconnect(), 0);
    };
    Run(handle);
    EXPECT_EQ(handle->GetResponse(), kHello);
    Delete(handle);
    Delete(other);
    StopEngine();
    EXPECT_EQ(notOfOther->m_Finished.Count(), 0);
}

// libcurl is on the stack there and lets no transfer be taken out.
TEST_F(DisconnectTest, InsideOnProgressIsRefusedByLibcurl)
{
    StartEngine();
    const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    ASSERT_EQ(handle->SetProgress(true), 0);
    std::vector<int> results;
    m_pNotic->m_OnProgress = [&](const HandleNotic::Progress&)
    {
        results.push_back(handle->Disconnect());
    };
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, 0);
    ASSERT_FALSE(results.empty());
    EXPECT_EQ(results, std::vector<int>(results.size(), -1));
    const std::vector<std::string> lines = m_Log.Texts(kError);
    ASSERT_EQ(lines.size(), results.size());
    EXPECT_EQ(lines.front(), "[HTTP_INTERFACE]err[8:API function called from within callback]"
                             "curl_multi_remove_handle failed while DelHttpReq");
    Delete(handle);
}

TEST_F(DisconnectTest, DisconnectedHandleMayBeAddedAgain)
{
    StartEngine();
    const HeldTransfer transfer("again");
    const auto handle = MakeHandle(transfer.Url());
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, false, nullptr, nullptr), 0);
    transfer.WaitUntilHeld(m_pEngine);
    EXPECT_EQ(handle->Disconnect(), 0);
    HttpCompletion added;
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, false, added.Function(), nullptr), 0);
    ASSERT_TRUE(added.Wait());
    EXPECT_EQ(added.Result(), 0);
    transfer.Release(m_pEngine);
    ASSERT_TRUE(m_pNotic->m_Finished.Wait());
    EXPECT_EQ(m_pNotic->m_Result, 0);
    EXPECT_EQ(handle->GetResponse(), "released\n");
    EXPECT_EQ(handle->GetResponseCode(), 200);
    Delete(handle);
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 1);
}

TEST_F(DisconnectTest, QueuedDisconnectKeepsTheHandleAlive)
{
    StartEngine();
    auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    Run(handle);
    const std::weak_ptr<IHttpHandleInterface> watch = handle;
    {
        HeldLoop held(m_pEngine);
        EXPECT_EQ(handle->Disconnect(), 0);
        held.Release(
            [&]
            {
                m_pEngine->DelHttpReq(handle, false, nullptr, nullptr);
                handle.reset();
                EXPECT_FALSE(watch.expired());
            });
    }
    OnLoop([] {});
    OnLoop([] {});
    EXPECT_TRUE(watch.expired());
}

} // namespace
} // namespace test
