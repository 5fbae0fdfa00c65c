#pragma once

#include <atomic>
#include <memory>
#include <poll.h>
#include <string>
#include <thread>
#include <vector>

class Socket;
struct addrinfo;

// Binds the ports at the addresses of the setting ServIP and accepts connections, on a thread of
// its own, "SocketServer Listen", which also delivers what ArrivalWatch has noticed. A subclass
// hears of it through the four private operations, on that thread. One start and one stop: not to
// be restarted, and stopped before it is destroyed.
class SocketServer {
public:
    SocketServer();
    virtual ~SocketServer();
    SocketServer(const SocketServer&) = delete;
    SocketServer& operator=(const SocketServer&) = delete;

    // Only before Start. Port 0 lets the system choose.
    void AddPort(unsigned short port);
    void Start();
    // Any thread. True from the start of the thread until it leaves or is told to stop.
    bool IsRunning() const { return running; }
    // Any thread. The listening thread leaves at once; no connection enters afterwards.
    void SignalStop();
    void WaitForStop();

protected:
    int family;     // AF_UNSPEC, AF_INET or AF_INET6; set before Start
    std::string ip; // a label only: the addresses come from the settings

private:
    virtual void socket_listen(const std::string& bound_ip,
                               const std::string& port) = 0;       // one socket was bound
    virtual void initialized(int count) = 0;                       // binding is over
    virtual void socket_event(std::shared_ptr<Socket> socket) = 0; // a connection came in
    virtual void deinitialized() = 0;                              // the thread leaves

    void start_listen();
    bool bind_all();
    void bind_each(const addrinfo* addresses, unsigned short port);
    static int listening_socket(const addrinfo& address, unsigned short port);
    bool accept_until_stopped();
    void accept_one_each(const std::vector<pollfd>& polled);
    void accept_on(int listening);
    void accept_failed(int error) const;
    void pause_unless_stopped() const;

    std::vector<unsigned short> ports;
    std::thread listen_thread;
    std::atomic<bool> running{false};
    int stop_event;            // an eventfd, readable from the moment a stop is asked for
    std::vector<pollfd> bound; // the listening thread's own, in the order of binding
};
