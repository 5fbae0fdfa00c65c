// The files that come with the program.

#include "http/Request.h"
#include "web/Assets.h"
#include "web/WebPanel.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace {

struct Asset {
    std::string_view path;
    const unsigned char* bytes;
    const std::size_t& length;
    const char* content_type;
};

const Asset ASSETS[] = {
    {"/favicon.ico", favicon_ico, favicon_ico_len, "image/vnd.microsoft.icon"},
    {"/images/logo.png", logo_png, logo_png_len, "image/png"},
    {"/images/quillwave.png", quillwave_png, quillwave_png_len, "image/png"},
    {"/images/play.png", play_png, play_png_len, "image/png"},
    {"/images/stop.png", stop_png, stop_png_len, "image/png"},
    {"/flash/quillwave.swf", quillwave_swf, quillwave_swf_len, "application/x-shockwave-flash"},
    {"/stylesheets/main.css", main_css, main_css_len, "text/css"},
};

} // namespace

// Kept: nothing is to be cached, not even these. A new version of the server shows its own at once.
int WebPanel::send_asset() {
    const std::string path = request->Path();
    const auto* asset = std::find_if(std::begin(ASSETS), std::end(ASSETS),
                                     [&](const Asset& each) { return each.path == path; });
    if (asset == std::end(ASSETS)) return NOT_A_PAGE;
    send_final(asset_text(asset->bytes, asset->length), asset->content_type, 200, false);
    return ANSWERED;
}
