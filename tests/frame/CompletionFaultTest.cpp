/// How a finished transfer is reported when libcurl's answers about it fail, and
/// in which order libcurl is asked.

#include "handle/CHttpHandle.h"
#include "support/EngineTest.h"
#include "support/Servers.h"
#include "wrap/Hooks.h"

#include <algorithm>

namespace test
{
namespace
{

using Texts = std::vector<std::string>;

class CompletionFaultTest : public EngineTest
{
protected:
    using GetInfo = Replaced<CURLcode(CURL*, CURLINFO, void*)>;

    void SetUp() override
    {
        m_Url = Server("HTTP_URL") + "/hello";
        m_Done = "[HTTP_INTERFACE]" + m_Url + " DONE result[0:No error]";
        StartEngine();
    }

    /// A function that stands in for curl_easy_getinfo for one kind of info.
    static Hook<CURLcode(CURL*, CURLINFO, void*)>::Function
    Only(CURLINFO info, std::function<CURLcode(void*)> answer)
    {
        return [info, answer](CURL* easy, CURLINFO asked, void* value)
        {
            return asked == info ? answer(value)
                                 : hooks::curl_easy_getinfo().Real(easy, asked, value);
        };
    }

    /// Adds a handle and waits until libcurl has no further message after it
    /// has taken the transfer out, for transfers that nobody is told of.
    void RunSilently(const std::shared_ptr<IHttpHandleInterface>& handle)
    {
        Event removed;
        Event read;
        const Replaced<CURLMcode(CURLM*, CURL*)> watchedRemove(
            hooks::curl_multi_remove_handle(),
            [&](CURLM* multi, CURL* easy)
            {
                const CURLMcode code = hooks::curl_multi_remove_handle().Real(multi, easy);
                removed.Set();
                return code;
            });
        const Replaced<CURLMsg*(CURLM*, int*)> watchedRead(
            hooks::curl_multi_info_read(),
            [&](CURLM* multi, int* left)
            {
                CURLMsg* const message = hooks::curl_multi_info_read().Real(multi, left);
                if (message == nullptr && removed.Count() != 0)
                {
                    read.Set();
                }
                return message;
            });
        ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
        ASSERT_TRUE(read.Wait());
        OnLoop([] {}); // the hooks are not on the stack any more
    }

