#include "web/Html.h"

#include <gtest/gtest.h>

namespace {

using html::Markup;
using html::raw;

TEST(Markup, ATextIsEncodedWhereItBecomesMarkup) {
    const std::string text = "<b>\"&";
    EXPECT_EQ(Markup(text).str(), "&lt;b&gt;&quot;&amp;");
    EXPECT_EQ((raw("<i>") + text).str(), "<i>&lt;b&gt;&quot;&amp;");
    EXPECT_EQ(("<" + Markup(">")).str(), "&lt;&gt;");
}

TEST(Markup, RawWordsStandAsTheyAre) { EXPECT_EQ(raw("<b>").str(), "<b>"); }

TEST(Html, AnElementWithoutAttributesHasABareTag) {
    EXPECT_EQ(html::element("b", "x").str(), "<b>x</b>");
    EXPECT_EQ(html::div({{"class", "a"}}, "x").str(), R"(<div class="a">x</div>)");
}

TEST(Html, AnElementEncodesItsTextAndItsValuesAndKeepsMarkup) {
    EXPECT_EQ(html::element("b", {{"title", "\"<"}}, "<").str(),
              "<b title=\"&quot;&lt;\">&lt;</b>");
    EXPECT_EQ(html::cell(html::element("b", "x")).str(), "<td><b>x</b></td>");
}

TEST(Html, AnAttributeWithoutValueIsABareWord) {
    EXPECT_EQ(html::single("input", {{"name", ""}, {"disabled"}}).str(),
              "<input name=\"\" disabled />");
}

TEST(Html, WordsOfALinkAreEncodedWhereTheyEnter) {
    EXPECT_EQ(html::anchor("/a?b=\"&c", "<d>").str(),
              "<a href=\"/a?b=&quot;&amp;c\">&lt;d&gt;</a>");
}

TEST(Html, AListHoldsItsItems) {
    EXPECT_EQ(html::list({}, html::item({{"id", "a"}}, "1") + html::item({}, "2")).str(),
              R"(<ul><li id="a">1</li><li>2</li></ul>)");
}

TEST(Html, ALabelRowIsNameAndValue) {
    EXPECT_EQ(html::label_row("Name:", "<x>").str(),
              R"(<tr class="tableViewCol"><td class="tableViewIndex">Name:</td>)"
              "<td>&lt;x&gt;</td></tr>");
}

} // namespace
