/// Whole transfers against nginx, as a host makes them.

#include "support/AccessLog.h"
#include "support/EngineTest.h"
#include "support/Servers.h"
#include "support/Transfers.h"

#include <algorithm>
#include <cstring>

namespace test
{
namespace
{

using HandlePtr = std::shared_ptr<IHttpHandleInterface>;

class TransferTest : public EngineTest
{
protected:
    void SetUp() override
    {
        m_Http = Server("HTTP_URL");
        StartEngine();
    }

    std::string m_Http;
};

TEST_F(TransferTest, NoticeComesOnceOnTheLoopThreadWithTheRequest)
{
    long loopThread = 0;
    OnLoop([&] { loopThread = base::GetTid(); });
    const HandlePtr handle = MakeHandle(m_Http + "/hello");
    HandlePtr reported;
    m_pNotic->m_OnFinish = [&](const HandlePtr& it, int)
    {
        reported = it;
        EXPECT_EQ(it->GetResponse(), "hello from nginx\n");
        EXPECT_EQ(it->GetResponseCode(), 200);
    };
    Run(handle);
    EXPECT_EQ(m_pNotic->m_ThreadId, loopThread);
    EXPECT_EQ(m_pNotic->m_User, &m_UserData);
    EXPECT_EQ(reported, handle);
    EXPECT_EQ(handle->GetUserData(), &m_UserData);
    EXPECT_EQ(handle->GetUrl(), m_Http + "/hello");
    EXPECT_EQ(handle->GetTag(), "tag");
    Delete(handle);
    StopEngine();
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 1);
    EXPECT_EQ(m_Log.Count(kDebug, DoneLine(m_Http + "/hello", kNoError)), 1);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(TransferTest, EveryStatusIsASuccessAndKeepsItsCode)
{
    for (const long status :
         {200L, 201L, 204L, 400L, 401L, 403L, 404L, 410L, 429L, 500L, 502L, 503L, 504L})
    {
        const std::string number = std::to_string(status);
        const HandlePtr handle = MakeHandle(m_Http + "/status/" + number);
        Run(handle);
        EXPECT_EQ(m_pNotic->m_Result, 0) << status;
        EXPECT_EQ(handle->GetResponseCode(), status);
        EXPECT_EQ(handle->GetResponse(), status == 204 ? "" : "status " + number + "\n");
        Delete(handle);
    }
}

TEST_F(TransferTest, RedirectIsNotFollowed)
{
    const HandlePtr handle = MakeHandle(m_Http + "/redirect");
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, 0);
    EXPECT_EQ(handle->GetResponseCode(), 302);
    EXPECT_EQ(handle->GetResponse().find("hello"), std::string::npos);
    Delete(handle);
}

TEST_F(TransferTest, EmptyBodyLeavesTheResponseEmpty)
{
    const HandlePtr handle = MakeHandle(m_Http + "/empty");
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, 0);
    EXPECT_EQ(handle->GetResponse(), "");
    EXPECT_EQ(handle->GetResponseCode(), 200);
    Delete(handle);
}

TEST_F(TransferTest, BinaryBodyOfEverySizeArrivesByteForByte)
{
    for (const char* const size : {"0", "1", "1k", "64k", "1m", "16m"})
    {
        const std::string expected = ReadFile(Server("WWW_DIR") + "/bytes/" + size);
        const HandlePtr handle = MakeHandle(m_Http + "/bytes/" + size);
        Run(handle);
        EXPECT_EQ(m_pNotic->m_Result, 0);
        EXPECT_EQ(handle->GetResponse().size(), expected.size());
        // Not EXPECT_EQ on the bodies: a difference would print them.
        EXPECT_TRUE(handle->GetResponse() == expected) << size;
        Delete(handle);
    }
}

TEST_F(TransferTest, EachMethodSendsItsVerb)
{
    const std::pair<int, const char*> expected[] = {{kGet, "GET\n"}, {kPost, "POST\n"}};
    for (const auto& [method, verb] : expected)
    {
        const HandlePtr handle = MakeHandle(m_Http + "/echo-method", method);
        if (method == kPost)
        {
            ASSERT_EQ(handle->SetPostFields("a=b"), 0);
        }
        Run(handle);
        EXPECT_EQ(m_pNotic->m_Result, 0);
        EXPECT_EQ(handle->GetResponse(), verb);
        Delete(handle);
    }
}

TEST_F(TransferTest, PostSendsItsFieldsAndReadsTheAnswer)
{
    const HandlePtr handle = MakeHandle(Server("HOSTILE_URL") + "/post-echo", kPost);
    ASSERT_EQ(handle->SetPostFields("name=value&empty="), 0);
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, 0);
    EXPECT_EQ(handle->GetResponse(), "name=value&empty=");
    Delete(handle);
}

TEST_F(TransferTest, UploadPutsTheBytesThatTheNoticeSupplies)
{
    const std::string body = ReadFile(Server("WWW_DIR") + "/bytes/64k");
    const std::string name = "/dav/transfer-" + UniqueKey();
    const HandlePtr handle = MakeHandle(m_Http + name, kUpload);
    ASSERT_EQ(handle->SetUploadSize(static_cast<std::int64_t>(body.size())), 0);
    std::size_t sent = 0;
    m_pNotic->m_OnReadData = [&](const HandlePtr&, char* buffer, std::size_t room)
    {
        const std::size_t count = std::min(room, body.size() - sent);
        std::memcpy(buffer, body.data() + sent, count);
        sent += count;
        return count;
    };
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, 0);
    EXPECT_EQ(handle->GetResponseCode(), 201);
    EXPECT_TRUE(ReadFile(Server("DAV_DIR") + name.substr(4)) == body);
    Delete(handle);
}

