#include "stress/HostLog.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <utility>

namespace stress
{
namespace
{

constexpr int kWarning = 40;

constexpr const char* kRefusal = "[HTTP_INTERFACE]Can not add timer req now";

constexpr std::array<const char*, 6> kExpected = {
    kRefusal,
    "[HTTP_INTERFACE]Can not add http req now",
    "[HTTP_INTERFACE]Can not again timer req now",
    "[HTTP_INTERFACE]err[%d:%s]curl_multi_add_handle failed while AddHttpReq",
    "[HTTP_INTERFACE]err[%d:%s]curl_multi_remove_handle failed while DelHttpReq",
    "[HTTP_INTERFACE]err[%d:%s]curl_ws_send failed"}; // of a socket that is deleted meanwhile

constexpr const char* kSentInPart = "[HTTP_INTERFACE]Send len diff [%zu] != [%zu]";

/// A message is lost whole when its socket is deleted meanwhile; these are too
/// small to be sent in part.
bool IsExpected(const std::string& line, va_list args)
{
    if (line == kSentInPart)
    {
        va_list sizes;
        va_copy(sizes, args);
        va_arg(sizes, std::size_t);
        const std::size_t sent = va_arg(sizes, std::size_t);
        va_end(sizes);
        return sent == 0;
    }
    return std::find(kExpected.begin(), kExpected.end(), line) != kExpected.end();
}

thread_local bool refused = false;

} // namespace

void HostLog::WriteLog(const int* level, const long* /*threadId*/, const char* format, ...)
{
    if (*level < kWarning)
    {
        return;
    }
    const std::string line = format;
    va_list args;
    va_start(args, format);
    if (line == kRefusal)
    {
        refused = true;
    }
    const bool isExpected = IsExpected(line, args);
    std::array<char, 1024> text;
    std::vsnprintf(text.data(), text.size(), format, args);
    va_end(args);
    if (!isExpected)
    {
        m_Ledger.Differ(std::string("unexpected line: ") + text.data());
        return;
    }
    const std::lock_guard<std::mutex> lock(m_Mutex);
    ++m_Lines[line == kSentInPart ? line : text.data()];
}

void HostLog::Print() const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    for (const auto& [line, count] : m_Lines)
    {
        std::printf("%12" PRIu64 " %s\n", count, line.c_str());
    }
}

bool HostLog::TakeRefusal()
{
    return std::exchange(refused, false);
}

} // namespace stress
