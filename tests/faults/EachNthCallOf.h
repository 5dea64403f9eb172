#pragma once

#include "faults/Scenario.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace test
{

/// What a failing call may lead to, besides what Scenario expects.
struct Consequence
{
    /// Every line that is logged contains one of these.
    std::vector<std::string> lines;
    /// The host is answered -1, or by an exception, for most calls that fail.
    bool refused = false;
    /// A request may end with -2.
    bool failed = false;
    /// The failure is ignored, or only logged, and a request ends by its own
    /// timeout.
    bool late = false;
    /// The same, but not even the timeout may come, once this has been logged;
    /// empty: without a line. Null: everything is heard.
    const char* unheardAfter = nullptr;
    /// The handle can't be used any more.
    bool deadHandle = false;
    /// The engine starts no transfers any more: adds are refused as well.
    bool deadEngine = false;
    /// A failed Init leaves its multi handle.
    bool leavesMulti = false;
};

/// Makes each call of a function fail in turn, from the first to the last that
/// a whole scenario makes.
class EachNthCallOf : public ::testing::Test
{
protected:
    /// Fails the calls of a wrapped function.
    template <typename Signature, typename Failure>
    void Fail(Hook<Signature>& hook, Failure failure, const Consequence& consequence,
              unsigned parts = kAllParts)
    {
        FailEach(consequence, parts, 1,
                 [&](Nth& nth, const std::function<void()>& run)
                 {
                     const Replaced<Signature> fails(
                         hook, [&](auto... args)
                         { return nth.IsNow() ? failure(args...) : fails.Next(args...); });
                     run();
                 });
    }

    /// @param step  1 for each allocation; where there are too many, one of so many.
    void Fail(Allocator allocator, const Consequence& consequence, unsigned parts, int step = 1);

private:
    /// `with` makes the nth call fail while it runs the function.
    void FailEach(const Consequence& consequence, unsigned parts, int step,
                  const std::function<void(Nth&, const std::function<void()>&)>& with);
    static bool MayBeLogged(const std::string& line, const Consequence& consequence);
    void Check(const Scenario& scenario, const Consequence& consequence);

    int m_Refused = 0; ///< runs in which the host was refused something
    int m_Unheard = 0; ///< runs in which the host waited in vain
};

/// For a function whose failure can't be without effect: it does its work, and
/// tells of a failure.
template <typename Signature, typename Result>
auto WorksButAnswers(Hook<Signature>& hook, Result result)
{
    return [&hook, result](auto... args)
    {
        hook.Real(args...);
        return result;
    };
}

} // namespace test
