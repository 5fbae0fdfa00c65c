#pragma once

#include <cstdint>
#include <ctime>
#include <string>

// One directory that a stream is to be listed on, for the panel.
struct PublicationDetails {
    std::string address = {}; // as it was configured
    bool listed = false;
    time_t last_touch = 0;       // when the last exchange ended; 0 for never
    std::int32_t interval = 300; // seconds between touches
    std::string status = {};     // in the directory client's words
};
