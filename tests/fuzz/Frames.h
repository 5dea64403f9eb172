#pragma once

/// WebSocket frames as bytes, and what a host hears of such bytes.

#include <fuzzer/FuzzedDataProvider.h>
#include <string>
#include <vector>

namespace fuzz
{

/// Frames of every kind, most of them well-formed, from the choices in `input`.
std::string MakeFrames(FuzzedDataProvider& input);

struct Message
{
    std::string data;
    int type;

    bool operator==(const Message& other) const { return type == other.type && data == other.data; }
};

struct Messages
{
    std::vector<Message> all;
    /// A ping that arrives in parts leaves all but its last part with the next
    /// message: what is delivered then depends on how the bytes came in.
    bool exact = true;
};

/// What a connection that carries these bytes and then ends delivers.
Messages MessagesIn(const std::string& bytes);

} // namespace fuzz
