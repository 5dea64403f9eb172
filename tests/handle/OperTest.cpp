#include "support/EngineTest.h"
#include "support/HeldTransfer.h"
#include "support/Servers.h"

namespace test
{
namespace
{

const std::string kHello = "hello from nginx\n";
const std::string kNoMulti = "[HTTP_INTERFACE]err[1:Invalid multi handle]";
const std::string kNoEasy = "[HTTP_INTERFACE]err[2:Invalid easy handle]";
const std::string kAdded = "[HTTP_INTERFACE]err[7:The easy handle is already added to a multi "
                           "handle]";
const std::string kAddFailed = "curl_multi_add_handle failed while AddHttpReq";
const std::string kRemoveFailed = "curl_multi_remove_handle failed while DelHttpReq";

class OperTest : public EngineTest
{
protected:
    /// Adds a handle and returns the result that its completion got.
    int Add(const std::shared_ptr<IHttpHandleInterface>& handle)
    {
        HttpCompletion done;
        EXPECT_EQ(m_pEngine->AddHttpReq(handle, false, done.Function(), &m_UserData), 0);
        EXPECT_TRUE(done.Wait());
        EXPECT_EQ(done.Calls(), 1);
        EXPECT_EQ(done.Target(), handle);
        EXPECT_EQ(done.User(), &m_UserData);
        return done.Result();
    }

    /// The same for a delete, including its clean-up.
    int Del(const std::shared_ptr<IHttpHandleInterface>& handle)
    {
        HttpCompletion done;
        EXPECT_EQ(m_pEngine->DelHttpReq(handle, false, done.Function(), &m_UserData), 0);
        EXPECT_TRUE(done.Wait());
        OnLoop([] {});
        EXPECT_EQ(done.Calls(), 1);
        EXPECT_EQ(done.Target(), handle);
        EXPECT_EQ(done.User(), &m_UserData);
        return done.Result();
    }

