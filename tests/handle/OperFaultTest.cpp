#include "frame/AsynOperReq.h"
#include "frame/CHttpFrame.h"
#include "handle/CHttpHandle.h"
#include "support/EngineTest.h"
#include "support/HeldLoop.h"
#include "support/Servers.h"
#include "wrap/EasyOptions.h"

namespace test
{
namespace
{

using AddOrRemove = CURLMcode(CURLM*, CURL*);

const std::string kRemoveFailed = "[HTTP_INTERFACE]err[3:Out of memory]curl_multi_remove_handle "
                                  "failed while DelHttpReq";
const std::string kNoMultiRemove = "[HTTP_INTERFACE]err[1:Invalid multi handle]"
                                   "curl_multi_remove_handle failed while DelHttpReq";
const std::string kNoMultiAdd = "[HTTP_INTERFACE]err[1:Invalid multi handle]"
                                "curl_multi_add_handle failed while AddHttpReq";

CURLMcode NoMemory(CURLM* /*multi*/, CURL* /*easy*/)
{
    return CURLM_OUT_OF_MEMORY;
}

class OperFaultTest : public EngineTest
{
protected:
    /// A handle of this test's engine that ran; m_pEasy is its easy handle.
    std::shared_ptr<CHttpHandle> MakeUsedHandle()
    {
        const EasyOptions options;
        const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
        m_pEasy = options.All().front().easy;
        Run(handle);
        return std::static_pointer_cast<CHttpHandle>(handle);
    }

    static std::shared_ptr<AsynHttpReq> Record(const std::shared_ptr<CHttpHandle>& handle,
                                               AsynOperType type, HttpCompletion& done)
    {
        return std::make_shared<AsynHttpReq>(type, handle, &done, done.Function());
    }

