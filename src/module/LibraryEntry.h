#pragma once

namespace http_interface
{

/// What the loader's notifications come down to on every platform. libcurl's
/// global state lives from the load of the library to its unload.

/// The library was loaded. A failure of libcurl is only logged: the library
/// stays loaded, and later libcurl calls report their own errors.
void OnLibraryLoad();

/// The library is being unloaded, or the process ends. While a loop thread
/// still runs (a process that exits without stopping its engine) libcurl is
/// left as it is, since that thread is using it.
void OnLibraryUnload();

/// Spans the life of a loop thread: made first and destroyed last on it.
class LoopThreadScope
{
public:
    LoopThreadScope();
    ~LoopThreadScope();
    LoopThreadScope(const LoopThreadScope&) = delete;
    LoopThreadScope& operator=(const LoopThreadScope&) = delete;
};

} // namespace http_interface
