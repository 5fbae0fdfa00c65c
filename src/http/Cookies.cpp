#include "http/Cookies.h"

#include "core/OSTools.h"

#include <vector>

std::map<std::string, std::string> parse_cookies(const std::string& value) {
    std::map<std::string, std::string> cookies;
    for (const std::string& pair : split(value, ';')) {
        std::vector<std::string> parts = split(pair, '=');
        std::erase(parts, std::string());
        if (parts.size() == 2) cookies[trim(parts[0])] = trim(parts[1]);
    }
    return cookies;
}
