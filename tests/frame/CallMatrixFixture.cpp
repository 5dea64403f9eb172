/// How one cell of the matrix is tried: what it makes, and what it leaves.

#include "frame/CallMatrixFixture.h"

#include "support/HeldLoop.h"
#include "support/Servers.h"

#include <algorithm>

namespace test
{
namespace
{

constexpr std::uint64_t kNeverMs = 1000 * 1000;
const std::string kTag = "[HTTP_INTERFACE]";

} // namespace

const std::vector<AnswerLine>& AnswerLines()
{
    static const std::vector<AnswerLine> lines = {
        {'a', "Can not add http req now"},
        {'b', "Can not add timer req now"},
        {'c', "Can not again timer req now"},
        {'d', "disconnect web socket"},
        {'e', "err[8:API function called from within callback]curl_multi_remove_handle failed "
              "while DelHttpReq"},
        {'f', "err[8:API function called from within callback]curl_multi_add_handle failed while "
              "AddHttpReq"},
        {'g', "err[7:The easy handle is already added to a multi handle]curl_multi_add_handle "
              "failed while AddHttpReq"},
        {'h', "err[2:Invalid easy handle]curl_multi_add_handle failed while AddHttpReq"},
        {'i', "err[2:Invalid easy handle]curl_multi_remove_handle failed while DelHttpReq"},
    };
    return lines;
}

std::string CallMatrixFixture::Answer(Place place, Subject subject, Call call)
{
    m_pProbed = std::make_shared<Event>();
    m_pThreadEnded = std::make_shared<Event>();
    m_Ends = Ends::No;
    if (place == &CallMatrixFixture::InCancelledAdd ||
        place == &CallMatrixFixture::InTimersCancelledAdd ||
        place == &CallMatrixFixture::InOnHttpFrameStop)
    {
        m_Ends = Ends::InThePlace;
    }
    m_bNothingOpen = place == &CallMatrixFixture::InOnHttpFrameStop;
    if (subject != kOwn)
    {
        MakeSubject(subject);
    }
    int returned = 1;
    std::string lines;
    (this->*place)(
        [&]
        {
            if (subject == kOwn)
            {
                m_pRequest = m_pOwnRequest;
                m_pTimer = m_pOwnTimer;
            }
            SetAtThreadEnd(*m_pThreadEnded);
            m_Log.Clear();
            m_bInCall = true;
            returned = (this->*call)();
            m_bInCall = false;
            if (m_Ends == Ends::InThePlace)
            {
                lines = Lines(); // nothing can be queued any more
                m_pProbed->Set();
            }
        });
    EXPECT_EQ(m_pProbed->Count(), 1) << "the place was not reached";
    Settle();
    if (m_Ends != Ends::InThePlace)
    {
        lines = Lines();
    }
    const std::string answer = std::to_string(returned) + m_Completions + lines;
    DeleteTheRest();
    return answer;
}

HandlePtr CallMatrixFixture::Request(const std::string& url, int method)
{
    const HandlePtr handle = MakeHandle(url, method, 0);
    m_Requests.push_back({handle, m_pNotic});
    return handle;
}

HandlePtr CallMatrixFixture::Silent(int method)
{
    return Request(Server("HOSTILE_URL") + "/silence", method);
}

TimerPtr CallMatrixFixture::Timer(std::uint64_t timeoutMs, std::uint64_t repeatMs)
{
    const auto notic = std::make_shared<TimerNotic>();
    m_Timers.push_back({ITimerHandleInterface::Create(notic, timeoutMs, repeatMs, nullptr), notic});
    return m_Timers.back().timer;
}

void CallMatrixFixture::AddAndWait(const HandlePtr& handle)
{
    HttpCompletion added;
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, added.Function(), nullptr), 0);
    ASSERT_TRUE(added.Wait());
}

void CallMatrixFixture::AddAndWait(const TimerPtr& timer)
{
    TimerCompletion added;
    m_Added.insert(timer.get());
    ASSERT_EQ(m_pEngine->AddTimerReq(timer, true, added.Function(), nullptr), 0);
    ASSERT_TRUE(added.Wait());
}

void CallMatrixFixture::MakeSubject(Subject subject)
{
    switch (subject)
    {
    case kNewRequest:
        m_pRequest = Silent();
        break;
    case kNewPost:
        m_pRequest = Silent(kPost);
        break;
    case kNewUpload:
        m_pRequest = Silent(kUpload);
        break;
    case kUninitialised:
        m_pRequest = IHttpHandleInterface::Create();
        m_Requests.push_back({m_pRequest, nullptr});
        break;
    case kRequestInFlight:
        if (m_bNothingOpen)
        {
            m_pRequest = MakeFinished();
            break;
        }
        m_pRequest = Silent();
        AddAndWait(m_pRequest);
        break;
    case kFinishedRequest:
        m_pRequest = MakeFinished();
        break;
    case kOpenWebSocket:
        m_pRequest = MakeWebSocket();
        break;
    case kNewTimer:
        m_pTimer = Timer(kNeverMs, kNeverMs);
        break;
    case kRunningTimer:
        m_pTimer = MakeRunningTimer();
        break;
    default:
        break;
    }
}

