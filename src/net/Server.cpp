#include "net/Server.h"

#include "core/Log.h"
#include "core/OSTools.h"
#include "core/ThreadPool.h"
#include "net/Socket.h"
#include "streaming/Receiver.h"
#include "streaming/ReceiverList.h"

#include <sys/socket.h>
#include <utility>

namespace {

int family_of(std::string word) {
    tolower(word);
    if (word == "inet") return AF_INET;
    return word == "inet6" ? AF_INET6 : AF_UNSPEC;
}

} // namespace

Server::Server(const std::string& family_word, const std::string& label) {
    family = family_of(family_word);
    if (!label.empty()) ip = label;
}

void Server::socket_listen(const std::string& bound_ip, const std::string& port) {
    LogWrite(2) << "Listening to " << bound_ip << ":" << port << " for incoming connections..."
                << std::endl;
}

void Server::initialized(int count) {
    LogWrite(2) << "Server Bound " << count << " sockets" << std::endl;
    ThreadPool::Start();
}

void Server::socket_event(std::shared_ptr<Socket> socket) {
    ReceiverList::Add(std::make_shared<Receiver>(std::move(socket)));
}

void Server::deinitialized() { LogWrite(2) << "Server Thread Shutting Down" << std::endl; }
