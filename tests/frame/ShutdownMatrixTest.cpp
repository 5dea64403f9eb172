/// Whatever an engine is busy with, and from wherever it is stopped: when
/// everything is deleted at the same time the run ends, nobody is told anything
/// any more, and the next run works.

#include "support/EngineTest.h"
#include "support/HeldLoop.h"
#include "support/Servers.h"

#ifndef _WIN32
#include "support/StoppedServer.h"
#endif

#include <thread>
#include <tuple>

namespace test
{
namespace
{

constexpr int kCount = 5; ///< of each kind

class ShutdownFixture : public EngineTest
{
public:
    // What the engine is busy with.
    void Nothing() {}
    void IdleConnections();
    void SilentPeers();
    void AttemptsToConnect();
    void OpenWebSockets();
    void RunningTimers();
#ifndef _WIN32
    void StoppedPeers();
#endif
    void AllOfIt();

    // Ways to stop it; each returns when the loop thread has ended.
    void FromAHostThread();
    void FromTwoHostThreads();
    void FromATimer();
    void FromInsideLibcurl();
    void OnALaterTurn();

protected:
    std::shared_ptr<IHttpHandleInterface> Add(const std::string& url, int method = kGet);
    void DeleteAll(bool async);
    void StopOnThreads(int count);
    void WaitForTheEnd();
    void ExpectNothingLeft();

#ifndef _WIN32
    // Forks, and so comes before the engine.
    StoppedServer m_StoppedServer;
#endif
    std::vector<std::shared_ptr<IHttpHandleInterface>> m_Handles;
    std::vector<std::shared_ptr<HandleNotic>> m_HandleNotics;
    std::vector<std::shared_ptr<ITimerHandleInterface>> m_Timers;
    std::vector<std::shared_ptr<TimerNotic>> m_TimerNotics;
    Event m_ThreadEnded;
};

std::shared_ptr<IHttpHandleInterface> ShutdownFixture::Add(const std::string& url, int method)
{
    m_Handles.push_back(MakeHandle(url, method, 0));
    m_HandleNotics.push_back(m_pNotic);
    EXPECT_EQ(m_Handles.back()->SetCaCert(Server("CA_FILE").c_str()), 0);
    if (method == kUpload)
    {
        // More than the system takes for a peer that does not read.
        m_pNotic->m_OnReadData =
            [](const std::shared_ptr<IHttpHandleInterface>&, char*, std::size_t size)
        {
            return size;
        };
        EXPECT_EQ(m_Handles.back()->SetUploadSize(1024 * 1024 * 1024), 0);
    }
    HttpCompletion added;
    EXPECT_EQ(m_pEngine->AddHttpReq(m_Handles.back(), false, added.Function(), nullptr), 0);
    EXPECT_TRUE(added.Wait());
    return m_Handles.back();
}

void ShutdownFixture::IdleConnections()
{
    for (const char* const server : {"HTTP_URL", "HTTPS_URL", "H2_URL"})
    {
        Add(Server(server) + "/hello");
        EXPECT_TRUE(m_pNotic->m_Finished.Wait());
        EXPECT_EQ(m_pNotic->m_Result, 0);
    }
}

void ShutdownFixture::SilentPeers()
{
    for (int i = 0; i < kCount; ++i)
    {
        Add(Server("HOSTILE_URL") + "/silence");
    }
    Add(Server("HOSTILE_URL") + "/silence", kUpload);
}

void ShutdownFixture::AttemptsToConnect()
{
    Add(Server("STALL_URL") + "/");
}

void ShutdownFixture::OpenWebSockets()
{
    for (const char* const server : {"WS_URL", "WSS_URL"})
    {
        Add(Server(server) + "/echo", kWebSocket);
        EXPECT_TRUE(m_pNotic->m_Received.Wait());
    }
}

void ShutdownFixture::RunningTimers()
{
    for (int i = 0; i < kCount; ++i)
    {
        m_TimerNotics.push_back(std::make_shared<TimerNotic>());
        m_Timers.push_back(ITimerHandleInterface::Create(m_TimerNotics.back(), 1, 1, nullptr));
        EXPECT_EQ(m_pEngine->AddTimerReq(m_Timers.back(), false, nullptr, nullptr), 0);
        EXPECT_TRUE(m_TimerNotics.back()->m_Expired.Wait());
    }
}

#ifndef _WIN32
void ShutdownFixture::StoppedPeers()
{
    Add("http://" + m_StoppedServer.Host() + "/");
    Add("http://" + m_StoppedServer.Host() + "/", kUpload);
    Add("https://" + m_StoppedServer.Host() + "/");
    Add("ws://" + m_StoppedServer.Host() + "/", kWebSocket);
}
#endif

void ShutdownFixture::AllOfIt()
{
    IdleConnections();
    SilentPeers();
    AttemptsToConnect();
    OpenWebSockets();
    RunningTimers();
#ifndef _WIN32
    StoppedPeers();
#endif
}

void ShutdownFixture::DeleteAll(bool async)
{
    for (const auto& handle : m_Handles)
    {
        EXPECT_EQ(m_pEngine->DelHttpReq(handle, async, nullptr, nullptr), 0);
    }
    for (const auto& timer : m_Timers)
    {
        EXPECT_EQ(m_pEngine->DelTimerReq(timer, async, nullptr, nullptr), 0);
    }
}

void ShutdownFixture::StopOnThreads(int count)
{
    DeleteAll(true);
    Event returned;
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
    {
        threads.emplace_back(
            [&]
            {
                m_pEngine->Stop(false); // -1 for one that comes too late
                returned.Set();
            });
    }
    if (!returned.Wait(count))
    {
        std::fprintf(stderr, "Stop has not returned\n");
        std::abort(); // the threads can't be left behind
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
}

void ShutdownFixture::FromAHostThread()
{
    StopOnThreads(1);
}

void ShutdownFixture::FromTwoHostThreads()
{
    StopOnThreads(2);
}

void ShutdownFixture::WaitForTheEnd()
{
    EXPECT_TRUE(m_ThreadEnded.Wait());
}

// First the stop, then the deletes, which are still performed.
void ShutdownFixture::FromATimer()
{
    const auto notic = std::make_shared<TimerNotic>();
    const auto timer = ITimerHandleInterface::Create(notic, 1, 1, nullptr);
    m_TimerNotics.push_back(notic);
    m_Timers.push_back(timer);
    notic->m_OnTimer = [this, first = true](const std::shared_ptr<ITimerHandleInterface>&) mutable
    {
        if (first)
        {
            first = false;
            SetAtThreadEnd(m_ThreadEnded);
            EXPECT_EQ(m_pEngine->Stop(false), 0);
            DeleteAll(false);
        }
    };
    EXPECT_EQ(m_pEngine->AddTimerReq(timer, false, nullptr, nullptr), 0);
    WaitForTheEnd();
}

// The final drain deletes everything while libcurl is on the stack.
void ShutdownFixture::FromInsideLibcurl()
{
    Event stopped;
    m_Handles.push_back(MakeHandle(Server("HOSTILE_URL") + "/silence", kGet, 0));
    m_HandleNotics.push_back(m_pNotic);
    m_pNotic->m_OnProgress = [&, first = true](const HandleNotic::Progress&) mutable
    {
        EXPECT_TRUE(first) << "a notice after the delete";
        first = false;
        SetAtThreadEnd(m_ThreadEnded);
        DeleteAll(true);
        EXPECT_EQ(m_pEngine->Stop(false), 0);
        stopped.Set();
    };
    EXPECT_EQ(m_Handles.back()->SetProgress(true), 0);
    EXPECT_EQ(m_pEngine->AddHttpReq(m_Handles.back(), false, nullptr, nullptr), 0);
    EXPECT_TRUE(stopped.Wait());
    WaitForTheEnd();
}

void ShutdownFixture::OnALaterTurn()
{
    HeldLoop held(m_pEngine);
    held.Release(
        [&]
        {
            SetAtThreadEnd(m_ThreadEnded);
            DeleteAll(true);
            EXPECT_EQ(m_pEngine->Stop(true), 0);
        });
    WaitForTheEnd();
}

void ShutdownFixture::ExpectNothingLeft()
{
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 1);
    m_pNotic.reset();
    for (const auto& notic : m_HandleNotics)
    {
        EXPECT_EQ(notic.use_count(), 1) << "the request is still there";
    }
    for (const auto& notic : m_TimerNotics)
    {
        EXPECT_EQ(notic->m_Closed.Count(), 1);
    }
    EXPECT_EQ(m_Log.Count(kDebug, "[HTTP_INTERFACE]m_AsynOperReqList size[0]"), 1);
}

struct Busy
{
    const char* name;
    void (ShutdownFixture::*begin)();
};

struct Way
{
    const char* name;
    void (ShutdownFixture::*stop)();
};

const Busy kBusy[] = {
    {"Nothing", &ShutdownFixture::Nothing},
    {"IdleConnections", &ShutdownFixture::IdleConnections},
    {"SilentPeers", &ShutdownFixture::SilentPeers},
    {"AttemptsToConnect", &ShutdownFixture::AttemptsToConnect},
    {"OpenWebSockets", &ShutdownFixture::OpenWebSockets},
    {"RunningTimers", &ShutdownFixture::RunningTimers},
#ifndef _WIN32
    {"StoppedPeers", &ShutdownFixture::StoppedPeers},
#endif
    {"AllOfIt", &ShutdownFixture::AllOfIt},
};

const Way kWays[] = {
    {"FromAHostThread", &ShutdownFixture::FromAHostThread},
    {"FromTwoHostThreads", &ShutdownFixture::FromTwoHostThreads},
    {"FromATimer", &ShutdownFixture::FromATimer},
    {"FromInsideLibcurl", &ShutdownFixture::FromInsideLibcurl},
    {"OnALaterTurn", &ShutdownFixture::OnALaterTurn},
};

class ShutdownMatrixTest : public ShutdownFixture,
                           public ::testing::WithParamInterface<std::tuple<Busy, Way>>
{
};

TEST_P(ShutdownMatrixTest, EndsTheRunAndLeavesNothing)
{
    const auto& [busy, way] = GetParam();
    StartEngine();
    (this->*busy.begin)();
    int finished = 0;
    for (const auto& notic : m_HandleNotics)
    {
        finished += notic->m_Finished.Count();
    }
    (this->*way.stop)();
    ExpectNothingLeft();
    for (const auto& notic : m_HandleNotics)
    {
        finished -= notic->m_Finished.Count();
    }
    EXPECT_EQ(finished, 0) << "OnFinish after the delete";

    StartEngine();
    const auto handle = MakeHandle(Server("HTTP_URL") + "/hello");
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, 0);
    Delete(handle);
    StopEngine();
}

INSTANTIATE_TEST_SUITE_P(, ShutdownMatrixTest,
                         ::testing::Combine(::testing::ValuesIn(kBusy), ::testing::ValuesIn(kWays)),
                         [](const auto& it) {
                             return std::string(std::get<0>(it.param).name) +
                                    std::get<1>(it.param).name;
                         });

} // namespace
} // namespace test
