#include "common/Request.h"

#include <stdexcept>
#include <string>

using namespace http_interface;

namespace
{

constexpr int kConnectTimeoutMs = 5000;
constexpr int kTimeoutMs = 60000;
constexpr int kNoTimeoutMs = 0; // a WebSocket stays open

} // namespace

std::shared_ptr<IHttpHandleInterface> MakeRequest(const char* url, Method method,
                                                  const std::shared_ptr<IHttpHandleNotic>& notic,
                                                  const char* caFile)
{
    auto request = IHttpHandleInterface::Create();
    const int timeoutMs = method == kWebSocket ? kNoTimeoutMs : kTimeoutMs;
    if (request->InitRequest(url, "example", method, notic, kConnectTimeoutMs, timeoutMs,
                             nullptr) != 0 ||
        (caFile != nullptr && request->SetCaCert(caFile) != 0))
    {
        throw std::runtime_error(std::string("no request can be made for ") + url);
    }
    return request;
}
