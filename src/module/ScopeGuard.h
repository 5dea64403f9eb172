#pragma once

#include <utility>

namespace http_interface
{

/// Calls a function when its scope is left, by an exception too, unless it was
/// dismissed.
template <typename Function>
class ScopeGuard
{
public:
    explicit ScopeGuard(Function function) : m_Function(std::move(function)) {}
    ~ScopeGuard()
    {
        if (m_bArmed)
        {
            m_Function();
        }
    }
    ScopeGuard(const ScopeGuard&) = delete;
    ScopeGuard& operator=(const ScopeGuard&) = delete;

    void Dismiss() { m_bArmed = false; }

private:
    const Function m_Function;
    bool m_bArmed = true;
};

} // namespace http_interface
