#include "config/ConfigSave.h"

#include "support/LogLines.h"
#include "support/MemoryFiles.h"
#include "support/SettingsTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::SizeIs;

namespace {

std::string merged(const std::shared_ptr<ConfigNode>& root, const std::string& text) {
    const MemoryFiles files{{{"main", text}}};
    const MergedConfig result = MergeConfig("main", files.Reader(), root);
    EXPECT_TRUE(result.found);
    EXPECT_THAT(result.outputs, SizeIs(1));
    return result.outputs.front().text;
}

void set(const std::shared_ptr<ConfigNode>& root, const std::string& key,
         const std::string& value) {
    root->GetChild(key, true)->SetValue(value);
}

std::string text_of(const MergedConfig& result, const std::string& path) {
    for (const ConfigOutput& output : result.outputs)
        if (output.path == path) return output.text;
    return "no such file";
}

} // namespace

TEST(ConfigSave, UnchangedFileComesOutAsItWas) {
    const std::string text =
        "; my radio\nPortBase=8000\n\nDefaultUserMax=10\n; live\nSourceMount2=/live\n"
        "SourceName2=A\n# odd\nServIP=1\nServIP=2\nSourceMount5=/b\n; the end\n";
    EXPECT_EQ(merged(SettingsOf(text), text), text);
}

TEST(ConfigSave, ChangedValuesStandInTheirPlaceInTheCaseOfTheTree) {
    const std::string text = "portbase = 8000\nA=1\nB=2\n";
    const auto root = SettingsOf("A=1\nb=2\n");
    set(root, "a", "9");
    EXPECT_EQ(merged(root, "a=1\nB=2\n"), "A=9\nb=2\n");
}

TEST(ConfigSave, CommentKeepsItsPlaceAndStaysWhenItsKeyGoes) {
    const std::string text = "; about A\nA=1\n; about B\nB=2\n";
    const auto root = SettingsOf(text);
    set(root, "A", "");
    EXPECT_EQ(merged(root, text), "; about A\n; about B\nB=2\n");
}

TEST(ConfigSave, LastLineGetsItsLineFeed) {
    EXPECT_EQ(merged(SettingsOf("A=1"), "A=1\n;x"), "A=1\n;x\n");
}

TEST(ConfigSave, EmptyValuesAreWritten) {
    EXPECT_EQ(merged(SettingsOf("NameLookups=\n"), ""), "NameLookups=\n");
}

TEST(ConfigSave, NewGlobalsDefaultsAndSectionsEndTheFile) {
    const auto root = SettingsOf("A=1\nSourceMount1=/a\n");
    set(root, "New", "n");
    set(root->GetChild("Default", false), "UserMax", "5");
    set(root->GetChild("Source", false)->GetChild("7", true), "Mount", "/seven");
    EXPECT_EQ(merged(root, "SourceMount1=/a\nA=1\n;end\n"),
              "SourceMount1=/a\nA=1\n;end\nNew=n\nDefaultUserMax=5\nSourceMount7=/seven\n");
}

TEST(ConfigSave, NewKeyOfASectionFollowsItsLastLineBeforeTheComment) {
    const std::string text = "SourceMount1=/a\n; next\nSourceMount2=/b\nA=1\n";
    const auto root = SettingsOf(text);
    set(MountSettings(root, "1"), "Name", "A");
    set(MountSettings(root, "2"), "Name", "B");
    EXPECT_EQ(merged(root, text),
              "SourceMount1=/a\nSourceName1=A\n; next\nSourceMount2=/b\nSourceName2=B\nA=1\n");
}

TEST(ConfigSave, NewKeyOfAnIncludedSectionStaysInTheIncludedFile) {
    const MemoryFiles files{
        {{"main", "include=more\n;c\nA=1\n"}, {"more", "SourceMount1=/a\n; end of more\n"}}};
    const auto root = EmptySettings();
    LoadConfig("main", files.Reader(), root);
    set(MountSettings(root, "1"), "Name", "A");
    set(root, "New", "n");
    const auto result = MergeConfig("main", files.Reader(), root);
    EXPECT_EQ(text_of(result, "more"), "SourceMount1=/a\nSourceName1=A\n; end of more\n");
    EXPECT_EQ(text_of(result, "main"), "include=more\n;c\nA=1\nNew=n\n");
    EXPECT_EQ(result.outputs.back().path, "main");
}

