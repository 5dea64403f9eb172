#pragma once

#include <memory>

namespace http_interface
{

class CHttpFrame;
struct AsynOperReq;

/// The loop-side face of request handles and timers: the target of a queued
/// operation. Both calls come on the loop thread only.
class IAsynOperInterface
{
public:
    /// Performs the operation. `frame` is the engine that performs it, held
    /// for the call.
    virtual int DoAsynOper(std::shared_ptr<AsynOperReq> req, std::shared_ptr<CHttpFrame> frame) = 0;

    /// Offered each operation still queued when the engine stops, with the
    /// engine's lock held: it must neither queue nor lock.
    /// @return true when the operation is disposed of; false to have it
    ///         performed before the loop closes.
    virtual bool CancelAsynOper(std::shared_ptr<AsynOperReq> req) = 0;

    virtual ~IAsynOperInterface() = default;
};

} // namespace http_interface