TEST_F(TransferTest, LaterRequestsReuseTheConnection)
{
    const std::string key = UniqueKey();
    for (int i = 1; i != 4; ++i)
    {
        const HandlePtr handle = MakeHandle(m_Http + "/hello?" + key);
        Run(handle);
        EXPECT_EQ(m_pNotic->m_Result, 0);
        Delete(handle);
    }
    const std::vector<Access> accesses = WaitForAccesses("/hello?" + key, 3);
    ASSERT_EQ(accesses.size(), 3U);
    EXPECT_EQ(accesses[1].connection, accesses[0].connection);
    EXPECT_EQ(accesses[2].connection, accesses[0].connection);
}

TEST_F(TransferTest, FiftyAtOnceAllArriveWithTheirOwnBytes)
{
    constexpr int kRequests = 50;
    const std::string expected = ReadFile(Server("WWW_DIR") + "/bytes/64k");
    std::vector<HandlePtr> handles;
    std::vector<std::shared_ptr<HandleNotic>> notics;
    for (int i = 0; i != kRequests; ++i)
    {
        handles.push_back(MakeHandle(m_Http + "/bytes/64k?" + std::to_string(i)));
        notics.push_back(m_pNotic);
    }
    for (const HandlePtr& handle : handles)
    {
        ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
    }
    for (int i = 0; i != kRequests; ++i)
    {
        const auto at = static_cast<std::size_t>(i);
        ASSERT_TRUE(notics[at]->m_Finished.Wait());
        EXPECT_EQ(notics[at]->m_Result, 0);
        EXPECT_TRUE(handles[at]->GetResponse() == expected);
        EXPECT_EQ(m_Log.Count(kDebug, DoneLine(handles[at]->GetUrl(), kNoError)), 1);
        Delete(handles[at]);
    }
    StopEngine();
    for (const auto& notic : notics)
    {
        EXPECT_EQ(notic->m_Finished.Count(), 1);
    }
}

TEST_F(TransferTest, RequestsWaitForEachOtherOnlyAtTheServer)
{
    // Three wait at the server at once; each would hang if they ran in turn.
    const std::string hold = Server("HOSTILE_URL") + "/hold?key=" + UniqueKey();
    const std::string key = hold.substr(hold.find("key="));
    std::vector<HandlePtr> handles;
    std::vector<std::shared_ptr<HandleNotic>> notics;
    for (int i = 0; i != 3; ++i)
    {
        handles.push_back(MakeHandle(hold));
        notics.push_back(m_pNotic);
        ASSERT_EQ(m_pEngine->AddHttpReq(handles.back(), true, nullptr, nullptr), 0);
    }
    const HandlePtr count = MakeHandle(Server("HOSTILE_URL") + "/count?min=3&" + key);
    Run(count);
    EXPECT_EQ(count->GetResponse(), "3");
    const HandlePtr release = MakeHandle(Server("HOSTILE_URL") + "/release?" + key);
    Run(release);
    EXPECT_EQ(release->GetResponse(), "3");
    for (std::size_t i = 0; i != handles.size(); ++i)
    {
        ASSERT_TRUE(notics[i]->m_Finished.Wait());
        EXPECT_EQ(handles[i]->GetResponse(), "released\n");
        Delete(handles[i]);
    }
    Delete(count);
    Delete(release);
}

TEST_F(TransferTest, IPv6AddressIsReached)
{
    const HandlePtr handle = MakeHandle(Server("HTTP6_URL") + "/hello");
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, 0);
    EXPECT_EQ(handle->GetResponse(), "hello from nginx\n");
    Delete(handle);
}

TEST_F(TransferTest, TwoEnginesRunAtOnceOnThreadsOfTheirOwn)
{
    const auto other = IHttpInterface::Create();
    ASSERT_EQ(other->Init(nullptr, nullptr), 0);
    ASSERT_EQ(other->Start(true), 0);
    const HandlePtr first = MakeHandle(m_Http + "/bytes/1m");
    const auto firstNotic = m_pNotic;
    const HandlePtr second = MakeHandle(m_Http + "/bytes/1m");
    ASSERT_EQ(m_pEngine->AddHttpReq(first, true, nullptr, nullptr), 0);
    ASSERT_EQ(other->AddHttpReq(second, true, nullptr, nullptr), 0);
    ASSERT_TRUE(firstNotic->m_Finished.Wait());
    ASSERT_TRUE(m_pNotic->m_Finished.Wait());
    EXPECT_EQ(firstNotic->m_Result, 0);
    EXPECT_EQ(m_pNotic->m_Result, 0);
    EXPECT_NE(firstNotic->m_ThreadId, m_pNotic->m_ThreadId);
    EXPECT_TRUE(first->GetResponse() == second->GetResponse());
    Delete(first);
    HttpCompletion deleted;
    ASSERT_EQ(other->DelHttpReq(second, true, deleted.Function(), nullptr), 0);
    ASSERT_TRUE(deleted.Wait());
    EXPECT_EQ(other->Stop(false), 0);
}

TEST_F(TransferTest, EngineThatIsStartedAgainTransfersAgain)
{
    for (int round = 0; round != 3; ++round)
    {
        const HandlePtr handle = MakeHandle(m_Http + "/hello");
        Run(handle);
        EXPECT_EQ(m_pNotic->m_Result, 0);
        Delete(handle);
        StopEngine();
        StartEngine();
    }
}

} // namespace
} // namespace test
