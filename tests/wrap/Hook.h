#pragma once

/// The linker sends every call of the functions in Hooks.h here first
/// (`--wrap`). A hook passes it on, unless the test replaced it, and notes it.

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace test
{

/// One call of a wrapped function.
struct Call
{
    std::string name;
    const void* subject; ///< its first argument: the handle or loop
    long detail;         ///< the option or flag, where the function has one
};

/// The calls of all wrapped functions in order, while recording is on.
class CallRecorder
{
public:
    /// Records from construction to destruction; one at a time.
    CallRecorder();
    ~CallRecorder();
    CallRecorder(const CallRecorder&) = delete;
    CallRecorder& operator=(const CallRecorder&) = delete;

    std::vector<Call> Calls() const;
    /// The calls of the named functions only, in order.
    std::vector<Call> Calls(const std::vector<std::string>& names) const;
    int Count(const std::string& name) const;

    static void Note(const char* name, const void* subject, long detail);
};

template <typename Signature>
class Hook;

/// What happens to the calls of one wrapped function. Any thread.
template <typename Result, typename... Args>
class Hook<Result(Args...)>
{
public:
    using Function = std::function<Result(Args...)>;

    Hook(const char* name, Result (*real)(Args...)) : m_Name(name), m_Real(real) {}

    const char* Name() const { return m_Name; }
    Result Real(Args... args) const { return m_Real(args...); }

    Result Run(Args... args)
    {
        Function replacement;
        {
            const std::lock_guard<std::mutex> lock(m_Mutex);
            replacement = m_Replacement;
        }
        return replacement ? replacement(args...) : m_Real(args...);
    }

    /// Returns the replacement before.
    Function Replace(Function replacement)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Replacement.swap(replacement);
        return replacement;
    }

private:
    const char* m_Name;
    Result (*m_Real)(Args...);
    std::mutex m_Mutex;
    Function m_Replacement;
};

template <typename Signature>
class Replaced;

/// Replaces a function from construction to destruction. The replacement may
/// call hook.Real(), or Next() for what the function was replaced with before.
template <typename Result, typename... Args>
class Replaced<Result(Args...)>
{
public:
    using Function = typename Hook<Result(Args...)>::Function;

    Replaced(Hook<Result(Args...)>& hook, Function replacement)
        : m_Hook(hook), m_Before(m_Hook.Replace(std::move(replacement)))
    {
    }
    ~Replaced() { m_Hook.Replace(m_Before); }
    Replaced(const Replaced&) = delete;
    Replaced& operator=(const Replaced&) = delete;

    Result Next(Args... args) const { return m_Before ? m_Before(args...) : m_Hook.Real(args...); }

private:
    Hook<Result(Args...)>& m_Hook;
    const Function m_Before;
};

} // namespace test
