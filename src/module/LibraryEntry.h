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

/// Counts one loop thread as long as it exists: made before the thread is and
/// handed to it. Every copy counts for itself.
class LoopThreadMark
{
public:
    LoopThreadMark();
    LoopThreadMark(const LoopThreadMark&);
    LoopThreadMark& operator=(const LoopThreadMark&) = delete;
    ~LoopThreadMark();
};

} // namespace http_interface
