#pragma once

#include <string>

namespace test
{

/// A value that the local test servers announced, such as HTTP_URL; fails the
/// test when they run no such server.
std::string Server(const std::string& key);

} // namespace test
