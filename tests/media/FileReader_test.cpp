#include "media/FileReader.h"

#include "net/Socket.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// A file with this content, for the time of a test.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& content)
        : path(std::filesystem::temp_directory_path() /
               ("quillwave_file_reader_" + std::to_string(getpid()))) {
        std::ofstream(path, std::ios::binary) << content;
    }
    ~TemporaryFile() { std::filesystem::remove(path); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    std::string Path() const { return path; }

private:
    std::filesystem::path path;
};

} // namespace

TEST(FileReader, DeliversTheFileAndThenTheEnd) {
    const TemporaryFile file("abcde");
    FileReader reader(file.Path());
    char buffer[8] = {};
    EXPECT_EQ(reader.Read(buffer, 2, 3), 3);
    EXPECT_EQ(std::string(buffer + 2, 3), "abc");
    EXPECT_EQ(reader.Read(buffer, 0, 8), 2);
    EXPECT_EQ(std::string(buffer, 2), "de");
    EXPECT_EQ(reader.Read(buffer, 0, 8), IO_END);
}

TEST(FileReader, AFileThatFillsTheLastReadEndsWithTheNext) {
    const TemporaryFile file("abcd");
    FileReader reader(file.Path());
    char buffer[4] = {};
    EXPECT_EQ(reader.Read(buffer, 0, 4), 4);
    EXPECT_EQ(reader.Read(buffer, 0, 4), IO_END);
}

TEST(FileReader, AFileThatIsNotThereFails) {
    FileReader reader("/no/such/file");
    char buffer[4] = {};
    EXPECT_EQ(reader.Read(buffer, 0, 4), IO_FAILED);
}

TEST(FileReader, WhatIsNoRegularFileFails) {
    const std::filesystem::path pipe =
        std::filesystem::temp_directory_path() / ("quillwave_pipe_" + std::to_string(getpid()));
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& path : {std::string("/dev/zero"), std::string("/"), pipe.string()}) {
        FileReader reader(path);
        char buffer[4] = {};
        EXPECT_EQ(reader.Read(buffer, 0, 4), IO_FAILED) << path;
    }
    std::filesystem::remove(pipe);
}

TEST(FileReader, AnEmptyFileEndsAtOnce) {
    const TemporaryFile file("");
    FileReader reader(file.Path());
    char buffer[4] = {};
    EXPECT_EQ(reader.Read(buffer, 0, 4), IO_END);
}

TEST(FileReader, ResetDoesNotGoBack) {
    const TemporaryFile file("abcd");
    FileReader reader(file.Path());
    char buffer[4] = {};
    EXPECT_EQ(reader.Read(buffer, 0, 2), 2);
    reader.Reset();
    EXPECT_EQ(reader.Read(buffer, 0, 2), 2);
    EXPECT_EQ(std::string(buffer, 2), "cd");
}
