#pragma once

#include "wrap/Hooks.h"

#include <mutex>
#include <vector>

namespace test
{

/// Records every option that is set on an easy handle, from construction to
/// destruction, and makes one of them fail.
class EasyOptions
{
public:
    struct Option
    {
        CURL* easy;
        CURLoption option;
        void* value;
    };

    /// Any thread; the default makes none fail.
    explicit EasyOptions(CURLoption failing = CURLOPT_LASTENTRY,
                         CURLcode code = CURLE_OUT_OF_MEMORY)
        : m_Failing(failing),
          m_Code(code),
          m_Replaced(hooks::curl_easy_setopt(), [this](CURL* easy, CURLoption option, void* value)
                     { return Set(easy, option, value); })
    {
    }

    std::vector<Option> All() const
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        return m_Options;
    }

    /// Which options were set, in order.
    std::vector<CURLoption> Order() const
    {
        std::vector<CURLoption> order;
        for (const Option& option : All())
        {
            order.push_back(option.option);
        }
        return order;
    }

    /// What an option was last set to; null when it never was.
    void* Pointer(CURLoption wanted) const
    {
        void* value = nullptr;
        for (const Option& option : All())
        {
            value = option.option == wanted ? option.value : value;
        }
        return value;
    }

    // A long travels in a wider place, whose other half is undefined.
    long Long(CURLoption wanted) const
    {
        return static_cast<long>(reinterpret_cast<std::intptr_t>(Pointer(wanted)));
    }

    template <typename Function>
    Function Callback(CURLoption wanted) const
    {
        return reinterpret_cast<Function>(Pointer(wanted));
    }

private:
    CURLcode Set(CURL* easy, CURLoption option, void* value)
    {
        {
            const std::lock_guard<std::mutex> lock(m_Mutex);
            m_Options.push_back({easy, option, value});
        }
        return option == m_Failing ? m_Code : hooks::curl_easy_setopt().Real(easy, option, value);
    }

    const CURLoption m_Failing;
    const CURLcode m_Code;
    mutable std::mutex m_Mutex;
    std::vector<Option> m_Options;
    const Replaced<CURLcode(CURL*, CURLoption, void*)> m_Replaced; // last: it calls Set
};

} // namespace test
