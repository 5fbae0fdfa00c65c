#include "http/DigestLogin.h"

#include "core/OSTools.h"

#include <gtest/gtest.h>

namespace {

// As curl writes it.
const std::string LIST = R"(username="admin", realm="Quillwave Server", nonce="YWJjLWQ=", )"
                         R"(uri="/admin/users?m=b,c", cnonce="ZGU==", nc=00000001, qop=auth, )"
                         R"(response="0123", algorithm=MD5)";
const std::string TARGET = "/admin/users?m=b,c";

} // namespace

TEST(DigestLogin, BlanksCommasAndEqualsSignsInsideQuotesDivideNothing) {
    const auto login = parse_digest(LIST, TARGET);
    ASSERT_TRUE(login);
    EXPECT_EQ(login->username, "admin");
    EXPECT_EQ(login->realm, "Quillwave Server");
    EXPECT_EQ(login->nonce, "YWJjLWQ=");
    EXPECT_EQ(login->uri, TARGET);
    EXPECT_EQ(login->cnonce, "ZGU==");
    EXPECT_EQ(login->nc, "00000001");
    EXPECT_EQ(login->qop, "auth");
    EXPECT_EQ(login->response, "0123");
}

TEST(DigestLogin, PlainFormWithoutBlanksAndQuotesParses) {
    const auto login =
        parse_digest("USERNAME=a,realm=r,nonce=n,uri=/,response=x,qop=auth,nc=1,cnonce=c", "/");
    ASSERT_TRUE(login);
    EXPECT_EQ(login->username, "a");
    EXPECT_EQ(login->cnonce, "c");
}

TEST(DigestLogin, EveryPartThatMustBeThereIsMissed) {
    const std::string whole = "username=a,realm=r,nonce=n,uri=/,response=x,qop=auth";
    ASSERT_TRUE(parse_digest(whole, "/"));
    for (const std::string part :
         {"username=a", "realm=r", "nonce=n", "uri=/", "response=x", "qop=auth"}) {
        std::string without = whole;
        without.erase(without.find(part), part.size());
        EXPECT_FALSE(parse_digest(without, "/")) << part;
    }
}

TEST(DigestLogin, AddressMustBeTheTargetAndQopAuth) {
    EXPECT_FALSE(parse_digest(LIST, "/admin/users"));
    EXPECT_FALSE(parse_digest("username=a,realm=r,nonce=n,uri=/,response=x,qop=auth-int", "/"));
}

TEST(DigestLogin, LoneQuoteIsAnEmptyText) {
    EXPECT_FALSE(parse_digest("username=\",realm=r,nonce=n,uri=/,response=x,qop=auth", "/"));
    EXPECT_FALSE(parse_digest("realm=r,nonce=n,uri=/,response=x,qop=auth,username=\"", "/"));
}

// The example of RFC 2617 section 3.5.
TEST(DigestLogin, MatchesWhoKnowsThePassword) {
    const DigestLogin login = {.username = "Mufasa",
                               .realm = "testrealm@host.com",
                               .nonce = "dcd98b7102dd2f0e8b11d0f600bfb0c093",
                               .uri = "/dir/index.html",
                               .response = "6629fae49393a05397450978507c4ef1",
                               .nc = "00000001",
                               .cnonce = "0a4f113b",
                               .qop = "auth"};
    EXPECT_TRUE(digest_matches(login, "GET", "Circle Of Life"));
    EXPECT_FALSE(digest_matches(login, "GET", "circle of life"));
    EXPECT_FALSE(digest_matches(login, "POST", "Circle Of Life"));
}

TEST(BasicLogin, NameAndPasswordStandAroundTheColon) {
    const BasicLogin login = parse_basic("dXNlcjpwYXNz"); // user:pass
    EXPECT_EQ(login.user, "user");
    EXPECT_EQ(login.pass, "pass");
}

TEST(BasicLogin, AnythingButTwoPartsIsAName) {
    for (const std::string text : {"user", "user:", ":pass", "us:er:pass", ":"}) {
        const BasicLogin login = parse_basic(Base64Encode(text.data(), text.size()));
        EXPECT_EQ(login.user, text);
        EXPECT_EQ(login.pass, "");
    }
}
