#include "http/MimeTypes.h"

#include "config/Config.h"
#include "config/ConfigNode.h"
#include "support/LogLines.h"
#include "support/TemporaryDirectory.h"

#include <filesystem>
#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* PLAIN_BYTES = "application/octet-stream";

struct MimeTypesTest : testing::Test {
    MimeTypesTest() { std::filesystem::current_path(directory.Path("")); }
    ~MimeTypesTest() override { std::filesystem::current_path("/"); }

    bool load(const std::string& content) const {
        directory.Write("mime.types", content);
        return MimeTypes::Init();
    }
    static void set_file(const std::string& name) { Config::Get("MimeFile", true)->SetValue(name); }

    TemporaryDirectory directory;
};

} // namespace

TEST_F(MimeTypesTest, WithoutAFileNothingIsKnown) {
    EXPECT_EQ(MimeTypes::GetMimeType("song.mp3"), PLAIN_BYTES);
    EXPECT_EQ(MimeTypes::GetExtByType("audio/mpeg"), "");
}

TEST_F(MimeTypesTest, TheCaseOfThePathDoesNotCount) {
    ASSERT_TRUE(load("audio/mpeg mp3\n"));
    EXPECT_EQ(MimeTypes::GetMimeType("song.MP3"), "audio/mpeg");
    EXPECT_EQ(MimeTypes::GetMimeType("/music/a.b/song.mp3"), "audio/mpeg");
}

TEST_F(MimeTypesTest, EndingsInCapitalsInTheFileAreNeverFound) {
    ASSERT_TRUE(load("audio/mpeg MP3\n"));
    EXPECT_EQ(MimeTypes::GetMimeType("song.MP3"), PLAIN_BYTES);
    EXPECT_EQ(MimeTypes::GetMimeType("song.mp3"), PLAIN_BYTES);
    EXPECT_EQ(MimeTypes::GetExtByType("audio/mpeg"), "MP3");
}

TEST_F(MimeTypesTest, NoEndingAndAnUnknownOneAreOctets) {
    ASSERT_TRUE(load("audio/mpeg mp3\n"));
    EXPECT_EQ(MimeTypes::GetMimeType("noext"), PLAIN_BYTES);
    EXPECT_EQ(MimeTypes::GetMimeType("mp3"), PLAIN_BYTES);
    EXPECT_EQ(MimeTypes::GetMimeType("song."), PLAIN_BYTES);
    EXPECT_EQ(MimeTypes::GetMimeType("song.xyz"), PLAIN_BYTES);
    EXPECT_EQ(MimeTypes::GetMimeType(""), PLAIN_BYTES);
}

TEST_F(MimeTypesTest, ATypeHasItsEndingsInTheOrderOfTheFile) {
    ASSERT_TRUE(load("audio/mpeg\tmp3 mpga\n"));
    EXPECT_EQ(MimeTypes::GetMimeType("a.mp3"), "audio/mpeg");
    EXPECT_EQ(MimeTypes::GetMimeType("a.mpga"), "audio/mpeg");
    EXPECT_EQ(MimeTypes::GetExtByType("audio/mpeg"), "mp3");
}

TEST_F(MimeTypesTest, TypesAreComparedToTheLetter) {
    ASSERT_TRUE(load("Audio/MPEG mp3\n"));
    EXPECT_EQ(MimeTypes::GetMimeType("a.mp3"), "Audio/MPEG");
    EXPECT_EQ(MimeTypes::GetExtByType("audio/mpeg"), "");
    EXPECT_EQ(MimeTypes::GetExtByType(""), "");
}

TEST_F(MimeTypesTest, ATypeWithoutEndingsIsLeftAway) {
    ASSERT_TRUE(load("text/plain\naudio/mpeg mp3\n"));
    EXPECT_EQ(MimeTypes::GetExtByType("text/plain"), "");
    EXPECT_EQ(MimeTypes::GetExtByType("audio/mpeg"), "mp3");
}

TEST_F(MimeTypesTest, ATypeWithoutEndingsDoesNotTakeTheEarlierOnesAway) {
    ASSERT_TRUE(load("text/plain txt\ntext/plain\n"));
    EXPECT_EQ(MimeTypes::GetExtByType("text/plain"), "txt");
}

TEST_F(MimeTypesTest, CommentsAndEmptyLinesAreSkipped) {
    ASSERT_TRUE(load("# a mp3\n; b mp3\n\n  \t\r\n  # c mp3\n\t; d mp3\n"));
    EXPECT_EQ(MimeTypes::GetMimeType("a.mp3"), PLAIN_BYTES);
}

