#include "web/Html.h"

#include <gtest/gtest.h>

namespace {

TEST(Html, AnElementWithoutAttributesHasABareTag) {
    EXPECT_EQ(html::element("b", "", "x"), "<b>x</b>");
    EXPECT_EQ(html::div(R"(class="a")", "x"), R"(<div class="a">x</div>)");
}

TEST(Html, WordsOfALinkAreEncodedWhereTheyEnter) {
    EXPECT_EQ(html::link("/a?b=\"&c", "<d>"), "<a href=\"/a?b=&quot;&amp;c\">&lt;d&gt;</a>");
}

TEST(Html, AListHoldsItsItems) {
    EXPECT_EQ(html::list("", html::item(R"(id="a")", "1") + html::item("", "2")),
              R"(<ul><li id="a">1</li><li>2</li></ul>)");
}

} // namespace
