#pragma once

#include "core/OSTools.h"

#include <concepts>
#include <string>
#include <utility>

// The fields of a request to a directory, in the order in which they are put in: a=1&b=2.
class DirectoryForm {
public:
    // What it begins with, its first fields.
    explicit DirectoryForm(std::string beginning) : text(std::move(beginning)) {}

    DirectoryForm& Add(const std::string& key, const std::string& value) {
        return AddRaw(key, UrlEncode(value, false));
    }
    template <std::integral Number> DirectoryForm& Add(const std::string& key, Number value) {
        return AddRaw(key, tostring(value));
    }
    // With a value that is encoded already, or goes out as it is.
    DirectoryForm& AddRaw(const std::string& key, const std::string& value) {
        text += "&" + key + "=" + value;
        return *this;
    }
    const std::string& Text() const { return text; }

private:
    std::string text;
};
