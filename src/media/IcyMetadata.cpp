#include "media/IcyMetadata.h"

#include "core/OSTools.h"

#include <algorithm>
#include <cstddef>

namespace {

std::string lower_cased(std::string text) { return tolower(text); }

void store_pair(const std::string& key, const std::string& value, METADATA& record) {
    const std::string known = lower_cased(key);
    if (known == "streamtitle")
        record.title = value;
    else if (known == "streamurl")
        record.url = value;
    else
        record.extended[key] = value;
}

// A value's first character counts as its opening quote, whatever it is.
std::string unquoted(const std::string& value) {
    return value.empty() ? value : UrlDecode(value.substr(1));
}

void read_pairs(std::string text, METADATA& record) {
    while (true) {
        const std::vector<std::string> parts = split(text, '=', 1);
        if (parts.size() != 2) return;
        const std::size_t end = parts[1].find("';");
        if (end == std::string::npos) return;
        store_pair(UrlDecode(parts[0]), unquoted(parts[1].substr(0, end)), record);
        text = parts[1].substr(end + 2);
    }
}

std::shared_ptr<METADATA> parse_pairs(const std::string& words) {
    auto record = std::make_shared<METADATA>();
    record->raw.assign(words.begin(), words.end());
    read_pairs(words, *record);
    return record;
}

// Kept: the length of the title is reckoned from where a second form of the word stands, which is
// -1 when it does not. What these encoders send behind the title goes with it or is cut.
std::shared_ptr<METADATA> parse_old_form(const std::string& words) {
    constexpr std::size_t WORD = 7; // title='
    const std::string lower = lower_cased(words);
    if (lower.find("'title='") == std::string::npos) return nullptr;
    const std::size_t start = lower.find("title='") + WORD;
    const std::size_t length = words.size() - 2 * WORD - lower.find("title=\"");
    auto record = std::make_shared<METADATA>();
    record->title = words.substr(start, length);
    return record;
}

} // namespace

std::optional<std::string> icy_metadata::block_words(const std::vector<char>& block) {
    if (block.empty() || (block[0] != 'S' && block[0] != 's')) return std::nullopt;
    const auto end = std::find(block.begin(), block.end(), '\0');
    if (end == block.end()) return std::nullopt;
    return std::string(block.begin(), end);
}

std::shared_ptr<METADATA> icy_metadata::parse_block(const std::string& words) {
    return words.find(';') != std::string::npos ? parse_pairs(words) : parse_old_form(words);
}

std::shared_ptr<METADATA> icy_metadata::parse_chunk_extension(const std::string& words) {
    const bool has_pairs =
        words.find(';') != std::string::npos && words.find('=') != std::string::npos;
    return has_pairs ? parse_pairs(words) : nullptr;
}
