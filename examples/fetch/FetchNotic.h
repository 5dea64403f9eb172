#pragma once

#include "common/RequestNotic.h"

#include <chrono>

/// Prints a line for each request that ends.
class FetchNotic : public RequestNotic
{
public:
    /// The requests are handed over now.
    void Begin() { m_Begin = std::chrono::steady_clock::now(); }

    // IHttpHandleNotic, on the loop thread:
    void OnFinish(std::shared_ptr<http_interface::IHttpHandleInterface> handle, int result,
                  void* user) override;

private:
    std::chrono::steady_clock::time_point m_Begin;
};
