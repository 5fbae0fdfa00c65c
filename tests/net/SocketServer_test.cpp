#include "net/SocketServer.h"

#include "config/Config.h"
#include "net/Socket.h"
#include "net/SocketTools.h"
#include "support/LogLines.h"
#include "support/Ports.h"

#include <arpa/inet.h>
#include <chrono>
#include <condition_variable>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

// Notes what it hears of the listening thread.
class RecordingServer : public SocketServer {
public:
    explicit RecordingServer(int wanted_family = AF_UNSPEC) { family = wanted_family; }
    ~RecordingServer() override { WaitForStop(); }

    // Whether it holds within five seconds.
    bool Until(const std::function<bool()>& holds) {
        std::unique_lock guard(lock);
        return changed.wait_for(guard, seconds(5), holds);
    }
    bool StartAndBind() {
        Start();
        return Until([this] { return count != -1; });
    }
    unsigned short BoundPort(std::size_t index) {
        const std::lock_guard guard(lock);
        return static_cast<unsigned short>(std::stoi(bound.at(index).port));
    }
    bool UntilAccepted(std::size_t wanted) {
        return Until([this, wanted] { return sockets.size() >= wanted; });
    }

    std::mutex lock; // guards what follows
    std::condition_variable changed;
    std::vector<SockInfo> bound;
    int count = -1; // as told by initialized
    std::vector<std::shared_ptr<Socket>> sockets;
    bool left = false;
    std::string thread_name;
    std::function<void()> on_accept = [] {};

private:
    void socket_listen(const std::string& bound_ip, const std::string& port) override {
        const std::lock_guard guard(lock);
        bound.push_back({bound_ip, port});
    }
    void initialized(int bound_count) override {
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof name);
        const std::lock_guard guard(lock);
        count = bound_count;
        thread_name = name;
        changed.notify_all();
    }
    void socket_event(std::shared_ptr<Socket> socket) override {
        const std::lock_guard guard(lock);
        on_accept();
        sockets.push_back(std::move(socket));
        changed.notify_all();
    }
    void deinitialized() override {
        const std::lock_guard guard(lock);
        left = true;
    }
};

// A client's descriptor that is not connected yet.
int new_client() { return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0); }

bool connect_to(int fd, unsigned short port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
}

// The process's own descriptor that is connected to this port of a client.
int descriptor_of(const std::string& client_port) {
    for (int fd = 3; fd < 1024; ++fd)
        if (GetSockInfo(fd, false).port == client_port) return fd;
    return -1;
}

long receive_timeout(int fd) {
    timeval limit{};
    socklen_t length = sizeof limit;
    getsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, &length);
    return limit.tv_sec;
}

// Sets the soft limit of open descriptors, and puts it back.
class DescriptorLimit {
public:
    DescriptorLimit() { getrlimit(RLIMIT_NOFILE, &before); }
    ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &before); }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

    bool Set(rlim_t soft) const {
        const rlimit limit{.rlim_cur = soft, .rlim_max = before.rlim_max};
        return setrlimit(RLIMIT_NOFILE, &limit) == 0;
    }
    // Nothing more can be opened.
    void Exhaust() const {
        const int next = dup(0);
        close(next);
        Set(static_cast<rlim_t>(next));
    }

private:
    rlimit before{};
};

void listen_at(const char* address) { Config::Get("ServIP", true)->SetValue(address); }

void listen_also_at(const char* address) {
    const auto setting = std::make_shared<ConfigNode>("ServIP", "");
    setting->SetValue(address);
    Config::GetRoot()->AddChild(setting);
}

bool has_ipv6() {
    const int fd = socket(AF_INET6, SOCK_STREAM, 0);
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    const bool bound = bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    closesocket(fd);
    return bound;
}

TEST(SocketServer, WithoutPortsNoThreadIsStarted) {
    LogLines log;
    RecordingServer server;
    server.Start();
    EXPECT_TRUE(
        log.Wait("No Ports specified for this Server Instance, are you sure you added a port?"));
    EXPECT_FALSE(server.IsRunning());
    server.WaitForStop();
    EXPECT_EQ(server.count, -1);
}

