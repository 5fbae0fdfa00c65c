#include "net/SocketTools.h"

#include "support/LoopbackPair.h"

#include <cerrno>
#include <chrono>
#include <gtest/gtest.h>
#include <string>

namespace {

TEST(SocketTools, ClosingANegativeDescriptorDoesNothing) {
    errno = 0;
    closesocket(-1);
    closesocket(-5);
    EXPECT_EQ(errno, 0);
}

TEST(SocketTools, ClosingEndsTheConnectionAndFreesTheDescriptor) {
    LoopbackPair pair;
    const int fd = dup(pair.client);
    closesocket(fd);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    char byte = 0;
    EXPECT_EQ(pair.server->Recv(&byte, 1, 0, 5), IO_END);
}

TEST(SocketTools, ClosingWhatIsNoSocketStillFreesTheDescriptor) {
    const int fd = open("/dev/null", O_RDONLY);
    testing::internal::CaptureStderr();
    closesocket(fd);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr().rfind("Shutdown: ", 0), 0U);
}

TEST(SocketTools, ClosingAnUnconnectedSocketSaysNothing) {
    testing::internal::CaptureStderr();
    closesocket(socket(AF_INET, SOCK_STREAM, 0));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(SocketTools, LastErrorIsErrno) {
    errno = ENOENT;
    EXPECT_EQ(WSAGetLastError(), ENOENT);
}

TEST(SocketTools, ErrorsHaveTheSystemsWords) {
    EXPECT_EQ(socket_strerror(EMFILE), "Too many open files");
    EXPECT_EQ(socket_strerror(ECONNREFUSED), "Connection refused");
}

TEST(SocketTools, ReadsWhatIsThere) {
    LoopbackPair pair;
    pair.Send("abc");
    char block[8] = {};
    EXPECT_EQ(nb_recv(pair.server_fd, block, sizeof block, 0, 5), 3);
    EXPECT_EQ(std::string(block, 3), "abc");
    EXPECT_EQ(pair.server->BytesRead(), 0U);
}

TEST(SocketTools, ReadsNothingYet) {
    LoopbackPair pair;
    char byte = 0;
    EXPECT_EQ(nb_recv(pair.server_fd, &byte, 1, 0, 0), -2);
    EXPECT_EQ(errno, EAGAIN);
}

TEST(SocketTools, ReadingGivesUpAtItsTimeOut) {
    LoopbackPair pair;
    char byte = 0;
    const auto start = std::chrono::steady_clock::now();
    errno = 0;
    EXPECT_EQ(nb_recv(pair.server_fd, &byte, 1, 0, 1), -2);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

TEST(SocketTools, ReadsThePeersEnd) {
    LoopbackPair pair;
    pair.CloseClient();
    char byte = 0;
    EXPECT_EQ(nb_recv(pair.server_fd, &byte, 1, 0, 5), 0);
}

TEST(SocketTools, HardErrorsCloseNothing) {
    LoopbackPair pair;
    pair.ResetClient();
    char byte = 0;
    EXPECT_EQ(nb_recv(pair.server_fd, &byte, 1, 0, 5), -1);
    EXPECT_NE(fcntl(pair.server_fd, F_GETFD), -1);
}

TEST(SocketTools, HangUpAsTheOnlyNewsFails) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    char byte = 0;
    EXPECT_EQ(nb_recv(fd, &byte, 1, 0, 1), -1);
    close(fd);
}

TEST(SocketTools, SendsWhatFits) {
    LoopbackPair pair;
    EXPECT_EQ(nb_send(pair.server_fd, "abc", 3, 0, 5), 3);
    EXPECT_EQ(pair.Receive(3), "abc");
    EXPECT_EQ(pair.server->BytesSent(), 0U);
}

TEST(SocketTools, SendsNothingIntoAFullBuffer) {
    LoopbackPair pair;
    pair.FillTowardsClient();
    EXPECT_EQ(nb_send(pair.server_fd, "abc", 3, 0, 0), -2);
    EXPECT_EQ(nb_send(pair.server_fd, "abc", 3, 0, 1), -2);
    EXPECT_EQ(errno, EAGAIN);
}

TEST(SocketTools, TellsBothEndsOfAConnection) {
    LoopbackPair pair;
    EXPECT_EQ(GetSockInfo(pair.client, true).port, GetSockInfo(pair.server_fd, false).port);
    EXPECT_EQ(GetSockInfo(pair.client, false).port, GetSockInfo(pair.server_fd, true).port);
    EXPECT_EQ(GetSockIP(pair.client, true), "127.0.0.1");
}

TEST(SocketTools, TellsNothingOfWhatIsNotConnected) {
    EXPECT_EQ(GetSockIP(-1, true), "");
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(GetSockInfo(fd, false).ip, "");
    EXPECT_EQ(GetSockInfo(fd, false).port, "");
    close(fd);
}

TEST(SocketTools, NameOfWhatIsNoAddressIsTheTextItself) {
    EXPECT_EQ(GetIPHostname("not an address"), "not an address");
}

TEST(SocketTools, NameOfTheLoopbackAddressIsNotEmpty) { EXPECT_NE(GetIPHostname("127.0.0.1"), ""); }

} // namespace
