#include "stress/Monitor.h"

#include "support/Memory.h"

#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace stress
{
namespace
{

constexpr int kHangs = 3; ///< exit code
constexpr int kMinute = 60;
constexpr int kQuietSeconds = 90; ///< longer than any wait with a limit of its own

} // namespace

Monitor::Monitor(const Ledger& ledger, std::function<void()> print)
    : m_Ledger(ledger), m_Print(std::move(print)), m_Thread([this] { Watch(); })
{
}

Monitor::~Monitor()
{
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_bEnds = true;
        m_Changed.notify_all();
    }
    m_Thread.join();
}

void Monitor::Watch()
{
    std::uint64_t before = 0;
    int seconds = 0;
    int quiet = 0;
    std::unique_lock<std::mutex> lock(m_Mutex);
    while (!m_Changed.wait_for(lock, std::chrono::seconds(1), [this] { return m_bEnds; }))
    {
        if (++seconds % kMinute == 0)
        {
            PrintMemory("running");
        }
        const std::uint64_t now = m_Ledger.Progress();
        quiet = now == before ? quiet + 1 : 0;
        before = now;
        if (quiet == kQuietSeconds)
        {
            std::printf("nothing happens any more\n");
            m_Print();
            m_Ledger.PrintTable();
            m_Ledger.PrintBalance();
            std::fflush(stdout);
            std::_Exit(kHangs);
        }
    }
}

void Monitor::PrintMemory(const char* when) const
{
    constexpr double kMebi = 1024.0 * 1024.0;
    std::printf("memory %-8s %7.1f MiB, operations %9" PRIu64 ", loops ended %5" PRIu64
                ", entries %6" PRId64 "\n",
                when, static_cast<double>(test::ResidentMemory()) / kMebi, m_Ledger.Operations(),
                m_Ledger.Count(Notice::LoopEnd), m_Ledger.Alive());
    std::fflush(stdout);
}

} // namespace stress