TEST(SocketServer, BindsEveryPortAtEveryAddressInOrder) {
    listen_at("127.0.0.1");
    listen_also_at("127.0.0.2");
    const unsigned short port = Ports::Free(2);
    RecordingServer server;
    server.AddPort(port);
    server.AddPort(static_cast<unsigned short>(port + 1));
    ASSERT_TRUE(server.StartAndBind());
    EXPECT_EQ(server.count, 4);
    ASSERT_EQ(server.bound.size(), 4U);
    EXPECT_EQ(server.bound[0].ip, "127.0.0.1");
    EXPECT_EQ(server.bound[0].port, std::to_string(port));
    EXPECT_EQ(server.bound[1].ip, "127.0.0.1");
    EXPECT_EQ(server.bound[1].port, std::to_string(port + 1));
    EXPECT_EQ(server.bound[2].ip, "127.0.0.2");
    EXPECT_EQ(server.bound[2].port, std::to_string(port));
    EXPECT_EQ(server.bound[3].ip, "127.0.0.2");
    EXPECT_EQ(server.bound[3].port, std::to_string(port + 1));
    EXPECT_TRUE(server.IsRunning());
}

TEST(SocketServer, ThreadHasAName) {
    listen_at("127.0.0.1");
    RecordingServer server;
    server.AddPort(0);
    ASSERT_TRUE(server.StartAndBind());
    EXPECT_EQ(server.thread_name, "SocketServer Li") << "the kernel holds 15 bytes";
}

TEST(SocketServer, AnyInAnyCaseIsTheWildcard) {
    listen_at("aNy");
    RecordingServer server(AF_INET);
    server.AddPort(0);
    server.AddPort(0);
    ASSERT_TRUE(server.StartAndBind());
    EXPECT_EQ(server.count, 2);
    EXPECT_EQ(server.bound[0].ip, "0.0.0.0");
    EXPECT_EQ(server.bound[1].ip, "0.0.0.0");
}

TEST(SocketServer, NoAddressIsTheWildcardToo) {
    RecordingServer server(AF_INET);
    server.AddPort(0);
    ASSERT_TRUE(server.StartAndBind());
    EXPECT_EQ(server.bound[0].ip, "0.0.0.0");
}

TEST(SocketServer, FamilyIPv6NeverBindsIPv4) {
    RecordingServer server(AF_INET6);
    server.AddPort(0);
    server.Start();
    server.Until([&server] { return server.count == 1 || !has_ipv6(); });
    server.WaitForStop();
    ASSERT_EQ(server.bound.size(), has_ipv6() ? 1U : 0U);
    for (const SockInfo& info : server.bound)
        EXPECT_EQ(info.ip, "::");
}

// The IPv6 wildcard claims IPv4 as well, where it is taken by then.
TEST(SocketServer, OpenFamilyBindsIPv4AndWarnsOfIPv6) {
    LogLines log;
    const unsigned short port = Ports::Free();
    RecordingServer server;
    server.AddPort(port);
    ASSERT_TRUE(server.StartAndBind());
    EXPECT_EQ(server.count, 1);
    EXPECT_EQ(server.bound[0].ip, "0.0.0.0");
    EXPECT_EQ(log.All().size(), has_ipv6() ? 1U : 0U);
    EXPECT_EQ(log.Count("Warning: Unable to bind to port " + std::to_string(port)),
              has_ipv6() ? 1 : 0);
}

TEST(SocketServer, HostNameAsAddressEndsTheThread) {
    LogLines log;
    listen_at("127.0.0.1");
    listen_also_at("localhost");
    RecordingServer server;
    server.AddPort(0);
    server.Start();
    EXPECT_TRUE(log.Wait("Unable to get information about your machine's network capabilities ( " +
                         std::string(gai_strerror(EAI_NONAME)) + ")"));
    server.WaitForStop();
    EXPECT_EQ(server.count, -1);
    EXPECT_FALSE(server.left);
    EXPECT_FALSE(server.IsRunning());
}

TEST(SocketServer, SamePortTwiceIsBoundOnceWithAWarning) {
    LogLines log;
    listen_at("127.0.0.1");
    const unsigned short port = Ports::Free();
    RecordingServer server;
    server.AddPort(port);
    server.AddPort(port);
    ASSERT_TRUE(server.StartAndBind());
    EXPECT_EQ(server.count, 1);
    EXPECT_TRUE(log.Wait("Warning: Unable to bind to port " + std::to_string(port)));
}

