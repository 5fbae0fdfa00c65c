#include "net/Socket.h"

#include "config/Config.h"
#include "net/SocketTools.h"
#include "support/LoopbackPair.h"

#include <cerrno>
#include <chrono>
#include <gtest/gtest.h>
#include <netdb.h>
#include <string>
#include <thread>
#include <vector>

namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

// A listening socket on a loopback address, and its port.
struct Listening {
    int fd = -1;
    unsigned short port = 0;

    explicit Listening(const char* address = "127.0.0.1", int backlog = 16) {
        addrinfo hints{};
        hints.ai_flags = AI_PASSIVE | AI_NUMERICHOST;
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* found = nullptr;
        if (getaddrinfo(address, "0", &hints, &found) != 0) return;
        fd = socket(found->ai_family, SOCK_STREAM, 0);
        if (fd != -1 && bind(fd, found->ai_addr, found->ai_addrlen) == 0 &&
            listen(fd, backlog) == 0)
            port = static_cast<unsigned short>(std::stoi(GetSockInfo(fd, true).port));
        freeaddrinfo(found);
    }
    ~Listening() { closesocket(fd); }
    Listening(const Listening&) = delete;
    Listening& operator=(const Listening&) = delete;
};

std::shared_ptr<Socket> outgoing() { return std::make_shared<Socket>(AF_UNSPEC, SOCK_STREAM, 0); }

int read_into(Socket& socket, std::string& bytes, int flags = 0, int timeout = 0) {
    char block[256];
    const int count = socket.Recv(block, sizeof block, flags, timeout);
    if (count > 0) bytes.assign(block, static_cast<std::size_t>(count));
    return count;
}

// A port of the loopback address at which nobody listens.
unsigned short free_port() {
    const Listening gone;
    return gone.port;
}

int local_port(Socket& socket) { return std::stoi(socket.GetLocalInfo().port); }

TEST(Socket, SendGivesTheCountAndCountsIt) {
    LoopbackPair pair;
    const std::string text = "hello";
    const std::vector<char> bytes = {'a', 'b', 'c'};
    EXPECT_EQ(pair.server->Send(&text, 0), 5);
    EXPECT_EQ(pair.server->Send(&bytes, 2, 0), 2);
    EXPECT_EQ(pair.server->BytesSent(), 7U);
    EXPECT_EQ(pair.Receive(7), "helloab");
}

TEST(Socket, SendVectorSendsThePiecesInOrderAndCountsThem) {
    LoopbackPair pair;
    std::string first = "ab";
    std::string second = "cde";
    const iovec parts[] = {{first.data(), first.size()}, {second.data(), second.size()}};
    EXPECT_EQ(pair.server->SendVector(parts, 2), 5);
    EXPECT_EQ(pair.server->BytesSent(), 5U);
    EXPECT_EQ(pair.Receive(5), "abcde");
}

TEST(Socket, FullSendBufferMeansAgainLeavesItOpenAndCountsNothing) {
    LoopbackPair pair;
    pair.FillTowardsClient();
    std::string text = "more";
    const iovec part{text.data(), text.size()};
    EXPECT_EQ(pair.server->Send(&text, 0), IO_AGAIN);
    EXPECT_EQ(pair.server->GetLastError(), EAGAIN);
    EXPECT_EQ(pair.server->SendVector(&part, 1), IO_AGAIN);
    EXPECT_EQ(pair.server->CanSend(), 0);
    EXPECT_TRUE(pair.server->IsValid());
    EXPECT_EQ(pair.server->BytesSent(), 0U);
}

TEST(Socket, SendToAResetPeerClosesInPlace) {
    LoopbackPair pair;
    pair.ResetClient();
    const std::string text = "x";
    int result = 0;
    for (int attempt = 0; attempt < 100 && result >= 0; ++attempt)
        result = pair.server->Send(&text, 0);
    EXPECT_EQ(result, IO_FAILED);
    EXPECT_FALSE(pair.server->IsValid());
    EXPECT_NE(pair.server->GetLastError(), 0);
}

TEST(Socket, RecvWithNothingThereMeansAgain) {
    LoopbackPair pair;
    std::string got;
    EXPECT_EQ(read_into(*pair.server, got), IO_AGAIN);
    EXPECT_EQ(pair.server->GetLastError(), EAGAIN);
    EXPECT_TRUE(pair.server->IsValid());
}

TEST(Socket, RecvWaitsUntilBytesCome) {
    LoopbackPair pair;
    std::thread late([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        pair.Send("late");
    });
    std::string got;
    EXPECT_EQ(read_into(*pair.server, got, 0, 5), 4);
    EXPECT_EQ(got, "late");
    late.join();
}

