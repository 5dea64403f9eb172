#pragma once

#include "base/base.h"

#include <atomic>

namespace base
{

/// Writes "level thread text" lines to standard error, each in one call, so
/// that lines of several threads never mix.
class CDefaultLog : public IBaseLogInterface
{
public:
    void SetLevel(int level) { m_Level = level; }

    // IBaseLogInterface:
    void WriteLog(const int* level, const long* threadId, const char* format, ...) override;

private:
    std::atomic<int> m_Level{0};
};

} // namespace base
