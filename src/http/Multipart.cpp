#include "http/Multipart.h"

#include "core/OSTools.h"
#include "http/HeadBlock.h"

#include <utility>

namespace {

// RFC 2046 allows no longer boundaries, and they would make the search slow.
constexpr std::size_t LONGEST_BOUNDARY = 70;
// Longer lines are no header lines of any client's.
constexpr std::size_t LONGEST_LINE = 8192;

struct Part {
    std::string name = {};
    std::string filename = {};
    std::string type = {};
};

void read_disposition(const std::string& value, Part& part) {
    for (std::string piece : split(value, ';')) {
        std::vector<std::string> pair = split(trim(piece), '=');
        if (pair.size() != 2) continue;
        tolower(pair[0]);
        if (pair[0] == "name") part.name = trim(pair[1], "\" ");
        if (pair[0] == "filename") part.filename = trim(pair[1], "\" ");
    }
}

void read_part_line(std::string_view line, Part& part) {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos || line.size() > LONGEST_LINE) return;
    std::string key(line.substr(0, colon));
    std::string value(line.substr(colon + 1));
    trim(tolower(key));
    trim(value);
    if (key == "content-disposition") read_disposition(value, part);
    if (key == "content-type") part.type = value;
}

bool is_empty_line(std::string_view line) { return line.empty() || line == "\r"; }

// Reads the header lines off the front of `text`, with the empty line that ends them.
Part take_part_head(std::string_view& text) {
    Part part;
    take_line(text); // the rest of the delimiter's own line
    while (!text.empty()) {
        const std::string_view line = take_line(text);
        if (is_empty_line(line)) break;
        read_part_line(line, part);
    }
    return part;
}

std::string_view without_line_end(std::string_view text) {
    if (text.ends_with('\n')) text.remove_suffix(1);
    if (text.ends_with('\r')) text.remove_suffix(1);
    return text;
}

// `text` is what stands between two delimiters.
void add_part(std::string_view text, MultipartForm& form) {
    std::string_view data = without_line_end(text);
    Part part = take_part_head(data);
    if (!part.filename.empty() && !part.type.empty()) {
        form.files.push_back({.name = std::move(part.name),
                              .filename = std::move(part.filename),
                              .type = std::move(part.type),
                              .data = std::vector<char>(data.begin(), data.end())});
        return;
    }
    const bool is_text = part.type.empty() || part.type.find("text/plain") != std::string::npos;
    if (!part.name.empty() && is_text) form.fields[part.name] = std::string(data);
}

} // namespace

std::string multipart_boundary(const std::string& content_type) {
    const std::vector<std::string> pieces = split(content_type, ';');
    if (pieces.size() < 2) return {};
    const std::size_t equals = pieces[1].find('=');
    if (equals == std::string::npos) return {};
    std::string key = pieces[1].substr(0, equals);
    std::string text = pieces[1].substr(equals + 1);
    if (trim(tolower(key)) != "boundary" || trim(text).size() > LONGEST_BOUNDARY) return {};
    return text;
}

std::optional<MultipartForm> parse_multipart(std::string_view body, const std::string& boundary) {
    const std::string delimiter = "--" + boundary;
    std::size_t at = body.find(delimiter);
    if (at == std::string_view::npos) return {};
    MultipartForm form;
    for (std::size_t i = 0; i < MOST_FORM_PARTS && at != std::string_view::npos; ++i) {
        body.remove_prefix(at + delimiter.size());
        if (body.starts_with("--")) break;
        at = body.find(delimiter);
        if (at != std::string_view::npos) add_part(body.substr(0, at), form);
    }
    return form;
}