TEST(Socket, RecvGivesUpAtItsTimeOut) {
    LoopbackPair pair;
    std::string got;
    const auto start = steady_clock::now();
    EXPECT_EQ(read_into(*pair.server, got, 0, 1), IO_AGAIN);
    EXPECT_GE(steady_clock::now() - start, seconds(1));
    EXPECT_EQ(pair.server->GetLastError(), EAGAIN);
    EXPECT_TRUE(pair.server->IsValid());
}

TEST(Socket, RecvCountsReadsButNotPeeks) {
    LoopbackPair pair;
    pair.Send("abc");
    std::string got;
    EXPECT_EQ(read_into(*pair.server, got, MSG_PEEK, 5), 3);
    EXPECT_EQ(pair.server->BytesRead(), 0U);
    EXPECT_EQ(read_into(*pair.server, got), 3);
    EXPECT_EQ(got, "abc");
    EXPECT_EQ(pair.server->BytesRead(), 3U);
}

TEST(Socket, RecvDrainsAPeerThatHasClosedAndThenEnds) {
    LoopbackPair pair;
    pair.Send("last words");
    pair.CloseClient();
    std::string got;
    EXPECT_EQ(read_into(*pair.server, got, 0, 5), 10);
    EXPECT_EQ(got, "last words");
    EXPECT_EQ(read_into(*pair.server, got, 0, 5), IO_END);
    EXPECT_TRUE(pair.server->IsValid());
}

TEST(Socket, HardErrorClosesAndEveryLaterCallFails) {
    LoopbackPair pair;
    pair.ResetClient();
    std::string got;
    EXPECT_EQ(read_into(*pair.server, got, 0, 5), IO_FAILED);
    EXPECT_FALSE(pair.server->IsValid());
    EXPECT_EQ(pair.server->GetLastError(), ECONNRESET);

    const std::string text = "x";
    const std::vector<char> bytes = {'x'};
    const iovec part{};
    EXPECT_EQ(read_into(*pair.server, got), IO_FAILED);
    EXPECT_EQ(read_into(*pair.server, got, 0, 5), IO_FAILED);
    EXPECT_EQ(pair.server->Send(&text, 0), IO_FAILED);
    EXPECT_EQ(pair.server->Send(&bytes, 1, 0), IO_FAILED);
    EXPECT_EQ(pair.server->SendVector(&part, 1), IO_FAILED);
    EXPECT_EQ(pair.server->CanRecv(), IO_FAILED);
    EXPECT_EQ(pair.server->CanSend(), IO_FAILED);
    EXPECT_EQ(pair.server->GetLastError(), 0) << "no call was made that could fail";
}

TEST(Socket, LastErrorIsClearedByReadingIt) {
    Socket socket(AF_INET, SOCK_STREAM, 0);
    socket.SetLastError(ETIMEDOUT);
    EXPECT_EQ(socket.GetLastError(), ETIMEDOUT);
    EXPECT_EQ(socket.GetLastError(), 0);
}

TEST(Socket, CanRecvTellsOfBytesAndOfTheEnd) {
    LoopbackPair pair;
    EXPECT_EQ(pair.server->CanRecv(), 0);
    pair.Send("x");
    std::string got;
    ASSERT_EQ(read_into(*pair.server, got, MSG_PEEK, 5), 1);
    EXPECT_EQ(pair.server->CanRecv(), 1);
    pair.CloseClient();
    EXPECT_EQ(pair.server->CanRecv(), 1);
    EXPECT_TRUE(pair.server->IsValid());
}

TEST(Socket, CanSendTellsOfRoom) {
    LoopbackPair pair;
    EXPECT_EQ(pair.server->CanSend(), 1);
}

// A descriptor that was never connected reports a hang-up and nothing else.
TEST(Socket, HangUpAsTheOnlyNewsCloses) {
    Socket asked(socket(AF_INET, SOCK_STREAM, 0));
    EXPECT_EQ(asked.CanRecv(), IO_FAILED);
    EXPECT_FALSE(asked.IsValid());

    Socket read(socket(AF_INET, SOCK_STREAM, 0));
    std::string got;
    EXPECT_EQ(read_into(read, got, 0, 1), IO_FAILED);
    EXPECT_FALSE(read.IsValid());
}

TEST(Socket, AcceptedOneKnowsBothItsAddresses) {
    LoopbackPair pair;
    EXPECT_EQ(pair.server->GetIP(), "127.0.0.1");
    EXPECT_EQ(pair.server->GetInfo().port, GetSockInfo(pair.client, true).port);
    EXPECT_EQ(pair.server->GetLocalIP(), "127.0.0.1");
    EXPECT_EQ(pair.server->GetLocalInfo().port, GetSockInfo(pair.client, false).port);
}

