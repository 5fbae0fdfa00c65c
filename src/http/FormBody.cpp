#include "http/FormBody.h"

#include "core/OSTools.h"

#include <cstddef>

namespace {

constexpr std::size_t SMALLEST = 2; // bytes of a body with a field in it

void add_pair(std::string_view piece, std::map<std::string, std::string>& fields) {
    const std::size_t equals = piece.find('=');
    if (equals == std::string_view::npos) return;
    std::string_view value = piece.substr(equals + 1);
    if (value.ends_with('=')) value.remove_suffix(1); // a last empty part does not count
    if (value.find('=') != std::string_view::npos) return;
    fields[UrlDecode(std::string(piece.substr(0, equals)))] = UrlDecode(std::string(value));
}

} // namespace

std::map<std::string, std::string> parse_form(std::string_view body) {
    std::map<std::string, std::string> fields;
    if (body.size() < SMALLEST) return fields;
    for (std::size_t i = 0; i < MOST_FORM_PIECES && !body.empty(); ++i) {
        const std::size_t end = body.find('&');
        add_pair(body.substr(0, end), fields);
        body.remove_prefix(end == std::string_view::npos ? body.size() : end + 1);
    }
    return fields;
}