TEST(SocketServer, WithoutASocketItNeitherBeginsNorSaysGoodbye) {
    LogLines log;
    listen_at("127.0.0.1");
    RecordingServer first;
    first.AddPort(0);
    ASSERT_TRUE(first.StartAndBind());

    RecordingServer second;
    second.AddPort(first.BoundPort(0));
    second.Start();
    EXPECT_TRUE(log.Wait("Error Initializing any client ports, unable to continue."));
    second.WaitForStop();
    EXPECT_EQ(second.count, -1);
    EXPECT_FALSE(second.left);
    EXPECT_FALSE(second.IsRunning());
}

TEST(SocketServer, No1025thSocketIsBound) {
    const DescriptorLimit limit;
    ASSERT_TRUE(limit.Set(4096));
    LogLines log;
    listen_at("127.0.0.1");
    RecordingServer server;
    for (int i = 0; i < 1025; ++i)
        server.AddPort(0);
    ASSERT_TRUE(server.StartAndBind());
    EXPECT_EQ(server.count, 1024);
    EXPECT_TRUE(
        log.Wait("You have more address than we can count!  No more sockets can be bound to."));

    const int client = new_client();
    EXPECT_TRUE(connect_to(client, server.BoundPort(1023))) << "a descriptor above 1023";
    EXPECT_TRUE(server.UntilAccepted(1));
    closesocket(client);
}