    CURL* m_pEasy = nullptr;
};

TEST_F(OperFaultTest, AddThatFailsCallsItsCompletionWithMinusOne)
{
    StartEngine();
    const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    HttpCompletion done;
    HttpCompletion atOnce;
    {
        const Replaced<AddOrRemove> fails(hooks::curl_multi_add_handle(), NoMemory);
        ASSERT_EQ(m_pEngine->AddHttpReq(handle, false, done.Function(), &done), 0);
        ASSERT_TRUE(done.Wait());
        OnLoop(
            [&]
            {
                EXPECT_EQ(m_pEngine->AddHttpReq(handle, false, atOnce.Function(), nullptr), -1);
                EXPECT_EQ(atOnce.Calls(), 1);
            });
    }
    EXPECT_EQ(done.Result(), -1);
    EXPECT_EQ(done.User(), &done);
    EXPECT_EQ(done.Target(), handle);
    EXPECT_EQ(atOnce.Result(), -1);
    EXPECT_EQ(m_Log.Texts(kError),
              std::vector<std::string>(2, "[HTTP_INTERFACE]err[3:Out of memory]"
                                          "curl_multi_add_handle failed while AddHttpReq"));
    Run(handle); // it is still usable
    EXPECT_EQ(m_pNotic->m_Result, 0);
    Delete(handle);
}

TEST_F(OperFaultTest, DeleteThatFailsStillCleansUp)
{
    StartEngine();
    const auto handle = MakeUsedHandle();
    HttpCompletion done;
    {
        const Replaced<AddOrRemove> fails(hooks::curl_multi_remove_handle(), NoMemory);
        ASSERT_EQ(m_pEngine->DelHttpReq(handle, false, done.Function(), &done), 0);
        ASSERT_TRUE(done.Wait());
        OnLoop([] {});
    }
    EXPECT_EQ(done.Result(), -1);
    EXPECT_EQ(m_Log.Texts(kError), std::vector<std::string>{kRemoveFailed});
    EXPECT_EQ(handle->GetResponseCode(), -1);
    EXPECT_EQ(m_pNotic.use_count(), 1);
}

TEST_F(OperFaultTest, DeleteRemovesThenCompletesThenCleansUp)
{
    StartEngine();
    const auto handle = MakeUsedHandle();
    const CallRecorder calls;
    const auto of = [&](const std::string& name)
    {
        int count = 0;
        for (const Call& call : calls.Calls({name}))
        {
            count += call.subject == m_pEasy ? 1 : 0;
        }
        return count;
    };
    OnLoop(
        [&]
        {
            EXPECT_EQ(m_pEngine->DelHttpReq(
                          handle, false,
                          [&](std::shared_ptr<IHttpHandleInterface>, void*, int result)
                          {
                              EXPECT_EQ(result, 0);
                              EXPECT_EQ(of("curl_multi_remove_handle"), 1);
                              EXPECT_EQ(of("curl_easy_cleanup"), 0);
                          },
                          nullptr),
                      0);
            EXPECT_EQ(of("curl_easy_cleanup"), 1);
        });
}

TEST_F(OperFaultTest, DisconnectThatFailsNeitherCompletesNorCleansUp)
{
    StartEngine();
    const auto handle = MakeUsedHandle();
    {
        const Replaced<AddOrRemove> fails(hooks::curl_multi_remove_handle(), NoMemory);
        OnLoop([&] { EXPECT_EQ(handle->Disconnect(), -1); });
        EXPECT_EQ(m_Log.Texts(kError), std::vector<std::string>{kRemoveFailed});
        EXPECT_EQ(handle->Disconnect(), 0); // queued: nobody is told
        OnLoop([] {});
    }
    EXPECT_EQ(m_Log.Texts(kError), std::vector<std::string>(2, kRemoveFailed));
    EXPECT_EQ(handle->GetResponseCode(), 200);
    Run(handle);
    Delete(handle);
}

TEST_F(OperFaultTest, CancelCallsNoCompletionAndCleansNothingUp)
{
    StartEngine();
    const auto handle = MakeUsedHandle();
    HttpCompletion done;
    OnLoop(
        [&]
        {
            const auto req = Record(handle, ASYN_OPER_CANCEL_HTTP, done);
            EXPECT_EQ(handle->DoAsynOper(req, nullptr), 0);
            const Replaced<AddOrRemove> fails(hooks::curl_multi_remove_handle(), NoMemory);
            EXPECT_EQ(handle->DoAsynOper(req, nullptr), -1);
        });
    EXPECT_EQ(done.Calls(), 0);
    EXPECT_EQ(m_Log.Texts(kError), std::vector<std::string>{kRemoveFailed});
    EXPECT_EQ(handle->GetResponseCode(), 200);
    Delete(handle);
}

TEST_F(OperFaultTest, DisconnectOnTheLoopThreadQueuesNothing)
{
    StartEngine();
    const auto handle = MakeUsedHandle();
    OnLoop(
        [&]
        {
            const CallRecorder calls;
            EXPECT_EQ(handle->Disconnect(), 0);
            EXPECT_EQ(calls.Count("curl_multi_remove_handle"), 1);
            EXPECT_EQ(calls.Count("uv_async_send"), 0);
        });
    HeldLoop held(m_pEngine);
    const CallRecorder calls;
    EXPECT_EQ(handle->Disconnect(), 0);
    EXPECT_EQ(calls.Count("curl_multi_remove_handle"), 0);
    EXPECT_EQ(calls.Count("uv_async_send"), 1);
    held.Release();
    Delete(handle);
}

TEST_F(OperFaultTest, UnknownOperationDoesNothing)
{
    const auto handle = std::make_shared<CHttpHandle>();
    const CallRecorder calls;
    for (const int type : {4, 5, 6, 7, 8, -1})
    {
        HttpCompletion done;
        EXPECT_EQ(
            handle->DoAsynOper(Record(handle, static_cast<AsynOperType>(type), done), nullptr), 0);
        EXPECT_EQ(done.Calls(), 0);
    }
    EXPECT_TRUE(calls.Calls().empty());
    EXPECT_TRUE(m_Log.Lines().empty());
}

TEST_F(OperFaultTest, OnlyAddsAreCancelled)
{
    const auto handle = std::make_shared<CHttpHandle>();
    HttpCompletion done;
    EXPECT_TRUE(handle->CancelAsynOper(Record(handle, ASYN_OPER_ADD_HTTP, done)));
    EXPECT_EQ(done.Calls(), 1);
    EXPECT_EQ(done.Result(), -1);
    EXPECT_EQ(done.User(), &done);
    EXPECT_EQ(done.Target(), handle);
    EXPECT_TRUE(handle->CancelAsynOper(
        std::make_shared<AsynHttpReq>(ASYN_OPER_ADD_HTTP, handle, nullptr, nullptr)));

    const CallRecorder calls;
    for (const int type : {1, 2, 3, 4, 5, 6, 7, 8})
    {
        EXPECT_FALSE(handle->CancelAsynOper(Record(handle, static_cast<AsynOperType>(type), done)));
    }
    EXPECT_EQ(done.Calls(), 1);
    EXPECT_TRUE(calls.Calls().empty());
    EXPECT_TRUE(m_Log.Lines().empty());
}

// The engine that performs an operation is not asked for its multi handle: the
// handle has a reference of its own, from its add on.
TEST_F(OperFaultTest, MultiHandleIsThatOfTheHandlesOwnEngine)
{
    StartEngine();
    const auto handle = std::static_pointer_cast<CHttpHandle>(MakeHandle("http://localhost/"));
    HttpCompletion done;
    OnLoop(
        [&]
        {
            const auto frame = std::static_pointer_cast<CHttpFrame>(m_pEngine);
            EXPECT_EQ(handle->DoAsynOper(Record(handle, ASYN_OPER_ADD_HTTP, done), frame), -1);
            EXPECT_EQ(done.Calls(), 1);
            EXPECT_EQ(done.Result(), -1);
            EXPECT_EQ(handle->DoAsynOper(Record(handle, ASYN_OPER_CANCEL_HTTP, done), frame), -1);
            EXPECT_EQ(handle->DoAsynOper(Record(handle, ASYN_OPER_DEL_HTTP, done), frame), -1);
        });
    EXPECT_EQ(done.Calls(), 2);
    EXPECT_EQ(m_Log.Texts(kError),
              (std::vector<std::string>{kNoMultiAdd, kNoMultiRemove, kNoMultiRemove}));
    EXPECT_EQ(handle->GetResponseCode(), -1);
}

TEST_F(OperFaultTest, HandleWithoutASharedOwnerThrowsWhereItNamesItself)
{
    CHttpHandle handle;
    HttpCompletion done;
    const auto add =
        std::make_shared<AsynHttpReq>(ASYN_OPER_ADD_HTTP, nullptr, nullptr, done.Function());
    EXPECT_THROW(handle.DoAsynOper(add, nullptr), std::bad_weak_ptr);
    EXPECT_THROW(handle.CancelAsynOper(add), std::bad_weak_ptr);
    const auto del =
        std::make_shared<AsynHttpReq>(ASYN_OPER_DEL_HTTP, nullptr, nullptr, done.Function());
    EXPECT_THROW(handle.DoAsynOper(del, nullptr), std::bad_weak_ptr);
    EXPECT_EQ(done.Calls(), 0);
}

TEST_F(OperFaultTest, ResponseCodeThatCantBeReadIsLogged)
{
    StartEngine();
    const auto handle = MakeUsedHandle();
    {
        const Replaced<CURLcode(CURL*, CURLINFO, void*)> fails(
            hooks::curl_easy_getinfo(),
            [](CURL* easy, CURLINFO info, void* value)
            {
                return info == CURLINFO_RESPONSE_CODE
                           ? CURLE_UNKNOWN_OPTION
                           : hooks::curl_easy_getinfo().Real(easy, info, value);
            });
        EXPECT_EQ(handle->GetResponseCode(), -1);
    }
    EXPECT_EQ(m_Log.Texts(kError),
              std::vector<std::string>{
                  "[HTTP_INTERFACE]err[48:An unknown option was passed in to libcurl]"
                  "curl_easy_getinfo CURLINFO_RESPONSE_CODE failed"});
    EXPECT_EQ(m_Log.Find(m_Log.Texts(kError).front()).threadId, base::GetTid());
    EXPECT_EQ(handle->GetResponseCode(), 200);
    Delete(handle);
}

} // namespace
} // namespace test
