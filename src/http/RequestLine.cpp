#include "http/RequestLine.h"

#include "core/OSTools.h"
#include "http/LeadingNumber.h"

#include <charconv>
#include <iterator>
#include <utility>
#include <vector>

namespace {

HttpWords::RequestMethod method_of(std::string word) {
    toupper(word);
    for (std::size_t i = 0; i < std::size(HttpWords::HTTP_METHOD_STRINGS); ++i)
        if (word == HttpWords::HTTP_METHOD_STRINGS[i])
            return static_cast<HttpWords::RequestMethod>(i);
    return HttpWords::METHOD_UNKNOWN;
}

std::map<std::string, std::string> parse_query(const std::string& text) {
    std::map<std::string, std::string> query;
    for (const std::string& piece : split(text, '&')) {
        const std::vector<std::string> parts = split(piece, '=');
        if (parts.size() == 2) query[UrlDecode(parts[0])] = UrlDecode(parts[1]);
    }
    return query;
}

void read_target(const std::string& target, RequestLine& line) {
    const std::size_t mark = target.find('?');
    line.path = target.substr(0, mark);
    if (mark == std::string::npos) return;
    line.query_string = target.substr(mark);
    line.query = parse_query(target.substr(mark + 1));
}

// "1.1", in the C locale; 0 for what is no number.
float parse_version(const std::string& text) {
    float number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

} // namespace

RequestLine parse_request_line(const std::string& text) {
    RequestLine line;
    if (text.find(' ') == std::string::npos) {
        line.method = HttpWords::METHOD_ICY_LOGIN;
        return line;
    }
    std::string copy = text;
    const std::vector<std::string> words = split(trim(copy), ' ');
    if (words.size() == 1) line.bare_line = words[0];
    if (words.size() != 3) return line;
    line.method = method_of(words[0]);
    read_target(words[1], line);
    const ProtocolWord word = parse_protocol(words[2]);
    line.protocol = word.protocol;
    line.version = word.version;
    return line;
}

ProtocolWord parse_protocol(const std::string& text) {
    std::string upper = text;
    toupper(upper);
    const std::size_t slash = upper.find('/');
    ProtocolWord word;
    if (slash != std::string::npos) word.version = parse_version(upper.substr(slash + 1));
    const std::string name = upper.substr(0, slash);
    for (std::size_t i = 0; i < std::size(HttpWords::PROTOCOL_STRINGS); ++i)
        if (name == HttpWords::PROTOCOL_STRINGS[i])
            word.protocol = static_cast<HttpWords::RequestProtocol>(i);
    return word;
}

StatusLine parse_status_line(std::string line) {
    const std::vector<std::string> words = split(trim(line), ' ');
    StatusLine reply;
    if (words.size() < 3) return reply;
    reply.found = true;
    reply.protocol = parse_protocol(words[0]);
    reply.status = leading_number<unsigned short>(words[1]);
    reply.message = words[2];
    for (std::size_t i = 3; i < words.size(); ++i)
        reply.message += " " + words[i];
    return reply;
}
