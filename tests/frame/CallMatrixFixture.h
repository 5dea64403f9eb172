#pragma once

#include "support/EngineTest.h"

#include <functional>
#include <set>
#include <string>
#include <vector>

namespace test
{

using HandlePtr = std::shared_ptr<IHttpHandleInterface>;
using TimerPtr = std::shared_ptr<ITimerHandleInterface>;

/// Makes one call of the public interface at one place where the library calls
/// the host, and puts into words how it was answered. An engine runs before and
/// after each.
class CallMatrixFixture : public EngineTest
{
public:
    /// What a call acts on, other than what the notice tells of.
    enum Subject
    {
        kNobody,
        kNewRequest,
        kNewPost,
        kNewUpload,
        kUninitialised,
        kRequestInFlight, ///< in OnHttpFrameStop: a finished one
        kFinishedRequest,
        kOpenWebSocket, ///< in OnHttpFrameStop: one that was disconnected
        kNewTimer,
        kRunningTimer, ///< in OnHttpFrameStop: one that has expired
        kOwn,          ///< the request or timer that the notice tells of
    };

    using Probe = std::function<void()>;
    using Place = void (CallMatrixFixture::*)(const Probe&);
    using Call = int (CallMatrixFixture::*)();

    // Places. Each arranges that the library calls the probe there, and returns
    // when that call into the host is over.
    void InOnFinish(const Probe& probe);
    void InOnWsData(const Probe& probe);
    void InOnProgress(const Probe& probe);
    void InOnReadData(const Probe& probe);
    void InOnTimer(const Probe& probe);
    void InOnClose(const Probe& probe);
    void InAddCompletion(const Probe& probe);
    void InDeleteCompletion(const Probe& probe);
    void InTimersAddCompletion(const Probe& probe);
    void InTimersDeleteCompletion(const Probe& probe);
    void InTimersStopCompletion(const Probe& probe);
    void InTimersAgainCompletion(const Probe& probe);
    void InCancelledAdd(const Probe& probe);
    void InTimersCancelledAdd(const Probe& probe);
    void InOnHttpFrameStop(const Probe& probe);

    // Calls, on the subject where there is one.
    int Init();
    int StartAndReturn();
    int StartAndWait();
    int StopAtOnce();
    int StopLater();
    int AddHttpAtOnce();
    int AddHttpQueued();
    int DelHttpAtOnce();
    int DelHttpQueued();
    int AddTimerAtOnce();
    int AddTimerQueued();
    int DelTimerAtOnce();
    int DelTimerQueued();
    int InitRequest();
    int Disconnect();
    int SendWsData();
    int SetPostFields();
    int SetUploadSize();
    int SetOptions();
    int GetTexts();
    int GetResponse();
    int GetResponseCode();
    int StopTimer();
    int AgainTimer();

protected:
    void SetUp() override { StartEngine(); }

    /// How the call is answered at the place: its result; "done" and the result
    /// that its completion was called with inside the call, or "later"; the
    /// letters of the lines above debug level that were written.
    std::string Answer(Place place, Subject subject, Call call);

private:
    enum class Ends
    {
        No,
        InThePlace, ///< the place itself belongs to the end of a run
        ByTheCall,
    };

    HandlePtr Request(const std::string& url, int method = kGet);
    HandlePtr Silent(int method = kGet);
    TimerPtr Timer(std::uint64_t timeoutMs, std::uint64_t repeatMs);
    void AddAndWait(const HandlePtr& handle);
    void AddAndWait(const TimerPtr& timer);
    void MakeSubject(Subject subject);
    HandlePtr MakeFinished();
    HandlePtr MakeWebSocket();
    TimerPtr MakeRunningTimer();

    /// Runs the probe when called for the first time.
    Probe Once(const Probe& probe);
    HttpReqCallback HttpDone();
    TimerReqCallback TimerDone(bool adds = false);
    void Completed(int result);
    int Stop(bool viaAsync);
    void DeleteAll(bool async);
    void Settle();
    void DeleteTheRest();
    std::string Lines() const;

    HandlePtr m_pOwnRequest;
    TimerPtr m_pOwnTimer;
    HandlePtr m_pRequest; ///< that the call acts on
    TimerPtr m_pTimer;

    /// Everything that a cell made, to be deleted at its end.
    struct Made
    {
        HandlePtr handle;
        std::shared_ptr<HandleNotic> notic;
    };
    struct MadeTimer
    {
        TimerPtr timer;
        std::shared_ptr<TimerNotic> notic;
    };
    std::vector<Made> m_Requests;
    std::vector<MadeTimer> m_Timers;
    std::set<IHttpHandleInterface*> m_Deleted;
    std::set<ITimerHandleInterface*> m_Added;

    Ends m_Ends = Ends::No;
    bool m_bNothingOpen = false; ///< the place is reached only then
    bool m_bInCall = false;
    std::string m_Completions;
    std::shared_ptr<Event> m_pProbed;
    std::shared_ptr<Event> m_pThreadEnded;
};

/// The lines that an answer's letters stand for, without their tag.
struct AnswerLine
{
    char letter;
    const char* text;
};
const std::vector<AnswerLine>& AnswerLines();

} // namespace test
