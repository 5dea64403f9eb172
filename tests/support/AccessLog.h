#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace test
{

/// What nginx wrote of one finished request.
struct Access
{
    std::string connection; ///< a number, the same for requests on one connection
    std::string protocol;   ///< such as HTTP/2.0
    std::string tls;        ///< such as TLSv1.3
    std::string method;
    std::string status;
};

/// All requests for a URI, once nginx has written so many of them: it writes
/// after it has answered, and tells nobody. Fails the test after the limit.
std::vector<Access> WaitForAccesses(const std::string& uri, std::size_t count);

} // namespace test
