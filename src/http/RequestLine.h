#pragma once

#include "http/HttpWords.h"

#include <map>
#include <string>

// The first line of a request (RFC 9112 section 3, and what Icecast and SHOUTcast sources send):
//   METHOD target PROTOCOL[/version]      the protocol word is HTTP, ICE or ICY
//   password                              no space at all: an ICY source's login
struct RequestLine {
    HttpWords::RequestMethod method = HttpWords::METHOD_UNKNOWN;
    std::string path = {};
    std::string query_string = {};                 // from the "?" on, as received
    std::map<std::string, std::string> query = {}; // decoded; names without "=" are dropped
    HttpWords::RequestProtocol protocol = HttpWords::PROTOCOL_UNKNOWN;
    float version = 1.0F;
    std::string bare_line = {}; // the only word of a line that had a space
};

// `line` ends before its line feed and may end with a carriage return. A line of other than three
// words has METHOD_UNKNOWN, or METHOD_ICY_LOGIN when it has no space.
RequestLine parse_request_line(const std::string& line);

// "HTTP/1.1", in any case. A word that is not known gives PROTOCOL_UNKNOWN, a missing version 1.0,
// and a version that is no number 0.
struct ProtocolWord {
    HttpWords::RequestProtocol protocol = HttpWords::PROTOCOL_UNKNOWN;
    float version = 1.0F;
};
ProtocolWord parse_protocol(const std::string& word);

// The first line of a reply: PROTOCOL/version status reason. Not `found` when there are fewer than
// three words.
struct StatusLine {
    bool found = false;
    ProtocolWord protocol = {};
    unsigned short status = 0;
    std::string message = {};
};
StatusLine parse_status_line(std::string line);
