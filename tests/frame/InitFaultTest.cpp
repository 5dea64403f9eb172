#include "frame/CHttpFrame.h"
#include "frame/SocketBridge.h"
#include "support/EngineTest.h"
#include "wrap/Hooks.h"

#include <algorithm>
#include <memory>
#include <set>

namespace test
{
namespace
{

using Names = std::vector<std::string>;

/// The calls that prepare an engine, without those that libuv makes itself.
const Names kInitCalls = {"uv_loop_init", "uv_timer_init", "uv_async_init", "curl_multi_init",
                          "curl_multi_setopt"};
const Names kClosingCalls = {"uv_close", "uv_loop_close", "curl_multi_cleanup"};

class InitFaultTest : public EngineTest
{
protected:
    InitFaultTest()
        : m_MakesMulti(hooks::curl_multi_init(),
                       [this]
                       {
                           if (m_bNoMulti)
                           {
                               return static_cast<CURLM*>(nullptr);
                           }
                           m_Multis.push_back(hooks::curl_multi_init().Real());
                           return m_Multis.back();
                       }),
          m_FreesMulti(hooks::curl_multi_cleanup(),
                       [this](CURLM* multi)
                       {
                           m_Multis.erase(std::find(m_Multis.begin(), m_Multis.end(), multi));
                           return hooks::curl_multi_cleanup().Real(multi);
                       })
    {
    }

    /// A failed Init leaves its multi handle behind, on purpose; a later one
    /// makes another.
    void TearDown() override
    {
        EngineTest::TearDown();
        for (CURLM* const multi : m_Multis)
        {
            hooks::curl_multi_setopt().Real(multi, CURLMOPT_TIMERFUNCTION, nullptr);
            hooks::curl_multi_cleanup().Real(multi);
        }
    }

    bool IsInEngine(const void* address) const
    {
        const auto* const begin = static_cast<const char*>(static_cast<const void*>(Frame()));
        return address >= begin && address < begin + sizeof(CHttpFrame);
    }

    const CHttpFrame* Frame() const { return static_cast<const CHttpFrame*>(m_pEngine.get()); }

    /// What the engine itself called, in order.
    std::vector<Call> EngineCalls(const CallRecorder& recorder, const Names& names) const
    {
        std::vector<Call> calls = recorder.Calls(names);
        calls.erase(std::remove_if(calls.begin(), calls.end(),
                                   [&](const Call& call) {
                                       return call.name == "uv_async_init" &&
                                              !IsInEngine(call.subject);
                                   }),
                    calls.end());
        return calls;
    }

    Names EngineCallNames(const CallRecorder& recorder, const Names& names) const
    {
        Names result;
        for (const Call& call : EngineCalls(recorder, names))
        {
            result.push_back(call.name);
        }
        return result;
    }

    /// Init fails with this one line, after these calls, and frees nothing.
    void ExpectInitFails(const std::string& line, const Names& calls)
    {
        const CallRecorder recorder;
        EXPECT_EQ(m_pEngine->Init(m_pEngineNotic, &m_UserData), -1);
        EXPECT_EQ(EngineCallNames(recorder, kInitCalls), calls);
        EXPECT_TRUE(recorder.Calls(kClosingCalls).empty());
        EXPECT_EQ(m_Log.Lines().size(), 1U);
        EXPECT_EQ(m_Log.Texts(kError), Names{"[HTTP_INTERFACE]err" + line});
        EXPECT_EQ(m_pEngineNotic.use_count(), 1);
        EXPECT_EQ(m_pEngine->Start(true), -1);
        m_Log.Clear();
    }

    /// Init succeeds with these calls, and the engine does a whole cycle.
    void ExpectInitWorks(const Names& calls)
    {
        {
            const CallRecorder recorder;
            EXPECT_EQ(m_pEngine->Init(m_pEngineNotic, &m_UserData), 0);
            EXPECT_EQ(EngineCallNames(recorder, kInitCalls), calls);
        }
        ASSERT_EQ(m_pEngine->Start(true), 0);
        OnLoop([] {});
        StopEngine();
        EXPECT_EQ(m_pEngineNotic->m_Stopped.Count(), 1);
        EXPECT_TRUE(m_Log.Texts(kError).empty());
    }

    static std::string UvError(int code, const std::string& text)
    {
        return "[" + std::to_string(code) + ":" + uv_strerror(code) + "]" + text;
    }

    /// libuv fails to initialise the engine's nth wake-up.
    Hook<int(uv_loop_t*, uv_async_t*, uv_async_cb)>::Function FailingAsync(int nth)
    {
        return [this, nth, seen = std::make_shared<int>(0)](uv_loop_t* loop, uv_async_t* handle,
                                                            uv_async_cb callback)
        {
            return IsInEngine(handle) && ++*seen == nth
                       ? UV_ENOMEM
                       : hooks::uv_async_init().Real(loop, handle, callback);
        };
    }

