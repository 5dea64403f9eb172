#pragma once

#include "base/base.h"

#include <memory>

namespace http_interface
{

/// Levels of the host's logger that this library uses.
enum LogLevel : int
{
    LOG_LEVEL_DEBUG = 0,
    LOG_LEVEL_INFO = 20,
    LOG_LEVEL_WARN = 40,
    LOG_LEVEL_ERROR = 60,
};

/// Writes one line to the host's logger; any thread. The format and its
/// arguments are passed through unchanged, nothing is added to the text.
/// The logger is fetched anew for every line, so that the host may change it
/// at any time, and is never empty by contract.
template <typename... Args>
void HttpLog(LogLevel level, const char* format, Args... args)
{
    const long threadId = base::GetTid();
    const int levelCode = level;
    const std::shared_ptr<base::IBaseLogInterface> logger =
        base::IBaseLogInterface::GetLogInstance();
    logger->WriteLog(&levelCode, &threadId, format, args...);
}

} // namespace http_interface
