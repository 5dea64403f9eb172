#include "support/EngineTest.h"
#include "support/HeldLoop.h"

#include <atomic>
#include <system_error>

namespace
{

std::atomic<long (*)(long)> changed{nullptr};

} // namespace

// The linker sends the library's questions for a thread's id here.
extern "C" long __real__ZN4base6GetTidEv();
extern "C" long __wrap__ZN4base6GetTidEv();
long __wrap__ZN4base6GetTidEv()
{
    long (*const change)(long) = changed;
    const long id = __real__ZN4base6GetTidEv();
    return change != nullptr ? change(id) : id;
}

namespace test
{
namespace
{

/// The host's base library gives other thread ids, meanwhile.
class ChangedIds
{
public:
    explicit ChangedIds(long (*change)(long id)) { changed = change; }
    ~ChangedIds() { changed = nullptr; }
    ChangedIds(const ChangedIds&) = delete;
    ChangedIds& operator=(const ChangedIds&) = delete;
};

class ThreadIdTest : public EngineTest
{
protected:
    /// The engine tells its loop thread from another one.
    void ExpectLoopThreadIsKnown()
    {
        const std::string onStop = "[HTTP_INTERFACE]http_interface::CHttpFrame::OnStop";
        StartEngine();
        Event ended;
        HeldLoop(m_pEngine).Release(
            [&]
            {
                SetAtThreadEnd(ended);
                const auto timer = ITimerHandleInterface::Create(nullptr, nullptr, 1, 0, nullptr);
                TimerCompletion added;
                m_pEngine->AddTimerReq(timer, false, added.Function(), nullptr);
                EXPECT_EQ(added.Calls(), 1);
                m_pEngine->DelTimerReq(timer, false, nullptr, nullptr);
                EXPECT_EQ(m_pEngine->Stop(false), 0);
                EXPECT_EQ(m_Log.Count(kDebug, onStop), 1);
                EXPECT_EQ(m_Log.Find(onStop).threadId, base::GetTid());
            });
        EXPECT_TRUE(ended.Wait());
        StartEngine();
        StopEngine();
        EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 2);
    }
};

// The engine keeps 32 bits of the id.
TEST_F(ThreadIdTest, WiderThan32BitsIsRecognised)
{
    const ChangedIds wide([](long id) { return id + 0x500000000L; });
    ExpectLoopThreadIsKnown();
}

TEST_F(ThreadIdTest, NegativeIsRecognised)
{
    const ChangedIds negative([](long id) { return -id; });
    ExpectLoopThreadIsKnown();
}

TEST_F(ThreadIdTest, WithTheHighestOf32BitsSetIsRecognised)
{
    const ChangedIds high([](long id) { return id | 0x80000000L; });
    ExpectLoopThreadIsKnown();
}

// A thread can't wait for its own end. Only a base library whose ids change
// lets it try.
TEST_F(ThreadIdTest, StopOnALoopThreadThatIsNotRecognisedThrows)
{
    StartEngine();
    Event ended;
    HeldLoop(m_pEngine).Release(
        [&]
        {
            SetAtThreadEnd(ended);
            {
                const ChangedIds other([](long id) { return id + 1; });
                try
                {
                    m_pEngine->Stop(false);
                    ADD_FAILURE() << "nothing thrown";
                }
                catch (const std::system_error& error)
                {
                    EXPECT_EQ(error.code(), std::errc::resource_deadlock_would_occur);
                }
            }
            EXPECT_EQ(m_pEngine->Stop(false), 0); // the thread is still the engine's
        });
    EXPECT_TRUE(ended.Wait());
    EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 1);
}

} // namespace
} // namespace test
