#include "support/EngineTest.h"

namespace test
{

void EngineTest::TearDown()
{
    m_pEngine->Stop(false); // -1 where the test has stopped it
}

void EngineTest::StartEngine()
{
    ASSERT_EQ(m_pEngine->Init(m_pEngineNotic, &m_UserData), 0);
    ASSERT_EQ(m_pEngine->Start(true), 0);
}

void EngineTest::StopEngine()
{
    ASSERT_EQ(m_pEngine->Stop(false), 0);
}

void EngineTest::OnLoop(const std::function<void()>& function)
{
    // The completion of a timer's add runs on the loop thread, outside libcurl.
    constexpr std::uint64_t kNeverMs = 1000 * 1000;
    const auto timer =
        ITimerHandleInterface::Create(std::shared_ptr<ITimerHandleNotic>(), kNeverMs, 0, nullptr);
    Event done;
    ASSERT_EQ(m_pEngine->AddTimerReq(
                  timer, true,
                  [&](std::shared_ptr<ITimerHandleInterface>, void*, int)
                  {
                      m_pEngine->DelTimerReq(timer, false, nullptr, nullptr);
                      function();
                      done.Set();
                  },
                  nullptr),
              0);
    ASSERT_TRUE(done.Wait());
}

std::shared_ptr<IHttpHandleInterface> EngineTest::MakeHandle(const std::string& url, int method,
                                                             int timeoutMs)
{
    m_pNotic = std::make_shared<HandleNotic>();
    auto handle = IHttpHandleInterface::Create();
    EXPECT_EQ(handle->InitRequest(url.c_str(), "tag", method, m_pNotic, timeoutMs, timeoutMs,
                                  &m_UserData),
              0);
    return handle;
}

void EngineTest::Run(const std::shared_ptr<IHttpHandleInterface>& handle)
{
    const int before = m_pNotic->m_Finished.Count();
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, false, nullptr, nullptr), 0);
    ASSERT_TRUE(m_pNotic->m_Finished.Wait(before + 1));
}

void EngineTest::Delete(const std::shared_ptr<IHttpHandleInterface>& handle)
{
    HttpCompletion deleted;
    ASSERT_EQ(m_pEngine->DelHttpReq(handle, false, deleted.Function(), nullptr), 0);
    ASSERT_TRUE(deleted.Wait());
}

} // namespace test
