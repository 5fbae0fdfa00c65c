#include "media/FileReader.h"

#include "net/Socket.h"

#include <filesystem>

// A pipe would hold up whoever opens it, and a device might never end.
FileReader::FileReader(const std::string& path) {
    std::error_code missing;
    if (std::filesystem::is_regular_file(path, missing)) file.open(path, std::ios::binary);
}

int FileReader::Read(char* buffer, unsigned long long offset, unsigned long long length) {
    if (!file.is_open()) return IO_FAILED;
    if (file.eof()) return IO_END;
    file.read(buffer + offset, static_cast<std::streamsize>(length));
    return static_cast<int>(file.gcount());
}
