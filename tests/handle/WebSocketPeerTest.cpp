/// Peers that break the protocol: what the host hears of each, and that it hears
/// no more once the connection has ended.

#include "handle/WebSocketFixture.h"
#include "wrap/Hooks.h"

#include <cctype>
#include <cstdlib>
#include <fstream>
#include <ostream>

namespace test
{
namespace
{

struct Peer
{
    const char* group;
    const char* does;
    const char* path;
    const char* suite; ///< the number of the nearest case of Autobahn's suite, or empty
    Texts heard;       ///< each message as Describe() puts it
};

void PrintTo(const Peer& peer, std::ostream* out)
{
    *out << peer.path;
}

const Peer kPeers[] = {
    {"Fragments", "A message in three frames", "/fragments", "", {"text `threetwo one `"}},
    {"Fragments", "A message in two frames", "/fragments-two", "5.3", {"text `twoone `"}},
    {"Fragments",
     "A message in frames of one byte",
     "/fragments-one-by-one",
     "6.2.3",
     {"text `cba`"}},
    {"Fragments", "Three empty frames", "/fragments-empty", "6.1.2", {"text of 0 bytes"}},
    {"Fragments",
     "An empty first frame, then `data`",
     "/fragments-empty-first",
     "",
     {"text `data`"}},
    {"Fragments",
     "`data`, then an empty final frame",
     "/fragments-empty-final",
     "",
     {"binary `data`"}},
    {"Fragments",
     "An empty frame, `data`, an empty frame",
     "/fragments-empty-outside",
     "6.1.3",
     {"text `data`"}},
    {"Fragments",
     "A ping between two fragments",
     "/fragments-ping-between",
     "5.6",
     {"text `twoone `"}},
    {"Fragments",
     "A pong between two fragments",
     "/fragments-pong-between",
     "",
     {"other `pongone `", "text `two`"}},
    {"Fragments",
     "A close frame between two fragments",
     "/fragments-close-between",
     "7.1.5",
     {"close `\\x03\\xe8one `", "text `two`"}},
    {"Fragments", "A new message between two fragments", "/fragments-new-text-between", "5.18", {}},
    {"Fragments", "A continuation of nothing", "/continuation-of-nothing", "5.9", {}},
    {"Messages",
     "An empty text, then `after`",
     "/empty-text",
     "1.1.1",
     {"text of 0 bytes", "text `after`"}},
    {"Messages",
     "An empty binary message, then `after`",
     "/empty-binary",
     "1.2.1",
     {"binary of 0 bytes", "text `after`"}},
    {"Messages",
     "Text that is not UTF-8, then `after`",
     "/bad-utf8",
     "6.3.1",
     {"text `\\xff\\xfe`", "text `after`"}},
    {"Messages",
     "A short length in its long form, then `after`",
     "/long-form-of-a-short-length",
     "",
     {"text `short`", "text `after`"}},
    {"Messages",
     "Two messages in one packet",
     "/two-in-one",
     "",
     {"text `first`", "binary `second`"}},
    {"Messages", "A ping, then `after`", "/ping", "2.2", {"text `after`"}},
    {"Messages",
     "A pong that nobody asked for, then `after`",
     "/pong-unasked",
     "2.8",
     {"other `unasked`", "text `after`"}},
    {"Messages",
     "A text, a binary message and a close, byte by byte",
     "/slow",
     "",
     {"text `slow`", "binary of 130 bytes", "close `\\x03\\xe8`"}},
    {"Messages", "10,000 empty pings, then `after`", "/ping-flood", "", {"text `after`"}},
    {"Broken frames", "Reserved bit 1 set, then `after`", "/reserved-bit-1", "3.4", {}},
    {"Broken frames", "Reserved bit 2 set, then `after`", "/reserved-bit-2", "3.2", {}},
    {"Broken frames", "Reserved bit 3 set, then `after`", "/reserved-bit-3", "3.1", {}},
    {"Broken frames", "Reserved opcode 3, then `after`", "/reserved-opcode-3", "4.1.1", {}},
    {"Broken frames", "Reserved opcode 11, then `after`", "/reserved-opcode-11", "4.2.1", {}},
    {"Broken frames", "A masked frame, then `after`", "/masked", "", {}},
    {"Broken frames", "A ping of 126 bytes, then `after`", "/ping-of-126-bytes", "2.5", {}},
    {"Broken frames",
     "A close frame of 126 bytes, then `after`",
     "/close-of-126-bytes",
     "7.3.6",
     {}},
    {"Broken frames", "A ping in two fragments, then `after`", "/ping-in-fragments", "5.1", {}},
    {"Broken frames", "A length beyond 63 bits", "/length-beyond-63-bits", "", {}},
    {"Broken frames", "`before`, then zeros", "/noise", "", {"text `before`"}},
    {"Ends", "Half a frame, then the end", "/half-a-frame", "", {}},
    {"Ends", "Half a frame, then a reset", "/half-a-frame-reset", "", {}},
    {"Ends", "`before`, half a frame's head, then the end", "/half-a-head", "", {"text `before`"}},
    {"Ends",
     "`before`, then the end without a close frame",
     "/no-close-frame",
     "",
     {"text `before`"}},
    {"Ends", "Close with code 1000 and `bye`", "/close", "7.3.4", {"close `\\x03\\xe8bye`"}},
    {"Ends", "Close without a code", "/close-without-code", "7.3.1", {"close of 0 bytes"}},
    {"Ends",
     "Close with one byte of a code",
     "/close-with-half-a-code",
     "7.3.2",
     {"close `\\x03`"}},
    {"Ends",
     "Close with the code 1005, which must not be sent",
     "/close-with-reserved-code",
     "7.9.4",
     {"close `\\x03\\xed`"}},
    {"Ends",
     "Two close frames",
     "/close-twice",
     "7.1.2",
     {"close `\\x03\\xe8`", "close `\\x03\\xe9`"}},
    {"Ends", "Close, then a ping", "/ping-after-close", "7.1.3", {"close `\\x03\\xe8`"}},
    {"Ends",
     "Close, then a text",
     "/text-after-close",
     "7.1.4",
     {"close `\\x03\\xe8`", "text `after`"}},
    {"Handshakes",
     "The first message in the packet of the handshake",
     "/early",
     "",
     {"text `early`"}},
    {"Handshakes", "A wrong accept key, then `after`", "/wrong-key", "", {"text `after`"}},
    {"Handshakes", "No accept key, then `after`", "/no-key", "", {"text `after`"}},
    {"Handshakes", "No `Upgrade` header, then `after`", "/no-upgrade-header", "", {"text `after`"}},
    {"Handshakes",
     "An extension that was not offered, then `after`",
     "/extension-unasked",
     "",
     {"text `after`"}},
    {"Handshakes",
     "A subprotocol that was not offered, then `after`",
     "/protocol-unasked",
     "",
     {"text `after`"}},
    {"Handshakes", "Refused with 403 and a body", "/refuse?status=403", "", {}},
    {"Handshakes", "Refused with 200 and a body", "/refuse?status=200", "", {}},
    {"Handshakes", "Half the handshake's head, then the end", "/half-handshake", "", {}},
    {"Handshakes", "A reset instead of the handshake", "/handshake-reset", "", {}},
};

/// A test's name: the path's words, as in FragmentsEmpty.
std::string NameOf(const std::string& path)
{
    std::string name;
    bool begins = true;
    for (const char c : path)
    {
        const bool isPart = std::isalnum(static_cast<unsigned char>(c)) != 0;
        if (isPart)
        {
            name += begins ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : c;
        }
        begins = !isPart;
    }
    return name;
}

/// "text `one`" and the like.
std::string Describe(const Message& message)
{
    constexpr std::size_t kShown = 20;
    const char* const kinds[] = {"other", "text", "binary", "close"};
    std::string text = kinds[message.type];
    if (message.data.empty() || message.data.size() > kShown)
    {
        return text + " of " + std::to_string(message.data.size()) + " bytes";
    }
    text += " `";
    for (const char byte : message.data)
    {
        const auto code = static_cast<unsigned char>(byte);
        char escaped[5];
        std::snprintf(escaped, sizeof escaped, "\\x%02x", code);
        text += code >= ' ' && code < 0x7f ? std::string(1, byte) : escaped;
    }
    return text + "`";
}

class WebSocketPeerTest : public WebSocketFixture, public ::testing::WithParamInterface<Peer>
{
};

TEST_P(WebSocketPeerTest, HostHearsWhatThePageTells)
{
    Event removed;
    const Replaced<CURLMcode(CURLM*, CURL*)> watched(
        hooks::curl_multi_remove_handle(),
        [&](CURLM* multi, CURL* easy)
        {
            removed.Set();
            return hooks::curl_multi_remove_handle().Real(multi, easy);
        });
    const HandlePtr handle = MakeHandle(Server("WS_PEER_URL") + GetParam().path, kWebSocket, 0);
    ASSERT_EQ(m_pEngine->AddHttpReq(handle, true, nullptr, nullptr), 0);
    ASSERT_TRUE(removed.Wait()) << "the connection has not ended";
    OnLoop(
        [&]
        {
            Texts heard;
            for (const Message& message : m_pNotic->m_Messages)
            {
                heard.push_back(Describe(message));
            }
            EXPECT_EQ(heard, GetParam().heard);
        });
    EXPECT_EQ(m_pNotic->m_Finished.Count(), 0);
    EXPECT_TRUE(m_Log.Texts(kError).empty());
    Delete(handle);
}

INSTANTIATE_TEST_SUITE_P(, WebSocketPeerTest, ::testing::ValuesIn(kPeers),
                         [](const auto& it) { return NameOf(it.param.path); });

/// The page that tells hosts of these peers; each of its rows is a test above.
std::string Page()
{
    std::string page =
        "# WebSocket peers that break the protocol\n\n"
        "What a host hears through `OnWsData` from each. After it the connection ends, if only\n"
        "because the peer closes it; of an end without a close frame the host hears nothing.\n"
        "Messages are shown as their kind and bytes, kinds as `OnWsData` tells them: text 1,\n"
        "binary 2, close 3, other 0. The column case has the number of the nearest case of the\n"
        "Autobahn test suite, which isn't run here. The tests write this page.\n";
    std::string group;
    for (const Peer& peer : kPeers)
    {
        if (group != peer.group)
        {
            group = peer.group;
            page +=
                "\n## " + group + "\n\n| case | the peer sends | the host hears |\n|---|---|---|\n";
        }
        std::string heard;
        for (const std::string& message : peer.heard)
        {
            heard += (heard.empty() ? "" : ", ") + message;
        }
        page += std::string("| ") + peer.suite + " | " + peer.does + " | " +
                (heard.empty() ? "nothing" : heard) + " |\n";
    }
    return page;
}

TEST(WebSocketPeerPageTest, PageTellsWhatTheTestsProve)
{
    const std::string path = HTTP_INTERFACE_DOCS_DIR "/websocket-peers.md";
    if (std::getenv("HTTP_INTERFACE_WRITE_PAGES") != nullptr)
    {
        std::ofstream(path, std::ios::binary) << Page();
    }
    EXPECT_EQ(ReadFile(path), Page()) << "run the tests with HTTP_INTERFACE_WRITE_PAGES set";
}

} // namespace
} // namespace test
