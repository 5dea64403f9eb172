#include "base/base.h"

#include <windows.h>

namespace base
{

long GetTid()
{
    return static_cast<long>(GetCurrentThreadId());
}

} // namespace base
