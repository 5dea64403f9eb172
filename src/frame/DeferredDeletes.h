#pragma once

/// Notices and trace lines come from inside libcurl, which must not lose a
/// transfer that it is working on. A request that is deleted there is done away
/// with once no libcurl call of its engine is on the stack, and never in the
/// middle of another one's completion. Loop thread only.

#include <memory>

namespace http_interface
{

class CHttpHandle;

class DeferredDeletes
{
public:
    /// Spans every call into libcurl that may call back; does nothing without
    /// an engine (null).
    class CurlCall
    {
    public:
        explicit CurlCall(DeferredDeletes* deletes);
        ~CurlCall();
        CurlCall(const CurlCall&) = delete;
        CurlCall& operator=(const CurlCall&) = delete;

    private:
        DeferredDeletes* m_pDeletes;
    };

    /// Spans the completion of one transfer, where libcurl is on the stack only
    /// now and then.
    class Completion
    {
    public:
        explicit Completion(DeferredDeletes* deletes);
        ~Completion();
        Completion(const Completion&) = delete;
        Completion& operator=(const Completion&) = delete;

    private:
        DeferredDeletes* m_pDeletes;
    };

    bool IsInCurl() const { return m_CurlCalls > 0; }
    void Add(std::shared_ptr<CHttpHandle> handle);

private:
    void DropHold();

    int m_CurlCalls = 0;
    int m_Holds = 0; ///< libcurl calls and completions on the stack

    // Chained through the handles themselves: a delete must not fail half-way
    // for want of memory.
    std::shared_ptr<CHttpHandle> m_pFirst;
    CHttpHandle* m_pLast = nullptr;
};

} // namespace http_interface
