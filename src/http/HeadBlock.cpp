#include "http/HeadBlock.h"

#include "core/OSTools.h"

#include <algorithm>

namespace {

std::size_t end_behind(std::string_view text, std::string_view mark) {
    const std::size_t at = text.find(mark);
    return at == std::string_view::npos ? at : at + mark.size();
}

std::string trimmed(std::string_view text) {
    std::string copy(text);
    return trim(copy);
}

bool continues(std::string_view line) { return line.front() == ' ' || line.front() == '\t'; }

} // namespace

std::size_t head_end(std::string_view before, std::string_view next) {
    constexpr std::size_t LONGEST_PART = 3; // of an end whose last byte is still missing
    const std::size_t tail = std::min(before.size(), LONGEST_PART);
    std::string joined(before.substr(before.size() - tail));
    joined += next;
    const std::size_t end = std::min(end_behind(joined, "\r\n\r\n"), end_behind(joined, "\n\n"));
    return end == std::string_view::npos ? HEAD_GOES_ON : end - tail;
}

HeaderFields::Map parse_fields(std::string_view lines) {
    HeaderFields::Map fields;
    auto current = fields.end();
    while (!lines.empty()) {
        const std::string_view line = take_line(lines);
        if (line.empty() || line == "\r") break;
        if (continues(line) && current != fields.end()) {
            current->second += " " + trimmed(line);
            continue;
        }
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos) continue;
        std::string name(line.substr(0, colon));
        current = fields.try_emplace(rtrim(name)).first;
        current->second += trimmed(line.substr(colon + 1));
    }
    return fields;
}

std::string_view take_line(std::string_view& text) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return line;
}
