#pragma once

#include "net/SockInfo.h"

#include <cerrno>
#include <string>

// Free functions over bare descriptors. Any thread.

// Shuts both ways and closes. A negative descriptor is ignored; a pending error of the socket ends
// in errno.
void closesocket(int fd);

inline int WSAGetLastError() { return errno; }

// The system's words for an errno value.
std::string socket_strerror(int error);

// One recv or send after waiting up to `timeout_seconds` (0: no waiting). Neither closes nor
// counts. The count, 0 at the peer's orderly end, -1 failure, -2 try again with errno EAGAIN or
// EINPROGRESS.
int nb_recv(int fd, char* buffer, int length, int flags, int timeout_seconds);
int nb_send(int fd, const char* buffer, int length, int flags, int timeout_seconds);

// How a wait for one descriptor ended. GONE: the only news is an error or a hang-up, or the wait
// failed.
enum class WaitResult { READY, TIMED_OUT, GONE };

// Waits for POLLIN or POLLOUT. Readable and hung up together is READY: what is queued can be
// drained.
WaitResult wait_for_socket(int fd, short event, int timeout_seconds);

// The address of the local end, or of the peer; both fields empty when it cannot be told.
SockInfo GetSockInfo(int fd, bool local);
std::string GetSockIP(int fd, bool local);

// The name behind an address, or `ip` itself when there is none. Blocks as long as the resolver
// does.
std::string GetIPHostname(const std::string& ip);
