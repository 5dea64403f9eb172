#include "faults/Scenario.h"

#include "handle/CHttpHandle.h"

#include <gtest/gtest.h>

namespace test
{
namespace
{

constexpr Part kEachRequest[] = {kGetPart, kPostPart,      kUploadPart, kDownloadPart,
                                 kTlsPart, kWebSocketPart, kDeletedPart};

} // namespace

Scenario::Scenario(unsigned parts, const HostOptions& options)
    : m_Host(options),
      m_Parts(parts),
      m_MakesMulti(hooks::curl_multi_init(),
                   [this]
                   {
                       CURLM* const multi = m_MakesMulti.Next();
                       const TestCode inTest;
                       if (multi != nullptr)
                       {
                           m_Multis.insert(multi);
                       }
                       return multi;
                   }),
      m_FreesMulti(hooks::curl_multi_cleanup(),
                   [this](CURLM* multi)
                   {
                       m_Multis.erase(multi);
                       return m_FreesMulti.Next(multi);
                   }),
      m_Removes(hooks::curl_multi_remove_handle(),
                [this](CURLM* multi, CURL* easy) { return OnRemove(multi, easy); })
{
}

Scenario::~Scenario()
{
    for (CURLM* const multi : m_Multis)
    {
        hooks::curl_multi_setopt().Real(multi, CURLMOPT_TIMERFUNCTION, nullptr);
        hooks::curl_multi_setopt().Real(multi, CURLMOPT_SOCKETFUNCTION, nullptr);
        hooks::curl_multi_cleanup().Real(multi);
    }
}

void Scenario::Run()
{
    const TestCode inTest;
    StartEngine();
    if (::testing::Test::HasFatalFailure())
    {
        return;
    }
    for (const Part part : kEachRequest)
    {
        if ((m_Parts & part) != 0)
        {
            m_Requests.push_back(std::make_shared<Request>(m_Host, m_pEngine, part));
            m_Requests.back()->Prepare();
        }
    }
    for (const auto& request : m_Requests)
    {
        request->Add();
    }
    if ((m_Parts & kTimerPart) != 0)
    {
        RunTimer();
    }
    for (const auto& request : m_Requests)
    {
        request->Talk();
        m_bComplete = m_bComplete && request->IsOver();
    }
    for (const auto& request : m_Requests)
    {
        request->Delete();
    }
    StopEngine();
    ExpectNothingLeft();
}

void Scenario::StartEngine()
{
    ASSERT_TRUE(m_Host.Ask(
        [this]
        {
            m_pEngine = IHttpInterface::Create();
            return 0;
        }));
    ASSERT_TRUE(m_Host.Ask([this] { return m_pEngine->Init(m_pEngineNotic, this); }));
    ASSERT_TRUE(m_Host.Ask([this] { return m_pEngine->Start(true); }));
}

void Scenario::RunTimer()
{
    do
    {
        m_Timers.push_back(std::make_shared<TimerUse>(m_Host, m_pEngine));
    } while (!m_Timers.back()->Run() && m_Timers.size() != 2);
}

void Scenario::StopEngine()
{
    EXPECT_TRUE(m_Host.Ask([this] { return m_pEngine->Stop(false); }));
    for (const auto& request : m_Requests)
    {
        request->ExpectAnswered();
        m_FailedFinishes += request->FailedFinishes();
        m_DeadHandles += request->HasDeadHandle() ? 1 : 0;
        EXPECT_EQ(request.use_count(), 1); // it is no handle's notice any more
    }
    for (const auto& timer : m_Timers)
    {
        timer->ExpectAnswered();
        EXPECT_EQ(timer.use_count(), 1);
    }
}

void Scenario::ExpectNothingLeft()
{
    m_Requests.clear();
    m_Timers.clear();
    const std::weak_ptr<IHttpInterface> engine = m_pEngine;
    m_pEngine.reset();
    EXPECT_TRUE(engine.expired());
}

CURLMcode Scenario::OnRemove(CURLM* multi, CURL* easy)
{
    {
        const TestCode inTest;
        char* self = nullptr;
        hooks::curl_easy_getinfo().Real(easy, CURLINFO_PRIVATE, &self);
        for (const auto& request : m_Requests)
        {
            request->OnTakenOut(*reinterpret_cast<std::shared_ptr<CHttpHandle>*>(self));
        }
    }
    return m_Removes.Next(multi, easy);
}

} // namespace test
