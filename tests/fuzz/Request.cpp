#include "fuzz/Request.h"

#include "fuzz/Bench.h"
#include "fuzz/Check.h"

#include <utility>

namespace fuzz
{

bool Request::Init(const std::string& url, const char* tag, int method, int timeoutMs)
{
    return m_pHandle->InitRequest(url.c_str(), tag, method, shared_from_this(), timeoutMs,
                                  timeoutMs, this) == 0;
}

int Request::Add()
{
    test::Event added;
    int result = 1;
    ++m_Adds;
    FUZZ_CHECK(Bench::Get().Engine().AddHttpReq(
                   m_pHandle, true,
                   [&](std::shared_ptr<IHttpHandleInterface> handle, void* user, int code)
                   {
                       FUZZ_CHECK(handle == m_pHandle && user == this && added.Count() == 0);
                       result = code;
                       added.Set();
                   },
                   this) == 0);
    FUZZ_CHECK(added.Wait());
    return result;
}

bool Request::WaitForFinish(std::chrono::milliseconds limit)
{
    return m_Finishes.Wait(m_Adds, limit);
}

void Request::AwaitFinish()
{
    FUZZ_CHECK(m_Finishes.Wait(m_Adds));
}

void Request::Delete(std::shared_ptr<Request> request)
{
    if (!request->m_bDeleting.exchange(true))
    {
        FUZZ_CHECK(Bench::Get().Engine().DelHttpReq(request->m_pHandle, true, request->OnDeleted(),
                                                    request.get()) == 0);
    }
    const std::shared_ptr<test::Event> deletes = request->m_pDeletes;
    FUZZ_CHECK(deletes->Wait());
    Bench::Get().Settle();
    FUZZ_CHECK(deletes->Count() == 1);

    const std::weak_ptr<IHttpHandleInterface> handle = request->m_pHandle;
    const std::weak_ptr<Request> notic = request;
    request->m_pHandle.reset();
    FUZZ_CHECK(handle.expired());
    request.reset();
    FUZZ_CHECK(notic.expired());
}

void Request::DeleteInside(bool async)
{
    if (!m_bDeleting.exchange(true))
    {
        Bench::Get().Engine().DelHttpReq(m_pHandle, async, OnDeleted(), this);
    }
}

void Request::AwaitDelete()
{
    FUZZ_CHECK(m_pDeletes->Wait());
}

HttpReqCallback Request::OnDeleted()
{
    return [this, deletes = m_pDeletes](std::shared_ptr<IHttpHandleInterface> handle, void* user,
                                        int result)
    {
        FUZZ_CHECK(handle == m_pHandle && user == this && (result == 0 || result == -1));
        m_bDeleted = true;
        deletes->Set();
    };
}

void Request::CheckNotice(void* user) const
{
    FUZZ_CHECK(user == this);
    FUZZ_CHECK(!m_bDeleted);
}

void Request::OnWsData(const char* data, std::size_t len, int type, void* user)
{
    CheckNotice(user);
    if (m_OnWsData)
    {
        m_OnWsData(data, len, type);
    }
}

void Request::OnProgress(const char* tag, const char* url, double dltotal, double dlnow,
                         double ultotal, double ulnow, void* user)
{
    CheckNotice(user);
    FUZZ_CHECK(m_pHandle->GetTag() == tag && m_pHandle->GetUrl() == url);
    FUZZ_CHECK(dltotal >= 0 && dlnow >= 0 && ultotal >= 0 && ulnow >= 0);
    if (m_OnProgress)
    {
        m_OnProgress();
    }
}

std::size_t Request::OnReadData(std::shared_ptr<IHttpHandleInterface> handle, char* buffer,
                                std::size_t size, std::size_t nitems, void* user)
{
    CheckNotice(user);
    FUZZ_CHECK(handle == m_pHandle);
    return m_OnReadData ? m_OnReadData(buffer, size * nitems) : 0;
}

void Request::OnFinish(std::shared_ptr<IHttpHandleInterface> handle, int result, void* user)
{
    CheckNotice(user);
    FUZZ_CHECK(handle == m_pHandle && (result == 0 || result == -2));
    FUZZ_CHECK(m_Finishes.Count() < m_Adds);
    m_Result = result;
    if (m_OnFinish)
    {
        m_OnFinish();
    }
    m_Finishes.Set();
}

} // namespace fuzz
