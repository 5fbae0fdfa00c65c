#pragma once

#include <string>

// One end of a connection as texts: a numeric address and a decimal port. Both are empty while
// unknown.
struct SockInfo {
    std::string ip = {};
    std::string port = {};
};
