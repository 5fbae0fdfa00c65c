#include "net/Server.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

namespace {

struct OpenServer : Server {
    using Server::family;
    using Server::ip;
    using Server::Server;
};

TEST(Server, FamilyWordsCountInAnyCase) {
    EXPECT_EQ(OpenServer("INet", "").family, AF_INET);
    EXPECT_EQ(OpenServer("inet6", "").family, AF_INET6);
    EXPECT_EQ(OpenServer("UNSPEC", "").family, AF_UNSPEC);
    EXPECT_EQ(OpenServer("", "").family, AF_UNSPEC);
    EXPECT_EQ(OpenServer("inet4", "").family, AF_UNSPEC);
}

TEST(Server, LabelOfNoAddressIsAny) {
    EXPECT_EQ(OpenServer("inet", "").ip, "ANY");
    EXPECT_EQ(OpenServer("inet", "127.0.0.1").ip, "127.0.0.1");
}

} // namespace
