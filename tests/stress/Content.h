#pragma once

#include "stress/Ledger.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace stress
{

/// Bytes and letters that no two ids have in common.
std::string BytesOf(std::uint64_t id, std::size_t size);
std::string TextOf(std::uint64_t id, std::size_t size);

/// All of a file; empty when it can't be read.
std::string ContentOf(const std::string& path);

/// The few files that uploads write again and again, each always the same.
namespace stored
{

std::uint64_t NumberOf(std::uint64_t id);
std::string Content(std::uint64_t number);
/// Compares those that are in the server's folder.
void Check(const std::string& directory, Ledger& ledger);

} // namespace stored
} // namespace stress
