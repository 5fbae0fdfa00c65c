#pragma once

#include <memory>

class Server;

// Keeps the one Server and gives it its ports, from the settings ServProtocolFamily, ServIP,
// PortBase and SCSourcePort. The initial thread only.
class ServerManager {
public:
    static void Init();
    // Writes SCSourcePort back where it was missing or equal to the largest PortBase.
    static void Start();
    static void SignalStop();
    static void WaitForStop();

private:
    static std::shared_ptr<Server> server_instance;
};
