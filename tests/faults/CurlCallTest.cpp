#include "faults/EachNthCallOf.h"

#include <algorithm>
#include <cstdlib>
#include <map>

namespace test
{
namespace
{

TEST_F(EachNthCallOf, curl_easy_init)
{
    Consequence consequence;
    consequence.refused = true;
    consequence.deadHandle = true;
    // libcurl makes one for each multi handle.
    consequence.lines = {"curl_multi_setopt CURLMOPT_SOCKETFUNCTION failed"};
    Fail(
        hooks::curl_easy_init(), [] { return static_cast<CURL*>(nullptr); }, consequence);
}

TEST_F(EachNthCallOf, curl_easy_setopt)
{
    Consequence consequence;
    consequence.refused = true;
    consequence.lines = {"err[27:Out of memory]curl set CURLOPT_"};
    Fail(
        hooks::curl_easy_setopt(), [](CURL*, CURLoption, void*) { return CURLE_OUT_OF_MEMORY; },
        consequence);
}

TEST_F(EachNthCallOf, curl_easy_getinfo)
{
    Consequence consequence;
    consequence.refused = true;
    consequence.lines = {"err[48:An unknown option was passed in to libcurl]curl_easy_getinfo"};
    consequence.unheardAfter = "curl_easy_getinfo CURLINFO_PRIVATE failed while FinishHttpReq";
    Fail(
        hooks::curl_easy_getinfo(), [](CURL*, CURLINFO, void*) { return CURLE_UNKNOWN_OPTION; },
        consequence);
}

TEST_F(EachNthCallOf, curl_slist_append)
{
    Consequence consequence;
    consequence.refused = true;
    Fail(
        hooks::curl_slist_append(),
        [](curl_slist*, const char*) { return static_cast<curl_slist*>(nullptr); }, consequence);
}

TEST_F(EachNthCallOf, curl_ws_send)
{
    Consequence consequence;
    consequence.lines = {"err[55:Failed sending data to the peer]curl_ws_send failed",
                         "Send len diff [5] != [0]"};
    consequence.unheardAfter = "curl_ws_send failed";
    Fail(
        hooks::curl_ws_send(),
        [](CURL*, const void*, std::size_t, std::size_t*, curl_off_t, unsigned int)
        { return CURLE_SEND_ERROR; },
        consequence);
}

TEST_F(EachNthCallOf, curl_ws_meta)
{
    Consequence consequence;
    consequence.unheardAfter = ""; // the message is taken for a body
    Fail(
        hooks::curl_ws_meta(), [](CURL*) { return static_cast<const curl_ws_frame*>(nullptr); },
        consequence);
}

TEST_F(EachNthCallOf, curl_multi_init)
{
    Consequence consequence;
    consequence.refused = true;
    consequence.lines = {
        "err[1:Invalid multi handle]curl_multi_setopt CURLMOPT_SOCKETFUNCTION failed"};
    Fail(
        hooks::curl_multi_init(), [] { return static_cast<CURLM*>(nullptr); }, consequence);
}

TEST_F(EachNthCallOf, curl_multi_setopt)
{
    Consequence consequence;
    consequence.refused = true;
    consequence.leavesMulti = true;
    consequence.lines = {"err[3:Out of memory]curl_multi_setopt CURLMOPT_"};
    Fail(
        hooks::curl_multi_setopt(), [](CURLM*, CURLMoption, void*) { return CURLM_OUT_OF_MEMORY; },
        consequence);
}

TEST_F(EachNthCallOf, curl_multi_add_handle)
{
    Consequence consequence;
    consequence.refused = true;
    consequence.lines = {"err[3:Out of memory]curl_multi_add_handle failed while AddHttpReq"};
    Fail(
        hooks::curl_multi_add_handle(), [](CURLM*, CURL*) { return CURLM_OUT_OF_MEMORY; },
        consequence);
}

TEST_F(EachNthCallOf, curl_multi_remove_handle)
{
    Consequence consequence;
    consequence.lines = {"err[4:Internal error]curl_multi_remove_handle failed while "};
    Fail(
        hooks::curl_multi_remove_handle(), [](CURLM*, CURL*) { return CURLM_INTERNAL_ERROR; },
        consequence);
}

TEST_F(EachNthCallOf, curl_multi_socket_action)
{
    Consequence consequence;
    consequence.lines = {"err[3:Out of memory]curl_multi_socket_action failed while "};
    consequence.unheardAfter = "curl_multi_socket_action failed";
    Fail(
        hooks::curl_multi_socket_action(),
        [](CURLM*, curl_socket_t, int, int*) { return CURLM_OUT_OF_MEMORY; }, consequence);
}

TEST_F(EachNthCallOf, curl_multi_info_read)
{
    Consequence consequence;
    consequence.unheardAfter = "";
    Fail(
        hooks::curl_multi_info_read(), [](CURLM*, int*) { return static_cast<CURLMsg*>(nullptr); },
        consequence);
}

TEST_F(EachNthCallOf, curl_multi_assign)
{
    // A new socket's record that libcurl does not take is left, on purpose.
    std::map<curl_socket_t, void*> taken;
    std::vector<void*> left;
    using Assign = CURLMcode(CURLM*, curl_socket_t, void*);
    const Replaced<Assign> notes(hooks::curl_multi_assign(),
                                 [&](CURLM* multi, curl_socket_t s, void* record)
                                 {
                                     taken[s] = record;
                                     return notes.Next(multi, s, record);
                                 });
    Consequence consequence;
    consequence.deadEngine = true;
    consequence.late = true;
    // libcurl refuses to go on with a multi handle whose callback has failed.
    consequence.lines = {"err[3:Out of memory]curl_multi_assign failed while OnHandleSocket",
                         "err[11:Operation was aborted by an application callback]"};
    consequence.unheardAfter = "curl_multi_assign failed";
    Fail(
        hooks::curl_multi_assign(),
        [&](CURLM*, curl_socket_t s, void* record)
        {
            if (taken[s] != record)
            {
                left.push_back(record);
            }
            return CURLM_OUT_OF_MEMORY;
        },
        consequence);
    EXPECT_FALSE(left.empty());
    std::for_each(left.begin(), left.end(), std::free);
}

TEST_F(EachNthCallOf, curl_multi_cleanup)
{
    Fail(hooks::curl_multi_cleanup(),
         WorksButAnswers(hooks::curl_multi_cleanup(), CURLM_INTERNAL_ERROR), Consequence());
}

} // namespace
} // namespace test
