#include "faults/EachNthCallOf.h"

#include <algorithm>
#include <cstdio>

namespace test
{
namespace
{

/// Many more than any function is called in a scenario.
constexpr int kBound = 20000;

constexpr int kTimeoutMs = 200;

/// A message that the host sends when its WebSocket has just been timed out.
const std::vector<std::string> kTooLate = {"curl_ws_send failed", "Send len diff [5] != [0]"};

} // namespace

void EachNthCallOf::FailEach(const Consequence& consequence, unsigned parts, int step,
                             const std::function<void(Nth&, const std::function<void()>&)>& with)
{
    const HostOptions options{consequence.unheardAfter, consequence.late ? kTimeoutMs : 0};
    const TestCode inTest;
    m_Refused = 0;
    m_Unheard = 0;
    int calls = 0;
    for (int n = 1; n < kBound && !HasFailure(); n += step)
    {
        Nth nth(n);
        SCOPED_TRACE("call " + std::to_string(n));
        with(nth,
             [&]
             {
                 Scenario scenario(parts, options);
                 scenario.Run();
                 Check(scenario, consequence);
             });
        if (!nth.Came())
        {
            break; // the run before was the last
        }
        ++calls;
    }
    EXPECT_GT(calls, 0);
    EXPECT_LT(calls * step, kBound);
    EXPECT_TRUE(m_Refused > 0 || !consequence.refused);
    RecordProperty("failed_calls", calls);
    std::printf("%d calls failed in turn; the host was refused something in %d runs, and heard "
                "nothing in %d\n",
                calls, m_Refused, m_Unheard);
}

void EachNthCallOf::Fail(Allocator allocator, const Consequence& consequence, unsigned parts,
                         int step)
{
    FailEach(consequence, parts, step,
             [allocator](Nth& nth, const std::function<void()>& run)
             {
                 const FailingAllocation fails(allocator, nth);
                 run();
             });
}

bool EachNthCallOf::MayBeLogged(const std::string& line, const Consequence& consequence)
{
    std::vector<std::string> allowed = consequence.lines;
    allowed.push_back("err[8:"); // the delete inside of a notice, in every run
    if (consequence.late)
    {
        allowed.insert(allowed.end(), kTooLate.begin(), kTooLate.end());
    }
    return std::any_of(allowed.begin(), allowed.end(),
                       [&](const std::string& part)
                       { return line.find(part) != std::string::npos; });
}

void EachNthCallOf::Check(const Scenario& scenario, const Consequence& consequence)
{
    const Host& host = scenario.GetHost();
    for (const std::string& line : host.Errors())
    {
        EXPECT_TRUE(MayBeLogged(line, consequence)) << line;
    }
    const int refusals = host.Refusals() + host.Exceptions();
    m_Refused += refusals != 0 ? 1 : 0;
    if (!consequence.deadEngine)
    {
        EXPECT_LE(refusals, consequence.deadHandle ? 2 : consequence.refused ? 1 : 0);
    }
    EXPECT_TRUE(scenario.IsComplete() || host.MayBeUnheard());
    m_Unheard += scenario.IsComplete() ? 0 : 1;
    if (!consequence.late) // on a busy machine others may be late too
    {
        EXPECT_LE(scenario.FailedFinishes(), consequence.failed ? 1 : 0);
    }
    EXPECT_LE(scenario.DeadHandles(), consequence.deadHandle ? 1 : 0);
    EXPECT_LE(scenario.LeftMultis(), consequence.leavesMulti ? 1U : 0U);
}

} // namespace test
