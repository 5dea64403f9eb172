#include "faults/Request.h"

#include "support/EngineTest.h"
#include "support/Pattern.h"
#include "support/Servers.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace test
{
namespace
{

constexpr int kText = 1;
constexpr std::size_t kBodySize = 3000;
constexpr char kBody[] = "a=1&b=2";
constexpr char kHello[] = "hello";

/// The folder of the uploads is not cleaned: one name for all.
constexpr char kUploadName[] = "/dav/fault-upload";

} // namespace

Request::Request(Host& host, const std::shared_ptr<IHttpInterface>& engine, Part part)
    : m_Host(host),
      m_pEngine(engine),
      m_Part(part),
      m_pHello(std::make_shared<std::vector<char>>(kHello, kHello + sizeof kHello - 1))
{
}

std::string Request::Url() const
{
    switch (m_Part)
    {
    case kPostPart:
        return Server("HOSTILE_URL") + "/post-echo";
    case kUploadPart:
        return Server("HTTP_URL") + kUploadName;
    case kTlsPart:
        return Server("HTTPS_URL") + "/hello";
    case kWebSocketPart:
    case kDeletedPart:
        return Server("WS_URL") + "/echo";
    default:
        return Server("HTTP_URL") + "/hello";
    }
}

int Request::Method() const
{
    switch (m_Part)
    {
    case kPostPart:
        return kPost;
    case kUploadPart:
        return kUpload;
    case kWebSocketPart:
    case kDeletedPart:
        return kWebSocket;
    default:
        return kGet;
    }
}

void Request::Prepare()
{
    Init();
    SetOptions();
}

// A handle for which libcurl made no easy handle is refused for good.
void Request::Init()
{
    const std::string url = Url();
    const std::shared_ptr<IHttpHandleNotic> self = shared_from_this();
    const auto create = [&]
    {
        m_pHandle = IHttpHandleInterface::Create();
        return 0;
    };
    const auto init = [&]
    {
        return m_pHandle->InitRequest(url.c_str(), "tag", Method(), self, 0,
                                      m_Host.Options().timeoutMs, this);
    };
    ASSERT_TRUE(m_Host.Ask(create));
    if (!m_Host.Ask(init))
    {
        m_bDeadHandle = true;
        ASSERT_TRUE(m_Host.Ask(create));
        ASSERT_TRUE(m_Host.Ask(init));
    }
    EXPECT_EQ(m_pHandle->GetUrl(), url);
    EXPECT_EQ(m_pHandle->GetTag(), "tag");
}

void Request::SetOptions()
{
    if (Is(kGetPart))
    {
        EXPECT_TRUE(m_Host.Ask([&] { return m_pHandle->SetHeaders(&m_Headers); }));
        EXPECT_TRUE(m_Host.Ask([&] { return m_pHandle->EnableVerbose(); }));
        EXPECT_TRUE(m_Host.Ask([&] { return m_pHandle->SetProgress(true); }));
    }
    if (Is(kPostPart))
    {
        EXPECT_TRUE(m_Host.Ask([&] { return m_pHandle->SetPostFields(kBody); }));
    }
    if (Is(kUploadPart))
    {
        EXPECT_TRUE(m_Host.Ask([&] { return m_pHandle->SetUploadSize(kBodySize); }));
    }
    if (Is(kDownloadPart))
    {
        const std::string path = m_File.Path();
        EXPECT_TRUE(m_Host.Ask([&] { return m_pHandle->SetDownloadFile(path.c_str()); }));
    }
    if (Is(kTlsPart))
    {
        const std::string ca = Server("CA_FILE");
        EXPECT_TRUE(m_Host.Ask([&] { return m_pHandle->SetCaCert(ca.c_str()); }));
    }
}

void Request::Add()
{
    ASSERT_TRUE(m_Host.Ask([this] { return AddOnce(); }));
    if (m_Host.Wait(m_Added, 1) && m_AddResult != 0)
    {
        m_Host.Refused();
        ASSERT_TRUE(m_Host.Ask([this] { return AddOnce(); }));
        m_Host.Wait(m_Added, 2);
    }
}

int Request::AddOnce()
{
    HttpReqCallback done = [this](std::shared_ptr<IHttpHandleInterface>, void*, int result)
    {
        const TestCode inTest;
        m_AddResult = result;
        m_Added.Set();
    };
    const int result = m_pEngine->AddHttpReq(m_pHandle, true, std::move(done), nullptr);
    m_Adds += result == 0 ? 1 : 0;
    return result;
}

// A WebSocket is silent about its end: what libcurl takes out counts as one.
void Request::Talk()
{
    const auto wait = [this](int count)
    {
        return m_Host.Wait(m_Step, count);
    };
    m_bOver = wait(1);
    if (m_bOver && Is(kWebSocketPart) && !m_bTakenOut)
    {
        EXPECT_TRUE(SendHello());
        m_bOver = wait(2);
    }
}

bool Request::SendHello()
{
    return m_Host.Ask([this] { return m_pHandle->SendWsData(m_pHello, kText, &m_Sent); });
}

void Request::Delete()
{
    if (!m_bDeleting.exchange(true))
    {
        EXPECT_TRUE(DeleteWith(true));
    }
    m_Host.Wait(m_Deleted, m_Deletes);
}

bool Request::DeleteWith(bool async)
{
    return m_Host.Ask(
        [this, async]
        {
            HttpReqCallback done = [this](std::shared_ptr<IHttpHandleInterface>, void*, int)
            {
                const TestCode inTest;
                m_Deleted.Set();
            };
            const int result = m_pEngine->DelHttpReq(m_pHandle, async, std::move(done), nullptr);
            EXPECT_EQ(result, async ? 0 : -1); // libcurl does not let go inside of a notice
            ++m_Deletes;
            return 0;
        });
}

void Request::OnTakenOut(const std::shared_ptr<IHttpHandleInterface>& handle)
{
    if (handle == m_pHandle && IsWebSocket())
    {
        m_bTakenOut = true;
        m_Step.Set();
        m_Step.Set();
    }
}

void Request::OnWsData(const char* data, std::size_t len, int type, void* user)
{
    const TestCode inTest;
    EXPECT_EQ(user, this);
    EXPECT_EQ(type, kText);
    const std::string message(data, len);
    if (message == "ready" && Is(kDeletedPart))
    {
        if (!m_bDeleting.exchange(true))
        {
            EXPECT_TRUE(DeleteWith(false));
        }
        m_Step.Set();
    }
    else if (message == "ready")
    {
        EXPECT_TRUE(SendHello());
    }
    else
    {
        EXPECT_EQ(message, kHello);
        ++m_Replies;
        m_Step.Set();
    }
}

std::size_t Request::OnReadData(std::shared_ptr<IHttpHandleInterface>, char* buffer,
                                std::size_t size, std::size_t nitems, void*)
{
    const TestCode inTest;
    const std::size_t count = std::min(size * nitems, kBodySize - m_Supplied);
    FillPattern(buffer, m_Supplied, count);
    m_Supplied += count;
    return count;
}

void Request::OnFinish(std::shared_ptr<IHttpHandleInterface> handle, int result, void* user)
{
    const TestCode inTest;
    EXPECT_EQ(user, this);
    EXPECT_EQ(handle, m_pHandle);
    ++m_Finishes;
    m_FailedFinishes += result == 0 ? 0 : 1;
    // A WebSocket ends silently once libcurl knows that it is one.
    EXPECT_TRUE(result == -2 || (result == 0 && !IsWebSocket())) << result;
    if (result == 0)
    {
        long code = -1;
        EXPECT_TRUE(m_Host.Ask(
            [&]
            {
                code = handle->GetResponseCode();
                return code == -1 ? -1 : 0;
            }));
        EXPECT_TRUE(code == 200 || (Is(kUploadPart) && (code == 201 || code == 204))) << code;
        EXPECT_EQ(Received(), Is(kPostPart) ? kBody : Is(kUploadPart) ? "" : "hello from nginx\n");
    }
    m_Step.Set();
}

std::string Request::Received() const
{
    return Is(kDownloadPart) ? ReadFile(m_File.Path()) : m_pHandle->GetResponse();
}

void Request::ExpectAnswered()
{
    EXPECT_EQ(m_Added.Count(), m_Adds);
    EXPECT_EQ(m_Deleted.Count(), m_Deletes);
    EXPECT_LE(m_Finishes, 1);
    const std::weak_ptr<IHttpHandleInterface> handle = m_pHandle;
    m_pHandle.reset();
    EXPECT_TRUE(handle.expired());
}

} // namespace test
