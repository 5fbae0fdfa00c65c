#pragma once

#include <string>

// The smallest pieces of markup. An argument called `markup` is markup already; any other text is
// encoded where it enters.
namespace html {

// An element with its end tag. `attributes` as they stand in the tag: R"(class="box")", or empty.
std::string element(const std::string& name, const std::string& attributes,
                    const std::string& markup);
std::string div(const std::string& attributes, const std::string& markup);
std::string link(const std::string& address, const std::string& text);
// A "ul" of the items, which are "li" elements.
std::string list(const std::string& attributes, const std::string& markup);
std::string item(const std::string& attributes, const std::string& markup);

} // namespace html
