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

    void Replace(Function replacement)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Replacement.swap(replacement);
    }

private:
    const char* m_Name;
    Result (*m_Real)(Args...);
    std::mutex m_Mutex;
    Function m_Replacement;
};

/// Replaces a function from construction to destruction. The replacement may
/// call hook.Real().
template <typename Signature>
class Replaced
{
public:
    Replaced(Hook<Signature>& hook, typename Hook<Signature>::Function replacement) : m_Hook(hook)
    {
        m_Hook.Replace(std::move(replacement));
    }
    ~Replaced() { m_Hook.Replace(nullptr); }
    Replaced(const Replaced&) = delete;
    Replaced& operator=(const Replaced&) = delete;

private:
    Hook<Signature>& m_Hook;
};

} // namespace test
