#include "fuzz/Bench.h"

#include "base/base.h"
#include "fuzz/Check.h"
#include "fuzz/Network.h"
#include "support/Event.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace fuzz
{
namespace
{

constexpr std::uint64_t kNeverMs = 1000 * 1000;

class DroppingLog : public base::IBaseLogInterface
{
public:
    void WriteLog(const int* /*level*/, const long* /*threadId*/, const char* format, ...) override
    {
        char line[1024];
        va_list args;
        va_start(args, format);
        std::vsnprintf(line, sizeof line, format, args);
        va_end(args);
    }
};

} // namespace

void DropLogLines()
{
    if (std::getenv("FUZZ_LOG") == nullptr)
    {
        base::IBaseLogInterface::SetLogInstance(std::make_shared<DroppingLog>());
    }
}

Bench& Bench::Get()
{
    static Bench bench;
    return bench;
}

Bench::Bench() : m_pEngine(IHttpInterface::Create())
{
    DropLogLines();
    SendConnectionsTo(m_Server.Port());
    FUZZ_CHECK(m_pEngine->Init(nullptr, nullptr) == 0);
    FUZZ_CHECK(m_pEngine->Start(true) == 0);
}

Bench::~Bench()
{
    FUZZ_CHECK(m_pEngine->Stop(false) == 0);
}

// The loop thread performs what is queued in batches and lets a batch go at its
// end: an operation queued now belongs to a later one.
void Bench::Settle()
{
    const auto timer =
        ITimerHandleInterface::Create(std::shared_ptr<ITimerHandleNotic>(), kNeverMs, 0, nullptr);
    test::Event performed;
    FUZZ_CHECK(m_pEngine->AddTimerReq(
                   timer, true,
                   [&](std::shared_ptr<ITimerHandleInterface> added, void*, int)
                   {
                       m_pEngine->DelTimerReq(std::move(added), false, nullptr, nullptr);
                       performed.Set();
                   },
                   nullptr) == 0);
    FUZZ_CHECK(performed.Wait());
}

} // namespace fuzz
