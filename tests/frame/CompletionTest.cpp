#include "support/EngineTest.h"
#include "support/HeldLoop.h"
#include "support/Servers.h"

namespace test
{
namespace
{

using Texts = std::vector<std::string>;
using HandlePtr = std::shared_ptr<IHttpHandleInterface>;

class CompletionTest : public EngineTest
{
protected:
    void SetUp() override
    {
        m_Url = Server("HTTP_URL") + "/hello";
        m_Done = "[HTTP_INTERFACE]" + m_Url + " DONE result[0:No error]";
        StartEngine();
    }

    std::string m_Url;
    std::string m_Done;
};

TEST_F(CompletionTest, SuccessIsReportedWithZeroAndLoggedOnTheLoopThread)
{
    const HandlePtr handle = MakeHandle(m_Url);
    HandlePtr reported;
    m_pNotic->m_OnFinish = [&](const HandlePtr& it, int)
    {
        reported = it;
    };
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, 0);
    EXPECT_EQ(m_pNotic->m_User, &m_UserData);
    EXPECT_EQ(reported, handle);
    EXPECT_EQ(m_Log.Count(kDebug, m_Done), 1);
    const LogLine line = m_Log.Find(m_Done);
    EXPECT_EQ(line.format, "[HTTP_INTERFACE]%s DONE result[%d:%s]");
    EXPECT_EQ(line.threadId, m_pNotic->m_ThreadId);
    EXPECT_NE(line.threadId, base::GetTid());
    Delete(handle);
    StopEngine();
    EXPECT_EQ(m_pEngineNotic->m_ThreadId, line.threadId);
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 1);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(CompletionTest, FailureIsReportedWithMinusTwo)
{
    const std::string url = Server("HOSTILE_URL") + "/silence";
    const HandlePtr handle = MakeHandle(url, kGet, 100);
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, -2);
    EXPECT_EQ(
        m_Log.Count(kDebug, "[HTTP_INTERFACE]" + url + " DONE result[28:Timeout was reached]"), 1);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
    Delete(handle);
}

TEST_F(CompletionTest, RequestWithoutANoticeIsOnlyLogged)
{
    const auto handle = IHttpHandleInterface::Create();
    ASSERT_EQ(handle->InitRequest(m_Url.c_str(), nullptr, kGet, nullptr, 20000, 20000, nullptr), 0);
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
    ASSERT_TRUE(m_Log.WaitFor(m_Done));
    Delete(handle); // queued behind the completion
    EXPECT_EQ(handle->GetResponse(), "hello from nginx\n");
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(CompletionTest, FinishedTransferIsOutOfTheEngineAndMayBeAddedAgain)
{
    const HandlePtr handle = MakeHandle(m_Url);
    Run(handle);
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 2);
    EXPECT_EQ(m_Log.Count(kDebug, m_Done), 2);
    // The response is one member: what the second run brings is appended.
    EXPECT_EQ(handle->GetResponse(), "hello from nginx\nhello from nginx\n");
    EXPECT_TRUE(m_Log.Texts(kError).empty());
    Delete(handle);
}

TEST_F(CompletionTest, NoticeMayAddItsRequestAgain)
{
    const HandlePtr handle = MakeHandle(m_Url);
    int rounds = 0;
    m_pNotic->m_OnFinish = [&](const HandlePtr& it, int)
    {
        if (++rounds < 4)
        {
            EXPECT_EQ(m_pEngine->AddHttpReq(it, rounds % 2 == 0, nullptr, nullptr), 0);
        }
    };
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
    ASSERT_TRUE(m_pNotic->m_Finished.Wait(4));
    EXPECT_TRUE(m_Log.Texts(kError).empty());
    Delete(handle);
}

TEST_F(CompletionTest, NoticeMayAddAnotherRequestAndATimer)
{
    const HandlePtr second = MakeHandle(m_Url);
    const auto secondNotic = m_pNotic;
    const auto timerNotic = std::make_shared<TimerNotic>();
    const auto timer = ITimerHandleInterface::Create(timerNotic, 1, 0, nullptr);
    const HandlePtr first = MakeHandle(m_Url);
    m_pNotic->m_OnFinish = [&](const HandlePtr&, int)
    {
        EXPECT_EQ(m_pEngine->AddHttpReq(second, false, nullptr, nullptr), 0);
        EXPECT_EQ(m_pEngine->AddTimerReq(timer, true, nullptr, nullptr), 0);
    };
    Run(first);
    EXPECT_TRUE(secondNotic->m_Finished.Wait());
    EXPECT_EQ(secondNotic->m_Result, 0);
    EXPECT_TRUE(timerNotic->m_Expired.Wait());
    ASSERT_EQ(m_pEngine->DelTimerReq(timer, true, nullptr, nullptr), 0);
    EXPECT_TRUE(timerNotic->m_Closed.Wait());
    Delete(first);
    Delete(second);
}

