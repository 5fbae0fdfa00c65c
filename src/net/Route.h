#pragma once

#include <memory>
#include <netdb.h>
#include <optional>
#include <string>
#include <vector>

struct AddressDeleter {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using AddressList = std::unique_ptr<addrinfo, AddressDeleter>;

// Local addresses to call from, by family. A plain value.
struct LocalAddresses {
    std::vector<std::string> ipv6 = {};
    std::vector<std::string> ipv4 = {};

    // `bind_ip` alone, or without it those of the setting ServIP.
    static LocalAddresses For(const std::string& bind_ip);

    // The family to look for at the far end.
    int Family() const;
    // Those from which an address of this family can be called.
    const std::vector<std::string>& OfFamily(int wanted) const;
};

// An outgoing connection that is wanted, in names.
struct RouteQuery {
    std::string host = {};
    unsigned short port = 0;
    LocalAddresses from = {};
    unsigned short from_port = 0;
};

// The same in addresses. The first of a list counts.
struct Route {
    AddressList target = {}; // null when the host has none
    AddressList source = {}; // null for anywhere
    int error = 0;           // errno, without a target
};

// Asks the resolver, which blocks as long as it likes. RouteLookup does not.
Route find_route(const RouteQuery& query);
// The same as far as it can be told at once, because everything is given in numbers.
std::optional<Route> find_numeric_route(const RouteQuery& query);
