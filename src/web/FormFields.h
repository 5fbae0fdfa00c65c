#pragma once

#include "web/Html.h"

#include <array>
#include <cstdint>
#include <map>
#include <string>

enum class FieldType : std::uint8_t { HIDDEN, TEXT, PASSWORD, CHECKBOX, BUTTON, RESET, SUBMIT };
// The `type` attribute of each.
extern const std::array<const char*, 7> FIELD_TYPE_STRINGS;

// An input element. What is empty is not written, but for the name.
struct FormFieldDescription {
    FieldType type = FieldType::TEXT;
    std::string name = {};
    std::string value = {};
    bool disabled = false;
    std::string style = {};
    std::string id = {};
    std::string class_name = {};
    std::string onclick = {};
};

// A select element; the options stand in the order of their values.
struct ComboFieldDescription {
    std::string name = {};
    std::map<std::string, std::string> options = {}; // value to label
    std::string selected = {};
    bool disabled = false;
    std::string style = {};
    std::string id = {};
    std::string class_name = {};
};

html::Markup create_form_field(const FormFieldDescription& field);
html::Markup create_combo_field(const ComboFieldDescription& field);
// One of a row's check boxes, which the master check box ticks and unticks together.
html::Markup create_row_check(const std::string& name, bool disabled = false);
// A button that posts its form with `action` set to its label.
html::Markup create_action_button(const std::string& action, bool disabled = false);

// What a line of a file takes of a stranger's text, be it a setting, a filter or a stream's name:
// all before the first CR, LF or NUL. What follows would be read as another line.
std::string one_line(const std::string& text);
