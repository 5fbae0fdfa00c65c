#pragma once

#include <list>
#include <map>
#include <string>

// What the endings of file names say about their content, as the operator's file tells it. There is
// no table in the program: without that file nothing is known.
// Initial thread: Init, before anybody asks. Any thread: the rest.
class MimeTypes {
public:
    static constexpr const char* UNKNOWN = "application/octet-stream";

    // Reads the file that the setting MimeFile names. False when it names none, or when the file
    // cannot be opened; what was known before stays then.
    static bool Init();
    // The type that lists the ending of this path, whose case does not count; UNKNOWN when there is
    // none. Of several types the first one by alphabet.
    static std::string GetMimeType(const std::string& path);
    // The first ending of a type; empty when there is none.
    static std::string GetExtByType(const std::string& type);
    // What stands behind the last ".".
    static std::string extract_file_ext(const std::string& path);

private:
    static std::map<std::string, std::list<std::string>> mime_items; // endings, by type
};

// "audio" of "audio/mpeg"; "application" when there is no "/".
std::string GetMimeParent(const std::string& type);
