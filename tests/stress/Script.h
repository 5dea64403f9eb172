#pragma once

namespace stress
{

/// When an entry does something on its own, on the loop thread.
enum class Moment
{
    Never,
    Added,    ///< in the completion of its add
    Finished, ///< in OnFinish
    Inside,   ///< in OnProgress, OnReadData or OnWsData: libcurl is on the stack
    Expired,  ///< in OnTimer
};

/// What it does then.
enum class Action
{
    Delete,
    DeleteQueued,
    AddAgain,
    AddAgainQueued,
    Disconnect,
    StopTimer,
    AgainTimer,
    DeleteAnother,
    StopEngine,
    StopEngineLater,
    StopBehindAnAdd, ///< adds a transfer, which the stop cuts off
};

/// Drawn when the entry is made, so that the decisions do not depend on what
/// the loop thread does when. Acted out once.
struct Script
{
    Moment when = Moment::Never;
    Action what = Action::Delete;
};

/// Who calls the engine: only on the loop thread are operations performed
/// within the call.
enum class Caller
{
    Host,
    Loop,
};

} // namespace stress
