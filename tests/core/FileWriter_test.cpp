#include "core/FileWriter.h"

#include "support/TemporaryDirectory.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

mode_t mode_of(const std::string& path) {
    struct stat found {};
    EXPECT_EQ(stat(path.c_str(), &found), 0);
    return found.st_mode & 07777;
}

std::ptrdiff_t files_in(const fs::path& folder) {
    return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
}

// Without the rights of the superuser, where the test has them.
class AsNobody {
public:
    AsNobody() { become(65534); }
    ~AsNobody() { become(getuid()); }
    AsNobody(const AsNobody&) = delete;
    AsNobody& operator=(const AsNobody&) = delete;

private:
    static void become(uid_t user) {
        if (getuid() != 0) return;
        EXPECT_EQ(seteuid(user), 0);
    }
};

} // namespace

TEST(FileWriter, NewFileHasTheModeWhateverTheUmask) {
    const TemporaryDirectory folder;
    umask(0);
    EXPECT_TRUE(WriteFileWhole(folder.Path("a"), "text", 0600));
    EXPECT_EQ(mode_of(folder.Path("a")), 0600U);
    umask(077);
    EXPECT_TRUE(WriteFileWhole(folder.Path("b"), "text", 0644));
    EXPECT_EQ(mode_of(folder.Path("b")), 0644U);
    EXPECT_EQ(folder.Read("b"), "text");
}

TEST(FileWriter, OldFileKeepsItsModeAndNothingElseIsLeft) {
    const TemporaryDirectory folder;
    folder.Write("a", "a long old text");
    chmod(folder.Path("a").c_str(), 0640);
    EXPECT_TRUE(WriteFileWhole(folder.Path("a"), "new", 0600));
    EXPECT_EQ(folder.Read("a"), "new");
    EXPECT_EQ(mode_of(folder.Path("a")), 0640U);
    EXPECT_EQ(files_in(folder.Path("")), 1);
}

TEST(FileWriter, OwnerIsKept) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser may give files away";
    const TemporaryDirectory folder;
    folder.Write("a", "old");
    ASSERT_EQ(chown(folder.Path("a").c_str(), 12345, 12346), 0);
    EXPECT_TRUE(WriteFileWhole(folder.Path("a"), "new", 0600));
    struct stat found {};
    ASSERT_EQ(stat(folder.Path("a").c_str(), &found), 0);
    EXPECT_EQ(found.st_uid, 12345U);
    EXPECT_EQ(found.st_gid, 12346U);
}

TEST(FileWriter, ReaderOfTheOldFileKeepsTheOldText) {
    const TemporaryDirectory folder;
    folder.Write("a", "old");
    std::ifstream before(folder.Path("a"));
    EXPECT_TRUE(WriteFileWhole(folder.Path("a"), "new", 0600));
    std::string text;
    before >> text;
    EXPECT_EQ(text, "old");
}

TEST(FileWriter, LinksStayAndTheirTargetIsReplaced) {
    const TemporaryDirectory folder;
    fs::create_directory(folder.Path("real"));
    folder.Write("real/a", "old");
    fs::create_symlink("real/a", folder.Path("one"));
    fs::create_symlink(folder.Path("one"), folder.Path("two"));
    EXPECT_TRUE(WriteFileWhole(folder.Path("two"), "new", 0600));
    EXPECT_TRUE(fs::is_symlink(folder.Path("two")));
    EXPECT_TRUE(fs::is_symlink(folder.Path("one")));
    EXPECT_EQ(folder.Read("real/a"), "new");
}

TEST(FileWriter, LinkToNothingYetGetsItsTarget) {
    const TemporaryDirectory folder;
    fs::create_symlink("later", folder.Path("link"));
    EXPECT_TRUE(WriteFileWhole(folder.Path("link"), "new", 0600));
    EXPECT_TRUE(fs::is_symlink(folder.Path("link")));
    EXPECT_EQ(folder.Read("later"), "new");
}

