#pragma once

#include "core/ThreadPoolWork.h"
#include "core/spinlock.h"
#include "net/SockInfo.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <sys/socket.h>
#include <sys/uio.h>
#include <vector>

struct Route;
struct addrinfo;

// Results of I/O that are no counts.
constexpr int IO_END = 0;     // the peer's orderly end
constexpr int IO_FAILED = -1; // closed, or closed now: every later call fails at once
constexpr int IO_AGAIN = -2;  // nothing done, try later; the cause is EAGAIN or EINPROGRESS

// One stream socket, always held by a shared_ptr. Non-blocking once connected; a hard error closes
// the descriptor in place, while the object lives on. One thread at a time, the one that works for
// the owner: connecting, I/O, Close and the last error. Any thread: Shutdown, IsValid, the
// addresses and the counters.
class Socket : public ThreadPoolWork, public std::enable_shared_from_this<Socket> {
public:
    // An outgoing socket; Connect makes its descriptor.
    Socket(int domain, int type, int protocol);
    // Takes over an accepted descriptor and notes both of its addresses.
    explicit Socket(int fd);
    ~Socket() override;
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    // One send: the count sent, which may be short, IO_FAILED or IO_AGAIN. `flags` as of send(2).
    int Send(const std::vector<char>* data, int length, int flags);
    int Send(const std::string* data, int flags);
    // The same for up to IOV_MAX pieces in one call.
    int SendVector(const iovec* parts, int count);

    // One recv, after waiting up to `timeout_seconds` if that is not 0: a count, IO_END, IO_FAILED
    // or IO_AGAIN.
    int Recv(char* buffer, int length, int flags, int timeout_seconds);

    // 1 when a read or write would not wait, 0 when it would, IO_FAILED.
    int CanRecv();
    int CanSend();
    // Whether the peer has closed its end, also while bytes of it wait to be read.
    bool PeerHasClosed() const;
    // Waits until it could read or write, at most so long, and judges nothing.
    void AwaitRecv(int milliseconds) const;
    void AwaitSend(int milliseconds) const;

    // Connects to the first address of `host`; resolving the name blocks, and so does connecting
    // unless `nonblocking`, up to the setting SocketTimeout. Without `bind_ip` the setting ServIP
    // chooses the local address. 0 connected, IO_AGAIN in progress (wait with CanSend), IO_FAILED.
    int Connect(const std::string& host, unsigned short port, const std::string& bind_ip,
                unsigned short bind_port, bool nonblocking);
    // The same to an address that is known, so that nothing blocks if `nonblocking`.
    int Connect(const Route& route, bool nonblocking);
    int Bind(const sockaddr* address, int length);

    void Close();
    // Ends the traffic both ways and keeps the descriptor, so that a thread that waits in Recv
    // comes back.
    void Shutdown() EXCLUDES(info_lock);

    bool IsValid() const { return fd != -1; }
    // For those who wait on several sockets; -1 once closed.
    int Descriptor() const { return fd; }
    // The last errno seen; reading it clears it.
    int GetLastError();
    void SetLastError(int error) { last_error = error; }

    // The addresses stay known after a close, if they were asked for before.
    std::string GetIP() EXCLUDES(info_lock);
    SockInfo GetInfo() EXCLUDES(info_lock);
    std::string GetLocalIP() EXCLUDES(info_lock);
    SockInfo GetLocalInfo() EXCLUDES(info_lock);

    // Bytes of all successful sends, and reads other than peeks.
    std::uint64_t BytesSent() const { return bytes_sent; }
    std::uint64_t BytesRead() const { return bytes_read; }

private:
    void await(short event, int milliseconds) const;
    int ready(short event);
    int wait(short event, int timeout_seconds);
    int sent(ssize_t result);
    int failed(int error);
    int close_for(int error);

    bool make_descriptor(const addrinfo& target);
    bool bind_locally(const addrinfo* source);
    void limit_blocking() const;
    bool set_nonblocking() const;
    void note_addresses() EXCLUDES(info_lock);
    SockInfo cached_info(SockInfo& cache, bool local_end) REQUIRES(info_lock);

    // Replaced under info_lock, so that Shutdown never meets a descriptor that is somebody else's.
    std::atomic<int> fd{-1};
    int last_error = 0;
    int domain = 0;
    int type = 0;
    int protocol = 0;
    SockInfo remote GUARDED_BY(info_lock);
    SockInfo local GUARDED_BY(info_lock);
    spinlock info_lock;
    std::atomic<std::uint64_t> bytes_sent{0};
    std::atomic<std::uint64_t> bytes_read{0};
};
