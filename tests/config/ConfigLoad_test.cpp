#include "config/ConfigLoad.h"

#include "config/ConfigNodeListener.h"
#include "support/LogLines.h"
#include "support/MemoryFiles.h"
#include "support/SettingsTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::shared_ptr<ConfigNode> defaults(const std::shared_ptr<ConfigNode>& root) {
    return root->GetChild("Default", false);
}
std::shared_ptr<ConfigNode> mounts(const std::shared_ptr<ConfigNode>& root) {
    return root->GetChild("Source", false);
}

std::vector<std::shared_ptr<ConfigNode>> reload(const std::shared_ptr<ConfigNode>& root,
                                                const std::string& text) {
    const MemoryFiles files{{{"main", text}}};
    return LoadConfig("main", files.Reader(), root).value();
}

class Changes final : public ConfigNodeListener {
public:
    bool OnConfigNodeChanged(std::shared_ptr<ConfigNode> node, std::string old_value) override {
        heard.push_back(node->GetKey(true) + "=" + node->GetValue("") + ", was " + old_value);
        return false;
    }
    std::vector<std::string> heard;
};

} // namespace

TEST(ConfigLoad, MissingFileLeavesTheTree) {
    const auto root = EmptySettings();
    EXPECT_FALSE(LoadConfig("main", MemoryFiles{}.Reader(), root).has_value());
    EXPECT_THAT(Keys(root), ElementsAre("Default", "Source"));
}

TEST(ConfigLoad, LinesFillGlobalsDefaultsAndSections) {
    const auto root =
        SettingsOf("PortBase=8000\nDefaultUserMax=10\nSourceMount2=/live\nSourceName2=A\n");
    EXPECT_EQ(root->GetChild("portbase", false)->GetValue(0), 8000);
    EXPECT_THAT(Lines(defaults(root)), ElementsAre("UserMax=10"));
    EXPECT_THAT(Keys(mounts(root)), ElementsAre("2"));
    EXPECT_THAT(Lines(MountSettings(root, "2")), ElementsAre("Mount=/live", "Name=A"));
}

TEST(ConfigLoad, LastLineNeedsNoLineFeed) {
    EXPECT_EQ(SettingsOf("A=1\nB=2")->GetChild("B", false)->GetValue(0), 2);
}

TEST(ConfigLoad, RepeatedKeyBecomesASecondNode) {
    const auto root = SettingsOf("ServIP=1.1.1.1\nservip=2.2.2.2\n");
    const auto nodes = root->GetChildren("ServIP");
    ASSERT_EQ(nodes.size(), 2U);
    EXPECT_EQ(nodes[0]->GetValue(""), "1.1.1.1");
    EXPECT_EQ(nodes[1]->GetValue(""), "2.2.2.2");
}

TEST(ConfigLoad, ReloadMatchesRepeatedKeysInOrder) {
    const auto root = SettingsOf("ServIP=1\nServIP=2\n");
    const auto before = root->GetChildren("ServIP");
    reload(root, "ServIP=1\nServIP=3\n");
    EXPECT_EQ(root->GetChildren("ServIP"), before);
    EXPECT_EQ(before[1]->GetValue(""), "3");
}

TEST(ConfigLoad, BareSectionNamesSetTheSectionNodes) {
    const auto root = SettingsOf("Source=x\nDefault=y\n");
    EXPECT_THAT(Lines(root), ElementsAre("Default=y", "Source=x"));
}

TEST(ConfigLoad, KeyThatStandsEmptyStays) {
    const auto root = SettingsOf("NameLookups=\nSourceMount1=/a\nSourceGenre1=\n");
    EXPECT_TRUE(root->ChildExists("NameLookups"));
    reload(root, "NameLookups=\nSourceMount1=/a\nSourceGenre1=\n");
    EXPECT_TRUE(root->ChildExists("NameLookups"));
    EXPECT_THAT(Lines(MountSettings(root, "1")), ElementsAre("Mount=/a", "Genre="));
}

TEST(ConfigLoad, IndexesAreComparedAsNumbers) {
    const auto root = SettingsOf("SourceMount01=/a\nSourceName1=A\nSOURCEGENRE1=G\n");
    EXPECT_THAT(Keys(mounts(root)), ElementsAre("1"));
    EXPECT_THAT(Lines(MountSettings(root, "1")), ElementsAre("Mount=/a", "Name=A", "GENRE=G"));
}

TEST(ConfigLoad, NameWithoutLettersMakesASectionAndNoSetting) {
    const auto root = SettingsOf("Source12Mount=/a\n");
    EXPECT_THAT(Keys(mounts(root)), ElementsAre("12"));
    EXPECT_THAT(Lines(MountSettings(root, "12")), IsEmpty());
}

TEST(ConfigLoad, OldStyleSectionsGetIndexesNewestFirst) {
    LogLines log;
    const auto root = SettingsOf(";\nSourceMount=/a\nSourceName=A\nSourceMount=/b\nSourceName=B\n");
    EXPECT_THAT(Lines(MountSettings(root, "1")), ElementsAre("Mount=/b", "Name=B"));
    EXPECT_THAT(Lines(MountSettings(root, "2")), ElementsAre("Mount=/a", "Name=A"));
    EXPECT_THAT(
        log.All(),
        ElementsAre(
            "Configuration Warning: Detected old style Source definition SourceMount on line 2.  "
            "Please start using indexes when possible.",
            "Configuration Warning: Detected old style Source definition SourceMount on line 4.  "
            "Please start using indexes when possible."));
}

