#pragma once

/// Asynchronous HTTP and HTTPS transfers, WebSocket messaging and millisecond
/// timers on one private loop thread. This header includes every public one.
///
/// A host makes one engine (IHttpInterface), gives it request handles
/// (IHttpHandleInterface) and timers (ITimerHandleInterface) from any of its
/// threads, and hears back through notice objects (IHttpInterfaceNotic,
/// IHttpHandleNotic, ITimerHandleNotic) and completion functions, always on
/// the engine's loop thread. What may be called on which thread and inside which
/// notice is told in docs/threads-and-notices.md.
///
/// Every object is made by a static Create() and held by std::shared_ptr.
/// Pointers handed back to the engine must come from these factories: the
/// engine converts them to its own classes without a run-time type check.

#include "http_interface/Callbacks.h"
#include "http_interface/IHttpHandleInterface.h"
#include "http_interface/IHttpHandleNotic.h"
#include "http_interface/IHttpInterface.h"
#include "http_interface/IHttpInterfaceNotic.h"
#include "http_interface/ITimerHandleInterface.h"
#include "http_interface/ITimerHandleNotic.h"
