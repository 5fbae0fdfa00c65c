#include "net/url.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

// No text makes an address throw, and what it calls valid can be connected to.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const url address(text);
    if (address.IsValid() && (address.Host().size() < 2 || address.Port() == 0)) std::abort();
    if (address.Path().empty()) std::abort();
    url(address.to_string()).IsValid();
    return 0;
}
