#include "net/SocketServer.h"

#include "config/Config.h"
#include "core/Log.h"
#include "core/OSTools.h"
#include "net/ArrivalWatch.h"
#include "net/Socket.h"
#include "net/SocketTools.h"

#include <cassert>
#include <cerrno>
#include <netdb.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::size_t MAX_SOCKETS = 1024;
constexpr int BACKLOG = 4069;
constexpr timespec PASS{.tv_sec = 5, .tv_nsec = 0};
constexpr int PAUSE_MS = 1000;

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

// The addresses to listen at; a single empty one stands for all of them.
std::vector<std::string> listening_addresses() {
    std::vector<std::string> addresses;
    for (const auto& setting : Config::GetAll("ServIP")) {
        std::string address = setting->GetValue("");
        tolower(address);
        if (!address.empty() && address != "any") addresses.push_back(address);
    }
    if (addresses.empty()) addresses.emplace_back();
    return addresses;
}

// A numeric address only, so that no resolver delays the start. None when it is no address.
AddressList passive_addresses(const std::string& address, unsigned short port, int family) {
    addrinfo hints{};
    hints.ai_flags = AI_PASSIVE | AI_NUMERICHOST;
    hints.ai_family = family;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(address.empty() ? nullptr : address.c_str(),
                                  std::to_string(port).c_str(), &hints, &found);
    if (error != 0)
        LogWrite(2) << "Unable to get information about your machine's network capabilities ( "
                    << gai_strerror(error) << ")" << std::endl;
    return {error == 0 ? found : nullptr, freeaddrinfo};
}

// For what waits on this socket outside of the streams, which never wait.
void limit_blocking(int fd) {
    const timeval limit{.tv_sec = Config::Get("SocketTimeout", false)->GetValue(5), .tv_usec = 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

// A pass would otherwise meet the same connection and the same lack at once again.
bool needs_pause(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

} // namespace

SocketServer::SocketServer()
    : family(AF_UNSPEC), ip("ANY"), stop_event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

SocketServer::~SocketServer() {
    assert(!listen_thread.joinable());
    if (stop_event != -1) close(stop_event);
}

void SocketServer::AddPort(unsigned short port) { ports.push_back(port); }

void SocketServer::Start() {
    if (ports.empty()) {
        LogWrite(2) << "No Ports specified for this Server Instance, are you sure you added a port?"
                    << std::endl;
        return;
    }
    assert(!listen_thread.joinable());
    listen_thread = std::thread(&SocketServer::start_listen, this);
}

void SocketServer::SignalStop() {
    running = false;
    eventfd_write(stop_event, 1);
}

void SocketServer::WaitForStop() {
    SignalStop();
    if (listen_thread.joinable()) listen_thread.join();
}

void SocketServer::start_listen() {
    running = true;
    SetThreadName("SocketServer Listen");
    if (bind_all()) {
        initialized(static_cast<int>(bound.size()));
        if (accept_until_stopped()) deinitialized();
    }
    running = false;
}

// False when there is nothing to listen with. One bad port or address does not stop the others, but
// a text that is no address does.
bool SocketServer::bind_all() {
    for (const std::string& address : listening_addresses()) {
        for (const unsigned short port : ports) {
            const AddressList found = passive_addresses(address, port, family);
            if (!found) return false;
            bind_each(found.get(), port);
        }
    }
    if (!bound.empty()) return true;
    LogWrite(2) << "Error Initializing any client ports, unable to continue." << std::endl;
    return false;
}

void SocketServer::bind_each(const addrinfo* addresses, unsigned short port) {
    for (const addrinfo* address = addresses; address; address = address->ai_next) {
        if (bound.size() == MAX_SOCKETS) {
            LogWrite(2)
                << "You have more address than we can count!  No more sockets can be bound to."
                << std::endl;
            return;
        }
        if (address->ai_family != AF_INET && address->ai_family != AF_INET6) continue;
        const int fd = listening_socket(*address, port);
        if (fd == -1) continue;
        bound.push_back({.fd = fd, .events = POLLIN, .revents = 0});
        const SockInfo info = GetSockInfo(fd, true);
        socket_listen(info.ip, info.port);
    }
}

// Non-blocking, for a connection that has gone again must not make accept wait; -1 after a log
// line.
int SocketServer::listening_socket(const addrinfo& address, unsigned short port) {
    const int fd = socket(address.ai_family, address.ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC,
                          address.ai_protocol);
    if (fd == -1) {
        LogWrite(2) << "Error initializing one of your client ports." << std::endl;
        return -1;
    }
    const int on = 1;
    if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == -1)
        LogWrite(2) << "setsockopt SO_REUSEADDR failed" << std::endl;
    if (bind(fd, address.ai_addr, address.ai_addrlen) == -1) {
        // Kept: the descriptor stays open. It costs a number per port that is taken, once.
        LogWrite(2) << "Warning: Unable to bind to port " << port << std::endl;
        return -1;
    }
    if (listen(fd, BACKLOG) == -1) {
        LogWrite(2) << "Warning: Unabled to listen to port " << port << std::endl;
        closesocket(fd);
        return -1;
    }
    return fd;
}

// True after a stop, false when waiting itself has failed.
bool SocketServer::accept_until_stopped() {
    std::vector<pollfd> polled = bound;
    polled.push_back({.fd = ArrivalWatch::Descriptor(), .events = POLLIN, .revents = 0});
    polled.push_back({.fd = stop_event, .events = POLLIN, .revents = 0});
    while (running) {
        const int ready = ppoll(polled.data(), polled.size(), &PASS, nullptr);
        if (ready == -1 && errno == EINTR) continue;
        if (ready == -1) {
            LogWrite(2) << "Error: Select Socket Error, Quillwave must shutdown." << std::endl;
            return false;
        }
        if (polled.back().revents != 0) return true;
        accept_one_each(polled);
        if (polled[bound.size()].revents != 0) ArrivalWatch::Deliver();
    }
    return true;
}

// In the order in which they were bound, so that no port keeps another from its turn.
void SocketServer::accept_one_each(const std::vector<pollfd>& polled) {
    for (std::size_t i = 0; i < bound.size() && running; ++i)
        if (polled[i].revents != 0) accept_on(polled[i].fd);
}

void SocketServer::accept_on(int listening) {
    const int fd = accept4(listening, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd == -1) {
        if (errno != EAGAIN) accept_failed(errno);
        return;
    }
    limit_blocking(fd);
    socket_event(std::make_shared<Socket>(fd));
}

void SocketServer::accept_failed(int error) const {
    LogWrite(2) << "WARNING: Unable to accept new client. Error: " << socket_strerror(error)
                << std::endl;
    if (error == EMFILE)
        LogWrite(2) << "ERROR: Quillwave cannot accept anymore clients due to system limits. "
                       "Retrying in one second."
                    << std::endl;
    if (needs_pause(error)) pause_unless_stopped();
}

// One second; a stop ends it at once.
void SocketServer::pause_unless_stopped() const {
    pollfd stop{.fd = stop_event, .events = POLLIN, .revents = 0};
    poll(&stop, 1, PAUSE_MS);
}
