#include "web/Html.h"

#include "core/OSTools.h"

#include <utility>

namespace html {

namespace {

std::string open_tag(const std::string& name, const Attributes& attributes) {
    std::string tag = "<" + name;
    for (const Attribute& attribute : attributes) {
        tag += " " + attribute.name;
        if (attribute.value) tag += "=\"" + html_encode(*attribute.value) + "\"";
    }
    return tag;
}

} // namespace

Markup::Markup(const std::string& text) : words(html_encode(text)) {}

Markup::Markup(const char* text) : words(html_encode(text)) {}

Markup& Markup::operator+=(const Markup& more) {
    words += more.words;
    return *this;
}

Markup raw(std::string written) {
    Markup markup;
    markup.words = std::move(written);
    return markup;
}

Markup operator+(Markup first, const Markup& second) {
    first += second;
    return first;
}

Markup element(const std::string& name, const Attributes& attributes, const Markup& content) {
    return raw(open_tag(name, attributes) + ">" + content.str() + "</" + name + ">");
}

Markup element(const std::string& name, const Markup& content) {
    return element(name, {}, content);
}

Markup single(const std::string& name, const Attributes& attributes) {
    return raw(open_tag(name, attributes) + " />");
}

Markup div(const Attributes& attributes, const Markup& content) {
    return element("div", attributes, content);
}

Markup anchor(const std::string& address, const Markup& content) {
    return element("a", {{"href", address}}, content);
}

Markup list(const Attributes& attributes, const Markup& items) {
    return element("ul", attributes, items);
}

Markup item(const Attributes& attributes, const Markup& content) {
    return element("li", attributes, content);
}

Markup script(const std::string& code) {
    return element("script", {{"type", "text/javascript"}}, raw(code));
}

Markup form(const Markup& content) { return element("form", {{"method", "post"}}, content); }

Markup table(const Attributes& attributes, const Markup& rows) {
    return element("table", attributes, rows);
}

Markup row(const Attributes& attributes, const Markup& cells) {
    return element("tr", attributes, cells);
}

Markup cell(const Attributes& attributes, const Markup& content) {
    return element("td", attributes, content);
}

Markup cell(const Markup& content) { return cell({}, content); }

Markup label_row(const Markup& label, const Markup& value) {
    return row({{"class", "tableViewCol"}},
               cell({{"class", "tableViewIndex"}}, label) + cell(value));
}

} // namespace html
