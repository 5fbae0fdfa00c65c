#pragma once

#include "media/MediaReader.h"

#include <fstream>
#include <string>

// The bytes of a regular local file, as they are.
class FileReader : public MediaReader {
public:
    explicit FileReader(const std::string& path);

    // IO_FAILED when the file could not be opened, IO_END at its end.
    int Read(char* buffer, unsigned long long offset, unsigned long long length) override;

private:
    std::ifstream file;
};
