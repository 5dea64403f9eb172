#include "CDefaultLog.h"

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <string>

namespace base
{
namespace
{

constexpr std::size_t kUsualLength = 512;

/// Appends the formatted text; nothing when the format is not one.
void AppendFormatted(std::string& line, const char* format, va_list args)
{
    const std::size_t head = line.size();
    line.resize(head + kUsualLength);
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(&line[head], kUsualLength, format, args);
    const std::size_t text = length > 0 ? static_cast<std::size_t>(length) : 0;
    if (text >= kUsualLength)
    {
        line.resize(head + text + 1); // vsnprintf ends the text with a zero
        std::vsnprintf(&line[head], text + 1, format, again);
    }
    va_end(again);
    line.resize(head + text);
}

} // namespace

void CDefaultLog::WriteLog(const int* level, const long* threadId, const char* format, ...)
{
    if (*level < m_Level)
    {
        return;
    }
    std::string line = std::to_string(*level) + ' ' + std::to_string(*threadId) + ' ';
    va_list args;
    va_start(args, format);
    AppendFormatted(line, format, args);
    va_end(args);
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
}

} // namespace base
