#include "net/ServerManager.h"

#include "config/Config.h"
#include "core/ThreadPool.h"
#include "support/LogLines.h"
#include "support/Ports.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

std::string listening_line(int port) {
    return "Listening to 127.0.0.1:" + std::to_string(port) + " for incoming connections...";
}

void add_port_base(int port) {
    const auto setting = std::make_shared<ConfigNode>("PortBase", "");
    setting->SetValue(port);
    Config::GetRoot()->AddChild(setting);
}

int source_port() { return Config::Get("SCSourcePort", false)->GetValue(-1); }

// Starts and stops the listener; what it logged meanwhile.
std::vector<std::string> lines_of_a_run() {
    LogLines log;
    Config::Get("ServIP", true)->SetValue("127.0.0.1");
    ServerManager::Init();
    ServerManager::Start();
    log.Wait("Starting thread pool of ");
    ServerManager::SignalStop();
    ServerManager::WaitForStop();
    ThreadPool::SignalStop();
    ThreadPool::WaitForStop();
    return log.All();
}

bool has_line(const std::vector<std::string>& lines, const std::string& wanted) {
    for (const std::string& line : lines)
        if (line == wanted) return true;
    return false;
}

TEST(ServerManager, SourcePortIsTheOneNextToTheBaseAndIsWrittenBack) {
    const int port = Ports::Free(2);
    add_port_base(port);
    const auto lines = lines_of_a_run();
    EXPECT_TRUE(has_line(lines, listening_line(port)));
    EXPECT_TRUE(has_line(lines, listening_line(port + 1)));
    EXPECT_TRUE(has_line(lines, "Server Bound 2 sockets"));
    EXPECT_TRUE(has_line(lines, "Server Thread Shutting Down"));
    EXPECT_EQ(source_port(), port + 1);
}

TEST(ServerManager, SourcePortEqualToTheLargestBaseMovesOn) {
    const int port = Ports::Free(5);
    add_port_base(port + 3);
    add_port_base(port);
    Config::Get("SCSourcePort", true)->SetValue(port + 3);
    const auto lines = lines_of_a_run();
    EXPECT_TRUE(has_line(lines, listening_line(port)));
    EXPECT_TRUE(has_line(lines, listening_line(port + 3)));
    EXPECT_TRUE(has_line(lines, listening_line(port + 4)));
    EXPECT_EQ(source_port(), port + 4);
}

TEST(ServerManager, SourcePortOfItsOwnIsBoundAndKept) {
    const int port = Ports::Free(3);
    add_port_base(port + 2);
    Config::Get("SCSourcePort", true)->SetValue(port);
    const auto lines = lines_of_a_run();
    EXPECT_TRUE(has_line(lines, listening_line(port)));
    EXPECT_TRUE(has_line(lines, listening_line(port + 2)));
    EXPECT_FALSE(has_line(lines, listening_line(port + 3)));
    EXPECT_EQ(source_port(), port);
}

TEST(ServerManager, SourcePortAfterTheLastPortWrapsToZero) {
    add_port_base(65535);
    lines_of_a_run();
    EXPECT_EQ(source_port(), 0);
}

TEST(ServerManager, WithoutAPortBaseTheyAre8000And8001) {
    const auto lines = lines_of_a_run();
    EXPECT_TRUE(has_line(lines, listening_line(8000)) ||
                has_line(lines, "Warning: Unable to bind to port 8000"));
    EXPECT_EQ(source_port(), 8001);
}

} // namespace
