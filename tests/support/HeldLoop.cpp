#include "support/HeldLoop.h"

#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>
#endif

namespace test
{

using namespace http_interface;

HeldLoop::HeldLoop(const std::shared_ptr<IHttpInterface>& engine) : m_pEngine(engine)
{
    constexpr std::uint64_t kNeverMs = 1000 * 1000;
    const auto timer =
        ITimerHandleInterface::Create(std::shared_ptr<ITimerHandleNotic>(), kNeverMs, 0, nullptr);
    const int queued = m_pEngine->AddTimerReq(
        timer, true,
        [state = m_pState, loop = m_pEngine.get()](std::shared_ptr<ITimerHandleInterface> added,
                                                   void*, int)
        {
            loop->DelTimerReq(added, false, nullptr, nullptr);
            state->held.Set();
            EXPECT_TRUE(state->released.Wait());
            if (state->last)
            {
                state->last();
            }
            state->ran.Set();
        },
        nullptr);
    EXPECT_EQ(queued, 0);
    EXPECT_TRUE(m_pState->held.Wait());
}

HeldLoop::~HeldLoop()
{
    if (!m_bReleased)
    {
        Release();
    }
}

void HeldLoop::Release(const std::function<void()>& last)
{
    m_bReleased = true;
    m_pState->last = last;
    m_pState->released.Set();
    EXPECT_TRUE(m_pState->ran.Wait());
}

void HeldLoop::ReleaseWithStop()
{
    Event ended;
    Release(
        [&]
        {
            SetAtThreadEnd(ended);
            EXPECT_EQ(m_pEngine->Stop(false), 0);
        });
    EXPECT_TRUE(ended.Wait());
}

#ifdef _WIN32

// Not a thread_local with a destructor: g++ for Windows keeps that in memory that
// is freed before the destructor runs.
void SetAtThreadEnd(Event& event)
{
    static const DWORD slot = FlsAlloc([](void* ended) { static_cast<Event*>(ended)->Set(); });
    FlsSetValue(slot, &event);
}

#else

void SetAtThreadEnd(Event& event)
{
    struct Setter
    {
        ~Setter() { event->Set(); }
        Event* event;
    };
    static thread_local Setter setter{&event};
    setter.event = &event;
}

#endif

} // namespace test
