#pragma once

#include "http/HeaderFields.h"
#include "net/url.h"

#include <string>

// A request of this server's own, on the wire:
//   method SP path ["?" query] SP protocol ["/" version]   (no version for ICY)
//   Host, with the port unless it is 80
//   Content-Length and Content-Type, with a body
//   the fields that the caller has set
//   Authorization, with a user or a password
//   an empty line, and the body
struct OutboundText {
    std::string method = {};
    url target = {};
    std::string protocol = {}; // its word
    float version = 1.0F;
    HeaderFields::Map fields = {};
    std::string form = {}; // an encoded form; empty for no body

    std::string Wire() const;
};
