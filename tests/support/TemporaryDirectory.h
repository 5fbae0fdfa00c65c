#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

// A directory of a test's own, gone with it.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "quillwave-XXXXXX").string();
        path = mkdtemp(pattern.data());
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    std::string Path(const std::string& name) const { return (path / name).string(); }
    bool Has(const std::string& name) const { return std::filesystem::exists(path / name); }
    std::string Read(const std::string& name) const {
        std::ifstream file(path / name);
        std::ostringstream content;
        content << file.rdbuf();
        return content.str();
    }
    void Write(const std::string& name, const std::string& content) const {
        std::ofstream(path / name) << content;
    }

private:
    std::filesystem::path path;
};
