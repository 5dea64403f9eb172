/// Host threads that add, delete, disconnect, send, stop and restart at random,
/// against local servers, and a ledger that proves that every completion and
/// every notice came exactly as often as it had to, and every byte with it.
///
/// Plans says what is asked of the servers, Actor what the threads do, Session
/// how an engine is stopped and started again; Request, Transfer, Socket and
/// Timer keep account of one handle each, Call of one completion.

#include "stress/Actor.h"
#include "stress/Content.h"
#include "stress/HostLog.h"
#include "stress/Monitor.h"
#include "stress/Options.h"
#include "stress/Session.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <thread>

namespace
{

using namespace stress;

/// Restarts engines that were stopped and stops them orderly now and then,
/// until all threads are done.
void Conduct(const Actor::Sessions& sessions, Outstanding& ended, std::atomic<unsigned>& running,
             const Ledger& ledger, std::uint64_t stopEvery)
{
    std::uint64_t nextStop = stopEvery;
    std::size_t turn = 0;
    while (running > 0)
    {
        ended.Wait(std::chrono::milliseconds(100),
                   [&](int)
                   {
                       return running == 0 ||
                              std::any_of(sessions.begin(), sessions.end(),
                                          [](const auto& session) { return session->HasEnded(); });
                   });
        for (const auto& session : sessions)
        {
            if (session->HasEnded())
            {
                session->Restart();
            }
        }
        if (ledger.Operations() >= nextStop)
        {
            nextStop = ledger.Operations() + stopEvery;
            sessions[turn++ % sessions.size()]->StopOrderlyAndRestart();
        }
    }
}

void Play(const Options& options, const Actor::Sessions& sessions, Outstanding& ended,
          const Ledger& ledger)
{
    std::vector<std::unique_ptr<Actor>> actors;
    std::vector<std::thread> threads;
    std::atomic<unsigned> running{options.threads};
    for (unsigned i = 0; i < options.threads; ++i)
    {
        actors.push_back(std::make_unique<Actor>(i, options, sessions));
        threads.emplace_back(
            [&running, &ended, &actor = *actors.back()]
            {
                actor.Run();
                --running;
                ended.Notify();
            });
    }
    Conduct(sessions, ended, running, ledger, options.stopEvery);
    std::uint64_t decisions = 0;
    std::uint64_t digest = 0;
    for (unsigned i = 0; i < options.threads; ++i)
    {
        threads[i].join();
        decisions += actors[i]->Decisions();
        digest ^= actors[i]->Digest();
    }
    std::printf("decisions %" PRIu64 ", digest %016" PRIx64 "\n", decisions, digest);
}

bool Run(const Options& options)
{
    const char* const file = std::getenv("HTTP_INTERFACE_TEST_SERVERS");
    const Plans plans(Servers(file != nullptr ? file : ""));
    Ledger ledger;
    Outstanding ended;
    const auto log = std::make_shared<HostLog>(ledger);
    base::IBaseLogInterface::SetLogInstance(log);

    constexpr unsigned kThreadsOfAnEngine = 6;
    Actor::Sessions sessions;
    for (unsigned i = 0; i <= options.threads / kThreadsOfAnEngine; ++i)
    {
        sessions.push_back(std::make_shared<Session>(
            ledger, plans, ended, "engine " + std::to_string(i), options.seed + i));
        sessions.back()->Start();
    }
    {
        Monitor monitor(ledger,
                        [&sessions]
                        {
                            for (const auto& session : sessions)
                            {
                                session->Print();
                            }
                        });
        monitor.PrintMemory("at start");
        Play(options, sessions, ended, ledger);
        for (const auto& session : sessions)
        {
            session->End();
        }
        monitor.PrintMemory("at end");
    }
    sessions.clear();
    base::IBaseLogInterface::SetLogInstance(nullptr);
    stored::Check(plans.DavDirectory(), ledger);
    if (ledger.Alive() != 0)
    {
        ledger.Differ(std::to_string(ledger.Alive()) + " handles stayed in memory");
    }
    ledger.PrintTable();
    log->Print();
    return ledger.PrintBalance();
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    if (!Parse(argc, argv, options))
    {
        return 2;
    }
    std::printf("seed %" PRIu64 ", %u threads\n", options.seed, options.threads);
    std::fflush(stdout);
    try
    {
        return Run(options) ? 0 : 1;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "http_interface_stress: %s\n", error.what());
        return 2;
    }
}
