#pragma once

#include <functional>
#include <string>
#include <tinyxml2.h>
#include <vector>

// A piece of a page, read back as a browser would read it.
class Page {
public:
    using Element = tinyxml2::XMLElement;

    explicit Page(const std::string& markup) {
        document.Parse(("<page>" + markup + "</page>").c_str());
    }

    // Whether every tag that opens closes, and every attribute has its quotes.
    bool IsWellFormed() const { return !document.Error(); }

    // All elements of this name in their order, or those with this value of an attribute.
    std::vector<const Element*> All(const std::string& name) const {
        return matching([&](const Element& element) { return name == element.Name(); });
    }
    std::vector<const Element*> With(const std::string& attribute, const std::string& value) const {
        return matching(
            [&](const Element& element) { return Value(&element, attribute) == value; });
    }
    // The first of them; null without one.
    const Element* First(const std::string& attribute, const std::string& value) const {
        const auto all = With(attribute, value);
        return all.empty() ? nullptr : all.front();
    }

    // The words inside an element, those of the elements in it included.
    static std::string Text(const Element* element) {
        std::string words;
        for (auto* node = element ? element->FirstChild() : nullptr; node;
             node = node->NextSibling()) {
            if (node->ToText()) words += node->Value();
            if (node->ToElement()) words += Text(node->ToElement());
        }
        return words;
    }
    std::string Text() const { return Text(document.RootElement()); }
    static std::string Value(const Element* element, const std::string& attribute) {
        const char* value = element ? element->Attribute(attribute.c_str()) : nullptr;
        return value ? value : "";
    }
    static std::vector<const Element*> Children(const Element* element) {
        std::vector<const Element*> all;
        for (auto* child = element ? element->FirstChildElement() : nullptr; child;
             child = child->NextSiblingElement())
            all.push_back(child);
        return all;
    }
    // The words of each cell of a row.
    static std::vector<std::string> Cells(const Element* row) {
        std::vector<std::string> words;
        for (const Element* cell : Children(row))
            words.push_back(Text(cell));
        return words;
    }
    // The columns that the cells of a row fill.
    static int Width(const Element* row) {
        int width = 0;
        for (const Element* cell : Children(row))
            width += cell->IntAttribute("colspan", 1);
        return width;
    }

private:
    using Test = std::function<bool(const Element&)>;

    std::vector<const Element*> matching(const Test& fits) const {
        std::vector<const Element*> all;
        collect(document.RootElement(), fits, all);
        return all;
    }
    static void collect(const Element* element, const Test& fits,
                        std::vector<const Element*>& all) {
        for (const Element* child : Children(element)) {
            if (fits(*child)) all.push_back(child);
            collect(child, fits, all);
        }
    }

    tinyxml2::XMLDocument document;
};
