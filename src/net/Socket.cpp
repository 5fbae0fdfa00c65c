#include "net/Socket.h"

#include "net/SocketTools.h"

#include <cerrno>
#include <poll.h>
#include <utility>

Socket::Socket(int d, int t, int p) : domain(d), type(t), protocol(p) {}

Socket::Socket(int accepted) : fd(accepted) { note_addresses(); }

Socket::~Socket() { Close(); }

void Socket::Close() {
    int closing = -1;
    {
        spin_guard guard(info_lock);
        closing = fd.exchange(-1);
    }
    closesocket(closing);
}

void Socket::Shutdown() {
    spin_guard guard(info_lock);
    if (fd != -1) shutdown(fd, SHUT_RDWR);
}

int Socket::Bind(const sockaddr* address, int length) {
    return bind(fd, address, static_cast<socklen_t>(length));
}

int Socket::GetLastError() { return std::exchange(last_error, 0); }

int Socket::Send(const std::vector<char>* data, int length, int flags) {
    if (fd == -1) return IO_FAILED;
    return sent(send(fd, data->data(), static_cast<std::size_t>(length), flags | MSG_NOSIGNAL));
}

int Socket::Send(const std::string* data, int flags) {
    if (fd == -1) return IO_FAILED;
    return sent(send(fd, data->data(), data->size(), flags | MSG_NOSIGNAL));
}

int Socket::SendVector(const iovec* parts, int count) {
    if (fd == -1) return IO_FAILED;
    msghdr message{};
    message.msg_iov = const_cast<iovec*>(parts); // sendmsg only reads it
    message.msg_iovlen = static_cast<std::size_t>(count);
    return sent(sendmsg(fd, &message, MSG_NOSIGNAL));
}

int Socket::Recv(char* buffer, int length, int flags, int timeout_seconds) {
    if (fd == -1) return IO_FAILED;
    if (timeout_seconds != 0) {
        const int waited = wait(POLLIN, timeout_seconds);
        if (waited < 0) return waited;
    }
    const ssize_t result = recv(fd, buffer, static_cast<std::size_t>(length), flags);
    if (result == -1) return failed(errno);
    if ((flags & MSG_PEEK) == 0) bytes_read += static_cast<std::uint64_t>(result);
    return static_cast<int>(result);
}

int Socket::CanRecv() { return ready(POLLIN); }

int Socket::CanSend() { return ready(POLLOUT); }

bool Socket::PeerHasClosed() const {
    pollfd end{.fd = fd, .events = POLLRDHUP, .revents = 0};
    return poll(&end, 1, 0) == 1;
}

void Socket::AwaitRecv(int milliseconds) const { await(POLLIN, milliseconds); }

void Socket::AwaitSend(int milliseconds) const { await(POLLOUT, milliseconds); }

void Socket::await(short event, int milliseconds) const {
    pollfd waiting{.fd = fd, .events = event, .revents = 0};
    poll(&waiting, 1, milliseconds);
}

int Socket::ready(short event) {
    if (fd == -1) return IO_FAILED;
    const WaitResult waited = wait_for_socket(fd, event, 0);
    if (waited == WaitResult::GONE) return close_for(errno);
    return waited == WaitResult::READY ? 1 : 0;
}

// 0 once the event is there.
int Socket::wait(short event, int timeout_seconds) {
    const WaitResult waited = wait_for_socket(fd, event, timeout_seconds);
    if (waited == WaitResult::GONE) return close_for(errno);
    if (waited == WaitResult::READY) return 0;
    last_error = EAGAIN;
    return IO_AGAIN;
}

// What a send call has come to.
int Socket::sent(ssize_t result) {
    if (result == -1) return failed(errno);
    bytes_sent += static_cast<std::uint64_t>(result);
    return static_cast<int>(result);
}

int Socket::failed(int error) {
    if (error != EINPROGRESS && error != EAGAIN) return close_for(error);
    last_error = error;
    return IO_AGAIN;
}

int Socket::close_for(int error) {
    last_error = error;
    Close();
    return IO_FAILED;
}

std::string Socket::GetIP() { return GetInfo().ip; }

SockInfo Socket::GetInfo() {
    spin_guard guard(info_lock);
    return cached_info(remote, false);
}

std::string Socket::GetLocalIP() { return GetLocalInfo().ip; }

SockInfo Socket::GetLocalInfo() {
    spin_guard guard(info_lock);
    return cached_info(local, true);
}

SockInfo Socket::cached_info(SockInfo& cache, bool local_end) {
    if (cache.ip.empty() && fd != -1) cache = GetSockInfo(fd, local_end);
    return cache;
}

void Socket::note_addresses() {
    spin_guard guard(info_lock);
    remote = GetSockInfo(fd, false);
    local = GetSockInfo(fd, true);
}
