#include "web/FormFields.h"

#include <gtest/gtest.h>

namespace {

TEST(FormField, AttributesStandInTheirOrder) {
    EXPECT_EQ(create_form_field({.type = FieldType::TEXT,
                                 .name = "n",
                                 .value = "<v>",
                                 .disabled = true,
                                 .style = "s",
                                 .id = "i",
                                 .class_name = "c",
                                 .onclick = "o()"})
                  .str(),
              R"(<input type="text" class="c" id="i" name="n" value="&lt;v&gt;" style="s" )"
              "onclick=\"o()\" disabled />");
}

TEST(FormField, WhatIsEmptyIsLeftOutButForTheName) {
    EXPECT_EQ(create_form_field({.type = FieldType::SUBMIT}).str(),
              R"(<input type="submit" name="" />)");
}

TEST(ComboField, OptionsStandInTheOrderOfTheirValues) {
    EXPECT_EQ(create_combo_field({.name = "n",
                                  .options = {{"2", "two"}, {"10", "<ten>"}},
                                  .selected = "2",
                                  .disabled = true,
                                  .style = "s",
                                  .id = "i",
                                  .class_name = "c"})
                  .str(),
              R"(<select id="i" class="c" name="n" style="s" disabled>)"
              R"(<option value="10">&lt;ten&gt;</option>)"
              R"(<option value="2" selected>two</option></select>)");
}

TEST(ComboField, WithoutANameItIsNotSubmitted) {
    EXPECT_EQ(create_combo_field({.id = "i"}).str(), R"(<select id="i"></select>)");
}

TEST(OneLine, EndsBeforeTheFirstLineEnd) {
    EXPECT_EQ(one_line("a b;=\t"), "a b;=\t");
    EXPECT_EQ(one_line("a\rb"), "a");
    EXPECT_EQ(one_line("a\nb\r"), "a");
    EXPECT_EQ(one_line(std::string("a\0b", 3)), "a");
    EXPECT_EQ(one_line("\na"), "");
    EXPECT_EQ(one_line(""), "");
}

} // namespace
