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
    m_Handles.push_back(std::move(handle));
}

// Ending a request calls libcurl again, whose trace lines may delete others: the
// hold is dropped only when all are ended.
void DeferredDeletes::DropHold()
{
    while (m_Holds == 1 && !m_Handles.empty())
    {
        std::vector<std::shared_ptr<CHttpHandle>> handles;
        handles.swap(m_Handles);
        for (const std::shared_ptr<CHttpHandle>& handle : handles)
        {
            handle->EndDelete();
        }
    }
    --m_Holds;
}

} // namespace http_interface
