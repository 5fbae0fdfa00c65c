#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

// Ports of 127.0.0.1 at which nobody listens. Below the range from which the system takes the ports
// of outgoing connections, and in steps by process, so that tests that run at once do not meet.
class Ports {
public:
    // The first of `count` neighbours.
    static unsigned short Free(int count = 1) {
        static int next = FIRST + getpid() * 16 % (END - FIRST);
        for (;; ++next) {
            if (next + count >= END) next = FIRST;
            int good = 0;
            while (good < count && is_free(next + good))
                ++good;
            if (good < count) continue;
            const int found = next;
            next += count;
            return static_cast<unsigned short>(found);
        }
    }

private:
    static constexpr int FIRST = 10000;
    static constexpr int END = 32000;

    static bool is_free(int port) {
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<unsigned short>(port));
        const int bound = bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
        close(fd);
        return bound == 0;
    }
};
