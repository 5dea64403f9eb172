#pragma once

#include "http_interface/Callbacks.h"

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace http_interface
{

class IAsynOperInterface;

/// What a queued operation is.
enum AsynOperType : std::int32_t
{
    ASYN_OPER_ADD_HTTP = 0,
    ASYN_OPER_DEL_HTTP = 1,
    ASYN_OPER_CANCEL_HTTP = 2,
    ASYN_OPER_SEND_WS = 3,
    ASYN_OPER_ADD_TIMER = 4,
    ASYN_OPER_DEL_TIMER = 5,
    ASYN_OPER_STOP_TIMER = 6,
    ASYN_OPER_AGAIN_TIMER = 7,
};

/// One operation on its way to the loop thread: built on the calling thread,
/// performed once by its target on the loop thread. Keeps its target alive
/// while it waits.
struct AsynOperReq
{
    AsynOperReq(AsynOperType operType, std::shared_ptr<IAsynOperInterface> operTarget, void* user)
        : type(operType), target(std::move(operTarget)), userData(user)
    {
    }

    AsynOperType type;
    std::shared_ptr<IAsynOperInterface> target;
    void* userData; ///< the host's, handed back in the completion
};

/// An operation on a request handle.
struct AsynHttpReq : AsynOperReq
{
    AsynHttpReq(AsynOperType operType, std::shared_ptr<IAsynOperInterface> operTarget, void* user,
                HttpReqCallback completion)
        : AsynOperReq(operType, std::move(operTarget), user), done(std::move(completion))
    {
    }

    HttpReqCallback done; ///< may be empty
};

/// An operation on a timer.
struct AsynTimerReq : AsynOperReq
{
    AsynTimerReq(AsynOperType operType, std::shared_ptr<IAsynOperInterface> operTarget, void* user,
                 TimerReqCallback completion)
        : AsynOperReq(operType, std::move(operTarget), user), done(std::move(completion))
    {
    }

    TimerReqCallback done; ///< may be empty
};

/// A WebSocket message to send; nobody is told of its completion.
struct AsynWSSendReq : AsynHttpReq
{
    AsynWSSendReq(std::shared_ptr<IAsynOperInterface> operTarget,
                  std::shared_ptr<std::vector<char>> message, std::uint32_t frameFlags)
        : AsynHttpReq(ASYN_OPER_SEND_WS, std::move(operTarget), nullptr, nullptr),
          data(std::move(message)),
          flags(frameFlags)
    {
    }

    std::shared_ptr<std::vector<char>> data; ///< shared with the host; may be empty
    std::uint32_t flags;                     ///< CURLWS_ value of the frame
};

} // namespace http_interface
