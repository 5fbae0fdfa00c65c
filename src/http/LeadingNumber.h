#pragma once

#include <charconv>
#include <concepts>
#include <limits>
#include <string_view>
#include <system_error>

// The decimal digits at the front of a text of a peer: 0 without any, the largest value when they
// are too many. Never throws.
template <std::unsigned_integral Number> Number leading_number(std::string_view text) {
    Number number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    if (result.ec == std::errc::result_out_of_range) return std::numeric_limits<Number>::max();
    return number;
}
