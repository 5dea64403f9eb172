#pragma once

#include <string>

namespace test
{

/// How a transfer ended, in libcurl's number and text.
struct CurlResult
{
    int code;
    const char* text;
};

constexpr CurlResult kNoError{0, "No error"};
constexpr CurlResult kUnsupportedProtocol{1, "Unsupported protocol"};
constexpr CurlResult kBadUrl{3, "URL using bad/illegal format or missing URL"};
constexpr CurlResult kHostUnknown{6, "Could not resolve hostname"};
constexpr CurlResult kNotConnected{7, "Could not connect to server"};
constexpr CurlResult kPartialFile{18, "Transferred a partial file"};
constexpr CurlResult kWriteFailed{23, "Failed writing received data to disk/application"};
constexpr CurlResult kReadFailed{26, "Failed to open/read local data from file/application"};
constexpr CurlResult kTimeout{28, "Timeout was reached"};
constexpr CurlResult kAborted{42, "Operation was aborted by an application callback"};
constexpr CurlResult kNothingReturned{52, "Server returned nothing (no headers, no data)"};
constexpr CurlResult kReceiveFailed{56, "Failure when receiving data from the peer"};
constexpr CurlResult kUntrusted{60, "SSL peer certificate or SSH remote key was not OK"};
constexpr CurlResult kBadCaFile{77, "Problem with the SSL CA cert (path? access rights?)"};
constexpr CurlResult kTooLarge{100, "A value or data field grew larger than allowed"};

/// A connection that the peer resets after a part of the body; Wine tells of it
/// as of an ordinary end.
#ifdef _WIN32
constexpr CurlResult kReset = kPartialFile;
#else
constexpr CurlResult kReset = kReceiveFailed;
#endif

/// The line that the end of a transfer writes.
std::string DoneLine(const std::string& url, const CurlResult& result);

/// A text that no other test and no other process uses meanwhile, for keys that
/// a server shares among its clients.
std::string UniqueKey();

/// A file's bytes; fails the test when it can't be read.
std::string ReadFile(const std::string& path);

} // namespace test
