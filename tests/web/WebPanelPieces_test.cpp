#include "support/PanelVisit.h"

#include <gtest/gtest.h>

namespace {

using html::Markup;
using html::raw;

TEST(MessageBox, MarkupStandsInTheBoxItself) {
    EXPECT_EQ(WebPanel::create_mb(raw("<p>x</p>"), "a<b").str(),
              "<div class=\"messageBox\"><h2>a&lt;b</h2><p>x</p></div>");
}

TEST(MessageBox, PlainWordsGetAFrameOfTheirOwn) {
    EXPECT_EQ(WebPanel::create_mb("x & y", "t").str(),
              "<div class=\"messageBox\"><h2 style=\"border-bottom: solid 1px #202066;\">t</h2>"
              "<div class=\"valueDisplay\">x &amp; y</div></div>");
    EXPECT_TRUE(holds(WebPanel::create_mb("<x>", "t").str(), "valueDisplay\">&lt;x&gt;<"));
}

TEST(MessageBox, NothingIsPlainWordsToo) {
    EXPECT_EQ(WebPanel::create_mb({}, "").str(),
              "<div class=\"messageBox\"><h2 style=\"border-bottom: solid 1px #202066;\"></h2>"
              "<div class=\"valueDisplay\"></div></div>");
}

TEST(Tabs, TheOneWithoutAnAddressIsShown) {
    EXPECT_EQ(WebPanel::create_tab({{"A<", ""}, {"B", "?m=\"b\"&x"}}, raw("<p>")).str(),
              "<div class=\"tabView\"><ul><li id=\"selected\">A&lt;</li>"
              "<li><a href=\"?m=&quot;b&quot;&amp;x\">B</a></li></ul><div><p></div></div>");
}

TEST(Tabs, MayBeNone) {
    EXPECT_EQ(WebPanel::create_tab({}, {}).str(),
              "<div class=\"tabView\"><ul></ul><div></div></div>");
}

TEST(MasterCheck, IsACheckBoxWithAScriptInTheHead) {
    WebPanel panel(nullptr);
    EXPECT_EQ(panel.create_master_check("master_select_check", "select_check").str(),
              "<input type=\"checkbox\" id=\"master_select_check\" name=\"\" "
              "style=\"vertical-align: middle;\" onclick=\"toggleBox()\" />");
    const std::string head = between(panel.get_page_header("").str(), "<head>", "</head>");
    EXPECT_TRUE(holds(head, "function toggleBox()"));
    EXPECT_TRUE(holds(head, "getElementById(\"master_select_check\")"));
    EXPECT_TRUE(holds(head, "== \"select_check\" && !boxes[i].disabled"));
}

TEST(ActionQuery, IsAButtonWithAScriptInTheHead) {
    WebPanel panel(nullptr);
    EXPECT_EQ(panel.create_action_query("place", "Move", raw("<b>to</b>")).str(),
              "<input type=\"button\" name=\"\" value=\"Move\" onclick=\"actionQuery()\" />");
    const std::string head = between(panel.get_page_header("").str(), "<head>", "</head>");
    EXPECT_TRUE(holds(head, "function actionQuery()"));
    EXPECT_TRUE(holds(head, "getElementById(\"place\")"));
    EXPECT_TRUE(holds(head, "= '<b>to</b><input type=\"button\" name=\"\" value=\"Done\" "
                            "onclick=\"actionQuery()\" />';"));
}

TEST(PageHead, WhatPiecesWantInItStandsInTheirOrderBehindTheFramesOwn) {
    WebPanel panel(nullptr);
    panel.create_master_check("m", "s");
    panel.create_action_query("p", "l", {});
    const std::string head = between(panel.get_page_header("").str(), "<head>", "</head>");
    const std::size_t frame = head.find("function toggle(");
    const std::size_t first = head.find("function toggleBox()");
    const std::size_t second = head.find("function actionQuery()");
    EXPECT_LT(frame, first);
    EXPECT_LT(first, second);
    EXPECT_NE(second, std::string::npos);
}

TEST(PageHead, AnEmptyTitleLeavesTheServersName) {
    const WebPanel panel(nullptr);
    EXPECT_TRUE(
        holds(panel.get_page_header("").str(), "<title>Quillwave Multimedia Server</title>"));
    EXPECT_TRUE(holds(panel.get_page_header("<x>").str(),
                      "<title>Quillwave Multimedia Server - &lt;x&gt;</title>"));
}

} // namespace
