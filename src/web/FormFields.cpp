#include "web/FormFields.h"

#include <cstddef>
#include <utility>

using html::Attributes;
using html::Markup;

const std::array<const char*, 7> FIELD_TYPE_STRINGS = {"hidden", "text",  "password", "checkbox",
                                                       "button", "reset", "submit"};

namespace {

void add_unless_empty(Attributes& attributes, const std::string& name, const std::string& value) {
    if (!value.empty()) attributes.push_back({name, value});
}

void add_if(Attributes& attributes, const std::string& word, bool wanted) {
    if (wanted) attributes.push_back({word});
}

Markup option(const std::string& value, const std::string& label, bool selected) {
    Attributes attributes = {{"value", value}};
    add_if(attributes, "selected", selected);
    return html::element("option", attributes, label);
}

} // namespace

Markup create_form_field(const FormFieldDescription& field) {
    Attributes attributes = {{"type", FIELD_TYPE_STRINGS.at(static_cast<std::size_t>(field.type))}};
    add_unless_empty(attributes, "class", field.class_name);
    add_unless_empty(attributes, "id", field.id);
    attributes.push_back({"name", field.name});
    add_unless_empty(attributes, "value", field.value);
    add_unless_empty(attributes, "style", field.style);
    add_unless_empty(attributes, "onclick", field.onclick);
    add_if(attributes, "disabled", field.disabled);
    return html::single("input", attributes);
}

Markup create_combo_field(const ComboFieldDescription& field) {
    Attributes attributes;
    add_unless_empty(attributes, "id", field.id);
    add_unless_empty(attributes, "class", field.class_name);
    add_unless_empty(attributes, "name", field.name);
    add_unless_empty(attributes, "style", field.style);
    add_if(attributes, "disabled", field.disabled);
    Markup options;
    for (const auto& [value, label] : field.options)
        options += option(value, label, value == field.selected);
    return html::element("select", attributes, options);
}

Markup create_row_check(const std::string& name, bool disabled) {
    return create_form_field({.type = FieldType::CHECKBOX,
                              .name = name,
                              .disabled = disabled,
                              .style = "vertical-align: middle;",
                              .id = "select_check"});
}

Markup create_action_button(const std::string& action, bool disabled) {
    return create_form_field(
        {.type = FieldType::SUBMIT, .name = "action", .value = action, .disabled = disabled});
}

std::string one_line(const std::string& text) {
    static const std::string LINE_ENDS("\r\n\0", 3);
    return text.substr(0, text.find_first_of(LINE_ENDS));
}
