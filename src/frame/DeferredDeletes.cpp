#include "frame/DeferredDeletes.h"

#include "handle/CHttpHandle.h"

#include <utility>

namespace http_interface
{

DeferredDeletes::CurlCall::CurlCall(DeferredDeletes* deletes) : m_pDeletes(deletes)
{
    if (m_pDeletes != nullptr)
    {
        ++m_pDeletes->m_CurlCalls;
        ++m_pDeletes->m_Holds;
    }
}

DeferredDeletes::CurlCall::~CurlCall()
{
    if (m_pDeletes != nullptr)
    {
        --m_pDeletes->m_CurlCalls;
        m_pDeletes->DropHold();
    }
}

DeferredDeletes::Completion::Completion(DeferredDeletes* deletes) : m_pDeletes(deletes)
{
    ++m_pDeletes->m_Holds;
}

DeferredDeletes::Completion::~Completion()
{
    m_pDeletes->DropHold();
}

void DeferredDeletes::Add(std::shared_ptr<CHttpHandle> handle)
{
    std::shared_ptr<CHttpHandle>& last = m_pLast != nullptr ? m_pLast->NextDeleted() : m_pFirst;
    m_pLast = handle.get();
    last = std::move(handle);
}

// Ending a request calls libcurl again, whose trace lines may delete others: the
// hold is dropped only when all are ended.
void DeferredDeletes::DropHold()
{
    while (m_Holds == 1 && m_pFirst)
    {
        const std::shared_ptr<CHttpHandle> handle = std::move(m_pFirst);
        m_pFirst = std::move(handle->NextDeleted());
        m_pLast = m_pFirst ? m_pLast : nullptr;
        handle->EndDelete();
    }
    --m_Holds;
}

} // namespace http_interface
