#pragma once

#include <arpa/inet.h>
#include <cstdlib>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#include <utility>

// One call that a CalledServer has taken. Reads give up after five seconds.
class TakenCall {
public:
    explicit TakenCall(int descriptor) : fd(descriptor) {
        const timeval limit{.tv_sec = 5, .tv_usec = 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    }
    TakenCall(TakenCall&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
    TakenCall& operator=(TakenCall&&) = delete;
    ~TakenCall() { Close(); }

    bool Came() const { return fd != -1; }
    // The address that it came from.
    std::string PeerIP() const {
        sockaddr_in peer{};
        socklen_t length = sizeof peer;
        getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &length);
        char text[INET_ADDRSTRLEN] = "";
        inet_ntop(AF_INET, &peer.sin_addr, text, sizeof text);
        return text;
    }

    // The head with its empty line and, as its Content-Length tells, the body.
    std::string Receive() const {
        std::string bytes;
        while (bytes.find("\r\n\r\n") == std::string::npos)
            if (!receive_into(bytes)) return bytes;
        const std::size_t whole = bytes.find("\r\n\r\n") + 4 + length_told(bytes);
        while (bytes.size() < whole)
            if (!receive_into(bytes)) return bytes;
        return bytes;
    }

    void Send(const std::string& bytes) const {
        std::size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t sent = send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
            if (sent <= 0) return;
            done += static_cast<std::size_t>(sent);
        }
    }

    void Close() {
        if (fd != -1) close(fd);
        fd = -1;
    }

    // Says no more, and goes on reading.
    void EndSending() const { shutdown(fd, SHUT_WR); }

    // Closes with a reset: the caller's next read meets a hard error.
    void Reset() {
        const linger at_once{.l_onoff = 1, .l_linger = 0};
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        Close();
    }

private:
    bool receive_into(std::string& bytes) const {
        char block[65536];
        const ssize_t got = recv(fd, block, sizeof block, 0);
        if (got > 0) bytes.append(block, static_cast<std::size_t>(got));
        return got > 0;
    }

    static std::size_t length_told(const std::string& head) {
        const std::string NAME = "Content-Length: ";
        const std::size_t place = head.find(NAME);
        return place == std::string::npos ? 0 : std::stoul(head.substr(place + NAME.size()));
    }

    int fd = -1;
};

// A server on 127.0.0.1 that the code under test calls; the test itself takes each call.
class CalledServer {
public:
    explicit CalledServer(int backlog = 64) {
        fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        if (bind(fd, generic, length) != 0 || listen(fd, backlog) != 0) std::abort();
        getsockname(fd, generic, &length);
        port = ntohs(address.sin_port);
        const timeval limit{.tv_sec = 5, .tv_usec = 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    }
    ~CalledServer() { Close(); }
    CalledServer(const CalledServer&) = delete;
    CalledServer& operator=(const CalledServer&) = delete;

    unsigned short Port() const { return port; }
    std::string Address(const std::string& target = "/") const {
        return "http://127.0.0.1:" + std::to_string(port) + target;
    }
    // Waits up to five seconds.
    TakenCall Take() const { return TakenCall(accept4(fd, nullptr, nullptr, SOCK_CLOEXEC)); }
    // Whether somebody has called who was not taken.
    bool IsCalled() const {
        pollfd waiting{.fd = fd, .events = POLLIN, .revents = 0};
        return poll(&waiting, 1, 0) == 1;
    }
    // From here on calls are refused.
    void Close() {
        if (fd != -1) close(fd);
        fd = -1;
    }

private:
    int fd = -1;
    unsigned short port = 0;
};

// What stands behind the head.
inline std::string body_of(const std::string& call) {
    const std::size_t end = call.find("\r\n\r\n");
    return end == std::string::npos ? std::string() : call.substr(end + 4);
}