TEST(Socket, AddressesAreStillKnownAfterTheClose) {
    LoopbackPair pair;
    pair.server->Close();
    EXPECT_FALSE(pair.server->IsValid());
    EXPECT_EQ(pair.server->GetIP(), "127.0.0.1");
    EXPECT_EQ(pair.server->GetLocalIP(), "127.0.0.1");
}

TEST(Socket, UnconnectedOneHasNoAddress) {
    Socket socket(AF_UNSPEC, SOCK_STREAM, 0);
    EXPECT_FALSE(socket.IsValid());
    EXPECT_EQ(socket.GetIP(), "");
    EXPECT_EQ(socket.GetLocalInfo().port, "");
}

TEST(Socket, CloseTwiceAndTheDestructorCloseOnce) {
    LoopbackPair pair;
    pair.server->Close();
    const int reused = dup(pair.client); // most likely the number that has become free
    pair.server->Close();
    pair.server.reset();
    EXPECT_NE(fcntl(reused, F_GETFD), -1);
    close(reused);
}

TEST(Socket, DestructorEndsTheConnection) {
    LoopbackPair pair;
    pair.server.reset();
    EXPECT_EQ(pair.ReceiveAll(), "");
}

TEST(Socket, ShutdownWakesAThreadThatWaitsInRecv) {
    LoopbackPair pair;
    const auto start = steady_clock::now();
    std::thread other([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        pair.server->Shutdown();
    });
    std::string got;
    EXPECT_EQ(read_into(*pair.server, got, 0, 30), IO_END);
    EXPECT_LT(steady_clock::now() - start, seconds(10));
    EXPECT_TRUE(pair.server->IsValid());
    other.join();
}

TEST(Socket, ShutdownOfAClosedOneDoesNothing) {
    LoopbackPair pair;
    pair.server->Close();
    pair.server->Shutdown();
    EXPECT_FALSE(pair.server->IsValid());
}

TEST(Socket, ShutdownAndAddressesMayMeetACloseOnOtherThreads) {
    for (int round = 0; round < 50; ++round) {
        LoopbackPair pair;
        std::thread other([&] {
            pair.server->Shutdown();
            EXPECT_EQ(pair.server->GetIP(), "127.0.0.1");
            static_cast<void>(pair.server->IsValid());
        });
        pair.server->Close();
        other.join();
    }
}

