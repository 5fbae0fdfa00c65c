#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

// What a stream says about itself from some packet on. A record is filled by the thread that makes
// it and never changes once it is shared, but for the counter. Held by shared_ptr.
struct METADATA {
    std::string title = {}; // the display title (StreamTitle)
    std::string song = {};
    std::string artist = {};
    std::string url = {}; // StreamUrl
    std::string extra_text = {};
    std::string codec = {};                           // "Vorbis", "Opus" or "Theora" on Ogg streams
    std::map<std::string, std::string> extended = {}; // every other key, in the case it came in
    std::atomic<std::uint64_t> tune_ins{0};           // who joined while it was current
    std::vector<char> raw = {};                       // as received
};

// Whether two records count as one: the six texts are equal, `extended` and `raw` of one size.
// Kept: what the map and the bytes hold is not compared. A stream that repeats its record with
// other tags must not give listeners and the song history a new track each time.
bool same_metadata(const METADATA& a, const METADATA& b);