TEST(FileWriter, CircleOfLinksIsAFailure) {
    const TemporaryDirectory folder;
    fs::create_symlink("b", folder.Path("a"));
    fs::create_symlink("a", folder.Path("b"));
    EXPECT_FALSE(WriteFileWhole(folder.Path("a"), "new", 0600));
}

TEST(FileWriter, MissingFolderAndFolderInPlaceOfTheFileAreFailures) {
    const TemporaryDirectory folder;
    EXPECT_FALSE(WriteFileWhole(folder.Path("none/a"), "new", 0600));
    fs::create_directory(folder.Path("a"));
    EXPECT_FALSE(WriteFileWhole(folder.Path("a"), "new", 0600));
    EXPECT_FALSE(WriteFileWhole("", "new", 0600));
}

// The superuser may write everything, so these are done as somebody else.
TEST(FileWriter, WriteProtectedFileStaysAsItIs) {
    const TemporaryDirectory folder;
    folder.Write("a", "old");
    chmod(folder.Path("a").c_str(), 0444);
    chmod(folder.Path("").c_str(), 0777);
    const AsNobody nobody;
    EXPECT_FALSE(WriteFileWhole(folder.Path("a"), "new", 0600));
    EXPECT_EQ(folder.Read("a"), "old");
}

TEST(FileWriter, FileInAWriteProtectedFolderIsWrittenInPlace) {
    const TemporaryDirectory folder;
    folder.Write("a", "older and longer");
    chmod(folder.Path("a").c_str(), 0666);
    chmod(folder.Path("").c_str(), 0555);
    const AsNobody nobody;
    EXPECT_TRUE(WriteFileWhole(folder.Path("a"), "new", 0600));
    EXPECT_EQ(folder.Read("a"), "new");
    EXPECT_FALSE(WriteFileWhole(folder.Path("b"), "new", 0600));
}

TEST(FileWriter, FileOfAnotherOwnerBecomesOursWithItsMode) {
    const TemporaryDirectory folder;
    folder.Write("a", "old");
    chmod(folder.Path("a").c_str(), 0666);
    chmod(folder.Path("").c_str(), 0777);
    const AsNobody nobody;
    EXPECT_TRUE(WriteFileWhole(folder.Path("a"), "new", 0600));
    EXPECT_EQ(folder.Read("a"), "new");
    EXPECT_EQ(mode_of(folder.Path("a")), 0666U);
}

TEST(FileWriter, FullDiskLeavesTheOldFileAndNoRest) {
    const TemporaryDirectory folder;
    folder.Write("a", "old");
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit small{.rlim_cur = 1000, .rlim_max = before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    EXPECT_FALSE(WriteFileWhole(folder.Path("a"), std::string(5000, 'x'), 0600));
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(folder.Read("a"), "old");
    EXPECT_EQ(files_in(folder.Path("")), 1);
}

TEST(FileWriter, DeviceIsWrittenInPlace) {
    EXPECT_TRUE(WriteFileWhole("/dev/null", "new", 0600));
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

TEST(FileWriter, NameWithoutAFolderIsInTheWorkingDirectory) {
    const TemporaryDirectory folder;
    fs::current_path(folder.Path(""));
    EXPECT_TRUE(WriteFileWhole("plain", "new", 0600));
    EXPECT_EQ(folder.Read("plain"), "new");
}

TEST(FileWriter, TwoWritersLeaveOneOfTheTexts) {
    const TemporaryDirectory folder;
    const auto write = [&](char letter) {
        for (int i = 0; i < 50; ++i)
            WriteFileWhole(folder.Path("a"), std::string(20000, letter), 0600);
    };
    std::thread one(write, 'x');
    std::thread two(write, 'y');
    one.join();
    two.join();
    const std::string text = folder.Read("a");
    EXPECT_TRUE(text == std::string(20000, 'x') || text == std::string(20000, 'y'));
    EXPECT_EQ(files_in(folder.Path("")), 1);
}
