#include "http/FormBody.h"
#include "http/Multipart.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

// The first line is a Content-Type, the rest a body: no form throws, and no part of a multipart
// body is larger than the body.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view all(reinterpret_cast<const char*>(data), size);
    parse_form(all);
    const std::size_t end = std::min(all.find('\n'), all.size());
    const std::string_view body = all.substr(end);
    const std::string boundary = multipart_boundary(std::string(all.substr(0, end)));
    if (boundary.empty()) return 0;
    const auto form = parse_multipart(body, boundary);
    if (!form) return 0;
    std::size_t total = 0;
    for (const auto& [name, value] : form->fields)
        total += name.size() + value.size();
    for (const TransmittedObject& file : form->files)
        total += file.data.size();
    if (total > body.size()) std::abort();
    return 0;
}
