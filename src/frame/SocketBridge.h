#pragma once

/// The bridge between libcurl and libuv. libcurl says through HandleSocket
/// which sockets to watch and through StartTimeout when to call it back; the
/// engine's loop watches, and calls libcurl for the socket or timeout that
/// fired. Everything runs on the loop thread.

#include <curl/curl.h>

namespace http_interface
{

/// CURLMOPT_SOCKETFUNCTION; userp is the CHttpFrame, socketp the record that
/// an earlier call attached to this socket.
int HandleSocket(CURL* easy, curl_socket_t s, int what, void* userp, void* socketp);

/// CURLMOPT_TIMERFUNCTION; userp is the CHttpFrame.
int StartTimeout(CURLM* multi, long timeoutMs, void* userp);

} // namespace http_interface
