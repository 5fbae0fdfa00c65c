#include "web/LiveScript.h"

#include "web/Assets.h"

#include <string>

using html::Markup;

namespace {

const std::string JQUERY = "https://ajax.googleapis.com/ajax/libs/jquery/1.11.1/jquery.min.js";

} // namespace

Markup live_script(bool with_player) {
    const std::string player_enabled = with_player ? "true" : "false";
    return html::element("script", {{"type", "text/javascript"}, {"src", JQUERY}}, {}) +
           html::script("\nvar playerEnabled = " + player_enabled + ";\n" +
                        asset_text(live_js, live_js_len));
}
