#include "http/MimeTypes.h"

#include "config/Config.h"
#include "config/ConfigNode.h"
#include "core/Log.h"
#include "core/OSTools.h"

#include <algorithm>
#include <fstream>
#include <vector>

namespace {

constexpr const char* NO_FILE = "0";

bool is_comment(const std::string& line) { return line.front() == ';' || line.front() == '#'; }

// One line of the file:  type, blank or tab, endings with single blanks between them.
// A type without endings is left away.
void read_line(std::string line, std::map<std::string, std::list<std::string>>& items) {
    trim(line);
    if (line.empty() || is_comment(line)) return;
    const std::size_t type_end = line.find_first_of(" \t");
    if (type_end == std::string::npos) return;
    std::string rest = line.substr(type_end);
    const std::vector<std::string> endings = split(trim(rest), ' ');
    items[line.substr(0, type_end)] = {endings.begin(), endings.end()};
}

} // namespace

std::map<std::string, std::list<std::string>> MimeTypes::mime_items;

bool MimeTypes::Init() {
    const std::string path = Config::Get("MimeFile", false)->GetValue("mime.types");
    if (path == NO_FILE) return false;
    std::ifstream file(path);
    if (!file) {
        LogWrite(2) << "WARNING: MimeFile: " << path << " could not be loaded" << std::endl;
        return false;
    }
    mime_items.clear();
    for (std::string line; std::getline(file, line);)
        read_line(line, mime_items);
    LogWrite(2) << "Mime Types loaded from " << path << std::endl;
    return true;
}

std::string MimeTypes::GetMimeType(const std::string& path) {
    std::string ending = extract_file_ext(path);
    if (tolower(ending).empty()) return UNKNOWN;
    // Kept: the file's endings are taken as they stand, so that one in capitals is never found.
    for (const auto& [type, endings] : mime_items)
        if (std::find(endings.begin(), endings.end(), ending) != endings.end()) return type;
    return UNKNOWN;
}

std::string MimeTypes::GetExtByType(const std::string& type) {
    const auto found = mime_items.find(type);
    return found == mime_items.end() || found->second.empty() ? "" : found->second.front();
}

// Kept: the path is one text, so that a "." in the name of a folder counts where the file has none.
std::string MimeTypes::extract_file_ext(const std::string& path) {
    const std::size_t dot = path.rfind('.');
    return dot == std::string::npos ? "" : path.substr(dot + 1);
}

std::string GetMimeParent(const std::string& type) {
    const std::size_t slash = type.find('/');
    return slash == std::string::npos ? "application" : type.substr(0, slash);
}
