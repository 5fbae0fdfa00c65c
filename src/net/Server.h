#pragma once

#include "net/SocketServer.h"

#include <memory>
#include <string>

// The listener of the radio: starts the thread pool once a socket is bound, and makes a Receiver of
// every connection. Owned by ServerManager.
class Server : public SocketServer {
public:
    // `family` is "inet" or "inet6" in any case, anything else leaves it to the resolver. An empty
    // `ip` is "ANY".
    Server(const std::string& family, const std::string& ip);

private:
    void socket_listen(const std::string& bound_ip, const std::string& port) override;
    void initialized(int count) override;
    void socket_event(std::shared_ptr<Socket> socket) override;
    void deinitialized() override;
};
