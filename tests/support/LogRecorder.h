#pragma once

#include "base/base.h"
#include "support/Event.h"

#include <functional>
#include <string>
#include <vector>

namespace test
{

constexpr int kDebug = 0;
constexpr int kInfo = 20;
constexpr int kWarn = 40;
constexpr int kError = 60;

struct LogLine
{
    int level;
    long threadId;
    std::string format;
    std::string text; ///< the format with its arguments
};

/// Puts itself in place as the logger and keeps every line, until destroyed.
class LogRecorder
{
public:
    LogRecorder();
    ~LogRecorder();
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;

    std::vector<LogLine> Lines() const;
    /// The texts of all lines of a level, in order.
    std::vector<std::string> Texts(int level) const;
    /// How many lines have exactly this level and text.
    int Count(int level, const std::string& text) const;
    /// The first line with this text; fails the test when there is none.
    LogLine Find(const std::string& text) const;
    /// False when no line that the predicate accepts came within the limit.
    bool WaitFor(const std::function<bool(const LogLine&)>& accepts) const;
    bool WaitFor(const std::string& text) const;
    void Clear();
    /// Runs a function for every line from now on, on the thread that writes
    /// it, before that thread goes on.
    void OnLine(std::function<void(const LogLine&)> function);

private:
    class Logger;
    std::shared_ptr<Logger> m_pLogger;
};

} // namespace test
