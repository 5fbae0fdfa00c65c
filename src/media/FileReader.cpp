#include "media/FileReader.h"

#include "net/Socket.h"

FileReader::FileReader(const std::string& path) : file(path, std::ios::binary) {}

int FileReader::Read(char* buffer, unsigned long long offset, unsigned long long length) {
    if (!file.is_open()) return IO_FAILED;
    if (file.eof()) return IO_END;
    file.read(buffer + offset, static_cast<std::streamsize>(length));
    return static_cast<int>(file.gcount());
}
