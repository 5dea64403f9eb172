#pragma once

#include "base/base.h"
#include "http_interface/http_interface.h"
#include "support/Event.h"

#include <functional>
#include <string>
#include <vector>

namespace test
{

using namespace http_interface;

/// Keeps what the end of an engine's loop reported. The hook runs inside the
/// notice, on the loop thread.
class EngineNotic : public IHttpInterfaceNotic
{
public:
    void OnHttpFrameStop(std::shared_ptr<IHttpInterface> engine, void* userData) override
    {
        m_UserData = userData;
        m_ThreadId = base::GetTid();
        if (m_Hook)
        {
            m_Hook(engine);
        }
        m_Stopped.Set();
    }

    std::function<void(const std::shared_ptr<IHttpInterface>&)> m_Hook;
    Event m_Stopped;
    void* m_UserData = nullptr;
    long m_ThreadId = 0;
};

/// Keeps what a request reported. Read the members only after the event that
/// tells of them; hooks run inside the notice, on the loop thread.
class HandleNotic : public IHttpHandleNotic
{
public:
    struct Message
    {
        std::string data;
        int type;
    };

    struct Progress
    {
        std::string tag;
        std::string url;
        double dltotal, dlnow, ultotal, ulnow;
    };

    void OnWsData(const char* data, std::size_t len, int type, void* user) override
    {
        m_Messages.push_back({std::string(data, len), type});
        m_User = user;
        if (m_OnWsData)
        {
            m_OnWsData(m_Messages.back());
        }
        m_Received.Set();
    }

    void OnProgress(const char* tag, const char* url, double dltotal, double dlnow, double ultotal,
                    double ulnow, void* user) override
    {
        m_Progress.push_back({tag, url, dltotal, dlnow, ultotal, ulnow});
        m_User = user;
        if (m_OnProgress)
        {
            m_OnProgress(m_Progress.back());
        }
    }

    std::size_t OnReadData(std::shared_ptr<IHttpHandleInterface> handle, char* buffer,
                           std::size_t size, std::size_t nitems, void* user) override
    {
        m_User = user;
        return m_OnReadData ? m_OnReadData(handle, buffer, size * nitems) : 0;
    }

    void OnFinish(std::shared_ptr<IHttpHandleInterface> handle, int result, void* user) override
    {
        m_Result = result;
        m_User = user;
        m_ThreadId = base::GetTid();
        if (m_OnFinish)
        {
            m_OnFinish(handle, result);
        }
        m_Finished.Set();
    }

    std::function<void(const Message&)> m_OnWsData;
    std::function<void(const Progress&)> m_OnProgress;
    std::function<std::size_t(const std::shared_ptr<IHttpHandleInterface>&, char*, std::size_t)>
        m_OnReadData;
    std::function<void(const std::shared_ptr<IHttpHandleInterface>&, int)> m_OnFinish;

    Event m_Finished;
    Event m_Received;
    int m_Result = 1; ///< of the last OnFinish; 1 before any
    void* m_User = nullptr;
    long m_ThreadId = 0;
    std::vector<Message> m_Messages;
    std::vector<Progress> m_Progress;
};

/// Keeps what a timer reported; hooks run inside the notice.
class TimerNotic : public ITimerHandleNotic
{
public:
    void OnTimer(std::shared_ptr<ITimerHandleInterface> timer, void* userData) override
    {
        m_UserData = userData;
        if (m_OnTimer)
        {
            m_OnTimer(timer);
        }
        m_Expired.Set();
    }

    void OnClose(std::shared_ptr<ITimerHandleInterface> timer, void* userData) override
    {
        m_UserData = userData;
        if (m_OnClose)
        {
            m_OnClose(timer);
        }
        m_Closed.Set();
    }

    std::function<void(const std::shared_ptr<ITimerHandleInterface>&)> m_OnTimer;
    std::function<void(const std::shared_ptr<ITimerHandleInterface>&)> m_OnClose;
    Event m_Expired;
    Event m_Closed;
    void* m_UserData = nullptr;
};

/// A completion function that keeps what it was called with.
template <typename Handle>
class Completion
{
public:
    std::function<void(std::shared_ptr<Handle>, void*, int)> Function()
    {
        return [state = m_pState](std::shared_ptr<Handle> handle, void* user, int result)
        {
            state->handle = handle;
            state->user = user;
            state->result = result;
            state->threadId = base::GetTid();
            state->called.Set();
        };
    }

    bool Wait(int count = 1) { return m_pState->called.Wait(count); }
    int Calls() { return m_pState->called.Count(); }
    /// Read only after Wait().
    int Result() const { return m_pState->result; }
    void* User() const { return m_pState->user; }
    long ThreadId() const { return m_pState->threadId; }
    std::shared_ptr<Handle> Target() const { return m_pState->handle; }

private:
    struct State
    {
        Event called;
        std::shared_ptr<Handle> handle;
        void* user = nullptr;
        int result = 1;
        long threadId = 0;
    };
    std::shared_ptr<State> m_pState = std::make_shared<State>();
};

using HttpCompletion = Completion<IHttpHandleInterface>;
using TimerCompletion = Completion<ITimerHandleInterface>;

} // namespace test