HandlePtr CallMatrixFixture::MakeFinished()
{
    const HandlePtr handle = Request(Server("HTTP_URL") + "/hello");
    Run(handle);
    return handle;
}

HandlePtr CallMatrixFixture::MakeWebSocket()
{
    const HandlePtr handle = Request(Server("WS_URL") + "/echo", kWebSocket);
    AddAndWait(handle);
    EXPECT_TRUE(m_pNotic->m_Received.Wait());
    if (m_bNothingOpen)
    {
        EXPECT_EQ(handle->Disconnect(), 0);
        OnLoop([] {});
    }
    return handle;
}

TimerPtr CallMatrixFixture::MakeRunningTimer()
{
    const TimerPtr timer = m_bNothingOpen ? Timer(1, 0) : Timer(kNeverMs, kNeverMs);
    AddAndWait(timer);
    if (m_bNothingOpen)
    {
        EXPECT_TRUE(m_Timers.back().notic->m_Expired.Wait());
    }
    return timer;
}

CallMatrixFixture::Probe CallMatrixFixture::Once(const Probe& probe)
{
    return [probe, probed = m_pProbed, ran = false]() mutable
    {
        if (!ran)
        {
            ran = true;
            probe();
            probed->Set();
        }
    };
}

HttpReqCallback CallMatrixFixture::HttpDone()
{
    return [this](HandlePtr, void*, int result)
    {
        Completed(result);
    };
}

TimerReqCallback CallMatrixFixture::TimerDone(bool adds)
{
    return [this, adds](TimerPtr timer, void*, int result)
    {
        if (adds && result == 0)
        {
            m_Added.insert(timer.get());
        }
        Completed(result);
    };
}

void CallMatrixFixture::Completed(int result)
{
    m_Completions += (m_bInCall ? ", done " : ", later ") + std::to_string(result);
}

int CallMatrixFixture::Stop(bool viaAsync)
{
    if (m_Ends == Ends::No)
    {
        DeleteAll(true);
        m_Ends = Ends::ByTheCall;
    }
    return m_pEngine->Stop(viaAsync);
}

/// Deletes what the cell made and has not deleted itself.
void CallMatrixFixture::DeleteAll(bool async)
{
    for (const Made& made : m_Requests)
    {
        if (m_Deleted.insert(made.handle.get()).second && made.notic)
        {
            // At once it answers -1 for one that was never added.
            const int result = m_pEngine->DelHttpReq(made.handle, async, nullptr, nullptr);
            EXPECT_TRUE(result == 0 || !async);
        }
    }
    for (const MadeTimer& made : m_Timers)
    {
        EXPECT_EQ(m_pEngine->DelTimerReq(made.timer, async, nullptr, nullptr), 0);
    }
}

/// Returns when everything that the call has queued is done.
void CallMatrixFixture::Settle()
{
    if (m_Ends == Ends::No)
    {
        OnLoop([] {});
        return;
    }
    EXPECT_TRUE(m_pThreadEnded->Wait()) << "the run has not ended";
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 1);
}

/// Leaves a running engine, without anything of the cell.
void CallMatrixFixture::DeleteTheRest()
{
    if (m_Ends != Ends::No)
    {
        m_pEngineNotic = std::make_shared<EngineNotic>();
        StartEngine();
    }
    DeleteAll(true);
    OnLoop([] {});
    for (const Made& made : m_Requests)
    {
        EXPECT_TRUE(!made.notic || made.notic.use_count() == (made.notic == m_pNotic ? 2 : 1))
            << "a deleted request keeps its notice";
    }
    for (const MadeTimer& made : m_Timers)
    {
        if (m_Added.count(made.timer.get()) != 0)
        {
            EXPECT_TRUE(made.notic->m_Closed.Wait());
            EXPECT_EQ(made.notic->m_Closed.Count(), 1);
        }
    }
    m_pRequest = m_pOwnRequest = nullptr;
    m_pTimer = m_pOwnTimer = nullptr;
    m_Requests.clear();
    m_Timers.clear();
    m_Deleted.clear();
    m_Added.clear();
    m_Completions.clear();
}

std::string CallMatrixFixture::Lines() const
{
    std::string letters;
    for (const LogLine& line : m_Log.Lines())
    {
        if (line.level == kDebug)
        {
            continue;
        }
        const auto& known = AnswerLines();
        const auto it =
            std::find_if(known.begin(), known.end(),
                         [&](const AnswerLine& answer) { return line.text == kTag + answer.text; });
        letters += it != known.end() ? std::string(", ") + it->letter : ", " + line.text;
    }
    return letters;
}

} // namespace test
