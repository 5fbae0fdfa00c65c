#pragma once

#include "config/ConfigLine.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

// What came of opening and reading one file.
struct ConfigText {
    // NO_FILE: a folder stands there, or the path leads through a file.
    enum class Result { READ, MISSING, NO_FILE, FAILED };

    Result result = Result::MISSING;
    std::string text = {};
    std::string identity = {}; // the same for all paths that lead to one file
};

// How a file is read: from the disk, and from memory in tests.
using ConfigReader = std::function<ConfigText(const std::string& path)>;

ConfigText ReadConfigFile(const std::string& path);

// What a walk through the settings file meets, in the order of the lines. A file that is included
// begins and ends between the lines of the one that includes it.
class ConfigVisitor {
public:
    virtual void OnBegin(const std::string& path) = 0;
    virtual void OnEnd() = 0;
    virtual void OnOther(std::string_view text) = 0;   // a comment, say
    virtual void OnInclude(std::string_view text) = 0; // before the file begins, if it does
    // number counts the lines of the current file, from 1.
    virtual void OnSetting(const ConfigLine& line, unsigned long number) = 0;

protected:
    ~ConfigVisitor() = default;
};

// Reads a settings file and what it includes, each file whole before its first line is visited.
// An include that cannot be read is logged and passed over, and so is one of a file that is being
// read already. One thread.
class ConfigWalk {
public:
    ConfigWalk(const ConfigReader& file_reader, ConfigVisitor& file_visitor)
        : reader(file_reader), visitor(file_visitor) {}

    // What came of the main file.
    ConfigText::Result Run(const std::string& path);
    // Whether a file is there that could not be read: its settings were not visited.
    bool IsIncomplete() const { return incomplete; }

private:
    ConfigText::Result visit_file(const std::string& path);
    void visit_line(std::string_view text, unsigned long number);
    void include(const std::string& path);

    const ConfigReader& reader;
    ConfigVisitor& visitor;
    std::vector<std::string> open_files; // their identities, the main file first
    bool incomplete = false;
};
