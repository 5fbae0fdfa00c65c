#pragma once

#include "net/Socket.h"

#include <arpa/inet.h>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <linux/tcp.h>
#include <memory>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

// A connected TCP pair on 127.0.0.1: `server` is the end that the code under test gets,
// non-blocking as accepted connections are; `client` is the test's own descriptor, whose reads give
// up after five seconds.
class LoopbackPair {
public:
    LoopbackPair() {
        const int listening = must(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        must(bind(listening, generic, length));
        must(listen(listening, 1));
        must(getsockname(listening, generic, &length));
        client = must(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        must(connect(client, generic, length));
        server_fd = must(accept4(listening, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        close(listening);
        const timeval limit{.tv_sec = 5, .tv_usec = 0};
        setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        server = std::make_shared<Socket>(server_fd);
    }
    ~LoopbackPair() { CloseClient(); }
    LoopbackPair(const LoopbackPair&) = delete;
    LoopbackPair& operator=(const LoopbackPair&) = delete;

    std::shared_ptr<Socket> server;
    int server_fd = -1; // owned by `server`
    int client = -1;

    // The client sends all of it.
    void Send(const std::string& bytes) const {
        std::size_t done = 0;
        while (done < bytes.size())
            done += static_cast<std::size_t>(
                must(send(client, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL)));
    }

    // Exactly `count` bytes at the client, fewer when the server ends or is silent for five
    // seconds.
    std::string Receive(std::size_t count) const {
        std::string bytes(count, '\0');
        std::size_t done = 0;
        while (done < count) {
            const ssize_t got = recv(client, bytes.data() + done, count - done, 0);
            if (got <= 0) break;
            done += static_cast<std::size_t>(got);
        }
        bytes.resize(done);
        return bytes;
    }

    // Everything up to the server's end.
    std::string ReceiveAll() const {
        std::string bytes;
        char block[4096];
        for (ssize_t got = 0; (got = recv(client, block, sizeof block, 0)) > 0;)
            bytes.append(block, static_cast<std::size_t>(got));
        return bytes;
    }

    // What has arrived at the client by now.
    std::string ReceiveWaiting() const {
        std::string bytes;
        char block[4096];
        for (ssize_t got = 0; (got = recv(client, block, sizeof block, MSG_DONTWAIT)) > 0;)
            bytes.append(block, static_cast<std::size_t>(got));
        return bytes;
    }

    // The client will send no more, but still reads.
    void EndSending() const { shutdown(client, SHUT_WR); }

    void CloseClient() {
        if (client != -1) close(client);
        client = -1;
    }

    // Closes with a reset: the server's next call meets a hard error.
    void ResetClient() {
        const linger at_once{.l_onoff = 1, .l_linger = 0};
        setsockopt(client, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        CloseClient();
    }

    // Sends until the server's end takes no more, so that its next send meets EAGAIN. The count.
    // What the client has to say it says before: its packets would tell of new room.
    std::uint64_t FillTowardsClient() const {
        const int fixed = 65536; // or the kernel would go on making room
        must(setsockopt(client, SOL_SOCKET, SO_RCVBUF, &fixed, sizeof fixed));
        must(setsockopt(server_fd, SOL_SOCKET, SO_SNDBUF, &fixed, sizeof fixed));
        std::uint64_t total = 0;
        for (bool full = false; !full;) {
            const bool was_shut = is_window_shut();
            const std::uint64_t more = SendWhatFits();
            full = was_shut && more == 0;
            total += more;
            if (!full) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return total;
    }

private:
    std::uint64_t SendWhatFits() const {
        std::uint64_t total = 0;
        const std::string block(65536, 'x');
        for (ssize_t done = 0;
             (done = send(server_fd, block.data(), block.size(), MSG_NOSIGNAL)) > 0;)
            total += static_cast<std::uint64_t>(done);
        return total;
    }

    // While an acknowledgement is still to come (it may be delayed by 40 ms), or the client's
    // window has a rest that the kernel fills in a fifth of a second, room may appear.
    bool is_window_shut() const {
        tcp_info state{};
        socklen_t length = sizeof state;
        must(getsockopt(server_fd, IPPROTO_TCP, TCP_INFO, &state, &length));
        return state.tcpi_unacked == 0 && state.tcpi_snd_wnd == 0;
    }

    // A step without which there is no test.
    static int must(ssize_t result) {
        if (result == -1) std::abort();
        return static_cast<int>(result);
    }
};
