#include "fuzz/Calls.h"

#include <algorithm>
#include <list>
#include <utility>

namespace fuzz
{

/// Takes the handle for configuring or reading; the caller puts the phase back.
bool CalledHandle::Claim(Phase& before)
{
    before = m_Phase;
    return (before == New || before == Ready) && m_Phase.compare_exchange_strong(before, Config);
}

void CalledHandle::Init(const std::string& url, int method, int timeoutMs)
{
    Phase before{};
    if (!Claim(before))
    {
        return;
    }
    // Shared until the delete only: the run holds this object.
    const std::shared_ptr<IHttpHandleNotic> notic(std::shared_ptr<void>(), this);
    const int result =
        m_pHandle->InitRequest(url.c_str(), "tag", method, notic, timeoutMs, timeoutMs, this);
    FUZZ_CHECK(result == -1 || (result == 0 && before == New));
    m_bInitialised = result == 0 || before == Ready;
    m_Phase = result == 0 ? Ready : before;
}

void CalledHandle::Set(int option, int value)
{
    Phase before{};
    if (!Claim(before))
    {
        return;
    }
    const std::list<std::string> lines(static_cast<std::size_t>(value & 3), "X-Line: value");
    const std::string text(static_cast<std::size_t>(value), 't');
    int result = -1;
    switch (option % 7)
    {
    case 0:
        result = m_pHandle->SetPostFields(text.c_str());
        break;
    case 1:
        result = m_pHandle->EnableVerbose();
        break;
    case 2:
        result = m_pHandle->SetDownloadFile((value & 1) != 0 ? "./fuzz_calls" : "./no/such/file");
        break;
    case 3:
        result = m_pHandle->SetProgress((value & 1) != 0);
        break;
    case 4:
        result = m_pHandle->SetCaCert((value & 1) != 0 ? "./fuzz_calls" : nullptr);
        break;
    case 5:
        result = m_pHandle->SetHeaders((value & 4) != 0 ? nullptr : &lines);
        break;
    default:
        result = m_pHandle->SetUploadSize(value - 1);
        break;
    }
    FUZZ_CHECK(result == -1 || (result == 0 && before == Ready));
    m_Phase = before;
}

void CalledHandle::Read()
{
    Phase before{};
    if (!Claim(before))
    {
        return;
    }
    const long code = m_pHandle->GetResponseCode();
    FUZZ_CHECK(before == Ready ? code >= 0 : code == -1);
    FUZZ_CHECK(before == Ready || m_pHandle->GetResponse().empty());
    FUZZ_CHECK(m_pHandle->GetUserData() == (before == Ready ? this : nullptr));
    m_Phase = before;
}

// One that is in the engine already is added at once only, where the refusal
// comes at once too: a queued one might come through after the transfer's end.
void CalledHandle::Add(bool onLoop, bool async, bool told)
{
    m_pEngine->WhileOpen(
        [&]
        {
            Phase before = m_Phase;
            const bool engages = (before == New || before == Ready) &&
                                 m_Phase.compare_exchange_strong(before, Engaged);
            const bool again = !engages && before == Engaged && onLoop && !async;
            if (!engages && !again)
            {
                return;
            }
            m_Adds += engages ? 1 : 0;
            m_pEngine->AddBegins();
            const auto ticket = m_Tickets.Draw();
            const int result =
                m_pEngine->Get().AddHttpReq(m_pHandle, async, OnAdded(told, engages, ticket), this);
            ticket->Answered(result, onLoop && !async);
            if (ticket->Completions() == 0 && result != 0)
            {
                m_pEngine->AddEnds();
                if (engages)
                {
                    Disengage();
                }
            }
            else if (again && result == 0)
            {
                ++m_Adds; // it had left the engine
            }
        });
}

void CalledHandle::Disengage()
{
    Phase engaged = Engaged;
    m_Phase.compare_exchange_strong(engaged, m_bInitialised ? Ready : New);
}

HttpReqCallback CalledHandle::OnAdded(bool told, bool engages,
                                      const std::shared_ptr<Ticket>& ticket)
{
    return [this, told, engages, ticket](std::shared_ptr<IHttpHandleInterface> handle, void* user,
                                         int result)
    {
        FUZZ_CHECK(handle == m_pHandle && user == this && (result == 0 || result == -1));
        ticket->Completed();
        m_pEngine->AddEnds();
        if (result != 0 && engages)
        {
            Disengage();
        }
        if (told)
        {
            m_pEngine->Notify();
        }
    };
}

void CalledHandle::Delete(bool onLoop, bool async, bool told)
{
    Phase before = m_Phase;
    if (before == Config || (before != Gone && !m_Phase.compare_exchange_strong(before, Gone)))
    {
        return;
    }
    const auto ticket = m_Tickets.Draw();
    const int result = m_pEngine->Get().DelHttpReq(m_pHandle, async, OnDeleted(told, ticket), this);
    ticket->Answered(result, onLoop && !async);
    if (result != 0 && ticket->Completions() == 0)
    {
        m_Phase = before; // refused
    }
}

HttpReqCallback CalledHandle::OnDeleted(bool told, const std::shared_ptr<Ticket>& ticket)
{
    return
        [this, told, ticket](std::shared_ptr<IHttpHandleInterface> handle, void* user, int result)
    {
        FUZZ_CHECK(handle == m_pHandle && user == this && (result == 0 || result == -1));
        ticket->Completed();
        m_bSilent = true;
        if (told)
        {
            m_pEngine->Notify();
        }
    };
}

void CalledHandle::Disconnect()
{
    const int result = m_pHandle->Disconnect();
    FUZZ_CHECK(result == 0 || result == -1);
}

void CalledHandle::Send(int type, std::size_t size, bool withData, bool withSent)
{
    std::size_t sent = 0;
    const auto data = withData ? std::make_shared<std::vector<char>>(size, 'd') : nullptr;
    const int result = m_pHandle->SendWsData(data, type, withSent ? &sent : nullptr);
    FUZZ_CHECK(result == -1 || (result == 0 && withSent && type >= 1 && type <= 3));
    FUZZ_CHECK(sent <= size);
}

void CalledHandle::Told(void* user)
{
    FUZZ_CHECK(user == this);
    FUZZ_CHECK(!m_bSilent);
    m_pEngine->Notify();
}

void CalledHandle::OnWsData(const char* /*data*/, std::size_t /*len*/, int type, void* user)
{
    FUZZ_CHECK(type >= 0 && type <= 3);
    Told(user);
}

void CalledHandle::OnProgress(const char* /*tag*/, const char* /*url*/, double /*dltotal*/,
                              double /*dlnow*/, double /*ultotal*/, double /*ulnow*/, void* user)
{
    Told(user);
}

std::size_t CalledHandle::OnReadData(std::shared_ptr<IHttpHandleInterface> handle, char* buffer,
                                     std::size_t size, std::size_t nitems, void* user)
{
    FUZZ_CHECK(handle == m_pHandle);
    const std::size_t count = std::min<std::size_t>(size * nitems, 10);
    std::fill_n(buffer, count, 'u');
    Told(user);
    return count;
}

void CalledHandle::OnFinish(std::shared_ptr<IHttpHandleInterface> handle, int result, void* user)
{
    FUZZ_CHECK(handle == m_pHandle && (result == 0 || result == -2));
    FUZZ_CHECK(++m_Finishes <= m_Adds);
    Disengage();
    Told(user);
}

void CalledHandle::CheckAtEnd()
{
    const std::weak_ptr<IHttpHandleInterface> left = m_pHandle;
    m_pHandle.reset();
    Await([&] { return left.expired(); });
}

} // namespace fuzz
