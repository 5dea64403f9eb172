/// The places of the matrix, and the calls that are made there.

#include "frame/CallMatrixFixture.h"
#include "support/HeldLoop.h"
#include "support/Servers.h"

namespace test
{
namespace
{

constexpr std::uint64_t kNeverMs = 1000 * 1000;

#ifdef _WIN32
constexpr char kNoFile[] = "NUL";
#else
constexpr char kNoFile[] = "/dev/null";
#endif

} // namespace

void CallMatrixFixture::InOnFinish(const Probe& probe)
{
    m_pOwnRequest = Request(Server("HTTP_URL") + "/hello");
    m_pNotic->m_OnFinish = [once = Once(probe)](const HandlePtr&, int) mutable
    {
        once();
    };
    AddAndWait(m_pOwnRequest);
    EXPECT_TRUE(m_pProbed->Wait());
}

void CallMatrixFixture::InOnWsData(const Probe& probe)
{
    m_pOwnRequest = Request(Server("WS_URL") + "/echo", kWebSocket);
    m_pNotic->m_OnWsData = [once = Once(probe)](const HandleNotic::Message&) mutable
    {
        once();
    };
    AddAndWait(m_pOwnRequest);
    EXPECT_TRUE(m_pProbed->Wait());
}

void CallMatrixFixture::InOnProgress(const Probe& probe)
{
    m_pOwnRequest = Silent();
    m_pNotic->m_OnProgress = [once = Once(probe)](const HandleNotic::Progress&) mutable
    {
        once();
    };
    EXPECT_EQ(m_pOwnRequest->SetProgress(true), 0);
    AddAndWait(m_pOwnRequest);
    EXPECT_TRUE(m_pProbed->Wait());
}

void CallMatrixFixture::InOnReadData(const Probe& probe)
{
    m_pOwnRequest = Silent(kUpload);
    m_pNotic->m_OnReadData = [once = Once(probe)](const HandlePtr&, char* buffer,
                                                  std::size_t) mutable -> std::size_t
    {
        once();
        buffer[0] = 'x';
        return 1;
    };
    EXPECT_EQ(m_pOwnRequest->SetUploadSize(1), 0);
    AddAndWait(m_pOwnRequest);
    EXPECT_TRUE(m_pProbed->Wait());
}

void CallMatrixFixture::InOnTimer(const Probe& probe)
{
    m_pOwnTimer = Timer(1, kNeverMs);
    m_Timers.back().notic->m_OnTimer = [once = Once(probe)](const TimerPtr&) mutable
    {
        once();
    };
    AddAndWait(m_pOwnTimer);
    EXPECT_TRUE(m_pProbed->Wait());
}

void CallMatrixFixture::InOnClose(const Probe& probe)
{
    m_pOwnTimer = Timer(kNeverMs, kNeverMs);
    m_Timers.back().notic->m_OnClose = [once = Once(probe)](const TimerPtr&) mutable
    {
        once();
    };
    AddAndWait(m_pOwnTimer);
    EXPECT_EQ(m_pEngine->DelTimerReq(m_pOwnTimer, true, nullptr, nullptr), 0);
    EXPECT_TRUE(m_pProbed->Wait());
}

void CallMatrixFixture::InAddCompletion(const Probe& probe)
{
    m_pOwnRequest = Silent();
    EXPECT_EQ(m_pEngine->AddHttpReq(
                  m_pOwnRequest, true,
                  [once = Once(probe)](HandlePtr, void*, int) mutable { once(); }, nullptr),
              0);
    EXPECT_TRUE(m_pProbed->Wait());
}

void CallMatrixFixture::InDeleteCompletion(const Probe& probe)
{
    m_pOwnRequest = Silent();
    AddAndWait(m_pOwnRequest);
    m_Deleted.insert(m_pOwnRequest.get());
    EXPECT_EQ(m_pEngine->DelHttpReq(
                  m_pOwnRequest, true,
                  [once = Once(probe)](HandlePtr, void*, int) mutable { once(); }, nullptr),
              0);
    EXPECT_TRUE(m_pProbed->Wait());
}

void CallMatrixFixture::InTimersAddCompletion(const Probe& probe)
{
    m_pOwnTimer = Timer(kNeverMs, kNeverMs);
    m_Added.insert(m_pOwnTimer.get());
    EXPECT_EQ(m_pEngine->AddTimerReq(
                  m_pOwnTimer, true, [once = Once(probe)](TimerPtr, void*, int) mutable { once(); },
                  nullptr),
              0);
    EXPECT_TRUE(m_pProbed->Wait());
}

void CallMatrixFixture::InTimersDeleteCompletion(const Probe& probe)
{
    m_pOwnTimer = Timer(kNeverMs, kNeverMs);
    AddAndWait(m_pOwnTimer);
    EXPECT_EQ(m_pEngine->DelTimerReq(
                  m_pOwnTimer, true, [once = Once(probe)](TimerPtr, void*, int) mutable { once(); },
                  nullptr),
              0);
    EXPECT_TRUE(m_pProbed->Wait());
}

void CallMatrixFixture::InTimersStopCompletion(const Probe& probe)
{
    m_pOwnTimer = Timer(kNeverMs, kNeverMs);
    AddAndWait(m_pOwnTimer);
    EXPECT_EQ(m_pOwnTimer->StopTimer([once = Once(probe)](TimerPtr, void*, int) mutable { once(); },
                                     nullptr),
              0);
    EXPECT_TRUE(m_pProbed->Wait());
}

void CallMatrixFixture::InTimersAgainCompletion(const Probe& probe)
{
    m_pOwnTimer = Timer(kNeverMs, kNeverMs);
    AddAndWait(m_pOwnTimer);
    EXPECT_EQ(m_pOwnTimer->AgainTimer(
                  [once = Once(probe)](TimerPtr, void*, int) mutable { once(); }, nullptr),
              0);
    EXPECT_TRUE(m_pProbed->Wait());
}

// What is still open would hold the stop up: it is deleted in the same place.

void CallMatrixFixture::InCancelledAdd(const Probe& probe)
{
    m_pOwnRequest = Silent();
    HeldLoop held(m_pEngine);
    EXPECT_EQ(m_pEngine->AddHttpReq(
                  m_pOwnRequest, true,
                  [&](HandlePtr, void*, int result)
                  {
                      EXPECT_EQ(result, -1);
                      probe();
                      DeleteAll(false);
                  },
                  nullptr),
              0);
    held.Release([&] { EXPECT_EQ(m_pEngine->Stop(false), 0); });
}

void CallMatrixFixture::InTimersCancelledAdd(const Probe& probe)
{
    m_pOwnTimer = Timer(kNeverMs, kNeverMs);
    HeldLoop held(m_pEngine);
    EXPECT_EQ(m_pEngine->AddTimerReq(
                  m_pOwnTimer, true,
                  [&](TimerPtr, void*, int result)
                  {
                      EXPECT_EQ(result, -1);
                      probe();
                      DeleteAll(false);
                  },
                  nullptr),
              0);
    held.Release([&] { EXPECT_EQ(m_pEngine->Stop(false), 0); });
}

void CallMatrixFixture::InOnHttpFrameStop(const Probe& probe)
{
    m_pEngineNotic->m_Hook = [&](const std::shared_ptr<IHttpInterface>&)
    {
        probe();
    };
    StopEngine();
}

int CallMatrixFixture::Init()
{
    return m_pEngine->Init(m_pEngineNotic, nullptr);
}

int CallMatrixFixture::StartAndReturn()
{
    return m_pEngine->Start(false);
}

int CallMatrixFixture::StartAndWait()
{
    return m_pEngine->Start(true);
}

int CallMatrixFixture::StopAtOnce()
{
    return Stop(false);
}

int CallMatrixFixture::StopLater()
{
    return Stop(true);
}

int CallMatrixFixture::AddHttpAtOnce()
{
    return m_pEngine->AddHttpReq(m_pRequest, false, HttpDone(), nullptr);
}

int CallMatrixFixture::AddHttpQueued()
{
    return m_pEngine->AddHttpReq(m_pRequest, true, HttpDone(), nullptr);
}

int CallMatrixFixture::DelHttpAtOnce()
{
    m_Deleted.insert(m_pRequest.get());
    return m_pEngine->DelHttpReq(m_pRequest, false, HttpDone(), nullptr);
}

int CallMatrixFixture::DelHttpQueued()
{
    const int result = m_pEngine->DelHttpReq(m_pRequest, true, HttpDone(), nullptr);
    if (result == 0)
    {
        m_Deleted.insert(m_pRequest.get());
    }
    return result;
}

int CallMatrixFixture::AddTimerAtOnce()
{
    return m_pEngine->AddTimerReq(m_pTimer, false, TimerDone(true), nullptr);
}

int CallMatrixFixture::AddTimerQueued()
{
    return m_pEngine->AddTimerReq(m_pTimer, true, TimerDone(true), nullptr);
}

int CallMatrixFixture::DelTimerAtOnce()
{
    return m_pEngine->DelTimerReq(m_pTimer, false, TimerDone(), nullptr);
}

int CallMatrixFixture::DelTimerQueued()
{
    return m_pEngine->DelTimerReq(m_pTimer, true, TimerDone(), nullptr);
}

int CallMatrixFixture::InitRequest()
{
    auto notic = std::make_shared<HandleNotic>();
    const int result =
        m_pRequest->InitRequest("http://127.0.0.1:1/", nullptr, kGet, notic, 0, 0, nullptr);
    for (Made& made : m_Requests)
    {
        if (made.handle == m_pRequest && result == 0)
        {
            made.notic = notic;
        }
    }
    return result;
}

int CallMatrixFixture::Disconnect()
{
    return m_pRequest->Disconnect();
}

int CallMatrixFixture::SendWsData()
{
    std::size_t sent = 0;
    return m_pRequest->SendWsData(std::make_shared<std::vector<char>>(3, 'x'), 1, &sent);
}

int CallMatrixFixture::SetPostFields()
{
    return m_pRequest->SetPostFields("a=b");
}

int CallMatrixFixture::SetUploadSize()
{
    return m_pRequest->SetUploadSize(1);
}

/// Those that do for every method; the sum of their results.
int CallMatrixFixture::SetOptions()
{
    const std::list<std::string> headers{"X-Test: 1"};
    return m_pRequest->SetProgress(false) + m_pRequest->SetCaCert(nullptr) +
           m_pRequest->SetHeaders(&headers) + m_pRequest->EnableVerbose() +
           m_pRequest->SetDownloadFile(kNoFile);
}

/// Those that do at any time: 0 when they answer.
int CallMatrixFixture::GetTexts()
{
    EXPECT_EQ(m_pRequest->GetUserData(), &m_UserData);
    EXPECT_FALSE(m_pRequest->GetUrl().empty());
    EXPECT_EQ(m_pRequest->GetTag(), "tag");
    return 0;
}

/// Its size.
int CallMatrixFixture::GetResponse()
{
    return static_cast<int>(m_pRequest->GetResponse().size());
}

int CallMatrixFixture::GetResponseCode()
{
    return static_cast<int>(m_pRequest->GetResponseCode());
}

int CallMatrixFixture::StopTimer()
{
    return m_pTimer->StopTimer(TimerDone(), nullptr);
}

int CallMatrixFixture::AgainTimer()
{
    return m_pTimer->AgainTimer(TimerDone(), nullptr);
}

} // namespace test
