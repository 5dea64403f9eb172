#include "FetchNotic.h"

#include <base/base.h>

#include <cstdio>

void FetchNotic::OnFinish(std::shared_ptr<http_interface::IHttpHandleInterface> handle, int result,
                          void* user)
{
    const auto passed = std::chrono::steady_clock::now() - m_Begin;
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(passed).count();
    std::printf("%-46s %4d %8ld %9lu %6ld %8ld\n", handle->GetUrl().c_str(), result,
                handle->GetResponseCode(), static_cast<unsigned long>(handle->GetResponse().size()),
                static_cast<long>(ms), base::GetTid());
    RequestNotic::OnFinish(handle, result, user);
}