TEST(ConfigLoad, OldStyleSectionsTakeFreeIndexes) {
    const auto root = SettingsOf("SourceMount1=/x\nSourceMount=/a\nSourceMount3=/y\n");
    EXPECT_THAT(Lines(MountSettings(root, "2")), ElementsAre("Mount=/a"));
}

TEST(ConfigLoad, OldStyleSectionFindsItsMountOnAReload) {
    const auto root = SettingsOf("SourceMount=/a\nSourceName=A\n");
    const auto section = MountSettings(root, "1");
    EXPECT_THAT(reload(root, "SourceMount=/a\nSourceName=B\n"), IsEmpty());
    EXPECT_THAT(Keys(mounts(root)), ElementsAre("1"));
    EXPECT_THAT(Lines(section), ElementsAre("Mount=/a", "Name=B"));
}

TEST(ConfigLoad, MountLineBeforeAnySectionIsIgnored) {
    LogLines log;
    const auto root = SettingsOf("A=1\nSourceName=A\n");
    EXPECT_THAT(Keys(mounts(root)), IsEmpty());
    EXPECT_THAT(
        log.All(),
        ElementsAre("Configuration Warning: Source definition SourceName is missing its index at "
                    "line 2, ignored."));
}

TEST(ConfigLoad, IncludedLinesTakeEffectBeforeTheNextLine) {
    const MemoryFiles files{
        {{"main", "A=1\ninclude=more\nC=3\n"}, {"more", "B=2\ninclude=deeper"}, {"deeper", "D=4"}}};
    const auto root = EmptySettings();
    LoadConfig("main", files.Reader(), root);
    EXPECT_THAT(Lines(root), ElementsAre("Default=", "Source=", "A=1", "B=2", "D=4", "C=3"));
}

TEST(ConfigLoad, LineNumberIsThatOfTheIncludedFile) {
    LogLines log;
    const MemoryFiles files{
        {{"main", "A=1\nB=2\ninclude=more\nSourceGenre=G\n"}, {"more", ";\nSourceName=A\n"}}};
    LoadConfig("main", files.Reader(), EmptySettings());
    EXPECT_EQ(log.Count("nothing"), 0);
    EXPECT_THAT(
        log.All(),
        ElementsAre("Configuration Warning: Source definition SourceName is missing its index at "
                    "line 2, ignored.",
                    "Configuration Warning: Source definition SourceGenre is missing its index at "
                    "line 4, ignored."));
}

TEST(ConfigLoad, MissingIncludeIsPassedOver) {
    LogLines log;
    const auto root = SettingsOf("include=nowhere\nA=1\n");
    EXPECT_EQ(root->GetChild("A", false)->GetValue(0), 1);
    EXPECT_THAT(log.All(), ElementsAre("WARNING: nowhere could not be loaded"));
}

TEST(ConfigLoad, FileThatIncludesItselfIsReadOnce) {
    LogLines log;
    const MemoryFiles files{
        {{"main", "A=1\ninclude=more\n"}, {"more", "B=2\ninclude=main\nC=3\n"}}};
    const auto root = EmptySettings();
    LoadConfig("main", files.Reader(), root);
    EXPECT_THAT(Keys(root), ElementsAre("Default", "Source", "A", "B", "C"));
    EXPECT_THAT(log.All(), ElementsAre("WARNING: main could not be loaded"));
}

TEST(ConfigLoad, ReloadTellsOnlyOfWhatChanged) {
    const auto root = SettingsOf("A=1\nSourceMount1=/a\nSourceName1=A\nSourceGenre1=G\n");
    const auto section = MountSettings(root, "1");
    Changes changes;
    root->AddListener(&changes);
    reload(root, "A=1\nSourceMount1=/a\nSourceName1=B\nSourceUrl1=u\n");
    EXPECT_THAT(changes.heard,
                ElementsAre("Name=B, was A", "Url=, was ", "Url=u, was ", "Genre=, was G"));
    EXPECT_EQ(MountSettings(root, "1"), section);
    EXPECT_THAT(Lines(section), ElementsAre("Mount=/a", "Name=B", "Url=u"));
}

TEST(ConfigLoad, GlobalAndDefaultKeysThatLeftTheFileStay) {
    const auto root = SettingsOf("A=1\nDefaultUserMax=5\n");
    reload(root, "B=2\n");
    EXPECT_EQ(root->GetChild("A", false)->GetValue(0), 1);
    EXPECT_THAT(Lines(defaults(root)), ElementsAre("UserMax=5"));
}

TEST(ConfigLoad, SectionThatLeftTheFileIsHandedOutUntouched) {
    const auto root = SettingsOf("SourceMount1=/a\nSourceMount2=/b\n");
    const auto gone = MountSettings(root, "2");
    EXPECT_THAT(reload(root, "SourceMount1=/a\n"), ElementsAre(gone));
    EXPECT_THAT(Lines(gone), ElementsAre("Mount=/b"));
}

TEST(ConfigLoad, NodesOfTheSectionOpenedLastAreSetByLinesOfAnother) {
    const auto root =
        SettingsOf("SourceMount1=/a\nSourceMount2=/b\nSourceName1=A\nSourceName2=B\n");
    EXPECT_THAT(Lines(MountSettings(root, "1")), ElementsAre("Mount=/a", "Name=A"));
    reload(root, "SourceMount1=/a\nSourceMount2=/b\nSourceName1=X\nSourceName2=Y\n");
    EXPECT_THAT(Lines(MountSettings(root, "2")), ElementsAre("Mount=/b", "Name=X", "Name=Y"));
    EXPECT_THAT(Lines(MountSettings(root, "1")), ElementsAre("Mount=/a"));
}
