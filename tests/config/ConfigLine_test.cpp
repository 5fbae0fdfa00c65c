#include "config/ConfigLine.h"

#include <gtest/gtest.h>

using Kind = ConfigLine::Kind;

namespace {

void expect_mount(const std::string& text, Kind kind, const std::string& name,
                  const std::string& index) {
    const ConfigLine line = ParseConfigLine(text);
    EXPECT_EQ(line.kind, kind) << text;
    EXPECT_EQ(line.name, name) << text;
    EXPECT_EQ(line.index, index) << text;
}

} // namespace

TEST(ConfigLine, CommentsBlankStartsAndLinesWithoutEqualsAreNoSettings) {
    for (const char* text : {"", ";PortBase=80", "  PortBase=80", "\tPortBase=80", "PortBase", " "})
        EXPECT_EQ(ParseConfigLine(text).kind, Kind::NO_SETTING) << text;
    EXPECT_EQ(ParseConfigLine("#PortBase=80").key, "#PortBase");
}

TEST(ConfigLine, KeyKeepsItsBlanksAndValueIsTrimmed) {
    const ConfigLine line = ParseConfigLine("Foo = \t bar baz \v\f\r");
    EXPECT_EQ(line.kind, Kind::GLOBAL);
    EXPECT_EQ(line.name, "Foo ");
    EXPECT_EQ(line.value, "bar baz");
}

TEST(ConfigLine, ValueMayHoldEqualsSignsAndBeEmpty) {
    EXPECT_EQ(ParseConfigLine("Url=http://a/?b=c").value, "http://a/?b=c");
    EXPECT_EQ(ParseConfigLine("Url=").value, "");
    EXPECT_EQ(ParseConfigLine("=x").kind, Kind::GLOBAL);
}

TEST(ConfigLine, IncludeIsTheWholeKeyInAnyCase) {
    EXPECT_EQ(ParseConfigLine("INClude= more.conf ").kind, Kind::INCLUDE);
    EXPECT_EQ(ParseConfigLine("INClude= more.conf ").value, "more.conf");
    EXPECT_EQ(ParseConfigLine("includes=x").kind, Kind::GLOBAL);
}

TEST(ConfigLine, BareSectionNamesAreGlobalKeys) {
    EXPECT_EQ(ParseConfigLine("Source=x").kind, Kind::GLOBAL);
    EXPECT_EQ(ParseConfigLine("Default=x").kind, Kind::GLOBAL);
}

TEST(ConfigLine, DefaultsLoseTheirPrefixOnly) {
    const ConfigLine line = ParseConfigLine("dEFAULTMaxUser=10");
    EXPECT_EQ(line.kind, Kind::DEFAULT);
    EXPECT_EQ(line.name, "MaxUser");
    EXPECT_EQ(ParseConfigLine("Default2Name=x").name, "2Name");
}

TEST(ConfigLine, FirstDigitEndsTheNameAndBeginsTheIndex) {
    expect_mount("SourceMount12=/a", Kind::INDEXED_MOUNT, "Mount", "12");
    expect_mount("SOURCEMOUNT3=/x", Kind::INDEXED_MOUNT, "MOUNT", "3");
    expect_mount("Sourcemount3=/x", Kind::INDEXED_MOUNT, "mount", "3");
    expect_mount("SourceName7b9=A", Kind::INDEXED_MOUNT, "Name", "7");
    expect_mount("Source12Mount=/a", Kind::INDEXED_MOUNT, "", "12");
}

TEST(ConfigLine, IndexLosesLeadingZeros) {
    expect_mount("SourceMount01=/a", Kind::INDEXED_MOUNT, "Mount", "1");
    expect_mount("SourceMount000=/a", Kind::INDEXED_MOUNT, "Mount", "0");
}

TEST(ConfigLine, MountWithoutIndexOpensASection) {
    expect_mount("sourcemount=/a", Kind::OPENS_MOUNT, "mount", "");
    expect_mount("SourceName=A", Kind::MOUNT, "Name", "");
    expect_mount("SourceMount =/a", Kind::MOUNT, "Mount ", "");
}
