#include "net/SocketTools.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

void getSO_ERROR(int fd) {
    int error = 0;
    socklen_t length = sizeof error;
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error != 0) errno = error;
}

// Waits, if there is time to wait, and lets `transfer` move the bytes once.
template <class Transfer>
int wait_and(int fd, short event, int timeout_seconds, const Transfer& transfer) {
    if (timeout_seconds != 0) {
        const WaitResult waited = wait_for_socket(fd, event, timeout_seconds);
        if (waited == WaitResult::GONE) return -1;
        if (waited == WaitResult::TIMED_OUT) {
            errno = EAGAIN;
            return -2;
        }
    }
    const auto result = static_cast<int>(transfer());
    return result == -1 && (errno == EAGAIN || errno == EINPROGRESS) ? -2 : result;
}

} // namespace

void closesocket(int fd) {
    if (fd < 0) return;
    getSO_ERROR(fd);
    if (shutdown(fd, SHUT_RDWR) == -1 && errno != EINVAL && errno != ENOTCONN) perror("Shutdown");
    if (close(fd) == -1) perror("close");
}

std::string socket_strerror(int error) {
    char buffer[512] = {};
    return strerror_r(error, buffer, sizeof buffer);
}

WaitResult wait_for_socket(int fd, short event, int timeout_seconds) {
    pollfd waiting{.fd = fd, .events = static_cast<short>(event | POLLERR | POLLHUP), .revents = 0};
    const timespec limit{.tv_sec = timeout_seconds, .tv_nsec = 0};
    const int result = ppoll(&waiting, 1, &limit, nullptr);
    if (result == -1 || waiting.revents == POLLHUP || waiting.revents == POLLERR)
        return WaitResult::GONE;
    return result == 0 ? WaitResult::TIMED_OUT : WaitResult::READY;
}

int nb_recv(int fd, char* buffer, int length, int flags, int timeout_seconds) {
    return wait_and(fd, POLLIN, timeout_seconds, [&] { return recv(fd, buffer, length, flags); });
}

int nb_send(int fd, const char* buffer, int length, int flags, int timeout_seconds) {
    return wait_and(fd, POLLOUT, timeout_seconds,
                    [&] { return send(fd, buffer, length, flags | MSG_NOSIGNAL); });
}

SockInfo GetSockInfo(int fd, bool local) {
    sockaddr_storage storage{};
    socklen_t length = sizeof storage;
    auto* address = reinterpret_cast<sockaddr*>(&storage);
    const int told = local ? getsockname(fd, address, &length) : getpeername(fd, address, &length);
    if (told == -1) return {};

    char host[46] = {}; // INET6_ADDRSTRLEN
    char service[6] = {};
    if (getnameinfo(address, length, host, sizeof host, service, sizeof service,
                    NI_NUMERICHOST | NI_NUMERICSERV) != 0)
        return {};
    return {host, service};
}

std::string GetSockIP(int fd, bool local) { return GetSockInfo(fd, local).ip; }

std::string GetIPHostname(const std::string& ip) {
    addrinfo* found = nullptr;
    if (getaddrinfo(ip.c_str(), nullptr, nullptr, &found) != 0) return ip;
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);

    char name[255] = {};
    if (getnameinfo(found->ai_addr, found->ai_addrlen, name, sizeof name, nullptr, 0, 0) != 0)
        return ip;
    return name;
}
