#include "support/LogRecorder.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <gtest/gtest.h>

namespace test
{

class LogRecorder::Logger : public base::IBaseLogInterface
{
public:
    void WriteLog(const int* level, const long* threadId, const char* format, ...) override
    {
        std::array<char, 16384> text;
        va_list args;
        va_start(args, format);
        std::vsnprintf(text.data(), text.size(), format, args);
        va_end(args);
        const LogLine line{*level, *threadId, format, text.data()};
        std::function<void(const LogLine&)> onLine;
        {
            const std::lock_guard<std::mutex> lock(m_Mutex);
            m_Lines.push_back(line);
            m_Changed.notify_all();
            onLine = m_OnLine;
        }
        if (onLine)
        {
            onLine(line);
        }
    }

    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    std::vector<LogLine> m_Lines;
    std::function<void(const LogLine&)> m_OnLine;
};

LogRecorder::LogRecorder() : m_pLogger(std::make_shared<Logger>())
{
    base::IBaseLogInterface::SetLogInstance(m_pLogger);
}

LogRecorder::~LogRecorder()
{
    base::IBaseLogInterface::SetLogInstance(nullptr);
}

std::vector<LogLine> LogRecorder::Lines() const
{
    const std::lock_guard<std::mutex> lock(m_pLogger->m_Mutex);
    return m_pLogger->m_Lines;
}

std::vector<std::string> LogRecorder::Texts(int level) const
{
    std::vector<std::string> texts;
    for (const LogLine& line : Lines())
    {
        if (line.level == level)
        {
            texts.push_back(line.text);
        }
    }
    return texts;
}

int LogRecorder::Count(int level, const std::string& text) const
{
    const std::vector<std::string> texts = Texts(level);
    return static_cast<int>(std::count(texts.begin(), texts.end(), text));
}

LogLine LogRecorder::Find(const std::string& text) const
{
    for (LogLine& line : Lines())
    {
        if (line.text == text)
        {
            return line;
        }
    }
    ADD_FAILURE() << "no line \"" << text << "\"";
    return {-1, -1, "", ""};
}

bool LogRecorder::WaitFor(const std::function<bool(const LogLine&)>& accepts) const
{
    std::unique_lock<std::mutex> lock(m_pLogger->m_Mutex);
    return m_pLogger->m_Changed.wait_for(
        lock, kLimit,
        [&] { return std::any_of(m_pLogger->m_Lines.begin(), m_pLogger->m_Lines.end(), accepts); });
}

bool LogRecorder::WaitFor(const std::string& text) const
{
    return WaitFor([&](const LogLine& line) { return line.text == text; });
}

void LogRecorder::Clear()
{
    const std::lock_guard<std::mutex> lock(m_pLogger->m_Mutex);
    m_pLogger->m_Lines.clear();
}

void LogRecorder::OnLine(std::function<void(const LogLine&)> function)
{
    const std::lock_guard<std::mutex> lock(m_pLogger->m_Mutex);
    m_pLogger->m_OnLine = std::move(function);
}

} // namespace test
