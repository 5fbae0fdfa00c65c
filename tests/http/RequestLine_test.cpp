#include "http/RequestLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>

using testing::ElementsAre;
using testing::Pair;

TEST(RequestLine, TakesTheThreeWordsApart) {
    const RequestLine line = parse_request_line("GET /live HTTP/1.1\r");
    EXPECT_EQ(line.method, HttpWords::METHOD_GET);
    EXPECT_EQ(line.path, "/live");
    EXPECT_EQ(line.query_string, "");
    EXPECT_EQ(line.protocol, HttpWords::PROTOCOL_HTTP);
    EXPECT_EQ(line.version, 1.1F);
}

TEST(RequestLine, NamesWithoutEqualsAreNotInTheQuery) {
    const RequestLine line = parse_request_line("GET /a?x=1&y HTTP/1.0");
    EXPECT_EQ(line.path, "/a");
    EXPECT_EQ(line.query_string, "?x=1&y");
    EXPECT_THAT(line.query, ElementsAre(Pair("x", "1")));
}

TEST(RequestLine, QueryIsDecodedAndTheLastOfARepeatedNameCounts) {
    const RequestLine line = parse_request_line("GET /a?s+t=a%3Db&k=1&k=2 HTTP/1.0");
    EXPECT_THAT(line.query, ElementsAre(Pair("k", "2"), Pair("s t", "a=b")));
}

TEST(RequestLine, QueryPairsNeedExactlyTwoParts) {
    EXPECT_TRUE(parse_request_line("GET /?a=b=c HTTP/1.0").query.empty());
    EXPECT_TRUE(parse_request_line("GET /?a= HTTP/1.0").query.empty());
    EXPECT_THAT(parse_request_line("GET /?=v HTTP/1.0").query, ElementsAre(Pair("", "v")));
}

TEST(RequestLine, SecondQuestionMarkIsPartOfTheQuery) {
    const RequestLine line = parse_request_line("GET /a?b?c=d HTTP/1.0");
    EXPECT_EQ(line.path, "/a");
    EXPECT_THAT(line.query, ElementsAre(Pair("b?c", "d")));
}

TEST(RequestLine, LineWithoutASpaceIsAnIcyLogin) {
    for (const char* text : {"password\r", "user:pass", "\r"})
        EXPECT_EQ(parse_request_line(text).method, HttpWords::METHOD_ICY_LOGIN);
}

TEST(RequestLine, OneWordWithASpaceIsABareLine) {
    const RequestLine line = parse_request_line("password \r");
    EXPECT_EQ(line.method, HttpWords::METHOD_UNKNOWN);
    EXPECT_EQ(line.bare_line, "password");
}

TEST(RequestLine, TwoFourAndEmptyWordsAreNoRequest) {
    for (const char* text : {"pass word\r", "GET / HTTP/1.0 x", "GET  / HTTP/1.0", " \r"}) {
        const RequestLine line = parse_request_line(text);
        EXPECT_EQ(line.method, HttpWords::METHOD_UNKNOWN) << text;
        EXPECT_EQ(line.bare_line, "") << text;
        EXPECT_EQ(line.path, "") << text;
    }
}

TEST(RequestLine, BlanksAroundTheLineDoNotCount) {
    EXPECT_EQ(parse_request_line("  GET / HTTP/1.0 \r").method, HttpWords::METHOD_GET);
}

TEST(RequestLine, LowerCaseParsesLikeUpperCase) {
    const RequestLine line = parse_request_line("get / http/1.0");
    EXPECT_EQ(line.method, HttpWords::METHOD_GET);
    EXPECT_EQ(line.protocol, HttpWords::PROTOCOL_HTTP);
    EXPECT_EQ(line.version, 1.0F);
}

TEST(RequestLine, EveryMethodWordHasItsNumber) {
    const char* words[] = {"UNKNOWN", "OPTIONS", "GET",   "HEAD",    "POST",
                           "PUT",     "DELETE",  "TRACE", "CONNECT", "SOURCE"};
    for (std::size_t i = 0; i < std::size(words); ++i) {
        EXPECT_EQ(parse_request_line(std::string(words[i]) + " / HTTP/1.0").method,
                  static_cast<int>(i));
        EXPECT_STREQ(HttpWords::HTTP_METHOD_STRINGS[i], words[i]);
    }
    EXPECT_EQ(parse_request_line("PATCH / HTTP/1.0").method, HttpWords::METHOD_UNKNOWN);
}

TEST(RequestLine, EveryProtocolWordHasItsNumber) {
    EXPECT_EQ(parse_protocol("UNKNOWN/1.0").protocol, HttpWords::PROTOCOL_UNKNOWN);
    EXPECT_EQ(parse_protocol("icy").protocol, HttpWords::PROTOCOL_ICY);
    EXPECT_EQ(parse_protocol("HTTP/1.0").protocol, HttpWords::PROTOCOL_HTTP);
    EXPECT_EQ(parse_protocol("Ice/1.0").protocol, HttpWords::PROTOCOL_ICE);
    EXPECT_EQ(parse_protocol("RTSP/1.0").protocol, HttpWords::PROTOCOL_UNKNOWN);
}

TEST(RequestLine, VersionIsWhatFollowsTheSlash) {
    EXPECT_EQ(parse_protocol("ICE").version, 1.0F);
    EXPECT_EQ(parse_protocol("HTTP/2").version, 2.0F);
    EXPECT_EQ(parse_protocol("HTTP/1.1x").version, 1.1F);
    EXPECT_EQ(parse_protocol("HTTP/").version, 0.0F);
    EXPECT_EQ(parse_protocol("HTTP/x").version, 0.0F);
}

TEST(StatusLine, TakesCodeAndReason) {
    const StatusLine line = parse_status_line("HTTP/1.1 404 Not Found\r");
    EXPECT_TRUE(line.found);
    EXPECT_EQ(line.protocol.protocol, HttpWords::PROTOCOL_HTTP);
    EXPECT_EQ(line.status, 404);
    EXPECT_EQ(line.message, "Not Found");
}

TEST(StatusLine, NeedsThreeWords) {
    EXPECT_FALSE(parse_status_line("HTTP/1.1 200\r").found);
    EXPECT_FALSE(parse_status_line("HTTP/1.1 200 \r").found);
    EXPECT_FALSE(parse_status_line("").found);
}

TEST(StatusLine, CodeThatIsNoNumberIsZero) {
    EXPECT_EQ(parse_status_line("HTTP/1.1 abc x").status, 0);
    EXPECT_EQ(parse_status_line("HTTP/1.1 99999999999 x").status, 65535);
}
