#pragma once

#include <http_interface/http_interface.h>

#include <memory>

/// The method argument of InitRequest.
enum Method : int
{
    kGet = 0,
    kPost = 1,
    kUpload = 2,
    kWebSocket = 3,
};

/// An initialised request: 5 s to connect, a minute in all. With a CA file, its
/// https servers are verified against that instead of the system's. Throws
/// std::runtime_error when it can't be made.
std::shared_ptr<http_interface::IHttpHandleInterface>
MakeRequest(const char* url, Method method,
            const std::shared_ptr<http_interface::IHttpHandleNotic>& notic,
            const char* caFile = nullptr);
