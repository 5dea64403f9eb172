// How large a WebSocket message from a host's thread may be before libcurl takes
// it only in part (the line "Send len diff").
//
//   websocket_send [--ca FILE] NAME URL...
//
// The peer at each URL greets with a message and then reads, or doesn't.

#include "common/Request.h"
#include "common/Session.h"

#include <base/base.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <future>
#include <stdexcept>
#include <vector>

using namespace http_interface;

namespace
{

constexpr std::size_t kSmallest = 1 << 10;
constexpr std::size_t kLargest = 64 << 20;
constexpr std::size_t kInARow[] = {1 << 10, 16 << 10, 64 << 10};
constexpr std::size_t kBatch = 64; ///< messages queued before they are waited for
constexpr int kRuns = 10;
constexpr int kBinary = 2;
constexpr auto kLimit = std::chrono::seconds(30);

/// Hears of the first message that was not taken whole.
class CutNotic : public base::IBaseLogInterface
{
public:
    void WriteLog(const int*, const long*, const char* format, ...) override
    {
        if (std::strstr(format, "Send len diff") == nullptr)
        {
            return;
        }
        std::va_list arguments;
        va_start(arguments, format);
        std::size_t none = 0;
        m_Size.compare_exchange_strong(none, va_arg(arguments, std::size_t));
        va_end(arguments);
    }

    /// Its size, and forgets it; 0 when there was none.
    std::size_t Take() { return m_Size.exchange(0); }

private:
    std::atomic<std::size_t> m_Size{0};
};

class GreetingNotic : public IHttpHandleNotic
{
public:
    std::promise<void> m_Greeted;

    void OnWsData(const char*, std::size_t, int, void*) override
    {
        if (!m_bHeard)
        {
            m_bHeard = true;
            m_Greeted.set_value();
        }
    }
    void OnFinish(std::shared_ptr<IHttpHandleInterface>, int, void*) override {}
    void OnProgress(const char*, const char*, double, double, double, double, void*) override {}
    std::size_t OnReadData(std::shared_ptr<IHttpHandleInterface>, char*, std::size_t, std::size_t,
                           void*) override
    {
        return 0;
    }

private:
    bool m_bHeard = false;
};

template <typename T>
void WaitFor(std::future<T> future)
{
    if (future.wait_for(kLimit) != std::future_status::ready)
    {
        throw std::runtime_error("waited in vain");
    }
}

/// A connection of its own for one measurement.
class Connection
{
public:
    Connection(Session& session, const char* url, const char* caFile) : m_Session(session)
    {
        const auto notic = std::make_shared<GreetingNotic>();
        m_pRequest = MakeRequest(url, kWebSocket, notic, caFile);
        if (!m_Session.Add(m_pRequest))
        {
            throw std::runtime_error("the engine takes no request");
        }
        WaitFor(notic->m_Greeted.get_future());
    }

    ~Connection() { m_Session.Delete(m_pRequest); }

    void Send(std::size_t size)
    {
        std::size_t sent = 0;
        m_pRequest->SendWsData(std::make_shared<std::vector<char>>(size, 'x'), kBinary, &sent);
    }

    /// Returns when everything sent so far has been handed to libcurl.
    void Flush()
    {
        // A timer's function runs on the loop thread, behind all that is queued.
        const auto performed = std::make_shared<std::promise<void>>();
        const auto timer = ITimerHandleInterface::Create(
            [performed](std::shared_ptr<ITimerHandleInterface>, void*) { performed->set_value(); },
            nullptr, 0, 0, nullptr);
        if (!m_Session.Add(timer))
        {
            throw std::runtime_error("the engine takes no timer");
        }
        WaitFor(performed->get_future());
        m_Session.Delete(timer);
    }

private:
    Session& m_Session;
    std::shared_ptr<IHttpHandleInterface> m_pRequest;
};

std::string Size(std::size_t bytes)
{
    return bytes < 1 << 20 ? std::to_string(bytes >> 10) + " KiB"
                           : std::to_string(bytes >> 20) + " MiB";
}

/// The largest message that a new connection took whole in every run.
std::string LargestWhole(Session& session, CutNotic& cut, const char* url, const char* caFile)
{
    for (std::size_t size = kSmallest; size <= kLargest; size *= 2)
    {
        for (int run = 0; run != kRuns; ++run)
        {
            Connection connection(session, url, caFile);
            cut.Take();
            connection.Send(size);
            connection.Flush();
            if (cut.Take() != 0)
            {
                return size == kSmallest ? "none" : Size(size / 2);
            }
        }
    }
    return "all";
}

/// How much in messages of one size was taken, queued as fast as it goes, before
/// the first one was not taken whole; the least of all runs.
std::string WholeInARow(Session& session, CutNotic& cut, const char* url, const char* caFile,
                        std::size_t size)
{
    std::size_t least = kLargest;
    for (int run = 0; run != kRuns; ++run)
    {
        Connection connection(session, url, caFile);
        cut.Take();
        std::size_t taken = 0;
        std::size_t cutSize = 0;
        while (taken < kLargest && cutSize == 0)
        {
            // Each is smaller by a byte, so that the line tells which was cut.
            for (std::size_t i = 0; i != kBatch; ++i)
            {
                connection.Send(size - i);
            }
            connection.Flush();
            cutSize = cut.Take();
            taken += size * (cutSize == 0 ? kBatch : size - cutSize);
        }
        least = std::min(least, taken);
    }
    return least >= kLargest ? "all" : Size(least);
}

} // namespace

int main(int argc, char** argv)
{
    const bool hasCa = argc > 2 && std::strcmp(argv[1], "--ca") == 0;
    const char* const caFile = hasCa ? argv[2] : nullptr;
    const int first = hasCa ? 3 : 1;
    if (first >= argc || (argc - first) % 2 != 0)
    {
        std::fprintf(stderr, "usage: websocket_send [--ca FILE] NAME URL...\n");
        return 2;
    }
    Session session;
    const auto cut = std::make_shared<CutNotic>();
    base::IBaseLogInterface::SetLogInstance(cut);
    if (!session.Start())
    {
        return 1;
    }
    std::printf("%-24s %12s", "peer", "one message");
    for (const std::size_t size : kInARow)
    {
        std::printf(" %11s each", Size(size).c_str());
    }
    std::printf("   taken whole, the least of %d runs\n", kRuns);
    for (int i = first; i + 1 < argc; i += 2)
    {
        const char* const url = argv[i + 1];
        std::printf("%-24s %12s", argv[i], LargestWhole(session, *cut, url, caFile).c_str());
        for (const std::size_t size : kInARow)
        {
            std::printf(" %16s", WholeInARow(session, *cut, url, caFile, size).c_str());
        }
        std::printf("\n");
        std::fflush(stdout);
    }
    return session.Close() ? 0 : 1;
}
