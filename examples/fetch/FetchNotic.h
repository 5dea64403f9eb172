#pragma once

#include <base/base.h>
#include <http_interface/http_interface.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

/// Hears of the end of every request of this program, prints a line for each,
/// and lets the main thread wait for all of them.
class FetchNotic : public http_interface::IHttpHandleNotic
{
public:
    /// The requests are handed over now.
    void Begin() { m_Begin = std::chrono::steady_clock::now(); }

    /// Returns when `count` requests have ended.
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
    std::chrono::steady_clock::time_point m_Begin;
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    int m_Ended = 0;
};
