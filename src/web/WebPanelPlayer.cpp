// The player in the page: the browser's own audio where that can play a stream, a Flash movie where
// not.

#include "web/Assets.h"
#include "web/WebPanel.h"

using html::element;
using html::Markup;

namespace {

// From a public host, as pages load jQuery too.
const std::string SWFOBJECT = "https://ajax.googleapis.com/ajax/libs/swfobject/2.2/swfobject.js";

// The movie is there at once, so that a click on a play link finds it ready.
const std::string START_PLAYER = R"(
loadPlayLinks();
(function () {
  var place = document.createElement("div");
  place.id = "playfall";
  document.body.appendChild(place);
  if (!window.swfobject) return;
  swfobject.embedSWF("/flash/quillwave.swf", "playfall", "0", "0", "10.3.0", false, {},
    {wmode: "transparent", allowScriptAccess: "always"}, {id: "quillPlayer"}, function () {
      flashObj = document.getElementById("quillPlayer");
    });
})();
)";

} // namespace

Markup WebPanel::create_player_script() const {
    return element("script", {{"type", "text/javascript"}, {"src", SWFOBJECT}}, {}) +
           html::script(asset_text(player_js, player_js_len));
}

Markup WebPanel::create_swf_player() const { return html::script(START_PLAYER); }
