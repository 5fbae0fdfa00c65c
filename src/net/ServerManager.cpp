#include "net/ServerManager.h"

#include "config/Config.h"
#include "net/Server.h"

#include <algorithm>

namespace {

constexpr unsigned short DEFAULT_PORT = 8000;

// Adds every PortBase, and gives the largest.
unsigned short add_client_ports(Server& server) {
    const auto settings = Config::GetAll("PortBase");
    if (settings.empty()) {
        server.AddPort(DEFAULT_PORT);
        return DEFAULT_PORT;
    }
    unsigned short largest = 0;
    for (const auto& setting : settings) {
        const auto port = static_cast<unsigned short>(setting->GetValue(int{DEFAULT_PORT}));
        server.AddPort(port);
        largest = std::max(largest, port);
    }
    return largest;
}

// The port that ICY encoders take for the second one of a pair: the one next to the largest, unless
// another is set. What was chosen here is written back for the pages that show it.
void add_source_port(Server& server, unsigned short largest) {
    const int chosen = Config::Get("SCSourcePort", false)->GetValue(0);
    if (chosen != 0 && chosen != largest) {
        server.AddPort(static_cast<unsigned short>(chosen));
        return;
    }
    const auto next = static_cast<unsigned short>(largest + 1);
    Config::Get("SCSourcePort", true)->SetValue(int{next});
    server.AddPort(next);
}

} // namespace

std::shared_ptr<Server> ServerManager::server_instance;

void ServerManager::Init() {}

void ServerManager::Start() {
    server_instance =
        std::make_shared<Server>(Config::Get("ServProtocolFamily", false)->GetValue("UNSPEC"),
                                 Config::Get("ServIP", false)->GetValue("ANY"));
    const unsigned short largest = add_client_ports(*server_instance);
    add_source_port(*server_instance, largest);
    server_instance->Start();
}

void ServerManager::SignalStop() { server_instance->SignalStop(); }

void ServerManager::WaitForStop() { server_instance->WaitForStop(); }