TEST_F(MimeTypesTest, WhiteSpaceAroundALineAndBetweenTypeAndEndingsDoesNotCount) {
    ASSERT_TRUE(load(" \taudio/mpeg \t  mp3 mpga \t\r\nvideo/webm webm"));
    EXPECT_EQ(MimeTypes::GetExtByType("audio/mpeg"), "mp3");
    EXPECT_EQ(MimeTypes::GetMimeType("a.mpga"), "audio/mpeg");
    EXPECT_EQ(MimeTypes::GetMimeType("a.webm"), "video/webm") << "a last line without its end";
}

TEST_F(MimeTypesTest, ATabBetweenEndingsLeavesThemOnePiece) {
    ASSERT_TRUE(load("audio/mpeg mp3\tmpga mp2\n"));
    EXPECT_EQ(MimeTypes::GetExtByType("audio/mpeg"), "mp3\tmpga");
    EXPECT_EQ(MimeTypes::GetMimeType("a.mp3"), PLAIN_BYTES);
    EXPECT_EQ(MimeTypes::GetMimeType("a.mp2"), "audio/mpeg");
}

TEST_F(MimeTypesTest, TheFirstTypeByAlphabetWins) {
    ASSERT_TRUE(load("video/ogg ogg\naudio/ogg ogg\napplication/ogg oga ogg\n"));
    EXPECT_EQ(MimeTypes::GetMimeType("a.ogg"), "application/ogg");
}

TEST_F(MimeTypesTest, ATypeThatStandsTwiceKeepsItsLastLine) {
    ASSERT_TRUE(load("audio/mpeg mp3 mpga\naudio/mpeg mp2\n"));
    EXPECT_EQ(MimeTypes::GetExtByType("audio/mpeg"), "mp2");
    EXPECT_EQ(MimeTypes::GetMimeType("a.mp3"), PLAIN_BYTES);
}

TEST_F(MimeTypesTest, LoadingAgainForgetsWhatWasThere) {
    ASSERT_TRUE(load("audio/mpeg mp3\n"));
    ASSERT_TRUE(load("video/webm webm\n"));
    EXPECT_EQ(MimeTypes::GetMimeType("a.mp3"), PLAIN_BYTES);
}

TEST_F(MimeTypesTest, AFileThatCannotBeOpenedLeavesWhatWasThere) {
    LogLines log;
    ASSERT_TRUE(load("audio/mpeg mp3\n"));
    set_file("missing.types");
    EXPECT_FALSE(MimeTypes::Init());
    EXPECT_EQ(MimeTypes::GetMimeType("a.mp3"), "audio/mpeg");
    EXPECT_THAT(log.All(), ElementsAre("Mime Types loaded from mime.types",
                                       "WARNING: MimeFile: missing.types could not be loaded"));
}

TEST_F(MimeTypesTest, ZeroNamesNoFileAndIsNoFault) {
    LogLines log;
    set_file("0");
    directory.Write("0", "audio/mpeg mp3\n");
    EXPECT_FALSE(load("audio/mpeg mp3\n"));
    EXPECT_EQ(MimeTypes::GetMimeType("a.mp3"), PLAIN_BYTES);
    EXPECT_THAT(log.All(), IsEmpty());
}

TEST_F(MimeTypesTest, AnEmptySettingStandsForTheDefault) {
    Config::Get("MimeFile", true);
    EXPECT_TRUE(load("audio/mpeg mp3\n"));
    EXPECT_EQ(MimeTypes::GetMimeType("a.mp3"), "audio/mpeg");
}

TEST(MimeTypes, AnEndingIsWhatFollowsTheLastPoint) {
    EXPECT_EQ(MimeTypes::extract_file_ext("a.tar.gz"), "gz");
    EXPECT_EQ(MimeTypes::extract_file_ext("a.MP3"), "MP3");
    EXPECT_EQ(MimeTypes::extract_file_ext("a."), "");
    EXPECT_EQ(MimeTypes::extract_file_ext("a"), "");
    EXPECT_EQ(MimeTypes::extract_file_ext(""), "");
}

TEST(MimeTypes, APointInTheNameOfAFolderCountsWhereTheFileHasNone) {
    EXPECT_EQ(MimeTypes::extract_file_ext("a.b/c"), "b/c");
}

TEST(MimeTypes, TheParentOfATypeStandsBeforeTheSlash) {
    EXPECT_EQ(GetMimeParent("audio/mpeg"), "audio");
    EXPECT_EQ(GetMimeParent("a/b/c"), "a");
    EXPECT_EQ(GetMimeParent("/b"), "");
    EXPECT_EQ(GetMimeParent("x"), "application");
    EXPECT_EQ(GetMimeParent(""), "application");
}
