#include "config/ConfigWalk.h"

#include "core/Log.h"
#include "core/OSTools.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool read_to_end(int file, std::string& text) {
    std::array<char, 16384> block{};
    for (;;) {
        const ssize_t count = read(file, block.data(), block.size());
        if (count == 0) return true;
        if (count > 0)
            text.append(block.data(), static_cast<std::size_t>(count));
        else if (errno != EINTR)
            return false;
    }
}

ConfigText::Result without_text(int error) {
    if (error == ENOENT) return ConfigText::Result::MISSING;
    if (error == ENOTDIR || error == EISDIR) return ConfigText::Result::NO_FILE;
    return ConfigText::Result::FAILED;
}

std::string identity_of(int file) {
    struct stat found {};
    if (fstat(file, &found) != 0) return {};
    return tostring(found.st_dev) + ":" + tostring(found.st_ino);
}

} // namespace

ConfigText ReadConfigFile(const std::string& path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return {.result = without_text(errno)};
    ConfigText found{.identity = identity_of(file)};
    found.result = read_to_end(file, found.text) ? ConfigText::Result::READ : without_text(errno);
    close(file);
    return found;
}

ConfigText::Result ConfigWalk::Run(const std::string& path) {
    const auto result = visit_file(path);
    incomplete =
        incomplete || result == ConfigText::Result::FAILED || result == ConfigText::Result::NO_FILE;
    return result;
}

ConfigText::Result ConfigWalk::visit_file(const std::string& path) {
    const ConfigText file = reader(path);
    if (file.result != ConfigText::Result::READ) return file.result;
    if (std::ranges::find(open_files, file.identity) != open_files.end())
        return ConfigText::Result::MISSING;
    open_files.push_back(file.identity);
    visitor.OnBegin(path);
    std::string_view rest = file.text;
    for (unsigned long number = 1; !rest.empty(); ++number) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        visit_line(line, number);
    }
    visitor.OnEnd();
    open_files.pop_back();
    return file.result;
}

void ConfigWalk::visit_line(std::string_view text, unsigned long number) {
    const ConfigLine line = ParseConfigLine(text);
    if (line.kind == ConfigLine::Kind::NO_SETTING) {
        visitor.OnOther(text);
    } else if (line.kind == ConfigLine::Kind::INCLUDE) {
        visitor.OnInclude(text);
        include(line.value);
    } else {
        visitor.OnSetting(line, number);
    }
}

void ConfigWalk::include(const std::string& path) {
    const auto result = visit_file(path);
    if (result == ConfigText::Result::READ) return;
    incomplete = incomplete || result == ConfigText::Result::FAILED;
    LogWrite(2) << "WARNING: " << path << " could not be loaded" << std::endl;
}
