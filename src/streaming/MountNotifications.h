#pragma once

#include <string>

// Where a mount reports its sources and listeners, and how the answer to a listener is read.
struct MountNotifications {
    std::string mount_add = {};
    std::string mount_remove = {};
    std::string listener_add = {};
    std::string listener_remove = {};
    std::string user = {};
    std::string pass = {};
    std::string auth_header = {};
    std::string timelimit_header = {};
    std::string auth_realm = {};
};
