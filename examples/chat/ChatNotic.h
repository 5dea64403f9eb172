#pragma once

#include "common/RequestNotic.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>

/// Hands what the loop thread hears of one connection to the main thread.
class ChatNotic : public RequestNotic
{
public:
    enum class Kind
    {
        kMessage,
        kClose, ///< the text tells code and reason
        kBeat,  ///< the time for a heartbeat
    };

    struct Event
    {
        Kind kind;
        std::string text;
    };

    /// The next one; waits for it. The main thread.
    Event Next();

    /// The heartbeat's timer has expired. The loop thread.
    void Beat() { Put({Kind::kBeat, ""}); }

    // IHttpHandleNotic, on the loop thread:
    void OnWsData(const char* data, std::size_t len, int type, void* user) override;

private:
    void Put(Event event);

    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    std::deque<Event> m_Events;
};
