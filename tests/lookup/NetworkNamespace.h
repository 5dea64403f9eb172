#pragma once

#include <string>

namespace test
{

/// Moves the calling thread, and every thread that it starts later, into a
/// network of its own that has a loopback interface and nothing else, with the
/// given text as its /etc/resolv.conf. Without root it needs user namespaces.
/// Empty when done, else what failed.
std::string EnterNetworkNamespace(const std::string& resolvConf);

} // namespace test
