#pragma once

#include "media/OggPage.h"

#include <map>
#include <string>
#include <vector>

// The comments of a logical stream, and what was wrong with them in the words of the log.
struct OggComments {
    std::map<std::string, std::string> fields; // keys in capitals, except "Vendor"
    std::string fault;                         // empty when all could be read
};

// Reads a comment header (Vorbis I, section 5; RFC 7845, section 5.2) from the segments of its
// packet, little-endian:
//   7 bytes for Vorbis, 8 for Opus: the name of the header
//   4, n   length and text of the vendor
//   4      count of comments
//   4, n   for each of them: length and text, "KEY=value"
// Of damaged comments, those in front of the damage are given.
OggComments parse_ogg_comments(const std::vector<std::vector<char>>& segments, CodecType codec);
