#include "http/AcceptList.h"

#include "core/OSTools.h"

#include <charconv>
#include <vector>

namespace {

// The number behind "q="; 1 for what is not written as 0, 1, 0.x or 1.x.
double weight(const std::string& parameter) {
    const std::size_t at = parameter.find("q=");
    if (at == std::string::npos) return 1.0;
    const std::string text = parameter.substr(at + 2);
    if (text.empty() || (text[0] != '0' && text[0] != '1')) return 1.0;
    if (text.size() > 1 && text[1] != '.') return 1.0;
    double number = 1.0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

bool range_accepts(const AcceptList& list, const std::string& main_type) {
    for (auto entry = list.lower_bound(main_type);
         entry != list.end() && entry->first.starts_with(main_type); ++entry)
        if (entry->first.find('*') != std::string::npos && entry->second > 0) return true;
    return false;
}

} // namespace

AcceptList parse_accept(const std::string& value) {
    AcceptList list;
    for (const std::string& item : split(value, ',')) {
        if (item.find(';') == std::string::npos) {
            list[item] = 1.0;
            continue;
        }
        const std::vector<std::string> parts = split(item, ';');
        if (parts.size() >= 2) list[parts[0]] = weight(parts[1]);
    }
    return list;
}

bool accepts(const AcceptList& list, const std::string& media_type) {
    if (list.empty()) return true;
    auto entry = list.find(media_type);
    if (entry == list.end()) entry = list.find("*/*");
    if (entry != list.end() && entry->second > 0) return true;
    return range_accepts(list, media_type.substr(0, media_type.find('/')));
}