    std::string m_Hello = Server("HTTP_URL") + "/hello";
};

TEST_F(OperTest, AddAndDeleteAnswerZero)
{
    StartEngine();
    const auto handle = MakeHandle(m_Hello);
    EXPECT_EQ(Add(handle), 0);
    ASSERT_TRUE(m_pNotic->m_Finished.Wait());
    EXPECT_EQ(Del(handle), 0);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(OperTest, OnFinishTellsHandleResultAndUserDataOnTheLoopThread)
{
    StartEngine();
    long loopThread = 0;
    OnLoop([&] { loopThread = base::GetTid(); });
    std::shared_ptr<IHttpHandleInterface> told;
    const auto handle = MakeHandle(m_Hello);
    m_pNotic->m_OnFinish = [&](const std::shared_ptr<IHttpHandleInterface>& finished, int)
    {
        told = finished;
    };
    Run(handle);
    EXPECT_EQ(told, handle);
    EXPECT_EQ(m_pNotic->m_Result, 0);
    EXPECT_EQ(m_pNotic->m_User, &m_UserData);
    EXPECT_EQ(m_pNotic->m_ThreadId, loopThread);
    EXPECT_EQ(handle->GetResponse(), kHello);
    EXPECT_EQ(handle->GetResponseCode(), 200);
    EXPECT_EQ(Del(handle), 0);
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 1);
}

TEST_F(OperTest, AddOfANeverInitialisedHandleFails)
{
    StartEngine();
    EXPECT_EQ(Add(IHttpHandleInterface::Create()), -1);
    const LogLine line = m_Log.Find(kNoEasy + kAddFailed);
    EXPECT_EQ(line.level, kError);
    long loopThread = 0;
    OnLoop([&] { loopThread = base::GetTid(); });
    EXPECT_EQ(line.threadId, loopThread);
    EXPECT_EQ(m_Log.Texts(kError).size(), 1u);
}

TEST_F(OperTest, FailedAddWithoutACompletionIsOnlyLogged)
{
    StartEngine();
    ASSERT_EQ(m_pEngine->AddHttpReq(IHttpHandleInterface::Create(), false, nullptr, nullptr), 0);
    EXPECT_TRUE(m_Log.WaitFor(kNoEasy + kAddFailed));
}

TEST_F(OperTest, SecondAddFailsAndTheFirstGoesOn)
{
    StartEngine();
    const HeldTransfer held("double-add");
    const auto handle = MakeHandle(held.Url());
    EXPECT_EQ(Add(handle), 0);
    EXPECT_EQ(Add(handle), -1);
    EXPECT_EQ(m_Log.Texts(kError), std::vector<std::string>{kAdded + kAddFailed});
    held.Release(m_pEngine);
    ASSERT_TRUE(m_pNotic->m_Finished.Wait());
    EXPECT_EQ(m_pNotic->m_Result, 0);
    EXPECT_EQ(Del(handle), 0);
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 1);
}

TEST_F(OperTest, DeleteOfANeverAddedHandleFailsAndStillEndsIt)
{
    StartEngine();
    auto handle = MakeHandle(m_Hello);
    EXPECT_EQ(Del(handle), -1);
    EXPECT_EQ(m_Log.Texts(kError), std::vector<std::string>{kNoMulti + kRemoveFailed});
    EXPECT_EQ(m_pNotic.use_count(), 1);
    EXPECT_EQ(handle->GetResponseCode(), -1);
    const std::weak_ptr<IHttpHandleInterface> watch = handle;
    handle.reset();
    EXPECT_TRUE(watch.expired());
}

TEST_F(OperTest, DeleteOfANeverInitialisedHandleFailsAndLeavesItNew)
{
    StartEngine();
    const auto handle = IHttpHandleInterface::Create();
    EXPECT_EQ(Del(handle), -1);
    EXPECT_EQ(m_Log.Texts(kError), std::vector<std::string>{kNoMulti + kRemoveFailed});
    ASSERT_EQ(handle->InitRequest(m_Hello.c_str(), "tag", kGet, nullptr, 0, 0, nullptr), 0);
    EXPECT_EQ(Del(handle), -1);
}

TEST_F(OperTest, DeleteOfADeletedHandleFails)
{
    StartEngine();
    const auto handle = MakeHandle(m_Hello);
    Run(handle);
    EXPECT_EQ(Del(handle), 0);
    EXPECT_EQ(Del(handle), -1);
    EXPECT_EQ(m_Log.Texts(kError), std::vector<std::string>{kNoEasy + kRemoveFailed});
}

TEST_F(OperTest, AddOfADeletedHandleFails)
{
    StartEngine();
    const auto handle = MakeHandle(m_Hello);
    Run(handle);
    EXPECT_EQ(Del(handle), 0);
    EXPECT_EQ(Add(handle), -1);
    EXPECT_EQ(m_Log.Texts(kError), std::vector<std::string>{kNoEasy + kAddFailed});
}

TEST_F(OperTest, DeleteOfATransferInFlightEndsItWithoutOnFinish)
{
    StartEngine();
    const HeldTransfer held("delete");
    const auto handle = MakeHandle(held.Url());
    EXPECT_EQ(Add(handle), 0);
    held.WaitUntilHeld(m_pEngine);
    EXPECT_EQ(Del(handle), 0);
    StopEngine(); // would wait for the transfer
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 0);
    EXPECT_EQ(m_pNotic.use_count(), 1);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(OperTest, DeleteInsideOnFinishEndsTheHandleAtOnce)
{
    StartEngine();
    auto handle = MakeHandle(m_Hello);
    const std::weak_ptr<IHttpHandleInterface> watch = handle;
    HttpCompletion deleted;
    m_pNotic->m_OnFinish = [&](const std::shared_ptr<IHttpHandleInterface>& finished, int)
    {
        EXPECT_EQ(m_pEngine->DelHttpReq(finished, false, deleted.Function(), nullptr), 0);
        EXPECT_EQ(deleted.Calls(), 1);
        EXPECT_EQ(finished->GetResponseCode(), -1);
        EXPECT_EQ(finished->GetResponse(), kHello);
    };
    Run(handle);
    EXPECT_EQ(deleted.Result(), 0);
    OnLoop([] {});
    deleted = HttpCompletion();
    handle.reset();
    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(m_pNotic.use_count(), 1);
}

TEST_F(OperTest, DeleteQueuedInsideOnFinishEndsTheHandle)
{
    StartEngine();
    const auto handle = MakeHandle(m_Hello);
    HttpCompletion deleted;
    m_pNotic->m_OnFinish = [&](const std::shared_ptr<IHttpHandleInterface>& finished, int)
    {
        EXPECT_EQ(m_pEngine->DelHttpReq(finished, true, deleted.Function(), nullptr), 0);
        EXPECT_EQ(deleted.Calls(), 0);
    };
    Run(handle);
    ASSERT_TRUE(deleted.Wait());
    EXPECT_EQ(deleted.Result(), 0);
    OnLoop([] {});
    EXPECT_EQ(handle->GetResponseCode(), -1);
}

TEST_F(OperTest, DeleteInsideTheCompletionOfTheAddEndsTheHandle)
{
    StartEngine();
    const auto handle = MakeHandle(m_Hello);
    HttpCompletion deleted;
    ASSERT_EQ(m_pEngine->AddHttpReq(
                  handle, false,
                  [&](std::shared_ptr<IHttpHandleInterface> added, void*, int result)
                  {
                      EXPECT_EQ(result, 0);
                      EXPECT_EQ(m_pEngine->DelHttpReq(added, false, deleted.Function(), nullptr),
                                0);
                  },
                  nullptr),
              0);
    ASSERT_TRUE(deleted.Wait());
    EXPECT_EQ(deleted.Result(), 0);
    StopEngine();
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 0);
}

