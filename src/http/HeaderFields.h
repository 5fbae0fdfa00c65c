#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

// Order of field names: the case of ASCII letters does not count.
struct ci_less {
    using is_transparent = void;
    bool operator()(std::string_view left, std::string_view right) const;
};

// The header fields of one head, in one piece of memory, since every connection keeps them for as
// long as it lasts. Names come out in ci_less order. A plain value.
class HeaderFields {
public:
    using Map = std::map<std::string, std::string, ci_less>;

    HeaderFields() = default;
    explicit HeaderFields(const Map& fields);

    // The value, or the empty text.
    std::string Get(std::string_view name) const;
    // Replaces the value of a field, or adds the field. Control bytes of the value are cut.
    void Set(const std::string& name, const std::string& value);
    std::vector<std::string> Keys() const;
    Map All() const;

private:
    std::string text; // "name:value\n" each; a name has no colon, and neither has a line feed
};

// A value as it may stand in a header line: without control bytes, so it cannot begin another line.
std::string without_control_bytes(std::string value);
