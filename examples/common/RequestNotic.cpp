#include "common/RequestNotic.h"

using namespace http_interface;

void RequestNotic::WaitFor(int count)
{
    std::unique_lock<std::mutex> lock(m_Mutex);
    m_Changed.wait(lock, [&] { return m_Ended >= count; });
}

void RequestNotic::OnFinish(std::shared_ptr<IHttpHandleInterface> /*handle*/, int /*result*/,
                            void* /*user*/)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    ++m_Ended;
    m_Changed.notify_all();
}
