#pragma once

#include "fuzz/ByteServer.h"
#include "http_interface/http_interface.h"

#include <memory>

namespace fuzz
{

using namespace http_interface;

/// What a program keeps from input to input: one running engine, the server
/// that everything connects to, and a logger that formats every line and drops
/// it. Made at the first use, stopped when the program ends.
class Bench
{
public:
    static Bench& Get();

    IHttpInterface& Engine() { return *m_pEngine; }
    ByteServer& Server() { return m_Server; }

    /// Returns when the engine has let go of everything that it had performed
    /// before.
    void Settle();

private:
    Bench();
    ~Bench();

    ByteServer m_Server;
    std::shared_ptr<IHttpInterface> m_pEngine;
};

/// Has lines formatted, so that their arguments are looked at, and dropped; with
/// FUZZ_LOG in the environment they are written. Bench does it itself.
void DropLogLines();

} // namespace fuzz
