#pragma once

#include <string>

namespace fuzz
{

/// The answer that accepts a WebSocket upgrade.
std::string Upgrade(const std::string& request);

/// Whether a request asks for one.
bool AsksForUpgrade(const std::string& request);

} // namespace fuzz
