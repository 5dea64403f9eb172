#include "base/base.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace base
{

long GetTid()
{
    // Asking the kernel costs more than everything else that a post does.
    thread_local const long tid = syscall(SYS_gettid);
    return tid;
}

} // namespace base
