#include "web/Html.h"

#include "core/OSTools.h"

namespace html {

std::string element(const std::string& name, const std::string& attributes,
                    const std::string& markup) {
    const std::string words = attributes.empty() ? "" : " " + attributes;
    return "<" + name + words + ">" + markup + "</" + name + ">";
}

std::string div(const std::string& attributes, const std::string& markup) {
    return element("div", attributes, markup);
}

std::string link(const std::string& address, const std::string& text) {
    return element("a", "href=\"" + html_encode(address) + "\"", html_encode(text));
}

std::string list(const std::string& attributes, const std::string& markup) {
    return element("ul", attributes, markup);
}

std::string item(const std::string& attributes, const std::string& markup) {
    return element("li", attributes, markup);
}

} // namespace html