TEST(ConfigSave, SectionThatLeftTheTreeIsDroppedWithItsLines) {
    const std::string text = "SourceMount1=/a\nSourceName1=A\n; two\nSourceMount2=/b\n";
    const auto root = SettingsOf(text);
    MountSettings(root, "1")->Delete();
    EXPECT_EQ(merged(root, text), "; two\nSourceMount2=/b\n");
}

TEST(ConfigSave, OldStyleLinesComeOutWithIndexes) {
    const std::string text = "SourceMount=/a\nSourceName=A\n;b\nSourceMount=/b\nSourceName=B\n";
    EXPECT_EQ(merged(SettingsOf(text), text),
              "SourceMount2=/a\nSourceName2=A\n;b\nSourceMount1=/b\nSourceName1=B\n");
}

TEST(ConfigSave, OldStyleSectionThatIsGoneIsDropped) {
    EXPECT_EQ(merged(EmptySettings(), ";a\nSourceMount=/a\n;b\nSourceName=A\nC=1\n"), ";a\n;b\n");
}

TEST(ConfigSave, MixedSectionsAreGatheredWhereTheyFirstStand) {
    const auto root = SettingsOf("SourceMount1=/a\nSourceName1=A\nSourceMount2=/b\n");
    EXPECT_EQ(merged(root, "SourceMount1=/a\nSourceMount2=/b\nSourceName1=A\n"),
              "SourceMount1=/a\nSourceName1=A\nSourceMount2=/b\n");
}

TEST(ConfigSave, LineEndsAndNulsInKeysAndValuesBecomeBlanks) {
    const auto root = SettingsOf("SourceMount1=/a\n");
    set(MountSettings(root, "1"), "No\nte", std::string("x\r\nAdminUser=evil\0!", 19));
    EXPECT_EQ(merged(root, ""), "SourceMount1=/a\nSourceNo te1=x  AdminUser=evil !\n");
}

TEST(ConfigSave, BareSectionNamesAreNotWritten) {
    EXPECT_EQ(merged(SettingsOf("Source=x\nA=1\n"), "Source=x\nA=1\n"), "A=1\n");
}

TEST(ConfigSave, KeysThatRepeatKeepTheirOrder) {
    const auto root = SettingsOf("PortBase=1\nPortBase=2\n");
    EXPECT_EQ(merged(root, "PortBase=5\n;\nPortBase=6\nPortBase=7\n"),
              "PortBase=1\n;\nPortBase=2\n");
}

TEST(ConfigSave, MissingFileIsMadeFromTheTree) {
    const auto root = SettingsOf("A=1\nDefaultUserMax=5\nSourceMount3=/c\n");
    const auto result = MergeConfig("main", MemoryFiles{}.Reader(), root);
    EXPECT_FALSE(result.found);
    EXPECT_FALSE(result.incomplete);
    EXPECT_EQ(text_of(result, "main"), "A=1\nDefaultUserMax=5\nSourceMount3=/c\n");
}

TEST(ConfigSave, UnreadableFilesForbidTheSave) {
    const auto root = SettingsOf("A=1\n");
    EXPECT_TRUE(MergeConfig("main", MemoryFiles{{}, {"main"}}.Reader(), root).incomplete);
    const MemoryFiles files{{{"main", "include=more\nA=1\n"}}, {"more"}};
    EXPECT_TRUE(MergeConfig("main", files.Reader(), root).incomplete);
}

TEST(ConfigSave, MissingIncludeKeepsItsLineAndItsKeysMove) {
    LogLines log;
    const auto root = SettingsOf("A=1\nB=2\n");
    EXPECT_EQ(merged(root, "include=nowhere\nA=1\n"), "include=nowhere\nA=1\nB=2\n");
    EXPECT_THAT(log.All(), ElementsAre("WARNING: nowhere could not be loaded"));
}

TEST(ConfigSave, IncludeOfItselfIsKeptAndReadOnce) {
    const std::string text = "A=1\ninclude=main\nB=2\n";
    EXPECT_EQ(merged(SettingsOf(text), text), text);
}

TEST(ConfigSave, SectionKeyThatIsNoNumberIsWrittenAsOne) {
    const auto root = EmptySettings();
    set(root->GetChild("Source", false)->GetChild("x", true), "Mount", "/x");
    EXPECT_EQ(merged(root, ""), "SourceMount0=/x\n");
}
