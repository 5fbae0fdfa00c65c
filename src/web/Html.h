#pragma once

#include <optional>
#include <string>
#include <vector>

// Markup, and the smallest pieces of it. A text becomes markup by being encoded, without a word of
// the caller's; only `raw` takes words as they stand. So what a stranger sent cannot slip through.
namespace html {

class Markup {
public:
    Markup() = default;
    Markup(const std::string& text); // encodes
    Markup(const char* text);        // encodes

    Markup& operator+=(const Markup& more);
    bool empty() const { return words.empty(); }
    const std::string& str() const { return words; }

private:
    friend Markup raw(std::string written);

    std::string words;
};

// Words that are markup already: this project's own, never a stranger's.
Markup raw(std::string written);
Markup operator+(Markup first, const Markup& second);

// Stands in the tag as name="value", the value encoded; without a value, as a bare word.
struct Attribute {
    std::string name;
    std::optional<std::string> value = {};
};
using Attributes = std::vector<Attribute>;

// An element with its end tag, and one that has none.
Markup element(const std::string& name, const Attributes& attributes, const Markup& content);
Markup element(const std::string& name, const Markup& content);
Markup single(const std::string& name, const Attributes& attributes = {});

Markup div(const Attributes& attributes, const Markup& content);
Markup anchor(const std::string& address, const Markup& content);
// A "ul" of the items, which are "li" elements.
Markup list(const Attributes& attributes, const Markup& items);
Markup item(const Attributes& attributes, const Markup& content);
Markup script(const std::string& code);

// A form that posts to the address of its own page.
Markup form(const Markup& content);
Markup table(const Attributes& attributes, const Markup& rows);
Markup row(const Attributes& attributes, const Markup& cells);
Markup cell(const Attributes& attributes, const Markup& content);
Markup cell(const Markup& content);
// The two cells of most pages: what it is, and what it is now.
Markup label_row(const Markup& label, const Markup& value);

} // namespace html