TEST(SocketServer, AcceptedSocketDoesNotBlockAndKnowsItsPeer) {
    listen_at("127.0.0.1");
    RecordingServer server;
    server.AddPort(0);
    ASSERT_TRUE(server.StartAndBind());
    const int client = new_client();
    ASSERT_TRUE(connect_to(client, server.BoundPort(0)));
    ASSERT_TRUE(server.UntilAccepted(1));
    EXPECT_EQ(server.sockets[0]->GetIP(), "127.0.0.1");
    EXPECT_EQ(server.sockets[0]->GetInfo().port, GetSockInfo(client, true).port);
    char byte = 0;
    EXPECT_EQ(server.sockets[0]->Recv(&byte, 1, 0, 0), IO_AGAIN);
    const int accepted = descriptor_of(GetSockInfo(client, true).port);
    EXPECT_NE(fcntl(accepted, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(fcntl(accepted, F_GETFD) & FD_CLOEXEC, 0);
    closesocket(client);
}

TEST(SocketServer, TimeOutSettingIsReadForEachConnection) {
    listen_at("127.0.0.1");
    RecordingServer server;
    server.AddPort(0);
    ASSERT_TRUE(server.StartAndBind());
    const int first = new_client();
    const int second = new_client();
    ASSERT_TRUE(connect_to(first, server.BoundPort(0)));
    ASSERT_TRUE(server.UntilAccepted(1));
    Config::Get("SocketTimeout", true)->SetValue(9);
    ASSERT_TRUE(connect_to(second, server.BoundPort(0)));
    ASSERT_TRUE(server.UntilAccepted(2));
    EXPECT_EQ(receive_timeout(descriptor_of(GetSockInfo(first, true).port)), 5);
    EXPECT_EQ(receive_timeout(descriptor_of(GetSockInfo(second, true).port)), 9);
    closesocket(first);
    closesocket(second);
}

TEST(SocketServer, EveryPortHasItsTurn) {
    listen_at("127.0.0.1");
    RecordingServer server;
    server.AddPort(0);
    server.AddPort(0);
    ASSERT_TRUE(server.StartAndBind());
    std::vector<int> clients;
    for (int i = 0; i < 20; ++i) {
        clients.push_back(new_client());
        ASSERT_TRUE(connect_to(clients.back(), server.BoundPort(static_cast<std::size_t>(i % 2))));
    }
    EXPECT_TRUE(server.UntilAccepted(20));
    for (const int client : clients)
        closesocket(client);
}

TEST(SocketServer, StormOfConnectionsIsAcceptedWhole) {
    const DescriptorLimit limit;
    ASSERT_TRUE(limit.Set(8192));
    constexpr std::size_t STORM = 2000;
    listen_at("127.0.0.1");
    RecordingServer server;
    server.AddPort(0);
    ASSERT_TRUE(server.StartAndBind());
    std::vector<int> clients;
    for (std::size_t i = 0; i < STORM; ++i) {
        clients.push_back(new_client());
        ASSERT_TRUE(connect_to(clients.back(), server.BoundPort(0)));
    }
    EXPECT_TRUE(server.UntilAccepted(STORM));
    EXPECT_EQ(server.sockets.back()->GetInfo().port, GetSockInfo(clients.back(), true).port);
    for (const int client : clients)
        closesocket(client);
}

TEST(SocketServer, DescriptorLimitIsLoggedOnceASecondAndPasses) {
    LogLines log;
    listen_at("127.0.0.1");
    RecordingServer server;
    server.AddPort(0);
    ASSERT_TRUE(server.StartAndBind());
    const int client = new_client();
    {
        const DescriptorLimit limit;
        limit.Exhaust();
        const auto started = steady_clock::now();
        ASSERT_TRUE(connect_to(client, server.BoundPort(0)));
        const std::string lines[] = {
            "WARNING: Unable to accept new client. Error: Too many open files",
            "ERROR: Quillwave cannot accept anymore clients due to system limits. "
            "Retrying in one second."};
        for (const std::string& line : lines)
            EXPECT_TRUE(log.Wait(line, 3)) << line;
        EXPECT_GE(steady_clock::now() - started, seconds(2));
        EXPECT_TRUE(server.sockets.empty());
    }
    EXPECT_TRUE(server.UntilAccepted(1));
    closesocket(client);
}

TEST(SocketServer, StopEndsThePauseAtTheDescriptorLimitAtOnce) {
    LogLines log;
    listen_at("127.0.0.1");
    constexpr int STOPS = 4;
    steady_clock::duration taken{};
    for (int stop = 1; stop <= STOPS; ++stop) {
        RecordingServer server;
        server.AddPort(0);
        ASSERT_TRUE(server.StartAndBind());
        const int client = new_client();
        const DescriptorLimit limit;
        limit.Exhaust();
        ASSERT_TRUE(connect_to(client, server.BoundPort(0)));
        ASSERT_TRUE(log.Wait("Retrying in one second.", stop));
        const auto start = steady_clock::now();
        server.WaitForStop();
        taken += steady_clock::now() - start;
        closesocket(client);
    }
    EXPECT_LT(taken, seconds(STOPS) / 2);
}

// A wait for more descriptors than the process may have is refused by the system.
TEST(SocketServer, FailedWaitEndsTheThreadWithoutAGoodbye) {
    LogLines log;
    listen_at("127.0.0.1");
    RecordingServer server;
    server.AddPort(0);
    const DescriptorLimit limit;
    server.on_accept = [&limit] { limit.Set(1); };
    ASSERT_TRUE(server.StartAndBind());
    const int client = new_client();
    ASSERT_TRUE(connect_to(client, server.BoundPort(0)));
    EXPECT_TRUE(log.Wait("Error: Select Socket Error, Quillwave must shutdown."));
    server.WaitForStop();
    EXPECT_FALSE(server.left);
    EXPECT_FALSE(server.IsRunning());
    closesocket(client);
}

TEST(SocketServer, StopTakesEffectAtOnce) {
    listen_at("127.0.0.1");
    RecordingServer server;
    server.AddPort(0);
    ASSERT_TRUE(server.StartAndBind());
    const auto start = steady_clock::now();
    server.SignalStop();
    EXPECT_FALSE(server.IsRunning());
    server.WaitForStop();
    EXPECT_LT(steady_clock::now() - start, seconds(4)) << "a pass without a stop takes five";
    EXPECT_TRUE(server.left);
}

TEST(SocketServer, StopRightAfterTheStartIsNotLost) {
    listen_at("127.0.0.1");
    for (int round = 0; round < 50; ++round) {
        RecordingServer server;
        server.AddPort(0);
        server.Start();
        server.WaitForStop();
        EXPECT_TRUE(server.left);
        EXPECT_FALSE(server.IsRunning());
    }
}

} // namespace
