#pragma once

#include "http_interface/http_interface.h"

#include <memory>
#include <string>

namespace test
{

/// A request that the server answers only when it is told to. Each has a key
/// of its own among those that run at a time.
class HeldTransfer
{
public:
    explicit HeldTransfer(const std::string& key);

    std::string Url() const { return m_Hold; }

    /// Returns once so many requests for Url() wait at the server. Both ask it
    /// through the engine that they are given, and fail the test otherwise.
    void WaitUntilHeld(const std::shared_ptr<http_interface::IHttpInterface>& engine,
                       int requests = 1) const;
    /// Has the waiting requests, one at least, answered with "released\n".
    void Release(const std::shared_ptr<http_interface::IHttpInterface>& engine) const;

private:
    const std::string m_Hold;
    const std::string m_Count;
    const std::string m_Release;
};

} // namespace test
