#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// One uploaded file.
struct TransmittedObject {
    std::string name = {}; // of the form field
    std::string filename = {};
    std::string type = {}; // media type, as the client told it
    std::vector<char> data = {};
};

// What a multipart/form-data body holds.
struct MultipartForm {
    std::map<std::string, std::string> fields = {};
    std::vector<TransmittedObject> files = {};
};

// The boundary text of a Content-Type, whose second piece must name it; empty when it does not.
// Quotes around it are part of it.
std::string multipart_boundary(const std::string& content_type);

// A multipart/form-data body (RFC 7578, RFC 2046 section 5.1):
//   "--" boundary CRLF, header lines, an empty line, data, CRLF, ... "--" boundary "--"
// A part with a file name and a type is a file; any other with a name is a field, unless it has a
// type that is not text/plain. Nothing when the delimiter is nowhere. What follows the first
// MOST_FORM_PARTS is dropped, for anybody may send a body.
constexpr std::size_t MOST_FORM_PARTS = 4096;
std::optional<MultipartForm> parse_multipart(std::string_view body, const std::string& boundary);
