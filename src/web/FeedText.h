#pragma once

#include <string>

// What the texts of strangers become in the status feeds, so that every reader understands them.
namespace feed_text {

// UTF-8 stays as it stands, anything else is taken for Latin-1. A text with control bytes other
// than tab and line ends counts as anything else.
std::string to_utf8(const std::string& text);

// The key of a tag: in lower case, in UTF-8, and without what stands before its first letter.
// Kept: nothing tells that two keys have become the same.
std::string tag_key(std::string key);

// Whether this UTF-8 text may name an XML element, in the opinion of every reader.
bool is_xml_name(const std::string& text);

// Without what has no form in XML: control bytes become blanks, and the two codes that are no
// characters (U+FFFE, U+FFFF) the replacement character. Markup is not encoded.
std::string for_xml(std::string text);

// For the feed of one line: control bytes become blanks, and markup is encoded.
std::string for_line(std::string text);

} // namespace feed_text
