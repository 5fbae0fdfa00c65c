// The pieces that pages are put together from.

#include "web/WebPanel.h"

using html::div;
using html::element;
using html::Markup;

namespace {

// Ticks and unticks every box of the list that is not disabled. It is given the ids of the master
// box and of the boxes of the list.
std::string toggle_box_script(const std::string& id, const std::string& target_id) {
    return R"(
function toggleBox() {
  var ticked = document.getElementById(")" +
           id + R"(").checked;
  var boxes = document.getElementsByTagName("input");
  for (var i = 0; i < boxes.length; i++)
    if (boxes[i].id == ")" +
           target_id + R"(" && !boxes[i].disabled) boxes[i].checked = ticked;
}
)";
}

// Swaps the content of an element for other markup, and back again.
std::string action_query_script(const std::string& element_id, const Markup& markup) {
    const Markup done =
        create_form_field({.type = FieldType::BUTTON, .value = "Done", .onclick = "actionQuery()"});
    return R"(
var actionQueryKept = null;
function actionQuery() {
  var place = document.getElementById(")" +
           element_id + R"(");
  if (actionQueryKept === null) {
    actionQueryKept = place.innerHTML;
    place.innerHTML = ')" +
           (markup + done).str() + R"(';
  } else {
    place.innerHTML = actionQueryKept;
    actionQueryKept = null;
  }
}
)";
}

} // namespace

Markup WebPanel::create_mb(const Markup& body, const std::string& title) {
    if (body.str().starts_with("<"))
        return div({{"class", "messageBox"}}, element("h2", title) + body);
    return div({{"class", "messageBox"}},
               element("h2", {{"style", "border-bottom: solid 1px #202066;"}}, title) +
                   div({{"class", "valueDisplay"}}, body));
}

Markup WebPanel::create_tab(const Tabs& tabs, const Markup& content) {
    Markup items;
    for (const auto& [label, address] : tabs)
        items += address.empty() ? html::item({{"id", "selected"}}, label)
                                 : html::item({}, html::anchor(address, label));
    return div({{"class", "tabView"}}, html::list({}, items) + div({}, content));
}

Markup WebPanel::create_master_check(const std::string& id, const std::string& target_id) {
    head_extra += html::script(toggle_box_script(id, target_id));
    return create_form_field({.type = FieldType::CHECKBOX,
                              .style = "vertical-align: middle;",
                              .id = id,
                              .onclick = "toggleBox()"});
}

// The markup stands in a quoted text of the script, so it must hold no single quote.
Markup WebPanel::create_action_query(const std::string& element_id, const std::string& label,
                                     const Markup& markup) {
    head_extra += html::script(action_query_script(element_id, markup));
    return create_form_field(
        {.type = FieldType::BUTTON, .value = label, .onclick = "actionQuery()"});
}
