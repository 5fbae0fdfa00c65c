#include "net/Route.h"

#include "config/Config.h"
#include "core/OSTools.h"

#include <cerrno>
#include <sys/socket.h>

namespace {

void add(LocalAddresses& addresses, const std::string& address) {
    const bool has_colon = address.find(':') != std::string::npos;
    (has_colon ? addresses.ipv6 : addresses.ipv4).push_back(address);
}

// The addresses of a host within a family; none, with the error, when it has none.
AddressList resolve(const std::string& host, unsigned short port, int family, int flags,
                    int* error = nullptr) {
    addrinfo hints{};
    hints.ai_family = family;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags;
    addrinfo* found = nullptr;
    const std::string service = std::to_string(port);
    if (getaddrinfo(host.c_str(), service.c_str(), &hints, &found) == 0) return AddressList(found);
    if (error != nullptr) *error = errno;
    return {};
}

} // namespace

LocalAddresses LocalAddresses::For(const std::string& bind_ip) {
    LocalAddresses addresses;
    if (!bind_ip.empty()) {
        add(addresses, bind_ip);
        return addresses;
    }
    for (const auto& setting : Config::GetAll("ServIP")) {
        std::string address = setting->GetValue("");
        tolower(address);
        if (!address.empty() && address != "any") add(addresses, address);
    }
    return addresses;
}

int LocalAddresses::Family() const {
    if (ipv6.empty() == ipv4.empty()) return AF_UNSPEC;
    return ipv6.empty() ? AF_INET : AF_INET6;
}

const std::vector<std::string>& LocalAddresses::OfFamily(int wanted) const {
    return wanted == AF_INET6 ? ipv6 : ipv4;
}

// Calls from the first candidate that is an address, and from anywhere when none is.
Route find_route(const RouteQuery& query) {
    Route route;
    route.target = resolve(query.host, query.port, query.from.Family(), 0, &route.error);
    if (!route.target) return route;
    const int family = route.target->ai_family;
    for (const std::string& candidate : query.from.OfFamily(family)) {
        route.source = resolve(candidate, query.from_port, family, 0);
        if (route.source) break;
    }
    return route;
}

std::optional<Route> find_numeric_route(const RouteQuery& query) {
    Route route;
    route.target = resolve(query.host, query.port, query.from.Family(), AI_NUMERICHOST);
    if (!route.target) return {};
    const int family = route.target->ai_family;
    const std::vector<std::string>& candidates = query.from.OfFamily(family);
    if (candidates.empty()) return route;
    route.source = resolve(candidates.front(), query.from_port, family, AI_NUMERICHOST);
    if (!route.source) return {};
    return route;
}
