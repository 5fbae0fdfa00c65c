#include "net/ArrivalWatch.h"

#include "net/Socket.h"

#include <array>
#include <cerrno>
#include <sys/epoll.h>
#include <utility>

namespace {

constexpr std::size_t EVENTS_PER_DELIVERY = 64;

// One shot, so that a socket whose bytes wait does not report again and again. The descriptor stays
// with the set until it is closed.
bool arm(int fd) {
    epoll_event event{.events = EPOLLIN | EPOLLRDHUP | EPOLLONESHOT, .data = {.fd = fd}};
    const int set = ArrivalWatch::Descriptor();
    if (epoll_ctl(set, EPOLL_CTL_ADD, fd, &event) == 0) return true;
    return errno == EEXIST && epoll_ctl(set, EPOLL_CTL_MOD, fd, &event) == 0;
}

} // namespace

spinlock ArrivalWatch::lock;
std::vector<std::weak_ptr<ArrivalListener>> ArrivalWatch::listeners;

int ArrivalWatch::Descriptor() {
    static const int set = epoll_create1(EPOLL_CLOEXEC);
    return set;
}

// The listener first: what is there already may be delivered before epoll_ctl returns.
bool ArrivalWatch::Watch(const Socket& socket, std::weak_ptr<ArrivalListener> listener) {
    const int fd = socket.Descriptor();
    if (fd == -1) return false;
    {
        spin_guard guard(lock);
        if (listeners.size() <= static_cast<std::size_t>(fd))
            listeners.resize(static_cast<std::size_t>(fd) + 1);
        listeners[static_cast<std::size_t>(fd)].swap(listener);
    }
    if (arm(fd)) return true;
    taken(fd);
    return false;
}

void ArrivalWatch::Forget(const Socket& socket) { taken(socket.Descriptor()); }

void ArrivalWatch::Deliver() {
    std::array<epoll_event, EVENTS_PER_DELIVERY> events;
    const int count = epoll_wait(Descriptor(), events.data(), static_cast<int>(events.size()), 0);
    for (int i = 0; i < count; ++i)
        if (const auto listener = taken(events[static_cast<std::size_t>(i)].data.fd).lock())
            listener->OnArrival();
}

// Who watches the descriptor, and does so no longer.
std::weak_ptr<ArrivalListener> ArrivalWatch::taken(int fd) {
    spin_guard guard(lock);
    if (fd < 0 || static_cast<std::size_t>(fd) >= listeners.size()) return {};
    return std::exchange(listeners[static_cast<std::size_t>(fd)], {});
}
