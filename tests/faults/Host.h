#pragma once

#include "base/base.h"
#include "faults/Memory.h"
#include "http_interface/http_interface.h"
#include "support/Event.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace test
{

using namespace http_interface;

struct HostOptions
{
    const char* unheardAfter; ///< the line after which it gives up waiting; empty: at once
    int timeoutMs;            ///< of its requests; 0 for none
};

/// How a host asks the library for something: again, when it is refused. What
/// it was refused, and what the library logged, is counted.
class Host
{
public:
    explicit Host(const HostOptions& options);
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// Calls until the answer is 0, at most twice, since one call fails in a
    /// run. False when it never was. Any thread.
    bool Ask(const std::function<int()>& call);
    /// A completion told of a failure.
    void Refused() { ++m_Refusals; }

    /// Waits for as many of an event; false when they don't come.
    bool Wait(Event& event, int count) const;
    bool MayBeUnheard() const;

    const HostOptions& Options() const { return m_Options; }
    int Refusals() const { return m_Refusals; }     ///< answers of -1
    int Exceptions() const { return m_Exceptions; } ///< calls that threw instead
    /// Lines above INFO.
    std::vector<std::string> Errors() const;
    /// Requests that ended with an error of libcurl, by their lines.
    int FailedTransfers() const { return m_FailedTransfers; }

private:
    class Logger;
    void Keep(int level, const std::string& text);

    const HostOptions m_Options;
    std::atomic<int> m_Refusals{0};
    std::atomic<int> m_Exceptions{0};
    std::atomic<int> m_FailedTransfers{0};
    mutable std::mutex m_Mutex;
    std::vector<std::string> m_Errors;
};

} // namespace test