    std::string m_Url;
    std::string m_Done;
};

TEST_F(CompletionFaultTest, RemovesThenAsksForSchemeUrlAndHandleThenNotifies)
{
    const auto handle = MakeHandle(m_Url);
    m_pNotic->m_OnFinish = [](const std::shared_ptr<IHttpHandleInterface>&, int)
    {
        CallRecorder::Note("OnFinish", nullptr, 0);
    };
    const CallRecorder recorder;
    Run(handle);
    const std::vector<Call> calls =
        recorder.Calls({"curl_multi_remove_handle", "curl_easy_getinfo", "OnFinish"});
    ASSERT_EQ(calls.size(), 5U);
    EXPECT_EQ(calls[0].name, "curl_multi_remove_handle");
    EXPECT_EQ(calls[1].detail, CURLINFO_SCHEME);
    EXPECT_EQ(calls[2].detail, CURLINFO_EFFECTIVE_URL);
    EXPECT_EQ(calls[3].detail, CURLINFO_PRIVATE);
    EXPECT_EQ(calls[4].name, "OnFinish");
    for (std::size_t i = 1; i != 4; ++i)
    {
        EXPECT_EQ(calls[i].name, "curl_easy_getinfo");
        EXPECT_EQ(calls[i].subject, calls[0].subject);
    }
    EXPECT_EQ(recorder.Count("curl_easy_cleanup"), 0) << "the easy handle stays with the request";
    Delete(handle);
}

TEST_F(CompletionFaultTest, FailedRemovalIsLoggedAndTheTransferStillReported)
{
    const auto handle = MakeHandle(m_Url);
    {
        const Replaced<CURLMcode(CURLM*, CURL*)> fails(hooks::curl_multi_remove_handle(),
                                                       [](CURLM* multi, CURL* easy)
                                                       {
                                                           hooks::curl_multi_remove_handle().Real(
                                                               multi, easy);
                                                           return CURLM_BAD_EASY_HANDLE;
                                                       });
        Run(handle);
    }
    EXPECT_EQ(m_pNotic->m_Result, 0);
    EXPECT_EQ(m_Log.Texts(kError),
              Texts{"[HTTP_INTERFACE]err[2:Invalid easy handle]curl_multi_remove_handle failed "
                    "while CheckMultiInfo"});
    EXPECT_EQ(m_Log.Count(kDebug, m_Done), 1);
    Delete(handle);
}

TEST_F(CompletionFaultTest, UnknownUrlIsLoggedInsteadOfTheResult)
{
    const auto handle = MakeHandle(m_Url);
    {
        const GetInfo fails(hooks::curl_easy_getinfo(), Only(CURLINFO_EFFECTIVE_URL, [](void*)
                                                             { return CURLE_UNKNOWN_OPTION; }));
        Run(handle);
    }
    EXPECT_EQ(m_pNotic->m_Result, 0);
    EXPECT_EQ(m_Log.Texts(kError),
              Texts{"[HTTP_INTERFACE]err[48:An unknown option was passed in to libcurl]"
                    "curl_easy_getinfo CURLINFO_EFFECTIVE_URL failed while FinishHttpReq"});
    EXPECT_EQ(m_Log.Count(kDebug, m_Done), 0);
    Delete(handle);
}

TEST_F(CompletionFaultTest, UnknownHandleIsLoggedAndNobodyTold)
{
    const auto handle = MakeHandle(m_Url);
    {
        const GetInfo fails(hooks::curl_easy_getinfo(),
                            Only(CURLINFO_PRIVATE, [](void*) { return CURLE_UNKNOWN_OPTION; }));
        RunSilently(handle);
    }
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 0);
    EXPECT_EQ(m_Log.Count(kDebug, m_Done), 1);
    EXPECT_EQ(m_Log.Texts(kError),
              Texts{"[HTTP_INTERFACE]err[48:An unknown option was passed in to libcurl]"
                    "curl_easy_getinfo CURLINFO_PRIVATE failed while FinishHttpReq"});
    Delete(handle);
}

TEST_F(CompletionFaultTest, MissingHandleIsPassedOverWithoutAWord)
{
    std::shared_ptr<CHttpHandle> empty;
    for (void* const self : {static_cast<void*>(nullptr), static_cast<void*>(&empty)})
    {
        const auto handle = MakeHandle(m_Url);
        {
            const GetInfo none(hooks::curl_easy_getinfo(), Only(CURLINFO_PRIVATE,
                                                                [self](void* value)
                                                                {
                                                                    *static_cast<void**>(value) =
                                                                        self;
                                                                    return CURLE_OK;
                                                                }));
            RunSilently(handle);
        }
        EXPECT_EQ(m_pNotic->m_Finished.Count(), 0);
        EXPECT_TRUE(m_Log.Texts(kError).empty());
        Delete(handle);
    }
    EXPECT_EQ(m_Log.Count(kDebug, m_Done), 2);
}

TEST_F(CompletionFaultTest, WebSocketSchemesEndSilently)
{
    for (const char* const scheme : {"ws", "wss"})
    {
        const auto handle = MakeHandle(m_Url);
        m_Log.Clear();
        {
            const GetInfo answers(hooks::curl_easy_getinfo(),
                                  Only(CURLINFO_SCHEME,
                                       [scheme](void* value)
                                       {
                                           *static_cast<const char**>(value) = scheme;
                                           return CURLE_OK;
                                       }));
            const CallRecorder recorder;
            RunSilently(handle);
            EXPECT_EQ(recorder.Count("curl_multi_remove_handle"), 1);
            EXPECT_EQ(recorder.Count("curl_easy_getinfo"), 1) << "asked for more than the scheme";
        }
        EXPECT_EQ(m_pNotic->m_Finished.Count(), 0);
        EXPECT_EQ(m_Log.Count(kDebug, m_Done), 0);
        EXPECT_TRUE(m_Log.Texts(kError).empty());
        Delete(handle); // also proves it: a handle still added would be removed without an error
    }
}

TEST_F(CompletionFaultTest, EveryOtherSchemeAndNoneAreReported)
{
    for (const char* const scheme : {"WS", "WSS", "Ws", "w", "wsx", "wsss", "http", ""})
    {
        const auto handle = MakeHandle(m_Url);
        const GetInfo answers(hooks::curl_easy_getinfo(),
                              Only(CURLINFO_SCHEME,
                                   [scheme](void* value)
                                   {
                                       *static_cast<const char**>(value) = scheme;
                                       return CURLE_OK;
                                   }));
        Run(handle);
        EXPECT_EQ(m_pNotic->m_Result, 0) << scheme;
        Delete(handle);
    }
    const auto handle = MakeHandle(m_Url);
    const GetInfo fails(hooks::curl_easy_getinfo(),
                        Only(CURLINFO_SCHEME, [](void*) { return CURLE_UNKNOWN_OPTION; }));
    Run(handle);
    EXPECT_EQ(m_pNotic->m_Result, 0);
    Delete(handle);
    EXPECT_EQ(m_Log.Count(kDebug, m_Done), 9);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
}

TEST_F(CompletionFaultTest, UnknownMessageIsLoggedAndTheNextOneRead)
{
    const auto handle = MakeHandle(m_Url);
    {
        CURLMsg unknown{};
        unknown.msg = CURLMSG_NONE;
        bool given = false;
        const Replaced<CURLMsg*(CURLM*, int*)> gives(
            hooks::curl_multi_info_read(),
            [&](CURLM* multi, int* left)
            {
                if (given)
                {
                    return hooks::curl_multi_info_read().Real(multi, left);
                }
                given = true;
                return &unknown;
            });
        Run(handle);
    }
    EXPECT_EQ(m_pNotic->m_Result, 0);
    EXPECT_EQ(m_Log.Texts(kError), Texts{"[HTTP_INTERFACE]CheckMultiInfo get default message[0]"});
    Delete(handle);
}

TEST_F(CompletionFaultTest, TransfersThatFinishInOneActionAreReportedInLibcurlsOrder)
{
    constexpr int kTransfers = 5;
    std::vector<std::shared_ptr<IHttpHandleInterface>> handles;
    Event allFinished;
    for (int i = 0; i != kTransfers; ++i)
    {
        // Ends at libcurl's first look at it, as the others do.
        handles.push_back(MakeHandle("nothing://host/" + std::to_string(i)));
        m_pNotic->m_OnFinish = [&](const std::shared_ptr<IHttpHandleInterface>& handle, int)
        {
            CallRecorder::Note("OnFinish", handle.get(), 0);
            allFinished.Set();
        };
    }
    const Replaced<CURLMsg*(CURLM*, int*)> watched(
        hooks::curl_multi_info_read(),
        [](CURLM* multi, int* left)
        {
            CURLMsg* const message = hooks::curl_multi_info_read().Real(multi, left);
            if (message != nullptr)
            {
                CallRecorder::Note("message", message->easy_handle, 0);
            }
            return message;
        });
    const CallRecorder recorder;
    OnLoop(
        [&]
        {
            for (const auto& handle : handles)
            {
                EXPECT_EQ(m_pEngine->AddHttpReq(handle, false, nullptr, nullptr), 0);
            }
        });
    ASSERT_TRUE(allFinished.Wait(kTransfers));

    const std::vector<Call> added = recorder.Calls({"curl_multi_add_handle"});
    const auto handleOf = [&](const void* easy) -> const void*
    {
        for (std::size_t i = 0; i != added.size(); ++i)
        {
            if (added[i].subject == easy)
            {
                return handles[i].get();
            }
        }
        return nullptr;
    };
    const std::vector<Call> calls =
        recorder.Calls({"curl_multi_socket_action", "message", "OnFinish"});
    const auto first = std::find_if(calls.begin(), calls.end(),
                                    [](const Call& call) { return call.name == "message"; });
    ASSERT_GE(calls.end() - first, 2 * kTransfers);
    for (int i = 0; i != kTransfers; ++i)
    {
        EXPECT_EQ(first[2 * i].name, "message");
        EXPECT_EQ(first[2 * i + 1].name, "OnFinish");
        EXPECT_EQ(first[2 * i + 1].subject, handleOf(first[2 * i].subject));
    }
    for (const auto& handle : handles)
    {
        Delete(handle);
    }
}

} // namespace
} // namespace test
