#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

class Mount;
class Receiver;

// One listener of the listener table. The figures and texts are those of the moment at which the
// row was made: they change under way, and an order that changes while rows are sorted is none.
struct ListenerRow {
    ListenerRow(const std::shared_ptr<Mount>& its_mount, std::shared_ptr<Receiver> its_receiver);

    std::shared_ptr<Mount> mount;
    std::shared_ptr<Receiver> receiver; // may be gone from the mount by now
    std::string address;                // of the mount
    std::string hostname;
    std::string user;
    std::string user_agent;
    time_t connect_time = 0;
    std::uint64_t bytes_sent = 0;
    std::uint64_t bitrate = 0; // over all that is remembered
    std::uint64_t recent_bitrate = 0;
};

using ListenerRows = std::vector<ListenerRow>;

// Ascending; texts compare byte by byte.
template <auto FIELD> struct sort_listener_by {
    bool operator()(const ListenerRow& a, const ListenerRow& b) const {
        return a.*FIELD < b.*FIELD;
    }
};

ListenerRows listener_rows(const std::vector<std::shared_ptr<Mount>>& mounts);
