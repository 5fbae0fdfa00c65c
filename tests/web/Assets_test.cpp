#include "web/Assets.h"

#include <gtest/gtest.h>
#include <string>

namespace {

TEST(Assets, AreTheBytesOfTheirFiles) {
    const std::string css = asset_text(main_css, main_css_len);

    EXPECT_EQ(css.size(), main_css_len);
    EXPECT_EQ(css.substr(0, 2), "/*");
    EXPECT_EQ(css.substr(css.size() - 4), "}\n}\n");
    EXPECT_NE(css.find(".pageBackground {\n  background: #EBEBFF;"), std::string::npos);
}

} // namespace