    std::vector<CURLM*> m_Multis; ///< that nobody has freed
    bool m_bNoMulti = false;      ///< libcurl makes no more of them

private:
    const Replaced<CURLM*()> m_MakesMulti;
    const Replaced<CURLMcode(CURLM*)> m_FreesMulti;
};

const Names kAll = {"uv_loop_init",      "uv_timer_init",     "uv_async_init",
                    "uv_async_init",     "curl_multi_init",   "curl_multi_setopt",
                    "curl_multi_setopt", "curl_multi_setopt", "curl_multi_setopt"};

/// The calls from the first to the last of these places in kAll.
Names Calls(std::size_t first, std::size_t last)
{
    return {kAll.begin() + static_cast<std::ptrdiff_t>(first),
            kAll.begin() + static_cast<std::ptrdiff_t>(last) + 1};
}

TEST_F(InitFaultTest, InitPreparesLoopHandlesAndTransfersInOrder)
{
    std::set<const void*> withEngine; // handles whose data is the engine
    const Replaced<int(uv_loop_t*, uv_timer_t*)> timer(
        hooks::uv_timer_init(),
        [&](uv_loop_t* loop, uv_timer_t* handle)
        {
            if (IsInEngine(handle))
            {
                withEngine.insert(handle->data == Frame() ? handle : nullptr);
            }
            return hooks::uv_timer_init().Real(loop, handle);
        });
    const Replaced<int(uv_loop_t*, uv_async_t*, uv_async_cb)> async(
        hooks::uv_async_init(),
        [&](uv_loop_t* loop, uv_async_t* handle, uv_async_cb callback)
        {
            if (IsInEngine(handle))
            {
                withEngine.insert(handle->data == Frame() ? handle : nullptr);
            }
            return hooks::uv_async_init().Real(loop, handle, callback);
        });
    struct Option
    {
        CURLMoption option;
        void* value;
    };
    std::vector<Option> options;
    const Replaced<CURLMcode(CURLM*, CURLMoption, void*)> setopt(
        hooks::curl_multi_setopt(),
        [&](CURLM* multi, CURLMoption option, void* value)
        {
            options.push_back({option, value});
            return hooks::curl_multi_setopt().Real(multi, option, value);
        });

    ExpectInitWorks(kAll);
    EXPECT_EQ(withEngine.size(), 3U);
    EXPECT_EQ(withEngine.count(nullptr), 0U);
    void* const engine = const_cast<CHttpFrame*>(Frame());
    ASSERT_EQ(options.size(), 4U);
    EXPECT_EQ(options[0].option, CURLMOPT_SOCKETFUNCTION);
    EXPECT_EQ(options[0].value, reinterpret_cast<void*>(HandleSocket));
    EXPECT_EQ(options[1].option, CURLMOPT_SOCKETDATA);
    EXPECT_EQ(options[1].value, engine);
    EXPECT_EQ(options[2].option, CURLMOPT_TIMERFUNCTION);
    EXPECT_EQ(options[2].value, reinterpret_cast<void*>(StartTimeout));
    EXPECT_EQ(options[3].option, CURLMOPT_TIMERDATA);
    EXPECT_EQ(options[3].value, engine);
}

TEST_F(InitFaultTest, RefusedInitCallsNothing)
{
    ASSERT_EQ(m_pEngine->Init(nullptr, nullptr), 0);
    {
        const CallRecorder recorder;
        EXPECT_EQ(m_pEngine->Init(nullptr, nullptr), -1);
        EXPECT_TRUE(recorder.Calls().empty());
    }
    ASSERT_EQ(m_pEngine->Start(true), 0);
}

// The loop object is kept; one that failed to initialise is initialised then.
TEST_F(InitFaultTest, FailingLoopIsInitialisedByTheNextInit)
{
    const void* first = nullptr;
    {
        const Replaced<int(uv_loop_t*)> fails(hooks::uv_loop_init(),
                                              [&](uv_loop_t* loop)
                                              {
                                                  first = loop;
                                                  return UV_EMFILE;
                                              });
        ExpectInitFails(UvError(UV_EMFILE, "uv_loop_init failed"), Calls(0, 0));
    }
    const CHttpFrame* const frame = Frame();
    EXPECT_EQ(frame->Loop().get(), first);
    ExpectInitWorks(kAll);
}

TEST_F(InitFaultTest, AfterAFailingTimerTheNextInitGoesOnThere)
{
    {
        const Replaced<int(uv_loop_t*, uv_timer_t*)> fails(
            hooks::uv_timer_init(), [](uv_loop_t*, uv_timer_t*) { return UV_EINVAL; });
        ExpectInitFails(UvError(UV_EINVAL, "uv_timer_init failed"), Calls(0, 1));
    }
    ExpectInitWorks(Calls(1, 8));
}

TEST_F(InitFaultTest, AfterAFailingStopWakeUpTheNextInitGoesOnThere)
{
    {
        const Replaced<int(uv_loop_t*, uv_async_t*, uv_async_cb)> fails(hooks::uv_async_init(),
                                                                        FailingAsync(1));
        ExpectInitFails(UvError(UV_ENOMEM, "Stop async init failed"), Calls(0, 2));
    }
    ExpectInitWorks(Calls(2, 8));
}

TEST_F(InitFaultTest, AfterAFailingRequestWakeUpTheNextInitGoesOnThere)
{
    {
        const Replaced<int(uv_loop_t*, uv_async_t*, uv_async_cb)> fails(hooks::uv_async_init(),
                                                                        FailingAsync(2));
        ExpectInitFails(UvError(UV_ENOMEM, "Req async init failed"), Calls(0, 3));
    }
    ExpectInitWorks(Calls(3, 8));
}

TEST_F(InitFaultTest, MissingMultiHandleFailsWithItsFirstOption)
{
    m_bNoMulti = true;
    ExpectInitFails("[1:Invalid multi handle]curl_multi_setopt CURLMOPT_SOCKETFUNCTION failed",
                    Calls(0, 5));
    m_bNoMulti = false;
    ExpectInitWorks(Calls(4, 8));
}

struct FailingOption
{
    std::size_t place; ///< of the call in kAll
    CURLMoption option;
    const char* name;
};

class InitOptionTest : public InitFaultTest, public ::testing::WithParamInterface<FailingOption>
{
};

// The multi handle of the failed Init is overwritten, not freed.
TEST_P(InitOptionTest, AfterAFailingOptionTheNextInitMakesAnotherMultiHandle)
{
    const FailingOption& failing = GetParam();
    {
        const Replaced<CURLMcode(CURLM*, CURLMoption, void*)> fails(
            hooks::curl_multi_setopt(),
            [&](CURLM* multi, CURLMoption option, void* value)
            {
                return option == failing.option
                           ? CURLM_UNKNOWN_OPTION
                           : hooks::curl_multi_setopt().Real(multi, option, value);
            });
        ExpectInitFails(std::string("[6:Unknown option]curl_multi_setopt ") + failing.name +
                            " failed",
                        Calls(0, failing.place));
    }
    EXPECT_EQ(m_Multis.size(), 1U);
    ExpectInitWorks(Calls(4, 8));
    EXPECT_EQ(m_Multis.size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    All, InitOptionTest,
    ::testing::Values(FailingOption{5, CURLMOPT_SOCKETFUNCTION, "CURLMOPT_SOCKETFUNCTION"},
                      FailingOption{6, CURLMOPT_SOCKETDATA, "CURLMOPT_SOCKETDATA"},
                      FailingOption{7, CURLMOPT_TIMERFUNCTION, "CURLMOPT_TIMERFUNCTION"},
                      FailingOption{8, CURLMOPT_TIMERDATA, "CURLMOPT_TIMERDATA"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(InitFaultTest, SeveralFailuresInARowLeaveAWorkingEngine)
{
    {
        const Replaced<int(uv_loop_t*)> fails(hooks::uv_loop_init(),
                                              [](uv_loop_t*) { return UV_EMFILE; });
        ExpectInitFails(UvError(UV_EMFILE, "uv_loop_init failed"), Calls(0, 0));
        ExpectInitFails(UvError(UV_EMFILE, "uv_loop_init failed"), Calls(0, 0));
    }
    {
        const Replaced<int(uv_loop_t*, uv_async_t*, uv_async_cb)> fails(hooks::uv_async_init(),
                                                                        FailingAsync(2));
        ExpectInitFails(UvError(UV_ENOMEM, "Req async init failed"), Calls(0, 3));
    }
    m_bNoMulti = true;
    ExpectInitFails("[1:Invalid multi handle]curl_multi_setopt CURLMOPT_SOCKETFUNCTION failed",
                    Calls(3, 5));
    m_bNoMulti = false;
    ExpectInitWorks(Calls(4, 8));
}

// A loop of an earlier cycle is gone: everything is prepared anew.
TEST_F(InitFaultTest, SecondCyclePreparesEverythingAgain)
{
    StartEngine();
    StopEngine();
    const CallRecorder recorder;
    ASSERT_EQ(m_pEngine->Init(nullptr, nullptr), 0);
    EXPECT_EQ(EngineCallNames(recorder, kInitCalls), kAll);
    ASSERT_EQ(m_pEngine->Start(true), 0);
}

} // namespace
} // namespace test