TEST_F(CompletionTest, NoticeMayDeleteItsRequestAtOnce)
{
    HandlePtr handle = MakeHandle(m_Url);
    const std::weak_ptr<IHttpHandleInterface> weakHandle = handle;
    const std::weak_ptr<HandleNotic> weakNotic = m_pNotic;
    Event finished;
    HttpCompletion deleted;
    m_pNotic->m_OnFinish = [&, engine = m_pEngine.get()](const HandlePtr& it, int)
    {
        EXPECT_EQ(it->GetResponse(), "hello from nginx\n");
        EXPECT_EQ(engine->DelHttpReq(it, false, deleted.Function(), nullptr), 0);
        EXPECT_EQ(deleted.Calls(), 1);
        EXPECT_FALSE(weakHandle.expired());
        EXPECT_FALSE(weakNotic.expired()) << "the notice must outlive its own call";
        finished.Set();
    };
    m_pNotic.reset();
    ASSERT_EQ(m_pEngine->AddHttpReq(std::move(handle), true, nullptr, nullptr), 0);
    ASSERT_TRUE(finished.Wait());
    StopEngine();
    EXPECT_TRUE(weakNotic.expired());
}

TEST_F(CompletionTest, RequestDeletedInItsNoticeIsReleased)
{
    HandlePtr handle = MakeHandle(m_Url);
    const std::weak_ptr<IHttpHandleInterface> weakHandle = handle;
    m_pNotic->m_OnFinish = [&](const HandlePtr& it, int)
    {
        EXPECT_EQ(m_pEngine->DelHttpReq(it, true, nullptr, nullptr), 0);
    };
    ASSERT_EQ(m_pEngine->AddHttpReq(std::move(handle), true, nullptr, nullptr), 0);
    ASSERT_TRUE(m_pNotic->m_Finished.Wait());
    StopEngine(); // performs the delete at the latest
    EXPECT_TRUE(weakHandle.expired());
}

TEST_F(CompletionTest, NoticeMayDeleteAnotherRequestThatHasFinishedToo)
{
    // Both end in one action of libcurl; the first to be told deletes both.
    std::vector<HandlePtr> handles{MakeHandle("nothing://host/1")};
    const auto firstNotic = m_pNotic;
    handles.push_back(MakeHandle("nothing://host/2"));
    const auto secondNotic = m_pNotic;
    Event told;
    const auto deleteBoth = [&](const HandlePtr&, int)
    {
        for (const HandlePtr& handle : handles)
        {
            m_pEngine->DelHttpReq(handle, false, nullptr, nullptr);
        }
        handles.clear();
        told.Set();
    };
    firstNotic->m_OnFinish = deleteBoth;
    secondNotic->m_OnFinish = deleteBoth;
    OnLoop(
        [&]
        {
            for (const HandlePtr& handle : handles)
            {
                EXPECT_EQ(m_pEngine->AddHttpReq(handle, false, nullptr, nullptr), 0);
            }
        });
    ASSERT_TRUE(told.Wait());
    StopEngine();
    EXPECT_EQ(told.Count(), 1) << "a deleted request is not reported";
}

TEST_F(CompletionTest, NoticeMayStopTheEngine)
{
    const HandlePtr handle = MakeHandle(m_Url);
    Event ended;
    m_pNotic->m_OnFinish = [&](const HandlePtr& it, int)
    {
        SetAtThreadEnd(ended);
        m_pEngine->DelHttpReq(it, false, nullptr, nullptr);
        EXPECT_EQ(m_pEngine->Stop(false), 0);
    };
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
    ASSERT_TRUE(ended.Wait());
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 1);
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 1);
}

TEST_F(CompletionTest, EveryRequestOfManyIsReportedOnce)
{
    constexpr int kRequests = 50;
    std::vector<HandlePtr> handles;
    std::vector<std::shared_ptr<HandleNotic>> notics;
    for (int i = 0; i != kRequests; ++i)
    {
        handles.push_back(MakeHandle(m_Url));
        notics.push_back(m_pNotic);
        ASSERT_EQ(m_pEngine->AddHttpReq(handles.back(), true, nullptr, nullptr), 0);
    }
    for (const auto& notic : notics)
    {
        ASSERT_TRUE(notic->m_Finished.Wait());
    }
    for (const HandlePtr& handle : handles)
    {
        Delete(handle);
    }
    StopEngine();
    for (const auto& notic : notics)
    {
        EXPECT_EQ(notic->m_Finished.Count(), 1);
        EXPECT_EQ(notic->m_Result, 0);
    }
    EXPECT_EQ(m_Log.Count(kDebug, m_Done), kRequests);
}

} // namespace
} // namespace test
