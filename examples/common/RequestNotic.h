#pragma once

#include <http_interface/http_interface.h>

#include <condition_variable>
#include <mutex>

/// A notice of requests that counts how many have ended, so that the main
/// thread can wait for them; what else an example wants to hear it overrides.
class RequestNotic : public http_interface::IHttpHandleNotic
{
public:
    /// Returns when `count` requests have ended. Any thread but the loop's.
    void WaitFor(int count);

    // IHttpHandleNotic, on the loop thread:
    void OnFinish(std::shared_ptr<http_interface::IHttpHandleInterface> handle, int result,
                  void* user) override;
    void OnWsData(const char*, std::size_t, int, void*) override {}
    void OnProgress(const char*, const char*, double, double, double, double, void*) override {}
    std::size_t OnReadData(std::shared_ptr<http_interface::IHttpHandleInterface>, char*,
                           std::size_t, std::size_t, void*) override
    {
        return 0;
    }

private:
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    int m_Ended = 0;
};
