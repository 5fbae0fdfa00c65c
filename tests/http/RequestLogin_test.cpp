#include "accounts/User.h"
#include "accounts/UserList.h"
#include "core/OSTools.h"
#include "http/Request.h"
#include "net/Socket.h"
#include "support/LoopbackPair.h"

#include <gtest/gtest.h>
#include <memory>

namespace {

// A request for /admin?a=b with this Authorization field.
class Asking {
public:
    explicit Asking(const std::string& authorization) {
        pair.Send("GET /admin?a=b HTTP/1.1\r\nHost: x\r\nAuthorization: " + authorization +
                  "\r\n\r\n");
        while (request.ReadRequest() == IO_AGAIN) {
        }
    }
    std::string user() const { return request.User(); }
    std::string pass() const { return request.Pass(); }

private:
    LoopbackPair pair;
    Request request{pair.server};
};

std::string basic(const std::string& text) {
    return "Basic " + Base64Encode(text.data(), text.size());
}

// What a browser makes of a challenge, with the realm and nonce of this server.
std::string digest(const std::string& name, const std::string& password,
                   const std::string& uri = "/admin?a=b", const std::string& method = "GET") {
    const std::string ha1 = GenerateMD5Hash(name + ":Quillwave Server:" + password);
    const std::string ha2 = GenerateMD5Hash(method + ":" + uri);
    const std::string response = GenerateMD5Hash(ha1 + ":bm9uY2U=:00000001:Y24=:auth:" + ha2);
    return "Digest username=\"" + name + "\", realm=\"Quillwave Server\", nonce=\"bm9uY2U=\", " +
           "uri=\"" + uri + "\", algorithm=MD5, response=\"" + response +
           "\", qop=auth, nc=00000001, cnonce=\"Y24=\"";
}

void add_account(const std::string& name, const std::string& password) {
    UserList::Add(name, password)->SetGroup(User::ADMINISTRATOR);
}

} // namespace

TEST(RequestLogin, BasicGivesNameAndPassword) {
    const Asking request(basic("bob:secret"));
    EXPECT_EQ(request.user(), "bob");
    EXPECT_EQ(request.pass(), "secret");
}

TEST(RequestLogin, SchemeIsReadInAnyCaseAndBlanksMayRepeat) {
    const std::string text = "bob:secret";
    EXPECT_EQ(Asking("bAsIC   " + Base64Encode(text.data(), text.size())).user(), "bob");
}

TEST(RequestLogin, BasicWithoutAColonIsANameAlone) {
    const Asking request(basic("bob"));
    EXPECT_EQ(request.user(), "bob");
    EXPECT_EQ(request.pass(), "");
}

TEST(RequestLogin, BasicOfMoreOrFewerWordsIsNone) {
    EXPECT_EQ(Asking(basic("bob:secret") + " x").user(), "");
    EXPECT_EQ(Asking("Basic").user(), "");
    EXPECT_EQ(Asking("").user(), "");
    EXPECT_EQ(Asking("Bearer Ym9iOnNlY3JldA==").user(), "");
}

TEST(RequestLogin, DigestGivesTheStoredPassword) {
    add_account("bob", "secret");
    const Asking request(digest("bob", "secret"));
    EXPECT_EQ(request.user(), "bob");
    EXPECT_EQ(request.pass(), "secret");
}

TEST(RequestLogin, DigestWithAWrongPasswordIsNoLogin) {
    add_account("bob", "secret");
    EXPECT_EQ(Asking(digest("bob", "wrong")).user(), "");
}

TEST(RequestLogin, DigestForAnotherAddressOrMethodIsNoLogin) {
    add_account("bob", "secret");
    EXPECT_EQ(Asking(digest("bob", "secret", "/admin")).user(), "");
    EXPECT_EQ(Asking(digest("bob", "secret", "/admin?a=b", "POST")).user(), "");
}

TEST(RequestLogin, DigestOfAnUnknownNameIsNoLogin) {
    EXPECT_EQ(Asking(digest("nobody", "")).user(), "");
    EXPECT_EQ(Asking(digest("Anonymous", "")).user(), "");
}

TEST(RequestLogin, DigestWithoutItsListIsNoLogin) { EXPECT_EQ(Asking("Digest").user(), ""); }

TEST(RequestLogin, CredentialsMayBeSet) {
    Request request(nullptr);
    request.SetCredientials("bob", "secret");
    EXPECT_EQ(request.User(), "bob");
    EXPECT_EQ(request.Pass(), "secret");
}
