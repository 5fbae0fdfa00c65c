#include "streaming/ReceiverOutput.h"

#include "core/Clock.h"
#include "support/OnAir.h"

#include <gtest/gtest.h>

namespace {

// ---- The choice ---------------------------------------------------------------------------------

struct Choice {
    bool wants_flv;
    const char* content_type;
    const char* path;
    const char* accept_encoding;
    StreamStyle style;
};

struct StreamStyleChoice : testing::TestWithParam<Choice> {};

TEST_P(StreamStyleChoice, IsMadeInTheOrderOfTheStyles) {
    const Choice& c = GetParam();
    EXPECT_EQ(choose_stream_style(c.wants_flv, c.content_type, c.path, c.accept_encoding), c.style)
        << c.wants_flv << " " << c.content_type << " " << c.path << " " << c.accept_encoding;
}

INSTANTIATE_TEST_SUITE_P(
    All, StreamStyleChoice,
    testing::Values(Choice{true, "audio/mpeg", "/live", "", StreamStyle::FLV},
                    Choice{true, "audio/aacp", "/", "chunked", StreamStyle::FLV},
                    Choice{true, "audio/aac", "/live", "", StreamStyle::ICY},
                    Choice{true, "application/ogg", "/live", "", StreamStyle::ICECAST},
                    Choice{false, "audio/mpeg", "/live", "", StreamStyle::ICY},
                    Choice{false, "application/ogg", "/live", "", StreamStyle::ICECAST},
                    Choice{false, "application/ogg", "/", "", StreamStyle::ICY},
                    Choice{false, "audio/mpeg", "/live", "chunked", StreamStyle::ICECAST},
                    Choice{false, "audio/mpeg", "/", "chunked", StreamStyle::ICY},
                    Choice{false, "audio/mpeg", "/live", "Chunked", StreamStyle::ICY},
                    Choice{false, "audio/mpeg", "/live", "gzip, chunked", StreamStyle::ICY}));

// ---- The heads, to the byte ---------------------------------------------------------------------

const std::string SERVER =
    "Server: Quillwave Distributed Network Media Server/1.0.2 evergreen (Linux 64-bit)\r\n"
    "Date: Sun, 06 Nov 1994 08:49:37 GMT\r\n";
const std::string COOKIE = "Set-Cookie: __quill_sess=ID; path=/\r\n";
const std::string NO_CACHING = "Cache-Control: max-age=0, no-cache, no-store\r\n"
                               "Expires: Mon, 25 Jan 2002 10:11:57 GMT\r\n"
                               "Pragma: no-cache\r\n";
const std::string SOURCE_FIELDS = "ice-name: Rock\r\nice-genre: Loud\r\nice-url: http://a\r\n"
                                  "ice-public: 1\r\nice-bitrate: 128\r\nice-description: All\r\n";

struct ListenerHead : testing::Test {
    ListenerHead() { Clock::Hold(784111777); }
    ~ListenerHead() override { Clock::Release(); }
    OnAir air{"/live"};
    std::string head_of(const std::string& request) { return Visitor().Ask(request); }
};

TEST_F(ListenerHead, PlainHttp) {
    air.Connect("audio/mpeg", SOURCE_FIELDS);
    EXPECT_EQ(head_of("GET /live HTTP/1.0\r\n\r\n"),
              "HTTP/1.0 200 OK\r\n" + SERVER +
                  "Connection: Close\r\nicy-name: Rock\r\nicy-genre: Loud\r\nicy-url: http://a\r\n"
                  "content-type: audio/mpeg\r\nicy-pub: 1\r\nicy-br: 128\r\n" +
                  COOKIE + "\r\n");
}

TEST_F(ListenerHead, IcyWithMetadataAndAudioInfo) {
    air.Connect("audio/mpeg", SOURCE_FIELDS + "ice-audio-info: samplerate=44100\r\n");
    EXPECT_EQ(
        head_of("GET /live HTTP/1.0\r\nIcy-MetaData: 1\r\n\r\n"),
        "ICY 200 OK\r\nicy-notice1:<BR>This stream requires a media player\r\n"
        "icy-notice2:Quillwave Distributed Network Media Server/1.0.2 evergreen (Linux 64-bit)<BR>"
        "\r\nicy-name:Rock\r\nicy-genre:Loud\r\nicy-url:http://a\r\ncontent-type:audio/mpeg\r\n"
        "icy-pub:1\r\nicy-br:128\r\nice-audio-info:samplerate=44100\r\nicy-metaint:8192\r\n\r\n");
}

TEST_F(ListenerHead, HttpWithMetadata) {
    air.Connect("audio/mpeg", SOURCE_FIELDS);
    EXPECT_EQ(head_of("GET /live?http=1 HTTP/1.1\r\nHost: a\r\nIcy-MetaData: 1\r\n\r\n"),
              "HTTP/1.1 200 OK\r\n" + SERVER +
                  "Connection: Keep-Alive\r\nicy-name: Rock\r\nicy-genre: Loud\r\n"
                  "icy-url: http://a\r\ncontent-type: audio/mpeg\r\nicy-pub: 1\r\nicy-br: 128\r\n"
                  "icy-metaint: 8192\r\nTransfer-Encoding: chunked\r\n" +
                  COOKIE + "\r\n");
}

TEST_F(ListenerHead, OtherMetadataWishesGetNoInterval) {
    air.Connect("audio/mpeg");
    EXPECT_EQ(head_of("GET /live HTTP/1.0\r\nIcy-MetaData: 2\r\n\r\n").find("icy-metaint"),
              std::string::npos);
}

TEST_F(ListenerHead, IcecastStyle) {
    air.Connect("application/ogg", SOURCE_FIELDS + "ice-audio-info: q=5\r\n");
    EXPECT_EQ(head_of("GET /live HTTP/1.0\r\n\r\n"),
              "HTTP/1.0 200 OK\r\n" + SERVER +
                  "Connection: Close\r\nContent-Type: application/ogg\r\n" + NO_CACHING +
                  SOURCE_FIELDS + "ice-audio-info: q=5\r\n" + COOKIE + "\r\n");
}

TEST_F(ListenerHead, ChunkedIsAskedForByAcceptEncoding) {
    air.Connect("audio/mpeg", SOURCE_FIELDS);
    EXPECT_EQ(head_of("GET /live HTTP/1.1\r\nHost: a\r\nAccept-Encoding: chunked\r\n\r\n"),
              "HTTP/1.1 200 OK\r\n" + SERVER +
                  "Connection: Keep-Alive\r\nContent-Type: audio/mpeg\r\n" + NO_CACHING +
                  SOURCE_FIELDS + "ice-audio-info: \r\nTransfer-Encoding: chunked\r\n" + COOKIE +
                  "\r\n");
}

TEST_F(ListenerHead, Flv) {
    air.Connect("audio/mpeg", SOURCE_FIELDS);
    EXPECT_EQ(head_of("GET /live?flv=1 HTTP/1.0\r\n\r\n"),
              "HTTP/1.0 200 OK\r\n" + SERVER +
                  "Connection: Close\r\nContent-Type: video/x-flv\r\n" + NO_CACHING + COOKIE +
                  "\r\n");
}

TEST_F(ListenerHead, FlvForAClientThatAcceptsNothingElse) {
    air.Connect("audio/mpeg");
    EXPECT_NE(head_of("GET /live HTTP/1.0\r\nAccept: video/x-flv\r\n\r\n")
                  .find("Content-Type: video/x-flv\r\n"),
              std::string::npos);
}

TEST_F(ListenerHead, AStreamThatIsNotPublicSaysSo) {
    air.Connect("audio/mpeg", "icy-pub: 0\r\n");
    EXPECT_NE(head_of("GET /live HTTP/1.0\r\n\r\n").find("icy-pub: 0\r\n"), std::string::npos);
}

TEST_F(ListenerHead, HeadGetsTheHeadAndTheConnectionEnds) {
    air.Connect("audio/mpeg");
    Visitor visitor;
    EXPECT_TRUE(visitor.Ask("HEAD /live HTTP/1.0\r\n\r\n").ends_with("\r\n\r\n"));
    EXPECT_TRUE(visitor.IsClosed());
    EXPECT_EQ(air.mount->ReceiverSize(), 0U);
}

TEST_F(ListenerHead, HeadOverHttp11KeepsTheConnectionAndLeavesNoBytesBehind) {
    air.Connect("audio/mpeg");
    Visitor visitor;
    for (const char* method : {"HEAD", "OPTIONS", "HEAD"}) {
        const std::string answer =
            visitor.Ask(std::string(method) + " /live HTTP/1.1\r\nHost: a\r\n\r\n");
        EXPECT_TRUE(answer.starts_with("HTTP/1.1 200 OK\r\n"));
        EXPECT_TRUE(answer.ends_with("path=/\r\n\r\n")) << answer;
    }
    EXPECT_EQ(visitor.receiver->Status(), 0);
    EXPECT_EQ(air.mount->ReceiverSize(), 0U);
}

} // namespace