TEST(Socket, BindGivesTheDescriptorAnAddress) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    Socket bound(fd);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(bound.Bind(reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(GetSockIP(fd, true), "127.0.0.1");
    EXPECT_EQ(bound.Bind(reinterpret_cast<sockaddr*>(&address), sizeof address), -1);
}

TEST(SocketConnect, ConnectsAndIsNonBlockingAfterwards) {
    const Listening listening;
    const auto socket = outgoing();
    ASSERT_EQ(socket->Connect("127.0.0.1", listening.port, "", 0, false), 0);
    EXPECT_TRUE(socket->IsValid());
    EXPECT_EQ(socket->GetIP(), "127.0.0.1");
    EXPECT_EQ(socket->GetInfo().port, std::to_string(listening.port));
    EXPECT_EQ(socket->GetLocalIP(), "127.0.0.1");
    std::string got;
    EXPECT_EQ(read_into(*socket, got), IO_AGAIN);
}

TEST(SocketConnect, NonBlockingOneIsInProgressOrDone) {
    const Listening listening;
    const auto socket = outgoing();
    const int result = socket->Connect("127.0.0.1", listening.port, "", 0, true);
    if (result != 0) {
        EXPECT_EQ(result, IO_AGAIN);
        EXPECT_EQ(socket->GetLastError(), EINPROGRESS);
    }
    for (int tries = 0; tries < 500 && socket->CanSend() == 0; ++tries)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(socket->CanSend(), 1);
    EXPECT_EQ(socket->GetIP(), "127.0.0.1");
}

TEST(SocketConnect, ConnectedOneRefusesAndStaysConnected) {
    const Listening listening;
    const auto socket = outgoing();
    ASSERT_EQ(socket->Connect("127.0.0.1", listening.port, "", 0, false), 0);
    const int port = local_port(*socket);
    EXPECT_EQ(socket->Connect("127.0.0.1", listening.port, "", 0, false), IO_FAILED);
    EXPECT_TRUE(socket->IsValid());
    EXPECT_EQ(local_port(*socket), port);
}

TEST(SocketConnect, RefusalClosesAndNamesTheError) {
    const auto socket = outgoing();
    EXPECT_EQ(socket->Connect("127.0.0.1", free_port(), "", 0, false), IO_FAILED);
    EXPECT_FALSE(socket->IsValid());
    EXPECT_EQ(socket->GetLastError(), ECONNREFUSED);
}

TEST(SocketConnect, NameThatDoesNotResolveFails) {
    const auto socket = outgoing();
    EXPECT_EQ(socket->Connect("no such host", 80, "", 0, false), IO_FAILED);
    EXPECT_FALSE(socket->IsValid());
}

TEST(SocketConnect, BindAddressAndPortAreUsed) {
    const Listening listening;
    const unsigned short port = free_port();
    const auto socket = outgoing();
    ASSERT_EQ(socket->Connect("127.0.0.1", listening.port, "127.0.0.3", port, false), 0);
    EXPECT_EQ(socket->GetLocalIP(), "127.0.0.3");
    EXPECT_EQ(local_port(*socket), port);
}

TEST(SocketConnect, FailedBindLeavesTheDescriptorOpen) {
    const Listening listening;
    const auto socket = outgoing();
    EXPECT_EQ(socket->Connect("127.0.0.1", listening.port, "127.0.0.1", listening.port, false),
              IO_FAILED);
    EXPECT_TRUE(socket->IsValid());
    EXPECT_EQ(socket->GetLastError(), EADDRINUSE);
}

TEST(SocketConnect, AddressOfTheSettingIsCalledFrom) {
    Config::Get("ServIP", true)->SetValue("127.0.0.4");
    const Listening listening;
    const auto socket = outgoing();
    ASSERT_EQ(socket->Connect("127.0.0.1", listening.port, "", 0, false), 0);
    EXPECT_EQ(socket->GetLocalIP(), "127.0.0.4");
}

TEST(SocketConnect, BindAddressOverridesTheSetting) {
    Config::Get("ServIP", true)->SetValue("127.0.0.4");
    const Listening listening;
    const auto socket = outgoing();
    ASSERT_EQ(socket->Connect("127.0.0.1", listening.port, "127.0.0.5", 0, false), 0);
    EXPECT_EQ(socket->GetLocalIP(), "127.0.0.5");
}

TEST(SocketConnect, SettingAnyBindsNothingAndLeavesTheFamilyOpen) {
    Config::Get("ServIP", true)->SetValue("Any");
    const Listening ipv4;
    const auto first = outgoing();
    ASSERT_EQ(first->Connect("127.0.0.1", ipv4.port, "", 0, false), 0);
    EXPECT_EQ(first->GetLocalIP(), "127.0.0.1");

    // Refused or connected, but not for want of an address of its family.
    const Listening ipv6("::1");
    const auto second = outgoing();
    const int result = second->Connect("::1", ipv6.port, "", 0, false);
    EXPECT_EQ(result, ipv6.port == 0 ? IO_FAILED : 0);
}

TEST(SocketConnect, IPv4SettingRefusesAHostThatIsOnlyIPv6) {
    Config::Get("ServIP", true)->SetValue("127.0.0.1");
    const auto socket = outgoing();
    EXPECT_EQ(socket->Connect("::1", 80, "", 0, false), IO_FAILED);
    EXPECT_FALSE(socket->IsValid());
}

TEST(SocketConnect, SettingsOfBothFamiliesLeaveTheFamilyOpen) {
    Config::Get("ServIP", true)->SetValue("::1");
    const auto second = std::make_shared<ConfigNode>("ServIP", "");
    Config::GetRoot()->AddChild(second)->SetValue("127.0.0.6");
    const Listening listening;
    const auto socket = outgoing();
    ASSERT_EQ(socket->Connect("127.0.0.1", listening.port, "", 0, false), 0);
    EXPECT_EQ(socket->GetLocalIP(), "127.0.0.6");
}

TEST(SocketConnect, TimeOutSettingBoundsABlockingConnect) {
    Config::Get("SocketTimeout", true)->SetValue(1);
    const Listening listening("127.0.0.1", 0);
    std::vector<std::shared_ptr<Socket>>
        waiting; // what fills the queue of a listener that never accepts
    int result = 0;
    const auto start = steady_clock::now();
    while (result == 0 && waiting.size() < 8) {
        waiting.push_back(outgoing());
        result = waiting.back()->Connect("127.0.0.1", listening.port, "", 0, false);
    }
    EXPECT_EQ(result, IO_AGAIN);
    EXPECT_TRUE(waiting.back()->IsValid());
    EXPECT_LT(steady_clock::now() - start, seconds(5));
}

} // namespace