TEST_F(OperTest, HostMayDropItsReferenceWhileTheTransferRuns)
{
    StartEngine();
    const HeldTransfer held("drop");
    auto handle = MakeHandle(held.Url());
    const std::weak_ptr<IHttpHandleInterface> watch = handle;
    EXPECT_EQ(Add(handle), 0);
    held.WaitUntilHeld(m_pEngine);
    handle.reset();
    EXPECT_FALSE(watch.expired());
    m_pNotic->m_OnFinish = [&](const std::shared_ptr<IHttpHandleInterface>& finished, int)
    {
        EXPECT_EQ(finished->GetResponse(), "released\n");
        m_pEngine->DelHttpReq(finished, true, nullptr, nullptr);
    };
    held.Release(m_pEngine);
    ASSERT_TRUE(m_pNotic->m_Finished.Wait());
    OnLoop([] {}); // after the queued delete,
    OnLoop([] {}); // and after its wake-up
    EXPECT_TRUE(watch.expired());
}

TEST_F(OperTest, FinishedHandleMayBeAddedAgainAndItsResponseGrows)
{
    StartEngine();
    const auto handle = MakeHandle(m_Hello);
    Run(handle);
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 2);
    EXPECT_EQ(handle->GetResponse(), kHello + kHello);
    EXPECT_EQ(Del(handle), 0);
}

TEST_F(OperTest, FinishedHandleMayBeAddedAgainInsideOnFinish)
{
    StartEngine();
    const auto handle = MakeHandle(m_Hello);
    m_pNotic->m_OnFinish =
        [&, again = 2](const std::shared_ptr<IHttpHandleInterface>& finished, int) mutable
    {
        if (again-- > 0)
        {
            EXPECT_EQ(m_pEngine->AddHttpReq(finished, false, nullptr, nullptr), 0);
        }
    };
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, false, nullptr, nullptr), 0);
    ASSERT_TRUE(m_pNotic->m_Finished.Wait(3));
    EXPECT_EQ(handle->GetResponse(), kHello + kHello + kHello);
    EXPECT_EQ(Del(handle), 0);
}

TEST_F(OperTest, ResponseCodeIsThatOfTheLastResponse)
{
    StartEngine();
    for (const int status : {200, 204, 404, 503})
    {
        const auto handle = MakeHandle(Server("HTTP_URL") + "/status/" + std::to_string(status));
        EXPECT_EQ(handle->GetResponseCode(), 0);
        Run(handle);
        EXPECT_EQ(m_pNotic->m_Result, 0); // an answer, whatever it says
        EXPECT_EQ(handle->GetResponseCode(), status);
        EXPECT_EQ(Del(handle), 0);
        EXPECT_EQ(handle->GetResponseCode(), -1);
    }
}

TEST_F(OperTest, RedirectIsNotFollowed)
{
    StartEngine();
    const auto handle = MakeHandle(Server("HTTP_URL") + "/redirect");
    Run(handle);
    EXPECT_EQ(handle->GetResponseCode(), 302);
    EXPECT_EQ(Del(handle), 0);
}

TEST_F(OperTest, FailedTransferTellsMinusTwoAndHasNoResponseCode)
{
    StartEngine();
    const auto handle = MakeHandle(Server("REFUSED_URL"));
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, -2);
    EXPECT_EQ(handle->GetResponseCode(), 0);
    EXPECT_EQ(handle->GetResponse(), "");
    EXPECT_EQ(Del(handle), 0);
}

} // namespace
} // namespace test
