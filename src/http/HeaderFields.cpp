#include "http/HeaderFields.h"

#include <algorithm>

namespace {

unsigned char lower(char c) {
    return static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
}

bool same_name(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char l, char r) { return lower(l) == lower(r); });
}

struct Field {
    std::string_view name = {};
    std::string_view value = {};
};

// Cuts the first field off the text, which is not empty.
Field take_field(std::string_view& text) {
    const std::size_t end = text.find('\n');
    const std::size_t colon = text.find(':');
    const Field field = {text.substr(0, colon), text.substr(colon + 1, end - colon - 1)};
    text.remove_prefix(end + 1);
    return field;
}

} // namespace

bool ci_less::operator()(std::string_view left, std::string_view right) const {
    return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(),
                                        [](char l, char r) { return lower(l) < lower(r); });
}

HeaderFields::HeaderFields(const Map& fields) {
    std::size_t size = 0;
    for (const auto& [name, value] : fields)
        size += name.size() + value.size() + 2;
    text.reserve(size);
    for (const auto& [name, value] : fields) {
        text += name;
        text += ':';
        text += value;
        text += '\n';
    }
}

std::string HeaderFields::Get(std::string_view name) const {
    for (std::string_view rest = text; !rest.empty();) {
        const Field field = take_field(rest);
        if (same_name(field.name, name)) return std::string(field.value);
    }
    return {};
}

void HeaderFields::Set(const std::string& name, const std::string& value) {
    Map fields = All();
    fields[name] = without_control_bytes(value);
    *this = HeaderFields(fields);
}

std::vector<std::string> HeaderFields::Keys() const {
    std::vector<std::string> keys;
    for (std::string_view rest = text; !rest.empty();)
        keys.emplace_back(take_field(rest).name);
    return keys;
}

HeaderFields::Map HeaderFields::All() const {
    Map fields;
    for (std::string_view rest = text; !rest.empty();) {
        const Field field = take_field(rest);
        fields.emplace(field.name, field.value);
    }
    return fields;
}

std::string without_control_bytes(std::string value) {
    std::erase_if(value, [](char c) { return (c >= 0 && c < ' ') || c == '\x7f'; });
    return value;
}
