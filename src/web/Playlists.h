#pragma once

#include <string>

// A stream as players' files name it. A name is a stranger's text: it ends with its first line, for
// the rest would be a line of the file.
std::string m3u_playlist(const std::string& name, const std::string& url);
std::string pls_playlist(const std::string& name, const std::string& url);
