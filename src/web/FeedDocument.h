#pragma once

#include "streaming/MountDescription.h"
#include "streaming/MountStatistics.h"

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

// What a status document tells, taken at one moment. The feeds are written from it alone.
struct FeedDocument {
    struct Peer {
        std::string uuid = {};
        std::string ip = {};
        std::string user = {};
        std::string user_agent = {};
        time_t connect_time = 0;
        time_t last_service = 0; // when it was last worked on
        std::uint64_t bytes_sent = 0;
    };
    struct Source {
        MountDescription description = {};
        MountStatistics figures = {};
        std::vector<Peer> peers = {};
    };

    bool for_managers = false; // with the figures that are not public
    bool in_full = false;      // with songs and listeners
    std::uint64_t total_nodes = 0;
    std::uint64_t total_unique_nodes = 0;
    std::uint64_t total_peak_nodes = 0;
    time_t startup_time = 0;
    time_t system_time = 0;
    std::size_t active_sources = 0; // also those that are not among the sources
    std::vector<Source> sources = {};
};

// The same fields in the same order. JSON leaves out what is empty; XML gives it its element.
std::string json_feed(const FeedDocument& document);
std::string xml_feed(const FeedDocument& document);
